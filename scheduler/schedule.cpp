#include "schedule.h"

QList<Track> Schedule::tracks() const
{
    QList<Track> result;
    result.reserve(items.size());
    for (const ScheduledItem& item : items)
        result << item.track;
    return result;
}

bool Schedule::hasAudio() const
{
    for (const ScheduledItem& item : items) {
        if (!item.track.isCommand)
            return true;
    }
    return false;
}

namespace {

QString reportLine(const QDateTime& at, const QString& text)
{
    return at.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral("  ") + text +
           QLatin1Char('\n');
}

QString hourText(const HourTiming& hour)
{
    QStringList landings;
    for (const TimedLanding& landing : hour.landings)
        landings << QStringLiteral("%1 %2 %3")
                        .arg(landing.mode == TimedStart::Mode::Hard ? QStringLiteral("hard")
                                                                    : QStringLiteral("soft"),
                             landing.due.toString(QStringLiteral("HH:mm:ss")),
                             overUnderText(landing.overUnderMs));
    return QStringLiteral("clock \"%1\": planned %2 (%3)%4")
        .arg(hour.clock, overUnderText(hour.overUnderMs), landings.join(QStringLiteral(", ")),
             hour.withinTolerance ? QString() : QStringLiteral(", beyond the tolerance"));
}

} // namespace

QString overUnderText(qint64 ms)
{
    const qint64 seconds = (qAbs(ms) + 500) / 1000;
    if (seconds == 0)
        return QStringLiteral("on time");
    return QStringLiteral("%1%2:%3 %4")
        .arg(ms > 0 ? QLatin1Char('+') : QLatin1Char('-'))
        .arg(seconds / 60)
        .arg(seconds % 60, 2, 10, QLatin1Char('0'))
        .arg(ms > 0 ? QStringLiteral("over") : QStringLiteral("under"));
}

QString Schedule::reportText() const
{
    // The hour's line goes before the notes of its own time.
    QString text;
    int hour = 0;
    for (const ScheduleNote& note : notes) {
        for (; hour < timedHours.size() && timedHours.at(hour).hourStart <= note.at; ++hour)
            text += reportLine(timedHours.at(hour).hourStart, hourText(timedHours.at(hour)));
        text += reportLine(note.at, note.text);
    }
    for (; hour < timedHours.size(); ++hour)
        text += reportLine(timedHours.at(hour).hourStart, hourText(timedHours.at(hour)));
    return text;
}
