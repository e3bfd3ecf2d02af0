// Per-file playout parameters: the JSON form, storage in track_params, ratings, dayparts and schedules.

#include "testsupport.h"
#include "trackparams.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kPath = QStringLiteral("/music/it's \"here\" ü.mp3");

int storedRows()
{
    return scalar(QStringLiteral("SELECT COUNT(*) FROM track_params")).toInt();
}

QJsonObject storedObject(const QString& path)
{
    return QJsonDocument::fromJson(
               scalar(QStringLiteral("SELECT params FROM track_params WHERE filepath=?"), {path})
                   .toString()
                   .toUtf8())
        .object();
}

void storeRaw(const QString& path, const QString& text)
{
    QSqlQuery q(MusicLibrary::database());
    q.prepare(QStringLiteral("INSERT INTO track_params(filepath,params) VALUES(?,?) ON CONFLICT(filepath) DO "
                             "UPDATE SET params=excluded.params"));
    q.addBindValue(path);
    q.addBindValue(text);
    QVERIFY(q.exec());
}

void verifyDefaults(const TrackParams& p)
{
    QCOMPARE(p.start, qint64(0));
    QCOMPARE(p.end, qint64(0));
    QCOMPARE(p.intro, qint64(0));
    QCOMPARE(p.outro, qint64(0));
    QCOMPARE(p.hookIn, qint64(0));
    QCOMPARE(p.hookOut, qint64(0));
    QCOMPARE(p.fadeIn, -1);
    QCOMPARE(p.mix, -1);
    QCOMPARE(p.fadeOut, -1);
    QCOMPARE(p.mixStart, qint64(-1));
    QCOMPARE(p.voiceoverIns, qint64(0));
    QVERIFY(p.voiceoverSource.isEmpty());
    QCOMPARE(p.voiceoverPosition, 0);
    QCOMPARE(p.voiceoverProbability, 100);
    QCOMPARE(p.voiceoverLevel, 1.0);
    QVERIFY(p.voiceoverNotAfter.isNull());
    QCOMPARE(p.level, 1.0);
    QCOMPARE(p.rating, 0);
    QVERIFY(p.tags.isEmpty());
    QVERIFY(!p.disabled);
    QVERIFY(p.startDate.isNull());
    QVERIFY(p.endDate.isNull());
    for (quint32 mask : p.daypart)
        QCOMPARE(mask, quint32(0));
    QVERIFY(TrackParams::isDefault(p));
}

// A Monday, so the weekday index of these dates is known.
const QDate kMonday(2024, 6, 3);

} // namespace

class TestTrackParams : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanupTestCase();

    void aFileWithNoRowLoadsAsTheDefaults();
    void everyFieldSurvivesSaveAndLoad();
    void theStoredFormIsCompactJsonWithOptionalKeysOnlyWhenSet();
    void aSecondSaveReplacesTheRow();
    void savingADefaultRecordDeletesAnExistingRow();
    void savingARecordThatDiffersOnlyByTagsDeletesTheRowAsWell();
    void saveWithAnEmptyPathDoesNothing();
    void removeDeletesTheRowAndEnsureTableIsHarmlessTwice();
    void setTrackRatingClampsToZeroToTenAndZeroDeletesADefaultRow();
    void storedRatingIsNotClampedOnReading();
    void unparsableOrWronglyTypedStoredTextsLoadAsDefaults();
    void integerFieldsTakeWholeNumbersOnlyAndReadAnythingElseAsTheirDefault();
    void aDaypartArrayOfNineFillsSevenMasksAndOneOfThreeFillsMondayToWednesday();
    void aVoiceoverIsWrittenOnlyWithAPositiveInsertPointAndASource();
    void isDefaultLooksAtCuesFadesLevelRatingFlagDatesAndDayparts();
    void levelCountsAsDefaultWithinARelativeFuzzyMargin();
    void withAllMasksZeroEveryHourOfEveryDayIsAllowed();
    void setDaypartHourOutsideTheWeekOrDayChangesNothing();
    void daypartHoursSetAndClearSingleBits();
    void isScheduledAtIgnoresADateRangeWithOnlyOneEnd();
    void isScheduledAtKeepsToACompleteDateRangeAndTheDisabledFlag();
    void isScheduledAtFollowsTheDaypartOfTheWeekdayAndHour();
    void playableLengthIsTheSpanBetweenTheCuePoints();

private:
    QTemporaryDir home;
};

