#include "playlistmime.h"

#include "musiclibrary.h"
#include "tracktext.h"

#include <QDataStream>
#include <QIODevice>

#include <algorithm>

QString PlaylistMime::rowsMimeType()
{
    return QStringLiteral("application/x-ondaro-rows");
}

QString PlaylistMime::uriListMimeType()
{
    return QStringLiteral("text/uri-list");
}

QByteArray PlaylistMime::encodeRows(QList<int> rows)
{
    rows.removeIf([](int row) { return row < 0; });
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());

    QByteArray payload;
    QDataStream out(&payload, QIODevice::WriteOnly);
    out << qint32(rows.size());
    for (int row : rows)
        out << qint32(row);
    return payload;
}

QList<int> PlaylistMime::decodeRows(const QByteArray& payload)
{
    QDataStream in(payload);
    qint32 count = 0;
    in >> count;
    QList<int> rows;
    for (qint32 i = 0; i < count; ++i) {
        qint32 value = 0;
        in >> value;
        rows.append(value);
        // Past the end every further number reads as 0; one such 0 stands for all of them, so a
        // forged count cannot make us loop or allocate for nothing.
        if (in.status() != QDataStream::Ok)
            break;
    }
    return rows;
}

QList<Track> PlaylistMime::tracksFromUrls(const QList<QUrl>& urls)
{
    QList<Track> tracks;
    for (const QUrl& url : urls) {
        const QString text = url.isLocalFile() ? url.toLocalFile() : url.toString();
        if (text.isEmpty())
            continue;
        const bool stream = MusicLibrary::isStreamUrl(text);
        if (!url.isLocalFile() && !stream)
            continue;
        tracks.append(stream ? trackFromStreamUrl(text) : trackFromFileName(text));
    }
    return tracks;
}
