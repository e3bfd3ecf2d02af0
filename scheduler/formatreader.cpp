#include "formatreader.h"

#include "musiclibrary.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QRegularExpression>

#include <cmath>

namespace {

// Far beyond any useful separation, and small enough that minutes in milliseconds never overflow.
constexpr int kMaxSeparationMinutes = 1000000;
// A tolerance of a whole hour already lets any fill pass.
constexpr int kMaxFillToleranceSeconds = 3600;

const QString kRules = QStringLiteral("rules");
const QString kClocks = QStringLiteral("clocks");
const QString kGrid = QStringLiteral("grid");
const QString kArtistSeparation = QStringLiteral("artistSeparationMinutes");
const QString kFillTolerance = QStringLiteral("fillToleranceSeconds");
const QString kTitleSeparation = QStringLiteral("titleSeparationMinutes");
const QString kCategory = QStringLiteral("category");
const QString kFile = QStringLiteral("file");
const QString kCommand = QStringLiteral("command");
const QString kAt = QStringLiteral("at");
const QString kTiming = QStringLiteral("timing");
const QString kDays = QStringLiteral("days");
const QString kHours = QStringLiteral("hours");
const QString kClock = QStringLiteral("clock");

// Collects the first problem; every check after it is skipped by its caller.
class Problems
{
public:
    bool fail(const QString& key, const QString& reason)
    {
        if (message.isEmpty())
            message = QStringLiteral("\"%1\": %2").arg(key, reason);
        return false;
    }
    QString message;
};

QString indexed(const QString& key, int index)
{
    return QStringLiteral("%1[%2]").arg(key).arg(index);
}

QString typeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null:
        return QStringLiteral("null");
    case QJsonValue::Bool:
        return QStringLiteral("a true/false value");
    case QJsonValue::Double:
        return QStringLiteral("a number");
    case QJsonValue::String:
        return QStringLiteral("a text");
    case QJsonValue::Array:
        return QStringLiteral("an array");
    case QJsonValue::Object:
        return QStringLiteral("an object");
    case QJsonValue::Undefined:
        break;
    }
    return QStringLiteral("nothing");
}

bool onlyKnownKeys(const QJsonObject& object, const QStringList& known, const QString& path,
                   Problems& problems)
{
    for (auto it = object.begin(); it != object.end(); ++it) {
        if (!known.contains(it.key()))
            return problems.fail(path.isEmpty() ? it.key() : path + QLatin1Char('.') + it.key(),
                                 QStringLiteral("unknown key"));
    }
    return true;
}

bool readMinutes(const QJsonObject& rules, const QString& key, int& minutes, Problems& problems)
{
    const QString path = kRules + QLatin1Char('.') + key;
    const QJsonValue value = rules.value(key);
    if (value.isUndefined())
        return true; // no separation of that kind
    if (!value.isDouble())
        return problems.fail(path,
                             QStringLiteral("must be a number of minutes, not %1").arg(typeName(value)));
    const double number = value.toDouble();
    if (number < 0)
        return problems.fail(path, QStringLiteral("must not be negative (%1)").arg(number));
    if (std::floor(number) != number)
        return problems.fail(path, QStringLiteral("must be a whole number of minutes (%1)").arg(number));
    if (number > kMaxSeparationMinutes)
        return problems.fail(path,
                             QStringLiteral("is too large (at most %1 minutes)").arg(kMaxSeparationMinutes));
    minutes = static_cast<int>(number);
    return true;
}

bool readTolerance(const QJsonObject& rules, int& seconds, Problems& problems)
{
    const QString path = kRules + QLatin1Char('.') + kFillTolerance;
    const QJsonValue value = rules.value(kFillTolerance);
    if (value.isUndefined())
        return true; // the default
    if (!value.isDouble())
        return problems.fail(path,
                             QStringLiteral("must be a number of seconds, not %1").arg(typeName(value)));
    const double number = value.toDouble();
    if (number < 0)
        return problems.fail(path, QStringLiteral("must not be negative (%1)").arg(number));
    if (std::floor(number) != number)
        return problems.fail(path, QStringLiteral("must be a whole number of seconds (%1)").arg(number));
    if (number > kMaxFillToleranceSeconds)
        return problems.fail(
            path, QStringLiteral("is too large (at most %1 seconds)").arg(kMaxFillToleranceSeconds));
    seconds = static_cast<int>(number);
    return true;
}

