// The settings dialog shows every playout key the engine reads with its stored value or default,
// writes each under its exact name on OK (nothing on Cancel), and a new output device reaches both
// of the engine's decks.

#include "audioengine.h"
#include "playouttestsupport.h"
#include "settingsdialog.h"

#include <QApplication>
#include <QAudioOutput>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QLabel>
#include <QMediaPlayer>
#include <QProcess>
#include <QScopeGuard>
#include <QSettings>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>

using namespace playouttest;

namespace {

// Every key the engine reads and its default, written out here independently of the dialog.
struct Key {
    QString name;
    QVariant defaultValue;
};

const QList<Key>& engineKeys()
{
    static const QList<Key> keys = {
        {QStringLiteral("audio/outputDevice"), QString()},
        {QStringLiteral("audio/defaultVolume"), 80},
        {QStringLiteral("playback/crossfadeEnabled"), false},
        {QStringLiteral("playback/mixPointMs"), 2500},
        {QStringLiteral("playback/fadeInMs"), 1500},
        {QStringLiteral("playback/fadeOutMs"), 2500},
        {QStringLiteral("playback/triggerMixEnabled"), false},
        {QStringLiteral("playback/triggerMixDb"), -14.0},
        {QStringLiteral("playback/fadeOutOnMix"), true},
        {QStringLiteral("playback/minCrossfadeMs"), 45000},
        {QStringLiteral("playback/autoPlayNext"), true},
        {QStringLiteral("voiceovers/enabled"), true},
        {QStringLiteral("relay/startNextOnStop"), false},
        {QStringLiteral("analysis/targetLufs"), -18.0},
        {QStringLiteral("playback/normalizeLoudness"), false},
        {QStringLiteral("playback/useCuePoints"), false},
    };
    return keys;
}

// What an editor shows, in the type of its key.
QVariant shown(QWidget* editor)
{
    if (auto* combo = qobject_cast<QComboBox*>(editor))
        return combo->currentData().toString();
    if (auto* spin = qobject_cast<QSpinBox*>(editor))
        return spin->value();
    if (auto* spin = qobject_cast<QDoubleSpinBox*>(editor))
        return spin->value();
    if (auto* check = qobject_cast<QCheckBox*>(editor))
        return check->isChecked();
    return QVariant();
}

// The stored value read as the engine reads it: as the type of the key's default.
QVariant stored(const Key& key)
{
    const QVariant v = QSettings().value(key.name);
    switch (key.defaultValue.typeId()) {
    case QMetaType::Bool:
        return v.toBool();
    case QMetaType::Int:
        return v.toInt();
    case QMetaType::Double:
        return v.toDouble();
    default:
        return v.toString();
    }
}

} // namespace

