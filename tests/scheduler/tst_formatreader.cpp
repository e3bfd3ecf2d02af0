// Reading a station format: a good document in full, and every kind of malformed one refused with a
// message that names the key and the reason.

#include "formatreader.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {

// A valid format; each malformed case below changes one part of it.
const char* const kGood = R"({
  "rules": { "artistSeparationMinutes": 60, "titleSeparationMinutes": 240 },
  "clocks": {
    "Standard": [ {"category": "Jingle"}, {"category": "A"}, {"category": "B"}, {"category": "A"},
                  {"file": "/audio/station-id.wav"}, {"category": "Gold"} ],
    "Morning":  [ {"category": "A"}, {"command": "stop"} ]
  },
  "grid": [ {"days": [1,2,3,4,5], "hours": [6,7,8], "clock": "Morning"}, {"clock": "Standard"} ]
})";

const char* const kTail = R"("grid": [ {"clock": "C"} ])";

// A plain literal: moc takes the "//" of a URL inside a raw string for a comment.
const char* const kRelativeFiles =
    "{\"clocks\": {\"C\": [{\"file\": \"ids/../id.wav\"}, "
    "{\"file\": \"http://radio.example/a\"}]}, \"grid\": [{\"clock\": \"C\"}]}";

} // namespace

class TestFormatReader : public QObject
{
    Q_OBJECT

private slots:
    void aGoodFormatIsReadInFull()
    {
        const FormatReader::Result result = FormatReader::parse(kGood);
        QVERIFY2(result.ok, qPrintable(result.error));
        QVERIFY(result.error.isEmpty());
        const StationFormat& f = result.format;
        QCOMPARE(f.rules.artistSeparationMinutes, 60);
        QCOMPARE(f.rules.titleSeparationMinutes, 240);
        QCOMPARE(f.clocks.keys(), QStringList({QStringLiteral("Morning"), QStringLiteral("Standard")}));
        const QList<ClockSlot> standard = f.clocks.value(QStringLiteral("Standard"));
        QCOMPARE(standard.size(), 6);
        QCOMPARE(standard.at(4).kind, ClockSlot::Kind::File);
        QCOMPARE(standard.at(4).value, QStringLiteral("/audio/station-id.wav"));
        QCOMPARE(standard.at(5).kind, ClockSlot::Kind::Category);
        QCOMPARE(standard.at(5).value, QStringLiteral("Gold"));
        QCOMPARE(f.clocks.value(QStringLiteral("Morning")).at(1).kind, ClockSlot::Kind::Command);
        QCOMPARE(f.grid.size(), 2);
        QCOMPARE(f.grid.at(0).days, QList<int>({1, 2, 3, 4, 5}));
        QVERIFY(f.grid.at(1).days.isEmpty());
        QCOMPARE(f.categoriesInUse(), QStringList({QStringLiteral("A"), QStringLiteral("Jingle"),
                                                   QStringLiteral("B"), QStringLiteral("Gold")}));
    }

    void theGridPicksTheFirstEntryThatCoversTheHour()
    {
        const StationFormat f = FormatReader::parse(kGood).format;
        const QDate monday(2024, 5, 6);
        QCOMPARE(f.clockFor(QDateTime(monday, QTime(6, 0))), QStringLiteral("Morning"));
        QCOMPARE(f.clockFor(QDateTime(monday, QTime(8, 30))), QStringLiteral("Morning"));
        QCOMPARE(f.clockFor(QDateTime(monday, QTime(9, 0))), QStringLiteral("Standard"));
        QCOMPARE(f.clockFor(QDateTime(monday.addDays(5), QTime(7, 0))),
                 QStringLiteral("Standard")); // Saturday
        QCOMPARE(f.clockFor(QDateTime(monday.addDays(4), QTime(7, 0))), QStringLiteral("Morning")); // Friday
    }

