#include "schedulegenerator.h"

#include "musiclibrary.h"
#include "rotationpool.h"
#include "rotationrules.h"
#include "schedulerlogging.h"
#include "seededrandom.h"
#include "tracktext.h"

#include <QFileInfo>
#include <QVector>

namespace {

qint64 msIntoHour(const QDateTime& t)
{
    const QTime time = t.time();
    return qint64(time.minute()) * 60000 + qint64(time.second()) * 1000 + time.msec();
}

QString slotText(const ClockSlot& slot)
{
    switch (slot.kind) {
    case ClockSlot::Kind::Category:
        return QStringLiteral("category \"%1\"").arg(slot.value);
    case ClockSlot::Kind::File:
        return QStringLiteral("file \"%1\"").arg(slot.value);
    case ClockSlot::Kind::Command:
        break;
    }
    return QStringLiteral("command \"%1\"").arg(slot.value);
}

// The state of one run: the growing schedule, the history it adds to, and its caches.
class Run
{
public:
    Run(const StationFormat& format, const RotationPool& pool, PlayHistory history, quint64 seed)
        : format(format), pool(pool), history(std::move(history)), random(seed),
          fileState(pool.candidateCount(), FileState::Unknown)
    {
    }

    void fillHour(QDateTime& cursor);
    Schedule schedule;

private:
    void note(const QDateTime& at, ScheduleNote::Kind kind, const QString& clock, int slot,
              const QString& text)
    {
        schedule.notes << ScheduleNote{at, kind, clock, slot, text};
        qCDebug(lcScheduler).noquote() << at.toString(Qt::ISODate) << text;
    }
    void add(QDateTime& cursor, const Track& track, const QString& clock, int slot)
    {
        schedule.items << ScheduledItem{cursor, track, clock, slot};
        history.recordPlay(track, cursor);
        cursor = cursor.addMSecs(qMax<qint64>(track.durationMs, 0));
    }
    void fillCategory(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot);
    bool fileExists(int candidate, const QDateTime& at);
    void fillFile(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot);