class TestSettingsDialog : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;

    static QWidget* editorFor(SettingsDialog& dialog, const QString& key)
    {
        return dialog.findChild<QWidget*>(key);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        QVERIFY2(!QMediaDevices::audioOutputs().isEmpty(), noDeviceMessage());
    }

    void init() { useTemporarySettings(dir.path(), QStringLiteral("tst_settingsdialog")); }

    void titleIsSettingsAndEveryKeyHasAnEditor()
    {
        SettingsDialog dialog(nullptr);
        QCOMPARE(dialog.windowTitle(), QStringLiteral("Settings"));
        for (const Key& key : engineKeys())
            QVERIFY2(editorFor(dialog, key.name), qPrintable(key.name));
    }

    void nothingStoredShowsEveryDefault()
    {
        SettingsDialog dialog(nullptr);
        for (const Key& key : engineKeys())
            QCOMPARE(shown(editorFor(dialog, key.name)), key.defaultValue);
        auto* device = dialog.findChild<QComboBox*>(QStringLiteral("audio/outputDevice"));
        QCOMPARE(device->currentText(), QStringLiteral("System default"));
    }

    void theDeviceComboOffersTheSystemDefaultAndEveryRealOutput()
    {
        SettingsDialog dialog(nullptr);
        auto* device = dialog.findChild<QComboBox*>(QStringLiteral("audio/outputDevice"));
        QStringList offered;
        for (int i = 0; i < device->count(); ++i)
            offered << device->itemText(i);
        QStringList expected{QStringLiteral("System default")};
        for (const QAudioDevice& output : QMediaDevices::audioOutputs())
            if (!expected.contains(output.description()))
                expected << output.description();
        QCOMPARE(offered, expected);
        QVERIFY(offered.contains(QStringLiteral("NullOut")));
    }

    void storedValuesAreShown()
    {
        const QList<QPair<QString, QVariant>> values = {
            {QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut")},
            {QStringLiteral("audio/defaultVolume"), 55},
            {QStringLiteral("playback/crossfadeEnabled"), true},
            {QStringLiteral("playback/mixPointMs"), 4200},
            {QStringLiteral("playback/fadeInMs"), 700},
            {QStringLiteral("playback/fadeOutMs"), 3300},
            {QStringLiteral("playback/triggerMixEnabled"), true},
            {QStringLiteral("playback/triggerMixDb"), -20.5},
            {QStringLiteral("playback/fadeOutOnMix"), false},
            {QStringLiteral("playback/minCrossfadeMs"), 30000},
            {QStringLiteral("playback/autoPlayNext"), false},
            {QStringLiteral("voiceovers/enabled"), false},
            {QStringLiteral("relay/startNextOnStop"), true},
            {QStringLiteral("analysis/targetLufs"), -23.0},
            {QStringLiteral("playback/normalizeLoudness"), true},
            {QStringLiteral("playback/useCuePoints"), true},
        };
        QCOMPARE(values.size(), engineKeys().size());
        for (const auto& [key, value] : values)
            setSetting(key, value);
        SettingsDialog dialog(nullptr);
        for (const auto& [key, value] : values)
            QCOMPARE(shown(editorFor(dialog, key)), value);
    }

    void okWritesEveryKeyUnderItsExactNameAndCancelWritesNothing()
    {
        {
            SettingsDialog dialog(nullptr);
            dialog.reject();
        }
        QVERIFY(QSettings().allKeys().isEmpty());

        {
            SettingsDialog dialog(nullptr);
            dialog.accept();
        }
        QStringList expectedKeys;
        for (const Key& key : engineKeys())
            expectedKeys << key.name;
        QStringList storedKeys = QSettings().allKeys();
        expectedKeys.sort();
        storedKeys.sort();
        QCOMPARE(storedKeys, expectedKeys);
        for (const Key& key : engineKeys())
            QCOMPARE(stored(key), key.defaultValue);

        // Changed through the editors, then OK.
        SettingsDialog dialog(nullptr);
        dialog.findChild<QSpinBox*>(QStringLiteral("audio/defaultVolume"))->setValue(65);
        dialog.findChild<QSpinBox*>(QStringLiteral("playback/mixPointMs"))->setValue(6000);
        dialog.findChild<QDoubleSpinBox*>(QStringLiteral("playback/triggerMixDb"))->setValue(-9.5);
        dialog.findChild<QDoubleSpinBox*>(QStringLiteral("analysis/targetLufs"))->setValue(-16.0);
        QTest::mouseClick(dialog.findChild<QCheckBox*>(QStringLiteral("playback/crossfadeEnabled")),
                          Qt::LeftButton);
        QTest::mouseClick(dialog.findChild<QCheckBox*>(QStringLiteral("voiceovers/enabled")), Qt::LeftButton);
        QTest::mouseClick(dialog.findChild<QCheckBox*>(QStringLiteral("playback/useCuePoints")),
                          Qt::LeftButton);
        dialog.accept();
        QSettings s;
        QCOMPARE(s.value(QStringLiteral("audio/defaultVolume")).toInt(), 65);
        QCOMPARE(s.value(QStringLiteral("playback/mixPointMs")).toInt(), 6000);
        QCOMPARE(s.value(QStringLiteral("playback/triggerMixDb")).toDouble(), -9.5);
        QCOMPARE(s.value(QStringLiteral("analysis/targetLufs")).toDouble(), -16.0);
        QCOMPARE(s.value(QStringLiteral("playback/crossfadeEnabled")).toBool(), true);
        QCOMPARE(s.value(QStringLiteral("voiceovers/enabled")).toBool(), false);
        QCOMPARE(s.value(QStringLiteral("playback/useCuePoints")).toBool(), true);
    }

    void theLoudnessSwitchSaysQuietTracksAreRaisedOnlyToFullVolume()
    {
        SettingsDialog dialog(nullptr);
        auto* normalize = dialog.findChild<QCheckBox*>(QStringLiteral("playback/normalizeLoudness"));
        QVERIFY(normalize);
        // The switch keeps its own text; the cap is said beside it, in the same group.
        QCOMPARE(normalize->text(), QStringLiteral("Play every track at the target loudness"));
        const QString expected = QStringLiteral(
            "Quiet tracks are raised only up to full volume; loud ones are lowered to the target.");
        QLabel* note = nullptr;
        for (QLabel* label : dialog.findChildren<QLabel*>())
            if (label->text() == expected)
                note = label;
        QVERIFY2(note, "no note about the cap under the loudness switch");
        auto* group = qobject_cast<QGroupBox*>(normalize->parentWidget());
        QVERIFY(group);
        QCOMPARE(group->title(), QStringLiteral("Loudness and cue points"));
        QVERIFY(group->isAncestorOf(note));
        QVERIFY(note->wordWrap());
        QCOMPARE(normalize->toolTip(), expected);
        QCOMPARE(dialog.findChild<QDoubleSpinBox*>(QStringLiteral("analysis/targetLufs"))->toolTip(),
                 expected);
        // Shown when the dialog is, whether the switch is on or off.
        dialog.show();
        QVERIFY(QTest::qWaitForWindowExposed(&dialog));
        QVERIFY(note->isVisible());
    }

    void aStoredDeviceThatIsNotPluggedInIsKeptOnOk()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("Gone Away"));
        SettingsDialog dialog(nullptr);
        auto* device = dialog.findChild<QComboBox*>(QStringLiteral("audio/outputDevice"));
        QCOMPARE(device->currentText(), QStringLiteral("Gone Away (not available)"));
        dialog.accept();
        QCOMPARE(QSettings().value(QStringLiteral("audio/outputDevice")).toString(),
                 QStringLiteral("Gone Away"));
    }

    void okHasTheEngineReadTheNewValues()
    {
        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        AudioEngine engine;
        QCOMPARE(engine.fadeInMs(), 1500);
        QVERIFY(!engine.crossfadeEnabled());
        SettingsDialog dialog(&engine);
        dialog.findChild<QSpinBox*>(QStringLiteral("playback/fadeInMs"))->setValue(900);
        dialog.findChild<QSpinBox*>(QStringLiteral("playback/minCrossfadeMs"))->setValue(12000);
        dialog.findChild<QCheckBox*>(QStringLiteral("playback/crossfadeEnabled"))->setChecked(true);
        dialog.findChild<QCheckBox*>(QStringLiteral("voiceovers/enabled"))->setChecked(false);
        dialog.accept();
        QCOMPARE(engine.fadeInMs(), 900);
        QCOMPARE(engine.minCrossfadeMs(), 12000);
        QVERIFY(engine.crossfadeEnabled());
        QVERIFY(engine.mixSettings().crossfadeEnabled);
        QVERIFY(!engine.voiceoversEnabled());
    }

    void aChangedOutputDeviceReachesBothDecks()
    {
        QProcess pactl;
        pactl.start(QStringLiteral("pactl"),
                    {QStringLiteral("load-module"), QStringLiteral("module-null-sink"),
                     QStringLiteral("sink_name=second"),
                     QStringLiteral("sink_properties=device.description=SecondOut")});
        QVERIFY(pactl.waitForFinished(30000));
        QCOMPARE(pactl.exitCode(), 0);
        const QString module = QString::fromUtf8(pactl.readAllStandardOutput()).trimmed();
        QVERIFY(!module.isEmpty());
        const auto unload = qScopeGuard([module] {
            QProcess::execute(QStringLiteral("pactl"), {QStringLiteral("unload-module"), module});
        });
        const auto listed = [] {
            for (const QAudioDevice& output : QMediaDevices::audioOutputs())
                if (output.description() == QStringLiteral("SecondOut"))
                    return true;
            return false;
        };
        QTRY_VERIFY_WITH_TIMEOUT(listed(), 15000);

        setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        AudioEngine engine;
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("NullOut"));
        SettingsDialog dialog(&engine);
        auto* device = dialog.findChild<QComboBox*>(QStringLiteral("audio/outputDevice"));
        QCOMPARE(device->currentText(), QStringLiteral("NullOut"));
        const int second = device->findText(QStringLiteral("SecondOut"));
        QVERIFY(second > 0);
        device->setCurrentIndex(second);
        dialog.accept();

        QCOMPARE(QSettings().value(QStringLiteral("audio/outputDevice")).toString(),
                 QStringLiteral("SecondOut"));
        QCOMPARE(engine.outputDeviceDescription(), QStringLiteral("SecondOut"));
        int decks = 0;
        for (QMediaPlayer* player : engine.findChildren<QMediaPlayer*>()) {
            QVERIFY(player->audioOutput());
            QCOMPARE(player->audioOutput()->device().description(), QStringLiteral("SecondOut"));
            ++decks;
        }
        QCOMPARE(decks, 2);
    }
};

QTEST_MAIN(TestSettingsDialog)
#include "tst_settingsdialog.moc"
