#include "trackparams.h"

#include "jsonnumber.h"
#include "storequery.h"
#include "storeschema.h"
#include "trackparamschanges.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVariant>

namespace {

QDate toDate(const QJsonValue& v)
{
    return QDate::fromString(v.toString(), Qt::ISODate);
}

} // namespace

QByteArray TrackParams::toJson() const
{
    QJsonObject o;
    o.insert(QStringLiteral("start"), static_cast<double>(start));
    o.insert(QStringLiteral("end"), static_cast<double>(end));
    o.insert(QStringLiteral("intro"), static_cast<double>(intro));
    o.insert(QStringLiteral("outro"), static_cast<double>(outro));
    o.insert(QStringLiteral("hookIn"), static_cast<double>(hookIn));
    o.insert(QStringLiteral("hookOut"), static_cast<double>(hookOut));
    o.insert(QStringLiteral("fadeIn"), fadeIn);
    o.insert(QStringLiteral("mix"), mix);
    o.insert(QStringLiteral("fadeOut"), fadeOut);
    o.insert(QStringLiteral("mixStart"), static_cast<double>(mixStart));
    o.insert(QStringLiteral("level"), level);
    if (voiceoverIns >= 1 && !voiceoverSource.isEmpty()) {
        QJsonObject vo;
        vo.insert(QStringLiteral("ins"), static_cast<double>(voiceoverIns));
        vo.insert(QStringLiteral("source"), voiceoverSource);
        vo.insert(QStringLiteral("position"), voiceoverPosition);
        vo.insert(QStringLiteral("probability"), voiceoverProbability);
        vo.insert(QStringLiteral("level"), voiceoverLevel);
        if (voiceoverNotAfter.isValid())
            vo.insert(QStringLiteral("notAfter"), voiceoverNotAfter.toString(Qt::ISODate));
        o.insert(QStringLiteral("voiceover"), vo);
    }
    o.insert(QStringLiteral("rating"), rating);
    if (!tags.isEmpty())
        o.insert(QStringLiteral("tags"), QJsonArray::fromStringList(tags));
    o.insert(QStringLiteral("disabled"), disabled);
    if (startDate.isValid())
        o.insert(QStringLiteral("startDate"), startDate.toString(Qt::ISODate));
    if (endDate.isValid())
        o.insert(QStringLiteral("endDate"), endDate.toString(Qt::ISODate));
    if (hasDaypart()) {
        QJsonArray masks;
        for (quint32 mask : daypart)
            masks.append(static_cast<double>(mask));
        o.insert(QStringLiteral("daypart"), masks);
    }
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

// 64-bit fields take any number, truncated toward zero; the plain int fields (fades, mix, rating,
// voiceover position and probability) take whole numbers only, anything else reads as the default.
TrackParams TrackParams::fromJson(const QByteArray& json)
{
    const QJsonObject o = QJsonDocument::fromJson(json).object();
    TrackParams p;
    p.start = truncatedJsonNumber(o.value(QStringLiteral("start")), 0);
    p.end = truncatedJsonNumber(o.value(QStringLiteral("end")), 0);
    p.intro = truncatedJsonNumber(o.value(QStringLiteral("intro")), 0);
    p.outro = truncatedJsonNumber(o.value(QStringLiteral("outro")), 0);
    p.hookIn = truncatedJsonNumber(o.value(QStringLiteral("hookIn")), 0);
    p.hookOut = truncatedJsonNumber(o.value(QStringLiteral("hookOut")), 0);
    p.fadeIn = o.value(QStringLiteral("fadeIn")).toInt(-1);
    p.mix = o.value(QStringLiteral("mix")).toInt(-1);
    p.fadeOut = o.value(QStringLiteral("fadeOut")).toInt(-1);
    p.mixStart = truncatedJsonNumber(o.value(QStringLiteral("mixStart")), -1);
    p.level = o.value(QStringLiteral("level")).toDouble(1.0);
    const QJsonValue voValue = o.value(QStringLiteral("voiceover"));
    if (voValue.isObject()) {
        const QJsonObject vo = voValue.toObject();
        p.voiceoverIns = truncatedJsonNumber(vo.value(QStringLiteral("ins")), 0);
        p.voiceoverSource = vo.value(QStringLiteral("source")).toString();
        p.voiceoverPosition = vo.value(QStringLiteral("position")).toInt(0);
        p.voiceoverProbability = vo.value(QStringLiteral("probability")).toInt(100);
        p.voiceoverLevel = vo.value(QStringLiteral("level")).toDouble(1.0);
        p.voiceoverNotAfter = toDate(vo.value(QStringLiteral("notAfter")));
    }
    p.rating = o.value(QStringLiteral("rating")).toInt(0);
    for (const QJsonValue& tag : o.value(QStringLiteral("tags")).toArray())
        p.tags << tag.toString();
    p.disabled = o.value(QStringLiteral("disabled")).toBool(false);
    p.startDate = toDate(o.value(QStringLiteral("startDate")));
    p.endDate = toDate(o.value(QStringLiteral("endDate")));
    const QJsonArray masks = o.value(QStringLiteral("daypart")).toArray();
    for (int i = 0; i < 7 && i < masks.size(); ++i)
        p.daypart[static_cast<size_t>(i)] = static_cast<quint32>(truncatedJsonNumber(masks.at(i), 0));
    return p;
}

TrackParams TrackParams::load(const QString& filepath)
{
    StoreQuery q("Reading track parameters");
    if (!q.run(QStringLiteral("SELECT params FROM track_params WHERE filepath=?"), {filepath}))
        return TrackParams();
    if (!q.next())
        return TrackParams();
    return fromJson(q.value(0).toString().toUtf8());
}

QHash<QString, TrackParams> TrackParams::loadAll()
{
    QHash<QString, TrackParams> all;
    StoreQuery q("Reading all track parameters");
    q.setForwardOnly(true);
    if (!q.exec(QStringLiteral("SELECT filepath, params FROM track_params")))
        return all;
    while (q.next())
        all.insert(q.value(0).toString(), fromJson(q.value(1).toString().toUtf8()));
    return all;
}

void TrackParams::save(const QString& filepath, const TrackParams& params)
{
    if (filepath.isEmpty())
        return;
    if (isDefault(params)) {
        remove(filepath);
        return;
    }
    StoreQuery q("Saving track parameters");
    q.run(QStringLiteral("INSERT INTO track_params(filepath,params) VALUES(?,?) ON CONFLICT(filepath) DO "
                         "UPDATE SET params=excluded.params"),
          {filepath, QString::fromUtf8(params.toJson())});
    TrackParamsChanges::announce(filepath);
}

void TrackParams::remove(const QString& filepath)
{
    StoreQuery q("Removing track parameters");
    q.run(QStringLiteral("DELETE FROM track_params WHERE filepath=?"), {filepath});
    TrackParamsChanges::announce(filepath);
}

void TrackParams::ensureTable()
{
    StoreSchema::run(QStringLiteral("track-params"), {}, true, "Creating the track parameters table");
}

int TrackParams::trackRating(const QString& filepath)
{
    return load(filepath).rating;
}

void TrackParams::setTrackRating(const QString& filepath, int rating)
{
    TrackParams p = load(filepath);
    p.rating = qBound(0, rating, 10);
    save(filepath, p);
}

bool TrackParams::isDefault(const TrackParams& p)
{
    if (p.start != 0 || p.end != 0 || p.intro != 0 || p.outro != 0 || p.hookIn != 0 || p.hookOut != 0)
        return false;
    if (p.voiceoverIns > 0 && !p.voiceoverSource.isEmpty())
        return false;
    if (!(p.fadeIn < 0 && p.mix < 0))
        return false;
    if (!(p.fadeOut < 0 && p.mixStart < 0))
        return false;
    if (!qFuzzyCompare(p.level, 1.0))
        return false;
    if (p.rating != 0 || p.disabled)
        return false;
    if (p.startDate.isValid() || p.endDate.isValid())
        return false;
    // Tags and the voiceover's position, probability, level and date do not count: a record that
    // holds only those is deleted on save.
    return !p.hasDaypart();
}

bool TrackParams::hasDaypart() const
{
    for (quint32 mask : daypart) {
        if (mask != 0)
            return true;
    }
    return false;
}

void TrackParams::setDaypartHour(int day, int hour, bool allowed)
{
    if (static_cast<unsigned>(day) > 6 || static_cast<unsigned>(hour) > 23)
        return;
    const quint32 bit = 1u << hour;
    quint32& mask = daypart[static_cast<size_t>(day)];
    mask = allowed ? (mask | bit) : (mask & ~bit);
}

bool TrackParams::isDaypartHourAllowed(int day, int hour) const
{
    if (!hasDaypart())
        return true;
    if (static_cast<unsigned>(day) > 6 || static_cast<unsigned>(hour) > 23)
        return false;
    return (daypart[static_cast<size_t>(day)] >> hour) & 1u;
}

bool TrackParams::isScheduledAt(const QDateTime& when) const
{
    if (disabled)
        return false;
    // Only a complete date range limits; a one-sided range is deliberately ignored.
    if (startDate.isValid() && endDate.isValid()) {
        const QDate day = when.date();
        if (day < startDate || day > endDate)
            return false;
    }
    // All masks 0 is no hour limit; otherwise the bit of the weekday (Monday = 0) and hour. An invalid
    // date or time falls outside the week or the day and so is never allowed.
    return isDaypartHourAllowed(when.date().dayOfWeek() - 1, when.time().hour());
}

qint64 TrackParams::playableLength(qint64 durationMs) const
{
    if (durationMs < 1)
        return 0;
    const qint64 effectiveEnd = (end > 0 && end < durationMs) ? end : durationMs;
    if (effectiveEnd < start)
        return 0;
    return effectiveEnd - qMax<qint64>(start, 0);
}
