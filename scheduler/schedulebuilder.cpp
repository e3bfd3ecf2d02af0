#include "schedulebuilder.h"

#include "asrunlog.h"
#include "musiclibrary.h"
#include "playhistory.h"
#include "rotationpool.h"
#include "schedulegenerator.h"
#include "schedulerlogging.h"

bool ScheduleBuilder::read(const QString& libraryName, const StationFormat& format, const QDateTime& from,
                           int hours, Inputs* inputs, QString* error)
{
    if (!MusicLibrary::database().isOpen()) {
        *error = QStringLiteral("the library database cannot be opened");
        return false;
    }
    // Asked before anything else: opening a library by name would create it.
    if (!MusicLibrary::libraries().contains(libraryName)) {
        *error = QStringLiteral("there is no library named \"%1\"").arg(libraryName);
        return false;
    }
    if (!from.isValid() || hours < 1) {
        *error = QStringLiteral("the schedule needs a valid start and at least one hour");
        return false;
    }
    MusicLibrary library;
    library.useStoredLibrary(libraryName);
    inputs->tracks = library.search(QString());
    inputs->params = TrackParams::loadAll();
    // Plays before the start that can still hold an artist or a song back; older plays are covered by
    // the library's last-played times.
    const int window = qMax(format.rules.artistSeparationMinutes, format.rules.titleSeparationMinutes);
    inputs->asRun.clear();
    if (window > 0)
        inputs->asRun = AsRunLog::entriesBetween(from.addSecs(-qint64(window) * 60), from);
    qCDebug(lcScheduler) << "library" << libraryName << "has" << inputs->tracks.size() << "entries,"
                         << inputs->params.size() << "parameter records," << inputs->asRun.size()
                         << "recent plays";
    return true;
}

Schedule ScheduleBuilder::generate(const Inputs& inputs, const StationFormat& format, const QDateTime& from,
                                   int hours, quint64 seed)
{
    const RotationPool pool = RotationPool::build(inputs.tracks, inputs.params, format.categoriesInUse());
    PlayHistory history(pool);
    for (const AsRunEntry& entry : inputs.asRun)
        history.recordAsRun(entry);
    return ScheduleGenerator(format, pool).generate(from, hours, seed, history);
}

ScheduleBuilder::Outcome ScheduleBuilder::build(const QString& libraryName, const StationFormat& format,
                                                const QDateTime& from, int hours, quint64 seed)
{
    Outcome outcome;
    Inputs inputs;
    if (!read(libraryName, format, from, hours, &inputs, &outcome.error))
        return outcome;
    outcome.schedule = generate(inputs, format, from, hours, seed);
    outcome.ok = true;
    return outcome;
}