void TestTrackParams::initTestCase()
{
    QVERIFY(home.isValid());
    useTemporaryHome(home.path());
}

void TestTrackParams::init()
{
    QVERIFY(freshStore());
}

void TestTrackParams::cleanupTestCase()
{
    closeStore();
}

void TestTrackParams::aFileWithNoRowLoadsAsTheDefaults()
{
    verifyDefaults(TrackParams());
    verifyDefaults(TrackParams::load(kPath));
    verifyDefaults(TrackParams::load(QString()));
    QCOMPARE(TrackParams::trackRating(kPath), 0);
}

void TestTrackParams::everyFieldSurvivesSaveAndLoad()
{
    TrackParams p;
    p.start = 1500;
    p.end = 200000;
    p.intro = 12000;
    p.outro = 180000;
    p.hookIn = 60000;
    p.hookOut = 75000;
    p.fadeIn = 300;
    p.mix = 4000;
    p.fadeOut = 2500;
    p.mixStart = 190000;
    p.voiceoverIns = 5000;
    p.voiceoverSource = QStringLiteral("/vo/station id.wav");
    p.voiceoverPosition = 2;
    p.voiceoverProbability = 40;
    p.voiceoverLevel = 0.75;
    p.voiceoverNotAfter = QDate(2030, 12, 31);
    p.level = 0.5;
    p.rating = 7;
    p.tags = QStringList({"summer", "ü tag"});
    p.disabled = true;
    p.startDate = QDate(2024, 1, 1);
    p.endDate = QDate(2024, 12, 31);
    p.setDaypartHour(0, 0, true);
    p.setDaypartHour(6, 23, true);
    TrackParams::save(kPath, p);
    QCOMPARE(storedRows(), 1);

    const TrackParams back = TrackParams::load(kPath);
    QCOMPARE(back.start, p.start);
    QCOMPARE(back.end, p.end);
    QCOMPARE(back.intro, p.intro);
    QCOMPARE(back.outro, p.outro);
    QCOMPARE(back.hookIn, p.hookIn);
    QCOMPARE(back.hookOut, p.hookOut);
    QCOMPARE(back.fadeIn, p.fadeIn);
    QCOMPARE(back.mix, p.mix);
    QCOMPARE(back.fadeOut, p.fadeOut);
    QCOMPARE(back.mixStart, p.mixStart);
    QCOMPARE(back.voiceoverIns, p.voiceoverIns);
    QCOMPARE(back.voiceoverSource, p.voiceoverSource);
    QCOMPARE(back.voiceoverPosition, p.voiceoverPosition);
    QCOMPARE(back.voiceoverProbability, p.voiceoverProbability);
    QCOMPARE(back.voiceoverLevel, p.voiceoverLevel);
    QCOMPARE(back.voiceoverNotAfter, p.voiceoverNotAfter);
    QCOMPARE(back.level, p.level);
    QCOMPARE(back.rating, p.rating);
    QCOMPARE(back.tags, p.tags);
    QCOMPARE(back.disabled, p.disabled);
    QCOMPARE(back.startDate, p.startDate);
    QCOMPARE(back.endDate, p.endDate);
    QCOMPARE(back.daypart, p.daypart);
    QCOMPARE(back.daypart[6], quint32(1u << 23));
}

void TestTrackParams::theStoredFormIsCompactJsonWithOptionalKeysOnlyWhenSet()
{
    TrackParams p;
    p.rating = 3;
    TrackParams::save(kPath, p);
    const QString text =
        scalar(QStringLiteral("SELECT params FROM track_params WHERE filepath=?"), {kPath}).toString();
    QVERIFY(!text.contains(QLatin1Char('\n')));
    QVERIFY(!text.contains(QLatin1Char(' ')));
    const QJsonObject o = storedObject(kPath);
    for (const char* key : {"start", "end", "intro", "outro", "hookIn", "hookOut", "fadeIn", "mix", "fadeOut",
                            "mixStart", "level", "rating", "disabled"})
        QVERIFY2(o.contains(QLatin1String(key)), key);
    for (const char* key : {"voiceover", "tags", "startDate", "endDate", "daypart"})
        QVERIFY2(!o.contains(QLatin1String(key)), key);
    QCOMPARE(o.value(QStringLiteral("fadeIn")).toInt(), -1);
    QCOMPARE(o.value(QStringLiteral("mixStart")).toInt(), -1);
    QCOMPARE(o.value(QStringLiteral("rating")).toInt(), 3);

    p.startDate = QDate(2025, 2, 3);
    p.tags = {QStringLiteral("t")};
    p.setDaypartHour(2, 5, true);
    TrackParams::save(kPath, p);
    const QJsonObject full = storedObject(kPath);
    QCOMPARE(full.value(QStringLiteral("startDate")).toString(), QStringLiteral("2025-02-03"));
    QVERIFY(!full.contains(QStringLiteral("endDate")));
    QCOMPARE(full.value(QStringLiteral("tags")).toArray().size(), 1);
    const QJsonArray masks = full.value(QStringLiteral("daypart")).toArray();
    QCOMPARE(masks.size(), 7);
    QCOMPARE(masks.at(2).toInteger(), qint64(1 << 5));
    QCOMPARE(masks.at(0).toInteger(), qint64(0));
}

