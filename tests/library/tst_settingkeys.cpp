// Every setting is declared once with its default: each key reads its default from empty settings,
// reads back what was written under its exact name, and no two keys share a name.

#include "settingkeys.h"

#include <QFile>
#include <QRegularExpression>
#include <QSet>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A value of the key's type that differs from its default, to tell a written value from the default.
bool otherThan(bool value)
{
    return !value;
}
int otherThan(int value)
{
    return value + 1234;
}
double otherThan(double value)
{
    return value - 2.5;
}
QString otherThan(const QString& value)
{
    return value + QStringLiteral("Studio B");
}

QStringList keyNames()
{
    QStringList names;
    Settings::forEachKey([&names](const auto& key) { names << key.key(); });
    return names;
}

} // namespace

class TestSettingKeys : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        // The stored form the programs use (an INI file), in a folder of this run alone.
        QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir.path());
        QSettings::setDefaultFormat(QSettings::IniFormat);
        QCoreApplication::setOrganizationName(QStringLiteral("OndaroTest"));
        QCoreApplication::setApplicationName(QStringLiteral("tst_settingkeys"));
    }

    void init() { QSettings().clear(); }

    void everyKeyReadsItsDefaultFromEmptySettings()
    {
        int checked = 0;
        QStringList wrong;
        Settings::forEachKey([&checked, &wrong](const auto& key) {
            ++checked;
            if (key.read() != key.fallback)
                wrong << key.key();
        });
        QVERIFY(checked > 0);
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong.join(QLatin1Char(' '))));
        QVERIFY(QSettings().allKeys().isEmpty());
    }

    void everyKeyReadsBackWhatWasWrittenUnderItsExactName()
    {
        QStringList wrong;
        Settings::forEachKey([&wrong](const auto& key) {
            const auto written = otherThan(key.fallback);
            key.write(written);
            if (key.read() != written)
                wrong << key.key();
        });
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong.join(QLatin1Char(' '))));
        // Each write landed under the key's own text, which is what users' stored settings hold.
        QStringList stored = QSettings().allKeys();
        QStringList expected = keyNames();
        stored.sort();
        expected.sort();
        QCOMPARE(stored, expected);
    }

    void aValueStoredByAnotherProgramIsSeenAtOnce()
    {
        QSettings other;
        other.setValue(Settings::fadeInMs.key(), 640);
        other.sync();
        QCOMPARE(Settings::fadeInMs.read(), 640);
    }

    void knownKeysKeepTheTextsUsersHaveStored()
    {
        QCOMPARE(Settings::outputDevice.key(), QStringLiteral("audio/outputDevice"));
        QCOMPARE(Settings::crossfadeEnabled.key(), QStringLiteral("playback/crossfadeEnabled"));
        QCOMPARE(Settings::targetLufs.key(), QStringLiteral("analysis/targetLufs"));
        QCOMPARE(Settings::voiceoversEnabled.key(), QStringLiteral("voiceovers/enabled"));
        QCOMPARE(Settings::scheduleFormatFile.key(), QStringLiteral("schedule/formatFile"));
        QCOMPARE(Settings::defaultVolume.fallback, 80);
        QCOMPARE(Settings::triggerMixDb.fallback, -14.0);
    }

    void noTwoKeysShareAName()
    {
        const QStringList names = keyNames();
        const QSet<QString> distinct(names.begin(), names.end());
        QCOMPARE(distinct.size(), names.size());
        for (const QString& name : names)
            QVERIFY2(!name.isEmpty() && name.contains(QLatin1Char('/')), qPrintable(name));
    }

    void everyDeclaredKeyIsInTheListOfAllKeys()
    {
        // The list in forEachKey is written by hand beside the declarations; the header itself says
        // how many keys there are.
        QFile header(QStringLiteral(ONDARO_SOURCE_DIR "/library/settingkeys.h"));
        QVERIFY(header.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(header.readAll());
        const QRegularExpression declaration(
            QStringLiteral("inline const SettingKey<[^>]+>\\s+\\w+\\{\"([^\"]+)\""));
        QStringList declared;
        for (auto match = declaration.globalMatch(text); match.hasNext();)
            declared << match.next().captured(1);
        QVERIFY(!declared.isEmpty());
        QStringList listed = keyNames();
        declared.sort();
        listed.sort();
        QCOMPARE(listed, declared);
    }
};

QTEST_MAIN(TestSettingKeys)
#include "tst_settingkeys.moc"