bool readRules(const QJsonObject& document, StationFormat& format, Problems& problems)
{
    const QJsonValue value = document.value(kRules);
    if (value.isUndefined())
        return true;
    if (!value.isObject())
        return problems.fail(kRules, QStringLiteral("must be an object, not %1").arg(typeName(value)));
    const QJsonObject object = value.toObject();
    return onlyKnownKeys(object, {kArtistSeparation, kTitleSeparation, kFillTolerance}, kRules, problems) &&
           readMinutes(object, kArtistSeparation, format.rules.artistSeparationMinutes, problems) &&
           readMinutes(object, kTitleSeparation, format.rules.titleSeparationMinutes, problems) &&
           readTolerance(object, format.fillToleranceSeconds, problems);
}

QString timeOfHourText(int seconds)
{
    return QStringLiteral("%1:%2")
        .arg(seconds / 60, 2, 10, QLatin1Char('0'))
        .arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

// "at" (minutes:seconds past the hour) and "timing" ("hard" or "soft") come together or not at all.
bool readTiming(const QJsonObject& object, const QString& path, ClockSlot& slot, Problems& problems)
{
    const QJsonValue at = object.value(kAt);
    const QJsonValue timing = object.value(kTiming);
    if (at.isUndefined() && timing.isUndefined())
        return true;
    const QString atPath = path + QLatin1Char('.') + kAt;
    const QString timingPath = path + QLatin1Char('.') + kTiming;
    if (slot.kind == ClockSlot::Kind::Command)
        return problems.fail(at.isUndefined() ? timingPath : atPath,
                             QStringLiteral("a command cannot be timed (time the slot after it)"));
    if (at.isUndefined())
        return problems.fail(atPath, QStringLiteral("missing (a timed slot needs minutes:seconds past the "
                                                    "hour, e.g. \"30:00\")"));
    if (timing.isUndefined())
        return problems.fail(timingPath, QStringLiteral("missing (a slot with \"at\" is \"hard\" or "
                                                        "\"soft\")"));
    if (!at.isString())
        return problems.fail(atPath, QStringLiteral("must be minutes:seconds past the hour as a text, such "
                                                    "as \"30:00\", not %1")
                                         .arg(typeName(at)));
    static const QRegularExpression pattern(QStringLiteral("^([0-9]{1,2}):([0-9]{2})$"));
    const QString atText = at.toString().trimmed();
    const QRegularExpressionMatch match = pattern.match(atText);
    const int minutes = match.hasMatch() ? match.captured(1).toInt() : -1;
    const int seconds = match.hasMatch() ? match.captured(2).toInt() : -1;
    if (minutes < 0 || minutes > 59 || seconds < 0 || seconds > 59)
        return problems.fail(atPath, QStringLiteral("must be minutes:seconds past the hour, from \"00:00\" "
                                                    "to \"59:59\", not \"%1\"")
                                         .arg(at.toString()));
    if (!timing.isString())
        return problems.fail(timingPath,
                             QStringLiteral("must be \"hard\" or \"soft\", not %1").arg(typeName(timing)));
    const QString mode = timing.toString().trimmed().toLower();
    if (mode == QLatin1String("hard"))
        slot.timing = TimedStart::Mode::Hard;
    else if (mode == QLatin1String("soft"))
        slot.timing = TimedStart::Mode::Soft;
    else
        return problems.fail(
            timingPath, QStringLiteral("must be \"hard\" or \"soft\", not \"%1\"").arg(timing.toString()));
    slot.atSeconds = minutes * 60 + seconds;
    return true;
}

bool readSlot(const QJsonValue& value, const QString& path, ClockSlot& slot, Problems& problems)
{
    if (!value.isObject())
        return problems.fail(path, QStringLiteral("must be an object, not %1").arg(typeName(value)));
    const QJsonObject object = value.toObject();
    if (!onlyKnownKeys(object, {kCategory, kFile, kCommand, kAt, kTiming}, path, problems))
        return false;
    QString key;
    int kinds = 0;
    for (const QString& kind : {kCategory, kFile, kCommand}) {
        if (object.contains(kind)) {
            key = kind;
            ++kinds;
        }
    }
    if (kinds != 1)
        return problems.fail(path,
                             QStringLiteral("needs exactly one of \"category\", \"file\" or \"command\""));
    const QJsonValue text = object.value(key);
    const QString keyPath = path + QLatin1Char('.') + key;
    if (!text.isString())
        return problems.fail(keyPath, QStringLiteral("must be a text, not %1").arg(typeName(text)));
    slot.value = text.toString().trimmed();
    if (slot.value.isEmpty())
        return problems.fail(keyPath, QStringLiteral("must not be empty"));
    slot.kind = key == kCategory ? ClockSlot::Kind::Category
                : key == kFile   ? ClockSlot::Kind::File
                                 : ClockSlot::Kind::Command;
    return readTiming(object, path, slot, problems);
}

// The timed slots of a clock follow their times in order, and only the first slot can be due at the
// top of the hour: a slot before it would have no time to fill.
bool checkTimedOrder(const QList<ClockSlot>& clockSlots, const QString& path, Problems& problems)
{
    int previous = -1;
    for (int i = 0; i < clockSlots.size(); ++i) {
        const ClockSlot& slot = clockSlots.at(i);
        if (!slot.isTimed())
            continue;
        const QString atPath = indexed(path, i) + QLatin1Char('.') + kAt;
        if (slot.atSeconds == 0 && i > 0)
            return problems.fail(atPath,
                                 QStringLiteral("only the first slot of a clock can be timed at "
                                                "\"00:00\" (the slots before it would have no time)"));
        if (previous >= 0 && slot.atSeconds <= previous)
            return problems.fail(atPath,
                                 QStringLiteral("\"%1\" is not after \"%2\", the time of a timed slot "
                                                "before it (timed slots follow their times in order)")
                                     .arg(timeOfHourText(slot.atSeconds), timeOfHourText(previous)));
        previous = slot.atSeconds;
    }
    return true;
}

bool readClocks(const QJsonObject& document, QMap<QString, QList<ClockSlot>>& clocks, Problems& problems)
{
    const QJsonValue value = document.value(kClocks);
    if (value.isUndefined())
        return problems.fail(kClocks, QStringLiteral("missing"));
    if (!value.isObject())
        return problems.fail(
            kClocks, QStringLiteral("must be an object of named clocks, not %1").arg(typeName(value)));
    const QJsonObject object = value.toObject();
    if (object.isEmpty())
        return problems.fail(kClocks, QStringLiteral("no clock defined"));
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString path = kClocks + QLatin1Char('.') + it.key();
        if (it.key().trimmed().isEmpty())
            return problems.fail(path, QStringLiteral("a clock needs a name"));
        if (!it.value().isArray())
            return problems.fail(
                path, QStringLiteral("must be an array of slots, not %1").arg(typeName(it.value())));
        const QJsonArray slotValues = it.value().toArray();
        if (slotValues.isEmpty())
            return problems.fail(path, QStringLiteral("empty clock (a clock needs at least one slot)"));
        QList<ClockSlot> clockSlots;
        for (int i = 0; i < slotValues.size(); ++i) {
            ClockSlot slot;
            if (!readSlot(slotValues.at(i), indexed(path, i), slot, problems))
                return false;
            clockSlots << slot;
        }
        if (!checkTimedOrder(clockSlots, path, problems))
            return false;
        clocks.insert(it.key(), clockSlots);
    }
    return true;
}