void TestTrackParams::aSecondSaveReplacesTheRow()
{
    TrackParams p;
    p.start = 100;
    TrackParams::save(kPath, p);
    p.start = 200;
    TrackParams::save(kPath, p);
    QCOMPARE(storedRows(), 1);
    QCOMPARE(TrackParams::load(kPath).start, qint64(200));
    TrackParams::save(QStringLiteral("/other.mp3"), p);
    QCOMPARE(storedRows(), 2);
}

void TestTrackParams::savingADefaultRecordDeletesAnExistingRow()
{
    TrackParams p;
    p.fadeOut = 1000;
    TrackParams::save(kPath, p);
    QCOMPARE(storedRows(), 1);
    TrackParams::save(kPath, TrackParams());
    QCOMPARE(storedRows(), 0);
    verifyDefaults(TrackParams::load(kPath));
}

void TestTrackParams::savingARecordThatDiffersOnlyByTagsDeletesTheRowAsWell()
{
    TrackParams p;
    p.hookIn = 10;
    TrackParams::save(kPath, p);
    QCOMPARE(storedRows(), 1);
    TrackParams onlyTags;
    onlyTags.tags = QStringList({"a", "b"});
    onlyTags.voiceoverProbability = 10;             // does not count either
    onlyTags.voiceoverNotAfter = QDate(2030, 1, 1); // nor does this
    QVERIFY(TrackParams::isDefault(onlyTags));
    TrackParams::save(kPath, onlyTags);
    QCOMPARE(storedRows(), 0);
}

void TestTrackParams::saveWithAnEmptyPathDoesNothing()
{
    TrackParams p;
    p.rating = 5;
    TrackParams::save(QString(), p);
    QCOMPARE(storedRows(), 0);
}

void TestTrackParams::removeDeletesTheRowAndEnsureTableIsHarmlessTwice()
{
    TrackParams p;
    p.level = 0.5;
    TrackParams::save(kPath, p);
    TrackParams::ensureTable();
    TrackParams::ensureTable();
    QCOMPARE(storedRows(), 1);
    TrackParams::remove(QStringLiteral("/not/stored.mp3"));
    QCOMPARE(storedRows(), 1);
    TrackParams::remove(kPath);
    QCOMPARE(storedRows(), 0);
}

void TestTrackParams::setTrackRatingClampsToZeroToTenAndZeroDeletesADefaultRow()
{
    TrackParams::setTrackRating(kPath, 15);
    QCOMPARE(TrackParams::trackRating(kPath), 10);
    QCOMPARE(storedObject(kPath).value(QStringLiteral("rating")).toInt(), 10);
    TrackParams::setTrackRating(kPath, 4);
    QCOMPARE(TrackParams::trackRating(kPath), 4);
    TrackParams::setTrackRating(kPath, -3);
    QCOMPARE(TrackParams::trackRating(kPath), 0);
    QCOMPARE(storedRows(), 0);

    // With other content the row stays and only the rating changes.
    TrackParams p;
    p.intro = 9000;
    TrackParams::save(kPath, p);
    TrackParams::setTrackRating(kPath, -3);
    QCOMPARE(storedRows(), 1);
    QCOMPARE(TrackParams::load(kPath).intro, qint64(9000));
}

void TestTrackParams::storedRatingIsNotClampedOnReading()
{
    storeRaw(kPath, QStringLiteral("{\"rating\":50}"));
    QCOMPARE(TrackParams::trackRating(kPath), 50);
}

