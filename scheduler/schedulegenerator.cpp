#include "schedulegenerator.h"

#include "musiclibrary.h"
#include "rotationpool.h"
#include "rotationrules.h"
#include "schedulerlogging.h"
#include "seededrandom.h"
#include "timedfill.h"
#include "tracktext.h"

#include <QFileInfo>
#include <QVector>

#include <algorithm>

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

QString timeText(const QDateTime& t)
{
    return t.toString(QStringLiteral("HH:mm:ss"));
}

// One stretch of a clock: a timed slot (none for the slots before the first) and the untimed slots
// that fill the time after it, up to the next timed slot or the end of the hour.
struct ClockSection {
    int timed = -1; // index of the timed slot in the clock
    QList<int> filling;
};

QList<ClockSection> sectionsOf(const QList<ClockSlot>& clockSlots)
{
    QList<ClockSection> sections{ClockSection{}};
    for (int i = 0; i < clockSlots.size(); ++i) {
        if (clockSlots.at(i).isTimed())
            sections << ClockSection{i, {}};
        else
            sections.last().filling << i;
    }
    return sections;
}

// The slots still to come in a fill before a timed slot, for a closer look near its time.
struct FillRest {
    const QList<FillSpan>* spans = nullptr; // of the filling slots, in clock order
    int next = 0;                           // position of the next one
    qint64 toleranceMs = 0;
    int maxSlots = 0;
    const ClockSlot* nextSlot = nullptr;
};

// The state of one run: the growing schedule, the history it adds to, and its caches.
class Run
{
public:
    Run(const StationFormat& format, const RotationPool& pool, PlayHistory history, quint64 seed,
        const QDateTime& from)
        : format(format), pool(pool), history(std::move(history)), random(seed), scheduleStart(from),
          fileState(pool.candidateCount(), FileState::Unknown)
    {
    }

    void fillHour(QDateTime& cursor);
    Schedule schedule;

private:
    // The candidates a category allows this hour, and the shortest and longest of them.
    struct AllowedTracks {
        QList<int> indexes;
        FillSpan span; // worked out when a fill before a timed slot first asks
        bool spanKnown = false;
    };
    enum class FileLookup { Stream, Missing, Found };

    void note(const QDateTime& at, ScheduleNote::Kind kind, const QString& clock, int slot,
              const QString& text)
    {
        schedule.notes << ScheduleNote{at, kind, clock, slot, text};
        qCDebug(lcScheduler).noquote() << at.toString(Qt::ISODate) << text;
    }
    // The hour holds ScheduleGenerator::maxItemsPerHour rows already.
    void noteItemLimit(const QDateTime& at, const QString& clock, int slot);
    void add(QDateTime& cursor, const Track& track, const QString& clock, int slot,
             const TimedStart& timed = TimedStart())
    {
        schedule.items << ScheduledItem{cursor, track, clock, slot};
        if (timed.isTimed())
            schedule.items.last().track.timed = timed;
        history.recordPlay(track, cursor);
        cursor = cursor.addMSecs(qMax<qint64>(track.durationMs, 0));
    }
    AllowedTracks& allowedFor(const ClockSlot& slot, const QDateTime& at);
    void addChoice(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                   const RotationChoice& choice, const TimedStart& timed);
    void fillCategory(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                      const TimedStart& timed = TimedStart());
    bool fillCategoryToFit(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                           qint64 gapMs, const TimedFill& fill, qint64 stopMissMs, const FillRest& rest);
    bool fileExists(int candidate, const QDateTime& at);
    FileLookup lookUpFile(const QString& path, Track& track);
    void fillFile(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                  const TimedStart& timed = TimedStart());
    void fillSlot(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                  const TimedStart& timed = TimedStart());
    FillSpan spanOf(const ClockSlot& slot, const QDateTime& at);
    FillSpan spanOf(AllowedTracks& tracks);
    bool fillLoose(QDateTime& cursor, const QString& clock, const QList<ClockSlot>& clockSlots,
                   const QList<int>& filling, const QDateTime& hourEnd, int& itemsInHour);
    bool fillTo(QDateTime& cursor, const QString& clock, const QList<ClockSlot>& clockSlots,
                const QList<int>& filling, const QDateTime& due, int& itemsInHour);
    void recordLanding(const QDateTime& hourStart, const QString& hourClock, const QDateTime& due,
                       const QString& clock, int index, const ClockSlot& slot, const QDateTime& fillEnd);

