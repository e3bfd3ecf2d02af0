#pragma once

#include "track.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

// What a playlist drag carries: its own row moves ("application/x-ondaro-rows": a count and the row
// numbers) and, from elsewhere, URLs of files and streams. Plain values in and out.
class PlaylistMime
{
public:
    static QString rowsMimeType();
    static QString uriListMimeType();

    // Each row once, in ascending order; negative rows are left out.
    static QByteArray encodeRows(QList<int> rows);
    // The rows as given; a forged count past the payload's end reads one 0 for all the missing ones.
    static QList<int> decodeRows(const QByteArray& payload);
    // One row per local file or stream URL; other schemes (ftp, ...) are not playable here.
    static QList<Track> tracksFromUrls(const QList<QUrl>& urls);
};
