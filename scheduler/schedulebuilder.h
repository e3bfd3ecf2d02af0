#pragma once

#include "asrunentry.h"
#include "schedule.h"
#include "stationformat.h"
#include "track.h"
#include "trackparams.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

// Builds a schedule from a library of the store: reads its entries, their parameters and the as-run
// log of the separation window before the start, and runs the generator. The one place where the
// scheduler meets the database; the window and the command line both come through here.
class ScheduleBuilder
{
public:
    // What a schedule is built from, as read from the store.
    struct Inputs {
        QList<Track> tracks;
        QHash<QString, TrackParams> params;
        QList<AsRunEntry> asRun; // plays within the longest separation before the start
    };

    struct Outcome {
        bool ok = false; // false: the library cannot be read; see error. Nothing was scheduled.
        QString error;
        Schedule schedule;
    };

    // Reads the inputs on the thread that owns the store's connection. False with a message when the
    // database is not open, the library does not exist (it is not created) or the request is empty.
    static bool read(const QString& libraryName, const StationFormat& format, const QDateTime& from,
                     int hours, Inputs* inputs, QString* error);
    // Builds the schedule from read inputs. Touches no database, so it may run on a worker thread.
    static Schedule generate(const Inputs& inputs, const StationFormat& format, const QDateTime& from,
                             int hours, quint64 seed);
    // Both in one.
    static Outcome build(const QString& libraryName, const StationFormat& format, const QDateTime& from,
                         int hours, quint64 seed);
};