    void rulesAreOptionalAndMeanNoSeparation()
    {
        const FormatReader::Result result =
            FormatReader::parse(R"({"clocks": {"C": [{"category": "A"}]}, "grid": [{"clock": "C"}]})");
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.format.rules.artistSeparationMinutes, 0);
        QCOMPARE(result.format.rules.titleSeparationMinutes, 0);
    }

    void aMalformedFormatIsRefusedNamingTheKeyAndTheReason_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<QString>("message");
        auto with = [](const char* rules, const char* clocks, const char* grid) {
            return QByteArray("{") + rules + clocks + grid + "}";
        };
        const char* clocks = R"("clocks": {"C": [{"category": "A"}]},)";

        QTest::newRow("not JSON") << QByteArray("{\"clocks\": ") << QStringLiteral("not valid JSON");
        QTest::newRow("not an object") << QByteArray("[1, 2]") << QStringLiteral("must be a JSON object");
        QTest::newRow("empty file") << QByteArray() << QStringLiteral("not valid JSON");
        QTest::newRow("unknown key") << with(R"("rulez": {},)", clocks, kTail)
                                     << QStringLiteral("\"rulez\": unknown key");
        QTest::newRow("rules not an object") << with(R"("rules": 60,)", clocks, kTail)
                                             << QStringLiteral("\"rules\": must be an object, not a number");
        QTest::newRow("negative separation")
            << with(R"("rules": {"artistSeparationMinutes": -5},)", clocks, kTail)
            << QStringLiteral("\"rules.artistSeparationMinutes\": must not be negative (-5)");
        QTest::newRow("separation as text")
            << with(R"("rules": {"titleSeparationMinutes": "240"},)", clocks, kTail)
            << QStringLiteral("\"rules.titleSeparationMinutes\": must be a number of minutes, not a text");
        QTest::newRow("fractional separation")
            << with(R"("rules": {"titleSeparationMinutes": 1.5},)", clocks, kTail)
            << QStringLiteral("\"rules.titleSeparationMinutes\": must be a whole number of minutes (1.5)");
        QTest::newRow("huge separation")
            << with(R"("rules": {"titleSeparationMinutes": 1e300},)", clocks, kTail)
            << QStringLiteral("\"rules.titleSeparationMinutes\": is too large");
        QTest::newRow("unknown rule") << with(R"("rules": {"artistSeparation": 5},)", clocks, kTail)
                                      << QStringLiteral("\"rules.artistSeparation\": unknown key");
        QTest::newRow("clocks missing") << with("", "", kTail) << QStringLiteral("\"clocks\": missing");
        QTest::newRow("clocks as array") << with("", R"("clocks": [],)", kTail)
                                         << QStringLiteral("\"clocks\": must be an object of named clocks");
        QTest::newRow("no clock") << with("", R"("clocks": {},)", kTail)
                                  << QStringLiteral("\"clocks\": no clock defined");
        QTest::newRow("empty clock") << with("", R"("clocks": {"C": []},)", kTail)
                                     << QStringLiteral("\"clocks.C\": empty clock");
        QTest::newRow("clock not an array") << with("", R"("clocks": {"C": {"category": "A"}},)", kTail)
                                            << QStringLiteral("\"clocks.C\": must be an array of slots");
        QTest::newRow("slot not an object")
            << with("", R"("clocks": {"C": ["A"]},)", kTail)
            << QStringLiteral("\"clocks.C[0]\": must be an object, not a text");
        QTest::newRow("slot without kind") << with("", R"("clocks": {"C": [{"category": "A"}, {}]},)", kTail)
                                           << QStringLiteral("\"clocks.C[1]\": needs exactly one of");
        QTest::newRow("slot of two kinds")
            << with("", R"("clocks": {"C": [{"category": "A", "file": "/a.wav"}]},)", kTail)
            << QStringLiteral("\"clocks.C[0]\": needs exactly one of");
        QTest::newRow("slot with unknown key") << with("", R"("clocks": {"C": [{"categroy": "A"}]},)", kTail)
                                               << QStringLiteral("\"clocks.C[0].categroy\": unknown key");
        QTest::newRow("category as number")
            << with("", R"("clocks": {"C": [{"category": 7}]},)", kTail)
            << QStringLiteral("\"clocks.C[0].category\": must be a text, not a number");
        QTest::newRow("empty command") << with("", R"("clocks": {"C": [{"command": "  "}]},)", kTail)
                                       << QStringLiteral("\"clocks.C[0].command\": must not be empty");
        QTest::newRow("grid missing")
            << QByteArray(R"({"clocks": {"C": [{"category": "A"}]}})") << QStringLiteral("\"grid\": missing");
        QTest::newRow("grid as object") << with("", clocks, R"("grid": {"clock": "C"})")
                                        << QStringLiteral("\"grid\": must be an array, not an object");
        QTest::newRow("empty grid") << with("", clocks, R"("grid": [])") << QStringLiteral("\"grid\": empty");
        QTest::newRow("grid entry not an object")
            << with("", clocks, R"("grid": ["C"])")
            << QStringLiteral("\"grid[0]\": must be an object, not a text");
        QTest::newRow("grid entry without clock")
            << with("", clocks, R"("grid": [{"days": [1]}])") << QStringLiteral("\"grid[0].clock\": missing");
        QTest::newRow("unknown clock")
            << with("", clocks, R"("grid": [{"hours": [6], "clock": "Evening"}, {"clock": "C"}])")
            << QStringLiteral("\"grid[0].clock\": unknown clock \"Evening\"");
        QTest::newRow("clock name as number")
            << with("", clocks, R"("grid": [{"clock": 1}])")
            << QStringLiteral("\"grid[0].clock\": must be the name of a clock");
        QTest::newRow("days not an array")
            << with("", clocks, R"("grid": [{"days": 1, "clock": "C"}])")
            << QStringLiteral("\"grid[0].days\": must be an array of days 1 to 7");
        QTest::newRow("day 8") << with("", clocks,
                                       R"("grid": [{"clock": "C"}, {"days": [1, 8], "clock": "C"}])")
                               << QStringLiteral(
                                      "\"grid[1].days[1]\": must be a whole number from 1 to 7, not 8");
        QTest::newRow("hour 24") << with("", clocks, R"("grid": [{"hours": [24], "clock": "C"}])")
                                 << QStringLiteral(
                                        "\"grid[0].hours[0]\": must be a whole number from 0 to 23, not 24");
        QTest::newRow("hour as text")
            << with("", clocks, R"("grid": [{"hours": ["7"], "clock": "C"}])")
            << QStringLiteral("\"grid[0].hours[0]\": must be a whole number from 0 to 23, not a text");
        QTest::newRow("empty days") << with("", clocks, R"("grid": [{"days": [], "clock": "C"}])")
                                    << QStringLiteral("\"grid[0].days\": empty");
        QTest::newRow("unknown grid key") << with("", clocks, R"("grid": [{"clock": "C", "hour": [1]}])")
                                          << QStringLiteral("\"grid[0].hour\": unknown key");
        QTest::newRow("hours not covered")
            << with("", clocks,
                    R"("grid": [{"days": [1,2,3,4,5,6], "clock": "C"}, {"hours": [0,1,2], "clock": "C"}])")
            << QStringLiteral("\"grid\": no entry covers Sunday 03:00");
    }

    void aMalformedFormatIsRefusedNamingTheKeyAndTheReason()
    {
        QFETCH(QByteArray, json);
        QFETCH(QString, message);
        const FormatReader::Result result = FormatReader::parse(json);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.contains(message),
                 qPrintable(QStringLiteral("got: %1\nwanted: %2").arg(result.error, message)));
        QVERIFY(result.format.clocks.isEmpty()); // nothing of a refused format is handed out
    }

    void timedSlotsAndTheFillToleranceAreRead()
    {
        const FormatReader::Result result = FormatReader::parse(R"({
            "rules": {"fillToleranceSeconds": 45},
            "clocks": {"News": [{"file": "/audio/news.wav", "at": "00:00", "timing": "hard"},
                                {"category": "A"},
                                {"category": "Ads", "at": "30:00", "timing": "SOFT"},
                                {"category": "B", "at": "7:05", "timing": "hard"}]},
            "grid": [{"clock": "News"}]})");
        QVERIFY(!result.ok); // 07:05 after 30:00
        QVERIFY2(
            result.error.contains(QStringLiteral("\"clocks.News[3].at\": \"07:05\" is not after \"30:00\"")),
            qPrintable(result.error));

        const FormatReader::Result good = FormatReader::parse(R"({
            "rules": {"fillToleranceSeconds": 45},
            "clocks": {"News": [{"file": "/audio/news.wav", "at": "00:00", "timing": "hard"},
                                {"category": "A"},
                                {"category": "Ads", "at": "30:00", "timing": "SOFT"},
                                {"category": "B", "at": "59:59", "timing": "hard"}]},
            "grid": [{"clock": "News"}]})");
        QVERIFY2(good.ok, qPrintable(good.error));
        QCOMPARE(good.format.fillToleranceSeconds, 45);
        const QList<ClockSlot> news = good.format.clocks.value(QStringLiteral("News"));
        QCOMPARE(news.size(), 4);
        QVERIFY(news.at(0).isTimed());
        QCOMPARE(news.at(0).kind, ClockSlot::Kind::File);
        QCOMPARE(news.at(0).timing, TimedStart::Mode::Hard);
        QCOMPARE(news.at(0).atSeconds, 0);
        QVERIFY(!news.at(1).isTimed());
        QCOMPARE(news.at(2).kind, ClockSlot::Kind::Category);
        QCOMPARE(news.at(2).value, QStringLiteral("Ads"));
        QCOMPARE(news.at(2).timing, TimedStart::Mode::Soft);
        QCOMPARE(news.at(2).atSeconds, 30 * 60);
        QCOMPARE(news.at(3).atSeconds, 59 * 60 + 59);

        // Without the rule the tolerance is half a minute.
        QCOMPARE(FormatReader::parse(kGood).format.fillToleranceSeconds, 30);
        QCOMPARE(StationFormat::defaultFillToleranceSeconds, 30);
    }

    void aMalformedTimedSlotIsRefusedNamingTheSlot_data()
    {
        QTest::addColumn<QByteArray>("clock");
        QTest::addColumn<QString>("message");
        QTest::newRow("at without timing") << QByteArray(R"([{"category": "A", "at": "30:00"}])")
                                           << QStringLiteral("\"clocks.C[0].timing\": missing");
        QTest::newRow("timing without at")
            << QByteArray(R"([{"category": "A"}, {"file": "/n.wav", "timing": "hard"}])")
            << QStringLiteral("\"clocks.C[1].at\": missing");
        QTest::newRow("at as number")
            << QByteArray(R"([{"category": "A", "at": 30, "timing": "soft"}])")
            << QStringLiteral("\"clocks.C[0].at\": must be minutes:seconds past the "
                              "hour as a text, such as \"30:00\", not a number");
        QTest::newRow("minute 60") << QByteArray(R"([{"category": "A", "at": "60:00", "timing": "soft"}])")
                                   << QStringLiteral(
                                          "\"clocks.C[0].at\": must be minutes:seconds past the hour, "
                                          "from \"00:00\" to \"59:59\", not \"60:00\"");
        QTest::newRow("second 75") << QByteArray(R"([{"category": "A", "at": "10:75", "timing": "soft"}])")
                                   << QStringLiteral("\"clocks.C[0].at\": must be minutes:seconds");
        QTest::newRow("hours given") << QByteArray(
                                            R"([{"category": "A", "at": "12:30:00", "timing": "soft"}])")
                                     << QStringLiteral("not \"12:30:00\"");
        QTest::newRow("one digit seconds")
            << QByteArray(R"([{"category": "A", "at": "5:7", "timing": "soft"}])")
            << QStringLiteral("\"clocks.C[0].at\": must be minutes:seconds");
        QTest::newRow("negative") << QByteArray(R"([{"category": "A", "at": "-1:00", "timing": "soft"}])")
                                  << QStringLiteral("\"clocks.C[0].at\": must be minutes:seconds");
        QTest::newRow("empty at") << QByteArray(R"([{"category": "A", "at": "", "timing": "soft"}])")
                                  << QStringLiteral("\"clocks.C[0].at\": must be minutes:seconds");
        QTest::newRow("firm timing") << QByteArray(R"([{"category": "A", "at": "10:00", "timing": "firm"}])")
                                     << QStringLiteral(
                                            "\"clocks.C[0].timing\": must be \"hard\" or \"soft\", "
                                            "not \"firm\"");
        QTest::newRow("timing as true") << QByteArray(R"([{"category": "A", "at": "10:00", "timing": true}])")
                                        << QStringLiteral("\"clocks.C[0].timing\": must be \"hard\" or "
                                                          "\"soft\", not a true/false value");
        QTest::newRow("timed command")
            << QByteArray(R"([{"category": "A"}, {"command": "stop", "at": "10:00", "timing": "hard"}])")
            << QStringLiteral("\"clocks.C[1].at\": a command cannot be timed");
        QTest::newRow("timed without kind") << QByteArray(R"([{"at": "10:00", "timing": "hard"}])")
                                            << QStringLiteral("\"clocks.C[0]\": needs exactly one of");
        QTest::newRow("same time twice")
            << QByteArray(R"([{"category": "A", "at": "10:00", "timing": "hard"}, {"category": "B"},
                             {"category": "A", "at": "10:00", "timing": "soft"}])")
            << QStringLiteral("\"clocks.C[2].at\": \"10:00\" is not after \"10:00\"");
        QTest::newRow("top of the hour not first")
            << QByteArray(R"([{"category": "A"}, {"file": "/n.wav", "at": "0:00", "timing": "hard"}])")
            << QStringLiteral("\"clocks.C[1].at\": only the first slot of a clock can be timed at \"00:00\"");
    }

    void aMalformedTimedSlotIsRefusedNamingTheSlot()
    {
        QFETCH(QByteArray, clock);
        QFETCH(QString, message);
        const QByteArray json =
            QByteArray(R"({"clocks": {"C": )") + clock + R"(}, "grid": [{"clock": "C"}]})";
        const FormatReader::Result result = FormatReader::parse(json);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.contains(message),
                 qPrintable(QStringLiteral("got: %1\nwanted: %2").arg(result.error, message)));
        QVERIFY(result.format.clocks.isEmpty());
    }

    void aMalformedFillToleranceIsRefused_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QString>("message");
        QTest::newRow("negative") << QByteArray("-1") << QStringLiteral("must not be negative (-1)");
        QTest::newRow("text") << QByteArray("\"30\"")
                              << QStringLiteral("must be a number of seconds, not a text");
        QTest::newRow("fraction") << QByteArray("2.5")
                                  << QStringLiteral("must be a whole number of seconds (2.5)");
        QTest::newRow("too large") << QByteArray("3601")
                                   << QStringLiteral("is too large (at most 3600 seconds)");
    }

    void aMalformedFillToleranceIsRefused()
    {
        QFETCH(QByteArray, value);
        QFETCH(QString, message);
        const QByteArray json = QByteArray(R"({"rules": {"fillToleranceSeconds": )") + value +
                                R"(}, "clocks": {"C": [{"category": "A"}]}, "grid": [{"clock": "C"}]})";
        const FormatReader::Result result = FormatReader::parse(json);
        QVERIFY(!result.ok);
        QVERIFY2(result.error.startsWith(QStringLiteral("\"rules.fillToleranceSeconds\": ") + message),
                 qPrintable(result.error));
        // Zero is a tolerance too: the fill must then end exactly on time.
        const QByteArray zero =
            R"({"rules": {"fillToleranceSeconds": 0}, "clocks": {"C": [{"category": "A"}]},
                                   "grid": [{"clock": "C"}]})";
        QVERIFY(FormatReader::parse(zero).ok);
        QCOMPARE(FormatReader::parse(zero).format.fillToleranceSeconds, 0);
    }

    void aMissingOrUnreadableFileIsRefused()
    {
        QTemporaryDir dir;
        const FormatReader::Result missing = FormatReader::read(dir.filePath(QStringLiteral("none.json")));
        QVERIFY(!missing.ok);
        QVERIFY(missing.error.contains(QStringLiteral("cannot read")));
        const FormatReader::Result folder = FormatReader::read(dir.path());
        QVERIFY(!folder.ok);
        QVERIFY(!folder.error.isEmpty());
    }

    void aFileIsReadLikeItsText()
    {
        QTemporaryDir dir;
        QFile file(dir.filePath(QStringLiteral("format.json")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(kGood);
        file.close();
        const FormatReader::Result result = FormatReader::read(file.fileName());
        QVERIFY2(result.ok, qPrintable(result.error));
        QCOMPARE(result.format.clocks.value(QStringLiteral("Standard")).size(), 6);
        QCOMPARE(result.format.clocks.value(QStringLiteral("Standard")).at(4).value,
                 QStringLiteral("/audio/station-id.wav"));
    }

    void relativeFixedFilesAreTakenFromTheFormatsFolder()
    {
        QTemporaryDir dir;
        QFile file(dir.filePath(QStringLiteral("format.json")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(kRelativeFiles);
        file.close();
        const FormatReader::Result result = FormatReader::read(file.fileName());
        QVERIFY2(result.ok, qPrintable(result.error));
        const QList<ClockSlot> c = result.format.clocks.value(QStringLiteral("C"));
        QCOMPARE(c.at(0).value, QDir(dir.path()).absoluteFilePath(QStringLiteral("id.wav")));
        QCOMPARE(c.at(1).value, QStringLiteral("http://radio.example/a"));
        // The text alone has no folder: the path stays as written.
        QCOMPARE(FormatReader::parse(R"({"clocks": {"C": [{"file": "id.wav"}]}, "grid": [{"clock": "C"}]})")
                     .format.clocks.value(QStringLiteral("C"))
                     .at(0)
                     .value,
                 QStringLiteral("id.wav"));
    }
};

QTEST_GUILESS_MAIN(TestFormatReader)
#include "tst_formatreader.moc"
