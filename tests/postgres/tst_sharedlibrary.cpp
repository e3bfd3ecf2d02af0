// Several studios on one server: two programs import into the same library at once and lose
// nothing, and a library window in a third program shows their tracks without being reopened.

#include "musiclibrary.h"
#include "musiclibrarydialog.h"
#include "testsupport.h"

#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QtTest>

using namespace testsupport;

namespace {

const QString kFixtures = QStringLiteral(ONDARO_FIXTURE_DIR);
constexpr int kFilesPerStudio = 1000;

// `count` copies of one short tone, named "<prefix>0001.mp3" and so on.
bool makeCopies(const QString& folder, const QString& prefix, int count)
{
    QDir().mkpath(folder);
    const QString tone = kFixtures + QStringLiteral("/tagged/tone.mp3");
    for (int i = 1; i <= count; ++i) {
        if (!QFile::copy(tone,
                         QStringLiteral("%1/%2%3.mp3").arg(folder, prefix).arg(i, 4, 10, QLatin1Char('0'))))
            return false;
    }
    return true;
}

} // namespace

class TestSharedLibrary : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();

    void twoStudiosImportingAtOnceLoseNothingAndAThirdWindowShowsTheirTracks();

private:
    QTemporaryDir home;
};

void TestSharedLibrary::initTestCase()
{
    QVERIFY(home.isValid());
    if (!onServer())
        QSKIP("needs ONDARO_DATABASE_URL (run through ctest -L postgres)");
    useTemporaryHome(home.path());
    QVERIFY(freshStore());
    QVERIFY(makeCopies(home.path() + QStringLiteral("/studio-a"), QStringLiteral("tone a"), kFilesPerStudio));
    QVERIFY(makeCopies(home.path() + QStringLiteral("/studio-b"), QStringLiteral("tone b"), kFilesPerStudio));
}

void TestSharedLibrary::cleanupTestCase()
{
    closeStore();
}

void TestSharedLibrary::twoStudiosImportingAtOnceLoseNothingAndAThirdWindowShowsTheirTracks()
{
    MusicLibraryDialog window;
    window.show();
    auto* table = window.findChild<QTableWidget*>(QStringLiteral("trackTable"));
    auto* status = window.findChild<QLabel*>(QStringLiteral("statusLabel"));
    QVERIFY(table && status);
    QCOMPARE(window.library().name(), QStringLiteral("Default"));
    QCOMPARE(table->rowCount(), 0);
    // Someone types in a filter box while tracks arrive; what they typed stays.
    QLineEdit* nameFilter = nullptr;
    for (QLineEdit* edit : window.findChildren<QLineEdit*>()) {
        if (edit->placeholderText() == QLatin1String("File name"))
            nameFilter = edit;
    }
    QVERIFY(nameFilter);

    QProcess studioA;
    QProcess studioB;
    for (QProcess* studio : {&studioA, &studioB})
        studio->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    studioA.start(QStringLiteral(ONDARO_PG_IMPORTER),
                  {home.path() + QStringLiteral("/studio-a"), QStringLiteral("Default")});
    studioB.start(QStringLiteral(ONDARO_PG_IMPORTER),
                  {home.path() + QStringLiteral("/studio-b"), QStringLiteral("Default")});
    QVERIFY(studioA.waitForStarted());
    QVERIFY(studioB.waitForStarted());

    // The window learns of the other studios' commits while they still import.
    QTRY_VERIFY_WITH_TIMEOUT(table->rowCount() > 0, 120000);
    // Either may have ended already while the window was being watched.
    QVERIFY(studioA.state() == QProcess::NotRunning || studioA.waitForFinished(240000));
    QVERIFY(studioB.state() == QProcess::NotRunning || studioB.waitForFinished(240000));
    QCOMPARE(studioA.exitCode(), 0);
    QCOMPARE(studioB.exitCode(), 0);
    QCOMPARE(studioA.readAllStandardOutput().trimmed(), QByteArray::number(kFilesPerStudio));
    QCOMPARE(studioB.readAllStandardOutput().trimmed(), QByteArray::number(kFilesPerStudio));

    QTRY_COMPARE_WITH_TIMEOUT(table->rowCount(), 2 * kFilesPerStudio, 60000);
    QCOMPARE(status->text(), QStringLiteral("Library \"Default\"  -  Tracks: 2000"));

    MusicLibrary library;
    library.setLibrary(QStringLiteral("Default"));
    QCOMPARE(library.trackCount(), 2 * kFilesPerStudio);
    QCOMPARE(library.search(QStringLiteral("tone")).size(), 2 * kFilesPerStudio);
    MusicLibrary::Query fromStudioA;
    fromStudioA.filename = QStringLiteral("a");
    QCOMPARE(library.query(fromStudioA).size(), kFilesPerStudio);
    const QList<Track> one = library.search(QStringLiteral("b0777"));
    QCOMPARE(one.size(), 1);
    QVERIFY(one.first().filePath.endsWith(QStringLiteral("/studio-b/tone b0777.mp3")));
    MusicLibrary::Query byName;
    byName.filename = QStringLiteral("a1000");
    QCOMPARE(library.query(byName).size(), 1);

    // A filter typed now narrows the table; a change from elsewhere keeps it and what it shows.
    QTest::keyClicks(nameFilter, QStringLiteral("b"));
    QCOMPARE(table->rowCount(), kFilesPerStudio);
    QProcess late;
    QDir().mkpath(home.path() + QStringLiteral("/late"));
    QVERIFY(QFile::copy(kFixtures + QStringLiteral("/tagged/tone.mp3"),
                        home.path() + QStringLiteral("/late/tone b2001.mp3")));
    late.start(QStringLiteral(ONDARO_PG_IMPORTER),
               {home.path() + QStringLiteral("/late"), QStringLiteral("Default")});
    QVERIFY(late.waitForFinished(60000));
    QCOMPARE(late.exitCode(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(table->rowCount(), kFilesPerStudio + 1, 30000);
    QCOMPARE(nameFilter->text(), QStringLiteral("b"));
}

QTEST_MAIN(TestSharedLibrary)
#include "tst_sharedlibrary.moc"
