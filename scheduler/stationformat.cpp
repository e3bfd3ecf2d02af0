#include "stationformat.h"

bool GridEntry::covers(int day, int hour) const
{
    return (days.isEmpty() || days.contains(day)) && (hours.isEmpty() || hours.contains(hour));
}

QString StationFormat::clockFor(const QDateTime& hourStart) const
{
    const int day = hourStart.date().dayOfWeek();
    const int hour = hourStart.time().hour();
    for (const GridEntry& entry : grid) {
        if (entry.covers(day, hour))
            return entry.clock;
    }
    return QString();
}

QStringList StationFormat::categoriesInUse() const
{
    QStringList categories;
    for (const QList<ClockSlot>& clockSlots : clocks) {
        for (const ClockSlot& slot : clockSlots) {
            if (slot.kind == ClockSlot::Kind::Category &&
                !categories.contains(slot.value, Qt::CaseInsensitive))
                categories << slot.value;
        }
    }
    return categories;
}