void TestTrackParams::unparsableOrWronglyTypedStoredTextsLoadAsDefaults()
{
    storeRaw(kPath, QStringLiteral("not json at all {"));
    verifyDefaults(TrackParams::load(kPath));
    storeRaw(kPath, QStringLiteral("[1,2,3]"));
    verifyDefaults(TrackParams::load(kPath));
    storeRaw(kPath, QString());
    verifyDefaults(TrackParams::load(kPath));
    storeRaw(kPath, QStringLiteral("{\"start\":\"5\",\"fadeIn\":true,\"level\":\"loud\",\"rating\":null,"
                                   "\"disabled\":1,\"startDate\":\"someday\",\"endDate\":\"2024-02-30\","
                                   "\"voiceover\":\"x\",\"daypart\":\"all\",\"tags\":{}}"));
    verifyDefaults(TrackParams::load(kPath));

    storeRaw(kPath, QStringLiteral("{\"start\":1234.9,\"end\":-7.9,\"mixStart\":1e300}"));
    const TrackParams p = TrackParams::load(kPath);
    QCOMPARE(p.start, qint64(1234));
    QCOMPARE(p.end, qint64(-7));
    QVERIFY(p.mixStart > 0); // saturated, not wrapped
}

void TestTrackParams::integerFieldsTakeWholeNumbersOnlyAndReadAnythingElseAsTheirDefault()
{
    storeRaw(kPath, QStringLiteral("{\"fadeIn\":300,\"mix\":-4000,\"fadeOut\":2500.0,\"rating\":7,"
                                   "\"voiceover\":{\"ins\":10.9,\"source\":\"/vo.wav\",\"position\":3,"
                                   "\"probability\":55}}"));
    const TrackParams whole = TrackParams::load(kPath);
    QCOMPARE(whole.fadeIn, 300);
    QCOMPARE(whole.mix, -4000);
    QCOMPARE(whole.fadeOut, 2500);
    QCOMPARE(whole.rating, 7);
    QCOMPARE(whole.voiceoverIns, qint64(10)); // a 64-bit field: truncated
    QCOMPARE(whole.voiceoverPosition, 3);
    QCOMPARE(whole.voiceoverProbability, 55);

    // A fraction or a value beyond the int range is not an integer: the default applies.
    storeRaw(kPath, QStringLiteral("{\"fadeIn\":300.7,\"mix\":12.5,\"fadeOut\":3000000000,\"rating\":3.5,"
                                   "\"voiceover\":{\"ins\":10,\"source\":\"/vo.wav\",\"position\":1.5,"
                                   "\"probability\":-1e12}}"));
    const TrackParams odd = TrackParams::load(kPath);
    QCOMPARE(odd.fadeIn, -1);
    QCOMPARE(odd.mix, -1);
    QCOMPARE(odd.fadeOut, -1);
    QCOMPARE(odd.rating, 0);
    QCOMPARE(odd.voiceoverIns, qint64(10));
    QCOMPARE(odd.voiceoverPosition, 0);
    QCOMPARE(odd.voiceoverProbability, 100);
}

void TestTrackParams::aDaypartArrayOfNineFillsSevenMasksAndOneOfThreeFillsMondayToWednesday()
{
    storeRaw(kPath, QStringLiteral("{\"daypart\":[1,2,3,4,5,6,7,8,9]}"));
    TrackParams nine = TrackParams::load(kPath);
    for (int i = 0; i < 7; ++i)
        QCOMPARE(nine.daypart[size_t(i)], quint32(i + 1));

    storeRaw(kPath, QStringLiteral("{\"daypart\":[16777215,1.9,4294967295]}"));
    TrackParams three = TrackParams::load(kPath);
    QCOMPARE(three.daypart[0], quint32(0xFFFFFF));
    QCOMPARE(three.daypart[1], quint32(1));
    QCOMPARE(three.daypart[2], quint32(0xFFFFFFFF));
    for (int i = 3; i < 7; ++i)
        QCOMPARE(three.daypart[size_t(i)], quint32(0));
    QVERIFY(three.hasDaypart());
}