    const StationFormat& format;
    const RotationPool& pool;
    PlayHistory history;
    SeededRandom random;
    QDateTime scheduleStart; // timed slots due before it are not part of the schedule
    // Per hour: the candidates each category allows. Every start within one clock hour has the same
    // date and hour, so the parameters' answer cannot change inside it.
    QHash<QString, AllowedTracks> allowedThisHour;
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

Run::AllowedTracks& Run::allowedFor(const ClockSlot& slot, const QDateTime& at)
{
    const QString key = slot.value.toCaseFolded();
    auto allowed = allowedThisHour.find(key);
    if (allowed == allowedThisHour.end()) {
        AllowedTracks tracks;
        tracks.indexes = RotationRules::allowedAt(pool, pool.inCategory(slot.value), at);
        tracks.indexes.removeIf([this](int i) { return fileState.at(i) == FileState::Missing; });
        allowed = allowedThisHour.insert(key, tracks);
    }
    return allowed.value();
}

FillSpan Run::spanOf(AllowedTracks& tracks)
{
    if (tracks.spanKnown)
        return tracks.span;
    // The fill plans with the middle of the category's lengths: its shortest and longest tracks are
    // few, and the separations may hold them back just when the last gap needs them.
    QVector<qint64> lengths;
    lengths.reserve(tracks.indexes.size());
    for (int i : tracks.indexes)
        lengths << pool.keys(i).lengthMs;
    if (!lengths.isEmpty()) {
        const qsizetype margin = lengths.size() / 10;
        std::nth_element(lengths.begin(), lengths.begin() + margin, lengths.end());
        tracks.span.shortestMs = lengths.at(margin);
        std::nth_element(lengths.begin(), lengths.end() - 1 - margin, lengths.end());
        tracks.span.longestMs = lengths.at(lengths.size() - 1 - margin);
    }
    tracks.spanKnown = true;
    return tracks.span;
}

void Run::addChoice(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                    const RotationChoice& choice, const TimedStart& timed)
{
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
    add(cursor, track, clock, index, timed);
}

void Run::fillCategory(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                       const TimedStart& timed)
{
    QList<int>& allowed = allowedFor(slot, cursor).indexes;
    RotationChoice choice = RotationRules::choose(pool, allowed, history, cursor, format.rules, random);
    // A file that has gone since the library listed it is dropped and the choice made again, as if
    // the library had never held it.
    while (choice.candidate >= 0 && !fileExists(choice.candidate, cursor)) {
        allowed.removeOne(choice.candidate);
        choice = RotationRules::choose(pool, allowed, history, cursor, format.rules, random);
    }
    addChoice(cursor, clock, index, slot, choice, timed);
}

// False when stopping the fill here ends closer to the timed slot's time than any track would.
bool Run::fillCategoryToFit(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                            qint64 gapMs, const TimedFill& fill, qint64 stopMissMs, const FillRest& rest)
{
    AllowedTracks& allowed = allowedFor(slot, cursor);
    // Far from the timed slot every length leaves a gap the rest can close: the rotation alone picks.
    const FillSpan span = spanOf(allowed);
    if (allowed.indexes.isEmpty() || fill.closesAll(gapMs - span.longestMs, gapMs - span.shortestMs)) {
        fillCategory(cursor, clock, index, slot);
        return true;
    }
    // Close to it, what the next slot can really take counts, not just its shortest and longest.
    QVector<qint64> nextLengths;
    const ClockSlot* next = rest.nextSlot;
    if (next && next->kind == ClockSlot::Kind::Category)
        nextLengths = RotationRules::eligibleLengths(pool, allowedFor(*next, cursor).indexes, history, cursor,
                                                     format.rules);
    const TimedFill closer = nextLengths.isEmpty() ? fill
                                                   : TimedFill(*rest.spans, rest.next, rest.toleranceMs,
                                                               gapMs, rest.maxSlots, nextLengths);
    FitChoice fit = RotationRules::chooseToFit(pool, allowed.indexes, history, cursor, format.rules, random,
                                               closer, gapMs, stopMissMs);
    while (fit.choice.candidate >= 0 && !fileExists(fit.choice.candidate, cursor)) {
        allowed.indexes.removeOne(fit.choice.candidate);
        fit = RotationRules::chooseToFit(pool, allowed.indexes, history, cursor, format.rules, random, closer,
                                         gapMs, stopMissMs);
    }
    if (fit.choice.candidate < 0 && fit.anyAllowed)
        return false;
    addChoice(cursor, clock, index, slot, fit.choice, TimedStart());
    return true;
}

Run::FileLookup Run::lookUpFile(const QString& path, Track& track)
{
    auto lookup = libraryEntries.find(path);
    if (lookup == libraryEntries.end())
        lookup = libraryEntries.insert(path, pool.libraryTrack(path));
    const Track* known = lookup.value();
    if (MusicLibrary::isStreamUrl(path)) {
        if (known) {
            track = *known;
        } else {
            track = Track();
            track.filePath = path;
            track.isStream = true;
            track.title = path;
            track.artist = onlineStreamArtist();
        }
        return FileLookup::Stream;
    }
    if (!QFileInfo::exists(path))
        return FileLookup::Missing;
    // The library's length when it has one; otherwise the file's own tags.
    if (known && known->durationMs > 0) {
        track = *known;
        return FileLookup::Found;
    }
    auto tagged = taggedFiles.find(path);
    if (tagged == taggedFiles.end()) {
        Track fromFile = MusicLibrary::trackFromFile(path);
        if (known) {
            const qint64 length = fromFile.durationMs;
            fromFile = *known;
            fromFile.durationMs = length;
        }
        tagged = taggedFiles.insert(path, fromFile);
    }
    track = tagged.value();
    return FileLookup::Found;
}

void Run::fillFile(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                   const TimedStart& timed)
{
    Track track;
    if (lookUpFile(slot.value, track) == FileLookup::Missing) {
        note(cursor, ScheduleNote::Kind::FileMissing, clock, index,
             QStringLiteral("clock \"%1\" slot %2 (%3): skipped, the file does not exist")
                 .arg(clock)
                 .arg(index + 1)
                 .arg(slotText(slot)));
        return;
    }
    add(cursor, track, clock, index, timed);
}

void Run::fillSlot(QDateTime& cursor, const QString& clock, int index, const ClockSlot& slot,
                   const TimedStart& timed)
{
    switch (slot.kind) {
    case ClockSlot::Kind::Category:
        fillCategory(cursor, clock, index, slot, timed);
        break;
    case ClockSlot::Kind::File:
        fillFile(cursor, clock, index, slot, timed);
        break;
    case ClockSlot::Kind::Command: {
        Track command;
        command.isCommand = true;
        command.command = slot.value.toLower();
        add(cursor, command, clock, index, timed);
        break;
    }
    }
}

FillSpan Run::spanOf(const ClockSlot& slot, const QDateTime& at)
{
    switch (slot.kind) {
    case ClockSlot::Kind::Category:
        return spanOf(allowedFor(slot, at));
    case ClockSlot::Kind::File: {
        Track track;
        if (lookUpFile(slot.value, track) != FileLookup::Found)
            return FillSpan();
        const qint64 length = qMax<qint64>(track.durationMs, 0);
        return FillSpan{length, length};
    }
    case ClockSlot::Kind::Command:
        break;
    }
    return FillSpan();
}

// Runs the `filling` slots in order, and again, while the cursor is before the end of the hour; the
// row that crosses it runs on. False when the hour reached its item limit.
bool Run::fillLoose(QDateTime& cursor, const QString& clock, const QList<ClockSlot>& clockSlots,
                    const QList<int>& filling, const QDateTime& hourEnd, int& itemsInHour)
{
    if (filling.isEmpty()) {
        if (cursor < hourEnd)
            note(cursor, ScheduleNote::Kind::NoTimeAdded, clock, -1,
                 QStringLiteral("clock \"%1\": no slot fills the time after its last timed slot; the rest of "
                                "the hour stays empty")
                     .arg(clock));
        return true;
    }
    while (cursor < hourEnd) {
        const QDateTime passStart = cursor;
        for (int p = 0; p < filling.size() && cursor < hourEnd; ++p) {
            const int i = filling.at(p);
            if (itemsInHour >= ScheduleGenerator::maxItemsPerHour) {
                noteItemLimit(cursor, clock, i);
                return false;
            }
            const int before = schedule.items.size();
            fillSlot(cursor, clock, i, clockSlots.at(i));
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
    return true;
}

// Runs the `filling` slots in order, and again, up to a timed slot due at `due`: each track is chosen
// so that the rows end as close to `due` as the tracks allow, and the fill stops once they end within
// the tolerance (or when going on could only end further away). False when the hour reached its item
// limit.
void Run::noteItemLimit(const QDateTime& at, const QString& clock, int slot)
{
    note(at, ScheduleNote::Kind::HourItemLimit, clock, slot,
         QStringLiteral("clock \"%1\": %2 rows in one hour; the rest of the hour stays empty")
             .arg(clock)
             .arg(ScheduleGenerator::maxItemsPerHour));
}

bool Run::fillTo(QDateTime& cursor, const QString& clock, const QList<ClockSlot>& clockSlots,
                 const QList<int>& filling, const QDateTime& due, int& itemsInHour)
{
    if (filling.isEmpty())
        return true;
    const qint64 tolerance = qint64(format.fillToleranceSeconds) * 1000;
    QList<FillSpan> spans;
    for (int i : filling)
        spans << spanOf(clockSlots.at(i), cursor);
    int position = 0;
    QDateTime passStart = cursor;
    while (true) {
        const qint64 gap = cursor.msecsTo(due);
        if (gap <= tolerance)
            return true;
        const int i = filling.at(position);
        if (itemsInHour >= ScheduleGenerator::maxItemsPerHour) {
            noteItemLimit(cursor, clock, i);
            return false;
        }
        const ClockSlot& slot = clockSlots.at(i);
        FillRest rest;
        rest.spans = &spans;
        rest.next = (position + 1) % filling.size();
        rest.toleranceMs = tolerance;
        rest.maxSlots = ScheduleGenerator::maxItemsPerHour - itemsInHour - 1;
        rest.nextSlot = &clockSlots.at(filling.at(rest.next));
        const TimedFill fill(spans, rest.next, tolerance, gap, rest.maxSlots);
        const qint64 stopMiss = TimedFill::missIfStopped(gap, tolerance);
        const int before = schedule.items.size();
        switch (slot.kind) {
        case ClockSlot::Kind::Category:
            if (!fillCategoryToFit(cursor, clock, i, slot, gap, fill, stopMiss, rest))
                return true;
            break;
        case ClockSlot::Kind::File:
        case ClockSlot::Kind::Command:
            // A fixed row has one length; it is left out, and the fill ends, when the rest of the
            // clock could then only end further from the time than stopping here.
            if (fill.missMs(gap - spans.at(position).longestMs) >= stopMiss)
                return true;
            fillSlot(cursor, clock, i, slot);
            break;
        }
        itemsInHour += schedule.items.size() - before;
        position = (position + 1) % filling.size();
        if (position == 0) {
            if (cursor == passStart) {
                note(
                    cursor, ScheduleNote::Kind::NoTimeAdded, clock, -1,
                    QStringLiteral("clock \"%1\": a pass through the slots before the timed slot at %2 added "
                                   "no time")
                        .arg(clock, timeText(due)));
                return true;
            }
            passStart = cursor;
        }
    }
}

void Run::recordLanding(const QDateTime& hourStart, const QString& hourClock, const QDateTime& due,
                        const QString& clock, int index, const ClockSlot& slot, const QDateTime& fillEnd)
{
    TimedLanding landing;
    landing.due = due;
    landing.mode = slot.timing;
    landing.clock = clock;
    landing.slot = index;
    landing.overUnderMs = due.msecsTo(fillEnd);
    landing.withinTolerance = qAbs(landing.overUnderMs) <= qint64(format.fillToleranceSeconds) * 1000;
    if (schedule.timedHours.isEmpty() || schedule.timedHours.last().hourStart != hourStart) {
        HourTiming hour;
        hour.hourStart = hourStart;
        hour.clock = hourClock;
        schedule.timedHours << hour;
    }
    HourTiming& hour = schedule.timedHours.last();
    if (hour.landings.isEmpty() || qAbs(landing.overUnderMs) > qAbs(hour.overUnderMs))
        hour.overUnderMs = landing.overUnderMs;
    hour.withinTolerance = hour.withinTolerance && landing.withinTolerance;
    hour.landings << landing;
    if (!landing.withinTolerance) {
        const QString how = landing.overUnderMs > 0 ? (slot.timing == TimedStart::Mode::Hard
                                                           ? QStringLiteral("the row before it is cut")
                                                           : QStringLiteral("it starts late"))
                                                    : QStringLiteral("the time before it is not filled");
        note(due, ScheduleNote::Kind::TimedSlotMissed, clock, index,
             QStringLiteral("clock \"%1\" slot %2 (%3), %4 at %5: the rows before it are planned %6, beyond "
                            "the tolerance of %7 seconds; %8")
                 .arg(clock)
                 .arg(index + 1)
                 .arg(slotText(slot),
                      slot.timing == TimedStart::Mode::Hard ? QStringLiteral("hard") : QStringLiteral("soft"),
                      timeText(due), overUnderText(landing.overUnderMs))
                 .arg(format.fillToleranceSeconds)
                 .arg(how));
    }
}

void Run::fillHour(QDateTime& cursor)
{
    const QDateTime hourStart = cursor.addMSecs(-msIntoHour(cursor));
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
    // A clock that opens with a slot at the top of the hour is filled up to by the hour before it.
    const QString nextClock = format.clockFor(hourEnd);
    const QList<ClockSlot> nextSlots = format.clocks.value(nextClock);
    const bool nextOpensTimed =
        !nextSlots.isEmpty() && nextSlots.first().isTimed() && nextSlots.first().atSeconds == 0;

    QList<ClockSection> sections = sectionsOf(clockSlots);
    if (sections.size() > 1) {
        // A clock goes round: the slots after its last timed slot go on with those before its first
        // when time is left, and the other way round.
        const QList<int> lead = sections.first().filling;
        sections.first().filling << sections.last().filling;
        sections.last().filling << lead;
    }
    int itemsInHour = 0;
    for (int s = 0; s < sections.size(); ++s) {
        const ClockSection& section = sections.at(s);
        if (section.timed >= 0) {
            const ClockSlot& slot = clockSlots.at(section.timed);
            const QDateTime due = hourStart.addSecs(slot.atSeconds);
            if (due >= scheduleStart) {
                // Hard: due on the second, whatever plays is cut. Soft: after the row before it.
                cursor = slot.timing == TimedStart::Mode::Hard || cursor < due ? due : cursor;
                TimedStart timed;
                timed.mode = slot.timing;
                timed.at = due;
                const int before = schedule.items.size();
                fillSlot(cursor, clock, section.timed, slot, timed);
                itemsInHour += schedule.items.size() - before;
            }
        }
        // Where this section's time ends: the next timed slot of the hour, or of the next hour's top.
        const bool last = s + 1 == sections.size();
        if (!last) {
            const int nextTimed = sections.at(s + 1).timed;
            const ClockSlot& next = clockSlots.at(nextTimed);
            const QDateTime due = hourStart.addSecs(next.atSeconds);
            // Nothing before a slot at the top of the hour: the hour before filled up to it. And a
            // section that ends before the schedule starts lies outside it.
            if (next.atSeconds == 0 || due <= scheduleStart)
                continue;
            if (!fillTo(cursor, clock, clockSlots, section.filling, due, itemsInHour)) {
                cursor = hourEnd;
                return;
            }
            recordLanding(hourStart, clock, due, clock, nextTimed, next, cursor);
        } else if (nextOpensTimed) {
            if (!fillTo(cursor, clock, clockSlots, section.filling, hourEnd, itemsInHour)) {
                cursor = hourEnd;
                return;
            }
            recordLanding(hourStart, clock, hourEnd, nextClock, 0, nextSlots.first(), cursor);
        } else if (!fillLoose(cursor, clock, clockSlots, section.filling, hourEnd, itemsInHour)) {
            cursor = hourEnd;
            return;
        }
    }
    // An hour whose rows end before its end (a short fill before the next hour's timed slot, or an
    // empty stretch) goes on from the next full hour.
    if (cursor < hourEnd)
        cursor = hourEnd;
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
    Run run(format, pool, std::move(history), seed, from);
    const QDateTime end = endOf(from, hours);
    QDateTime cursor = from;
    while (cursor.isValid() && cursor < end)
        run.fillHour(cursor);
    return run.schedule;
}
