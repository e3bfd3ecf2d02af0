#pragma once

#include <QDateTime>
#include <QString>

// One line of the as-run log: what went on air, when, and for how long. Times are local.
struct AsRunEntry {
    qint64 id = 0;
    QDateTime startedAt;
    QDateTime endedAt; // invalid while the item is still sounding
    qint64 playedMs = 0;
    QString filePath; // the file, or the URL of a stream or relay
    QString artist;
    QString title;
    bool isStream = false;
    QString endedBy; // "end", "mix", "skip", "stop", "relay", "lost", "timed"; empty while sounding
};