void TestTrackParams::aVoiceoverIsWrittenOnlyWithAPositiveInsertPointAndASource()
{
    TrackParams p;
    p.rating = 1; // keeps the row
    p.voiceoverIns = 5000;
    TrackParams::save(kPath, p);
    QVERIFY(!storedObject(kPath).contains(QStringLiteral("voiceover")));

    p.voiceoverIns = 0;
    p.voiceoverSource = QStringLiteral("/vo.wav");
    TrackParams::save(kPath, p);
    QVERIFY(!storedObject(kPath).contains(QStringLiteral("voiceover")));

    p.voiceoverIns = 1;
    TrackParams::save(kPath, p);
    const QJsonObject vo = storedObject(kPath).value(QStringLiteral("voiceover")).toObject();
    QCOMPARE(vo.value(QStringLiteral("ins")).toInteger(), qint64(1));
    QCOMPARE(vo.value(QStringLiteral("source")).toString(), QStringLiteral("/vo.wav"));
    QCOMPARE(vo.value(QStringLiteral("position")).toInt(), 0);
    QCOMPARE(vo.value(QStringLiteral("probability")).toInt(), 100);
    QCOMPARE(vo.value(QStringLiteral("level")).toDouble(), 1.0);
    QVERIFY(!vo.contains(QStringLiteral("notAfter")));

    // A voiceover alone makes the record worth keeping.
    TrackParams onlyVoiceover;
    onlyVoiceover.voiceoverIns = 10;
    onlyVoiceover.voiceoverSource = QStringLiteral("/vo.wav");
    QVERIFY(!TrackParams::isDefault(onlyVoiceover));
}

void TestTrackParams::isDefaultLooksAtCuesFadesLevelRatingFlagDatesAndDayparts()
{
    QVERIFY(TrackParams::isDefault(TrackParams()));
    auto differs = [](auto change) {
        TrackParams p;
        change(p);
        return !TrackParams::isDefault(p);
    };
    QVERIFY(differs([](TrackParams& p) { p.start = 1; }));
    QVERIFY(differs([](TrackParams& p) { p.end = -1; }));
    QVERIFY(differs([](TrackParams& p) { p.intro = 1; }));
    QVERIFY(differs([](TrackParams& p) { p.outro = 1; }));
    QVERIFY(differs([](TrackParams& p) { p.hookIn = 1; }));
    QVERIFY(differs([](TrackParams& p) { p.hookOut = 1; }));
    QVERIFY(differs([](TrackParams& p) { p.fadeIn = 0; }));
    QVERIFY(differs([](TrackParams& p) { p.mix = 0; }));
    QVERIFY(differs([](TrackParams& p) { p.fadeOut = 0; }));
    QVERIFY(differs([](TrackParams& p) { p.mixStart = 0; }));
    QVERIFY(differs([](TrackParams& p) { p.level = 0.9; }));
    QVERIFY(differs([](TrackParams& p) { p.rating = 1; }));
    QVERIFY(differs([](TrackParams& p) { p.disabled = true; }));
    QVERIFY(differs([](TrackParams& p) { p.startDate = QDate(2024, 1, 1); }));
    QVERIFY(differs([](TrackParams& p) { p.endDate = QDate(2024, 1, 1); }));
    QVERIFY(differs([](TrackParams& p) { p.daypart[3] = 1; }));
    QVERIFY(!differs([](TrackParams& p) { p.fadeIn = -5; }));
    QVERIFY(!differs([](TrackParams& p) { p.voiceoverIns = 100; }));
    QVERIFY(!differs([](TrackParams& p) { p.voiceoverSource = QStringLiteral("/x.wav"); }));
    QVERIFY(!differs([](TrackParams& p) { p.voiceoverLevel = 0.1; }));
    QVERIFY(!differs([](TrackParams& p) { p.voiceoverPosition = 3; }));
}

void TestTrackParams::levelCountsAsDefaultWithinARelativeFuzzyMargin()
{
    TrackParams p;
    p.level = 1.0 + 1e-14;
    QVERIFY(TrackParams::isDefault(p));
    p.level = 1.0 - 1e-14;
    QVERIFY(TrackParams::isDefault(p));
    p.level = 1.0 + 1e-9;
    QVERIFY(!TrackParams::isDefault(p));
    p.level = 0.0;
    QVERIFY(!TrackParams::isDefault(p));
}

void TestTrackParams::withAllMasksZeroEveryHourOfEveryDayIsAllowed()
{
    const TrackParams p;
    QVERIFY(!p.hasDaypart());
    for (int day = 0; day < 7; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            QVERIFY(p.isDaypartHourAllowed(day, hour));
            QVERIFY(p.isScheduledAt(QDateTime(kMonday.addDays(day), QTime(hour, 30))));
        }
    }
    // Even out-of-range values pass: there is no limit at all.
    QVERIFY(p.isDaypartHourAllowed(9, 30));
}

