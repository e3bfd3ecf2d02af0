#pragma once

#include "track.h"
#include "tracktext.h" // commandTrack, trackFromStreamUrl, trackFromFileName

#include <QString>
#include <QStringList>

// Playlist and library rows for tests. Command and stream rows come from library/tracktext.h, as in
// the programs.
namespace ondarotest {

// A file row with the given names; durationMs 0 is "unknown".
Track fileTrack(const QString& artist, const QString& title, const QString& path, qint64 durationMs = 0,
                const QString& category = QString());

// What a library row says of its file, one "field: value" a line (path, names, album, genre, comment,
// year, length, category, stream flag and limit): two rows compared in one QCOMPARE that names the
// field where they differ.
QStringList tagFields(const Track& track);

} // namespace ondarotest
