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

QString Schedule::reportText() const
{
    QString text;
    for (const ScheduleNote& note : notes)
        text += note.at.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")) + QStringLiteral("  ") + note.text +
                QLatin1Char('\n');
    return text;
}
