// Setting and listing the rotation categories of a library's entries, on a real database in a
// temporary folder.

#include "schedulertestsupport.h"
#include "trackcategories.h"

#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

class TestTrackCategories : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir home;

    static QString categoryOf(const QString& library, const QString& path)
    {
        QSqlQuery q(MusicLibrary::database());
        q.prepare(QStringLiteral("SELECT category FROM tracks WHERE library=? AND filepath=?"));
        q.addBindValue(library);
        q.addBindValue(path);
        return q.exec() && q.next() ? q.value(0).toString() : QStringLiteral("<none>");
    }

    static int rowsWithCategory(const QString& category)
    {
        QSqlQuery q(MusicLibrary::database());
        q.prepare(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE category=?"));
        q.addBindValue(category);
        return q.exec() && q.next() ? q.value(0).toInt() : -1;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        schedtest::useConfigFolder(home.path());
    }

    void init()
    {
        QVERIFY(schedtest::freshStore());
        MusicLibrary rock;
        rock.setLibrary(QStringLiteral("Rock"));
        rock.addTrack(schedtest::fileTrack(QStringLiteral("A"), QStringLiteral("One"),
                                           QStringLiteral("/m/1.mp3"), QStringLiteral("Gold"), 1000));
        rock.addTrack(schedtest::fileTrack(QStringLiteral("B"), QStringLiteral("Two"),
                                           QStringLiteral("/m/2.mp3"), QStringLiteral("Foreign"), 1000));
        rock.addTrack(schedtest::fileTrack(QStringLiteral("B"), QStringLiteral("Two"),
                                           QStringLiteral("/m/2.mp3"), QStringLiteral("Foreign"),
                                           1000)); // listed twice
        rock.addStream(QStringLiteral("Radio"), QStringLiteral("http://radio.example/live"));
        MusicLibrary jazz;
        jazz.setLibrary(QStringLiteral("Jazz"));
        jazz.addTrack(schedtest::fileTrack(QStringLiteral("C"), QStringLiteral("Three"),
                                           QStringLiteral("/m/2.mp3"), QStringLiteral("jazz"),
                                           1000)); // the same file in another library
    }

    void settingACategoryChangesOnlyThoseEntriesOfThatLibrary()
    {
        const int changed = TrackCategories::setCategory(QStringLiteral("Rock"),
                                                         {QStringLiteral("/m/2.mp3"),
                                                          QStringLiteral("http://radio.example/live"),
                                                          QStringLiteral("/m/2.mp3")},
                                                         QStringLiteral("  Power  "));
        QCOMPARE(changed, 3); // both copies of 2.mp3 and the stream
        QCOMPARE(categoryOf(QStringLiteral("Rock"), QStringLiteral("/m/2.mp3")), QStringLiteral("Power"));
        QCOMPARE(categoryOf(QStringLiteral("Rock"), QStringLiteral("http://radio.example/live")),
                 QStringLiteral("Power"));
        QCOMPARE(categoryOf(QStringLiteral("Rock"), QStringLiteral("/m/1.mp3")), QStringLiteral("Gold"));
        QCOMPARE(categoryOf(QStringLiteral("Jazz"), QStringLiteral("/m/2.mp3")), QStringLiteral("jazz"));
        QCOMPARE(rowsWithCategory(QStringLiteral("Power")), 3);
    }

    void anEmptyCategoryOrNoPathChangesNothing()
    {
        QCOMPARE(TrackCategories::setCategory(QStringLiteral("Rock"), {QStringLiteral("/m/1.mp3")},
                                              QStringLiteral("  ")),
                 0);
        QCOMPARE(TrackCategories::setCategory(QStringLiteral("Rock"), {}, QStringLiteral("A")), 0);
        QCOMPARE(TrackCategories::setCategory(QStringLiteral("Rock"), {QStringLiteral("/m/none.mp3")},
                                              QStringLiteral("A")),
                 0);
        QCOMPARE(categoryOf(QStringLiteral("Rock"), QStringLiteral("/m/1.mp3")), QStringLiteral("Gold"));
    }

    void oddCharactersAreStoredAsTheyAre()
    {
        const QString odd = QStringLiteral("Rock'n'Roll \"80s\"; DROP TABLE tracks; -- ü");
        QCOMPARE(TrackCategories::setCategory(QStringLiteral("Rock"), {QStringLiteral("/m/1.mp3")}, odd), 1);
        QCOMPARE(categoryOf(QStringLiteral("Rock"), QStringLiteral("/m/1.mp3")), odd);
        QVERIFY(TrackCategories::categoriesInUse(QStringLiteral("Rock")).contains(odd));
    }

    void theCategoriesInUseAreListedOnceSortedIgnoringCase()
    {
        QCOMPARE(TrackCategories::categoriesInUse(QStringLiteral("Rock")),
                 QStringList({QStringLiteral("Foreign"), QStringLiteral("Gold")}));
        TrackCategories::setCategory(QStringLiteral("Rock"), {QStringLiteral("/m/2.mp3")},
                                     QStringLiteral("a-list"));
        QCOMPARE(TrackCategories::categoriesInUse(QStringLiteral("Rock")),
                 QStringList({QStringLiteral("a-list"), QStringLiteral("Foreign"), QStringLiteral("Gold")}));
        QCOMPARE(TrackCategories::categoriesInUse(QStringLiteral("Jazz")),
                 QStringList({QStringLiteral("jazz")}));
        QVERIFY(TrackCategories::categoriesInUse(QStringLiteral("Nowhere")).isEmpty());
    }

    void aClosedDatabaseGivesNeutralResults()
    {
        MusicLibrary::database().close();
        // database() reopens a closed connection, so the file itself is made unreadable for the store:
        // the connection is pointed at a folder, which SQLite cannot open.
        QSqlDatabase db = MusicLibrary::database();
        db.close();
        db.setDatabaseName(home.path());
        QVERIFY(!db.open());
        QCOMPARE(TrackCategories::setCategory(QStringLiteral("Rock"), {QStringLiteral("/m/1.mp3")},
                                              QStringLiteral("X")),
                 0);
        QVERIFY(TrackCategories::categoriesInUse(QStringLiteral("Rock")).isEmpty());
        db.setDatabaseName(schedtest::databaseFile());
        QVERIFY(db.open());
        QCOMPARE(categoryOf(QStringLiteral("Rock"), QStringLiteral("/m/1.mp3")), QStringLiteral("Gold"));
    }
};

QTEST_GUILESS_MAIN(TestTrackCategories)
#include "tst_trackcategories.moc"