bool readNumbers(const QJsonObject& entry, const QString& key, const QString& path, int low, int high,
                 const QString& what, QList<int>& numbers, Problems& problems)
{
    const QJsonValue value = entry.value(key);
    const QString keyPath = path + QLatin1Char('.') + key;
    if (value.isUndefined())
        return true; // all of them
    if (!value.isArray())
        return problems.fail(keyPath, QStringLiteral("must be an array of %1 %2 to %3, not %4")
                                          .arg(what)
                                          .arg(low)
                                          .arg(high)
                                          .arg(typeName(value)));
    const QJsonArray array = value.toArray();
    if (array.isEmpty())
        return problems.fail(keyPath, QStringLiteral("empty (leave the key out for all %1)").arg(what));
    for (int i = 0; i < array.size(); ++i) {
        const QJsonValue number = array.at(i);
        const double d = number.toDouble(-1);
        if (!number.isDouble() || std::floor(d) != d || d < low || d > high)
            return problems.fail(indexed(keyPath, i),
                                 QStringLiteral("must be a whole number from %1 to %2, not %3")
                                     .arg(low)
                                     .arg(high)
                                     .arg(number.isDouble() ? QString::number(d) : typeName(number)));
        numbers << static_cast<int>(d);
    }
    return true;
}

bool readGrid(const QJsonObject& document, const QMap<QString, QList<ClockSlot>>& clocks,
              QList<GridEntry>& grid, Problems& problems)
{
    const QJsonValue value = document.value(kGrid);
    if (value.isUndefined())
        return problems.fail(kGrid, QStringLiteral("missing"));
    if (!value.isArray())
        return problems.fail(kGrid, QStringLiteral("must be an array, not %1").arg(typeName(value)));
    const QJsonArray entries = value.toArray();
    if (entries.isEmpty())
        return problems.fail(kGrid, QStringLiteral("empty (it needs at least one entry)"));
    for (int i = 0; i < entries.size(); ++i) {
        const QString path = indexed(kGrid, i);
        if (!entries.at(i).isObject())
            return problems.fail(path,
                                 QStringLiteral("must be an object, not %1").arg(typeName(entries.at(i))));
        const QJsonObject object = entries.at(i).toObject();
        if (!onlyKnownKeys(object, {kDays, kHours, kClock}, path, problems))
            return false;
        GridEntry entry;
        const QJsonValue clock = object.value(kClock);
        const QString clockPath = path + QStringLiteral(".clock");
        if (clock.isUndefined())
            return problems.fail(clockPath, QStringLiteral("missing"));
        if (!clock.isString())
            return problems.fail(clockPath,
                                 QStringLiteral("must be the name of a clock, not %1").arg(typeName(clock)));
        entry.clock = clock.toString();
        if (!clocks.contains(entry.clock))
            return problems.fail(clockPath, QStringLiteral("unknown clock \"%1\"").arg(entry.clock));
        if (!readNumbers(object, kDays, path, 1, 7, QStringLiteral("days"), entry.days, problems) ||
            !readNumbers(object, kHours, path, 0, 23, QStringLiteral("hours"), entry.hours, problems))
            return false;
        grid << entry;
    }
    // Every hour of the week needs a clock, so a gap is found when the format is read, not at 3 a.m.
    for (int day = 1; day <= 7; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            bool covered = false;
            for (const GridEntry& entry : grid)
                covered = covered || entry.covers(day, hour);
            if (!covered)
                return problems.fail(kGrid,
                                     QStringLiteral("no entry covers %1 %2:00 (end the grid with an entry "
                                                    "that has no \"days\" and no \"hours\")")
                                         .arg(QLocale::c().dayName(day))
                                         .arg(hour, 2, 10, QLatin1Char('0')));
        }
    }
    return true;
}

} // namespace