    const StationFormat& format;
    const RotationPool& pool;
    PlayHistory history;
    SeededRandom random;
    // Per hour: the candidates each category allows. Every start within one clock hour has the same
    // date and hour, so the parameters' answer cannot change inside it.
    QHash<QString, QList<int>> allowedThisHour;
    // The library entries of fixed files, looked up once per run, and the files outside the library
    // (or without a stored length), read from their tags once per run.
    QHash<QString, const Track*> libraryEntries;
    QHash<QString, Track> taggedFiles;
    // Whether each candidate's file exists, asked when it is first chosen.
    enum class FileState : qint8 { Unknown, Exists, Missing };
    QVector<FileState> fileState;
};

bool Run::fileExists(int candidate, const QDateTime& at)
{
    FileState& state = fileState[candidate];
    if (state == FileState::Unknown) {
        const QString& path = pool.candidate(candidate).track.filePath;
        state = QFileInfo::exists(path) ? FileState::Exists : FileState::Missing;
        if (state == FileState::Missing)
            note(at, ScheduleNote::Kind::FileMissing, QString(), -1,
                 QStringLiteral("\"%1\" is never chosen: its file does not exist").arg(path));
    }
    return state == FileState::Exists;
}

void Run::fillCategory(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot)
{
    const QString key = slot.value.toCaseFolded();
    auto allowed = allowedThisHour.find(key);
    if (allowed == allowedThisHour.end()) {
        QList<int> indexes = RotationRules::allowedAt(pool, pool.inCategory(slot.value), cursor);
        indexes.removeIf([this](int i) { return fileState.at(i) == FileState::Missing; });
        allowed = allowedThisHour.insert(key, indexes);
    }
    RotationChoice choice =
        RotationRules::choose(pool, allowed.value(), history, cursor, format.rules, random);
    // A file that has gone since the library listed it is dropped and the choice made again, as if
    // the library had never held it.
    while (choice.candidate >= 0 && !fileExists(choice.candidate, cursor)) {
        allowed.value().removeOne(choice.candidate);
        choice = RotationRules::choose(pool, allowed.value(), history, cursor, format.rules, random);
    }
    const QString where =
        QStringLiteral("clock \"%1\" slot %2 (%3)").arg(clock).arg(index + 1).arg(slotText(slot));
    if (choice.candidate < 0) {
        note(cursor, ScheduleNote::Kind::SlotSkipped, clock, index,
             where + QStringLiteral(": skipped, no track of the category is allowed at this time"));
        return;
    }
    const Track& track = pool.candidate(choice.candidate).track;
    if (choice.relaxation != Relaxation::None) {
        // The report names the rules the chosen track breaks: with both rules dropped it may still
        // keep artist separation (a jingle without artist, say), and then only the title gave way.
        const qint64 atMs = cursor.toMSecsSinceEpoch();
        const RotationKeys& keys = pool.keys(choice.candidate);
        const bool artist = !RotationRules::keepsArtistSeparation(keys, history, atMs, format.rules);
        const bool title = !RotationRules::keepsTitleSeparation(keys, history, atMs, format.rules);
        const auto kind = artist && title ? ScheduleNote::Kind::ArtistAndTitleSeparationRelaxed
                          : title         ? ScheduleNote::Kind::TitleSeparationRelaxed
                                          : ScheduleNote::Kind::ArtistSeparationRelaxed;
        const QString rules = artist && title ? QStringLiteral("artist and title separation")
                              : title         ? QStringLiteral("title separation")
                                              : QStringLiteral("artist separation");
        note(cursor, kind, clock, index,
             where + QStringLiteral(": %1 relaxed for \"%2\"").arg(rules, trackDisplayText(track)));
    }
    add(cursor, track, clock, index);
}

void Run::fillFile(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot)
{
    const QString& path = slot.value;
    auto lookup = libraryEntries.find(path);
    if (lookup == libraryEntries.end())
        lookup = libraryEntries.insert(path, pool.libraryTrack(path));
    const Track* known = lookup.value();
    if (MusicLibrary::isStreamUrl(path)) {
        Track stream;
        if (known) {
            stream = *known;
        } else {
            stream.filePath = path;
            stream.isStream = true;
            stream.title = path;
            stream.artist = onlineStreamArtist();
        }
        add(cursor, stream, clock, index);
        return;
    }
    if (!QFileInfo::exists(path)) {
        note(cursor, ScheduleNote::Kind::FileMissing, clock, index,
             QStringLiteral("clock \"%1\" slot %2 (%3): skipped, the file does not exist")
                 .arg(clock)
                 .arg(index + 1)
                 .arg(slotText(slot)));
        return;
    }
    // The library's length when it has one; otherwise the file's own tags.
    if (known && known->durationMs > 0) {
        add(cursor, *known, clock, index);
        return;
    }
    auto tagged = taggedFiles.find(path);
    if (tagged == taggedFiles.end()) {
        Track track = MusicLibrary::trackFromFile(path);
        if (known) {
            const qint64 length = track.durationMs;
            track = *known;
            track.durationMs = length;
        }
        tagged = taggedFiles.insert(path, track);
    }
    add(cursor, tagged.value(), clock, index);
}

void Run::fillHour(QDateTime& cursor)
{
    const QDateTime hourEnd = cursor.addMSecs(3600000 - msIntoHour(cursor));
    allowedThisHour.clear();
    const QString clock = format.clockFor(cursor);
    const QList<ClockSlot> clockSlots = format.clocks.value(clock);
    if (clockSlots.isEmpty()) {
        note(cursor, ScheduleNote::Kind::NoTimeAdded, clock, -1,
             QStringLiteral("no clock for this hour; the hour stays empty"));
        cursor = hourEnd;
        return;
    }
    int itemsInHour = 0;
    while (cursor < hourEnd) {
        const QDateTime passStart = cursor;
        for (int i = 0; i < clockSlots.size() && cursor < hourEnd; ++i) {
            if (itemsInHour >= ScheduleGenerator::maxItemsPerHour) {
                note(cursor, ScheduleNote::Kind::HourItemLimit, clock, i,
                     QStringLiteral("clock \"%1\": %2 rows in one hour; the rest of the hour stays empty")
                         .arg(clock)
                         .arg(ScheduleGenerator::maxItemsPerHour));
                cursor = hourEnd;
                return;
            }
            const int before = schedule.items.size();
            const ClockSlot& slot = clockSlots.at(i);
            switch (slot.kind) {
            case ClockSlot::Kind::Category:
                fillCategory(cursor, clock, i, slot);
                break;
            case ClockSlot::Kind::File:
                fillFile(cursor, clock, i, slot);
                break;
            case ClockSlot::Kind::Command: {
                Track command;
                command.isCommand = true;
                command.command = slot.value.toLower();
                add(cursor, command, clock, i);
                break;
            }
            }
            itemsInHour += schedule.items.size() - before;
        }
        if (cursor == passStart) {
            note(cursor, ScheduleNote::Kind::NoTimeAdded, clock, -1,
                 QStringLiteral("clock \"%1\": a pass through the clock added no time; the rest of the hour "
                                "stays empty")
                     .arg(clock));
            cursor = hourEnd;
        }
    }
}

} // namespace

ScheduleGenerator::ScheduleGenerator(const StationFormat& format, const RotationPool& pool)
    : format(format), pool(pool)
{
}

QDateTime ScheduleGenerator::endOf(const QDateTime& from, int hours)
{
    return from.addMSecs(-msIntoHour(from)).addSecs(qint64(qMax(hours, 0)) * 3600);
}

Schedule ScheduleGenerator::generate(const QDateTime& from, int hours, quint64 seed,
                                     PlayHistory history) const
{
    Run run(format, pool, std::move(history), seed);
    const QDateTime end = endOf(from, hours);
    QDateTime cursor = from;
    while (cursor.isValid() && cursor < end)
        run.fillHour(cursor);
    return run.schedule;
}