void TestTrackParams::setDaypartHourOutsideTheWeekOrDayChangesNothing()
{
    TrackParams p;
    p.setDaypartHour(7, 3, true);
    p.setDaypartHour(-1, 3, true);
    p.setDaypartHour(0, 24, true);
    p.setDaypartHour(0, -1, true);
    QVERIFY(!p.hasDaypart());
    QVERIFY(p.isScheduledAt(QDateTime(kMonday, QTime(3, 0))));
}

void TestTrackParams::daypartHoursSetAndClearSingleBits()
{
    TrackParams p;
    p.setDaypartHour(1, 9, true);
    p.setDaypartHour(1, 10, true);
    p.setDaypartHour(1, 9, false);
    QCOMPARE(p.daypart[1], quint32(1u << 10));
    QVERIFY(p.isDaypartHourAllowed(1, 10));
    QVERIFY(!p.isDaypartHourAllowed(1, 9));
    QVERIFY(!p.isDaypartHourAllowed(0, 10));
    QVERIFY(!p.isDaypartHourAllowed(7, 10));
    QVERIFY(!p.isDaypartHourAllowed(1, 24));
    QVERIFY(!p.isDaypartHourAllowed(-1, 10));
    p.setDaypartHour(1, 10, false);
    QVERIFY(!p.hasDaypart());
}

void TestTrackParams::isScheduledAtIgnoresADateRangeWithOnlyOneEnd()
{
    TrackParams p;
    p.startDate = QDate(2030, 1, 1);
    QVERIFY(p.isScheduledAt(QDateTime(QDate(2020, 1, 1), QTime(12, 0))));
    p.startDate = QDate();
    p.endDate = QDate(2000, 1, 1);
    QVERIFY(p.isScheduledAt(QDateTime(QDate(2020, 1, 1), QTime(12, 0))));
}

void TestTrackParams::isScheduledAtKeepsToACompleteDateRangeAndTheDisabledFlag()
{
    TrackParams p;
    p.startDate = QDate(2024, 6, 1);
    p.endDate = QDate(2024, 6, 30);
    QVERIFY(!p.isScheduledAt(QDateTime(QDate(2024, 5, 31), QTime(23, 59))));
    QVERIFY(p.isScheduledAt(QDateTime(QDate(2024, 6, 1), QTime(0, 0))));
    QVERIFY(p.isScheduledAt(QDateTime(QDate(2024, 6, 30), QTime(23, 59))));
    QVERIFY(!p.isScheduledAt(QDateTime(QDate(2024, 7, 1), QTime(0, 0))));
    p.disabled = true;
    QVERIFY(!p.isScheduledAt(QDateTime(QDate(2024, 6, 15), QTime(12, 0))));
}

void TestTrackParams::isScheduledAtFollowsTheDaypartOfTheWeekdayAndHour()
{
    TrackParams p;
    p.setDaypartHour(0, 8, true);  // Monday 08:00-08:59
    p.setDaypartHour(6, 23, true); // Sunday 23:00-23:59
    QVERIFY(p.isScheduledAt(QDateTime(kMonday, QTime(8, 0))));
    QVERIFY(p.isScheduledAt(QDateTime(kMonday, QTime(8, 59, 59))));
    QVERIFY(!p.isScheduledAt(QDateTime(kMonday, QTime(9, 0))));
    QVERIFY(!p.isScheduledAt(QDateTime(kMonday.addDays(1), QTime(8, 0))));
    QVERIFY(p.isScheduledAt(QDateTime(kMonday.addDays(6), QTime(23, 30))));
    QVERIFY(!p.isScheduledAt(QDateTime()));
}

void TestTrackParams::playableLengthIsTheSpanBetweenTheCuePoints()
{
    TrackParams p;
    QCOMPARE(p.playableLength(0), qint64(0));
    QCOMPARE(p.playableLength(-10), qint64(0));
    QCOMPARE(p.playableLength(200000), qint64(200000));
    p.start = 5000;
    QCOMPARE(p.playableLength(200000), qint64(195000));
    p.end = 150000;
    QCOMPARE(p.playableLength(200000), qint64(145000));
    p.end = 250000; // beyond the file: the duration is used
    QCOMPARE(p.playableLength(200000), qint64(195000));
    p.start = 300000; // beyond the end
    QCOMPARE(p.playableLength(200000), qint64(0));
    p.start = -500; // a negative start counts as 0
    p.end = 0;
    QCOMPARE(p.playableLength(1000), qint64(1000));
}

QTEST_GUILESS_MAIN(TestTrackParams)
#include "tst_trackparams.moc"
