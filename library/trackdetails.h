#pragma once

#include "track.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

// Names and lengths for playlist rows that came without them (a plain M3U line, a file given on
// the command line): from the library when the file is in it, else from the file's own tags. A
// shared server that does not answer within the wait is left behind and the files' tags are used,
// so opening a list never hangs on the store.
class TrackDetails
{
public:
    // Milliseconds a lookup on a shared server may take before the files' tags are used instead.
    static constexpr int defaultServerWaitMs = 2000;

    // Replaces rows `rows` of `tracks` (file rows; others are left alone) with what the library or
    // the file says of them, keeping each row's path and place in the schedule.
    static void fill(QList<Track>& tracks, const QList<int>& rows, int serverWaitMs = defaultServerWaitMs);

    // The library's rows of these files, by path: only files the library holds. Empty when the
    // store is not open or a shared server did not answer within serverWaitMs.
    static QHash<QString, Track> fromLibrary(const QStringList& paths,
                                             int serverWaitMs = defaultServerWaitMs);
};
