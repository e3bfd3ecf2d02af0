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