FormatReader::Result FormatReader::parse(const QByteArray& json)
{
    Result result;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        result.error = QStringLiteral("not valid JSON: %1 at offset %2")
                           .arg(parseError.errorString())
                           .arg(parseError.offset);
        return result;
    }
    if (!document.isObject()) {
        result.error = QStringLiteral("the format must be a JSON object with \"clocks\" and \"grid\"");
        return result;
    }
    const QJsonObject object = document.object();
    Problems problems;
    StationFormat format;
    if (onlyKnownKeys(object, {kRules, kClocks, kGrid}, QString(), problems) &&
        readRules(object, format, problems) && readClocks(object, format.clocks, problems) &&
        readGrid(object, format.clocks, format.grid, problems)) {
        result.ok = true;
        result.format = format;
        return result;
    }
    result.error = problems.message;
    return result;
}

FormatReader::Result FormatReader::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        Result result;
        result.error = QStringLiteral("cannot read \"%1\": %2").arg(path, file.errorString());
        return result;
    }
    Result result = parse(file.readAll());
    // A fixed file given by a relative path lives beside the format, wherever the program runs.
    const QDir folder = QFileInfo(path).absoluteDir();
    for (QList<ClockSlot>& clockSlots : result.format.clocks) {
        for (ClockSlot& slot : clockSlots) {
            if (slot.kind == ClockSlot::Kind::File && !MusicLibrary::isStreamUrl(slot.value) &&
                QDir::isRelativePath(slot.value))
                slot.value = QDir::cleanPath(folder.absoluteFilePath(slot.value));
        }
    }
    return result;
}
