#include "settingsdialog.h"

#include "audioengine.h"
#include "settingkeys.h"

#include <QAudioDevice>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QMediaDevices>
#include <QSettings>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kMaxFadeMs = 60000;           // one minute
constexpr int kMaxMixPointMs = 600000;      // ten minutes
constexpr int kMaxMinCrossfadeMs = 3600000; // one hour

QString unavailable(const QString& description)
{
    return QStringLiteral("%1 (not available)").arg(description);
}

} // namespace

SettingsDialog::SettingsDialog(AudioEngine* engine, QWidget* parent) : QDialog(parent), m_engine(engine)
{
    setWindowTitle(QStringLiteral("Settings"));

    m_outputDevice = new QComboBox(this);
    m_outputDevice->setObjectName(Settings::outputDevice.key());
    m_defaultVolume = new QSpinBox(this);
    m_defaultVolume->setObjectName(Settings::defaultVolume.key());
    m_defaultVolume->setRange(0, 100);
    m_defaultVolume->setSuffix(QStringLiteral(" %"));
    auto* audio = new QGroupBox(QStringLiteral("Audio"), this);
    auto* audioForm = new QFormLayout(audio);
    audioForm->addRow(QStringLiteral("Output device:"), m_outputDevice);
    audioForm->addRow(QStringLiteral("Volume at start:"), m_defaultVolume);

    m_crossfadeEnabled =
        addCheck(Settings::crossfadeEnabled.key(), QStringLiteral("Crossfade and mix automatically"));
    m_mixPointMs = addMs(Settings::mixPointMs.key(), kMaxMixPointMs);
    m_fadeInMs = addMs(Settings::fadeInMs.key(), kMaxFadeMs);
    m_fadeOutMs = addMs(Settings::fadeOutMs.key(), kMaxFadeMs);
    m_triggerMixEnabled = addCheck(Settings::triggerMixEnabled.key(),
                                   QStringLiteral("Start the next track when the level falls"));
    m_triggerMixDb = new QDoubleSpinBox(this);
    m_triggerMixDb->setObjectName(Settings::triggerMixDb.key());
    m_triggerMixDb->setRange(-100.0, 0.0);
    m_triggerMixDb->setDecimals(1);
    m_triggerMixDb->setSingleStep(0.5);
    m_triggerMixDb->setSuffix(QStringLiteral(" dB"));
    m_fadeOutOnMix = addCheck(Settings::fadeOutOnMix.key(),
                              QStringLiteral("Fade the outgoing track out at the mix point"));
    m_minCrossfadeMs = addMs(Settings::minCrossfadeMs.key(), kMaxMinCrossfadeMs);
    m_autoPlayNext =
        addCheck(Settings::autoPlayNext.key(), QStringLiteral("Go on to the next row at the end of a track"));
    auto* playback = new QGroupBox(QStringLiteral("Playback"), this);
    auto* playbackForm = new QFormLayout(playback);
    playbackForm->addRow(m_crossfadeEnabled);
    playbackForm->addRow(QStringLiteral("Mix point before the end:"), m_mixPointMs);
    playbackForm->addRow(QStringLiteral("Fade-in:"), m_fadeInMs);
    playbackForm->addRow(QStringLiteral("Fade-out:"), m_fadeOutMs);
    playbackForm->addRow(m_triggerMixEnabled);
    playbackForm->addRow(QStringLiteral("Level threshold:"), m_triggerMixDb);
    playbackForm->addRow(m_fadeOutOnMix);
    playbackForm->addRow(QStringLiteral("Never mix tracks shorter than:"), m_minCrossfadeMs);
    playbackForm->addRow(m_autoPlayNext);

    m_targetLufs = new QDoubleSpinBox(this);
    m_targetLufs->setObjectName(Settings::targetLufs.key());
    m_targetLufs->setRange(-70.0, 0.0);
    m_targetLufs->setDecimals(1);
    m_targetLufs->setSingleStep(0.5);
    m_targetLufs->setSuffix(QStringLiteral(" LUFS"));
    m_normalizeLoudness = addCheck(Settings::normalizeLoudness.key(),
                                   QStringLiteral("Play every track at the target loudness"));
    m_useCuePoints =
        addCheck(Settings::useCuePoints.key(), QStringLiteral("Use the cue points found by the analysis"));
    // The engine caps a track's gain where the output reaches full volume, so a quiet track can fall
    // short of the target; the dialog says so rather than promise the target for every track.
    auto* normalizationNote = new QLabel(normalizationNoteText(), this);
    normalizationNote->setObjectName(QStringLiteral("normalizationNote"));
    normalizationNote->setWordWrap(true);
    m_normalizeLoudness->setToolTip(normalizationNoteText());
    m_targetLufs->setToolTip(normalizationNoteText());
    auto* analysis = new QGroupBox(QStringLiteral("Loudness and cue points"), this);
    auto* analysisForm = new QFormLayout(analysis);
    analysisForm->addRow(QStringLiteral("Target loudness:"), m_targetLufs);
    analysisForm->addRow(m_normalizeLoudness);
    analysisForm->addRow(normalizationNote);
    analysisForm->addRow(m_useCuePoints);

    m_voiceoversEnabled = addCheck(Settings::voiceoversEnabled.key(), QStringLiteral("Play voiceovers"));
    m_startNextOnStop = addCheck(Settings::relayStartNextOnStop.key(),
                                 QStringLiteral("After a relay stops, start the next row"));
    auto* other = new QGroupBox(QStringLiteral("Voiceovers and relay"), this);
    auto* otherForm = new QFormLayout(other);
    otherForm->addRow(m_voiceoversEnabled);
    otherForm->addRow(m_startNextOnStop);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &SettingsDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &SettingsDialog::reject);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(audio);
    layout->addWidget(playback);
    layout->addWidget(analysis);
    layout->addWidget(other);
    layout->addWidget(buttons);

    load();
}

QSpinBox* SettingsDialog::addMs(const QString& key, int maximum)
{
    auto* box = new QSpinBox(this);
    box->setObjectName(key);
    box->setRange(0, maximum);
    box->setSingleStep(100);
    box->setSuffix(QStringLiteral(" ms"));
    return box;
}

QCheckBox* SettingsDialog::addCheck(const QString& key, const QString& text)
{
    auto* box = new QCheckBox(text, this);
    box->setObjectName(key);
    return box;
}

void SettingsDialog::load()
{
    const QString device = Settings::outputDevice.read();
    m_outputDevice->addItem(systemDefaultText(), QString());
    const QList<QAudioDevice> outputs = QMediaDevices::audioOutputs();
    for (const QAudioDevice& output : outputs) {
        if (m_outputDevice->findData(output.description()) < 0)
            m_outputDevice->addItem(output.description(), output.description());
    }
    // A stored device that is not plugged in now stays chosen, so OK does not forget it.
    if (!device.isEmpty() && m_outputDevice->findData(device) < 0)
        m_outputDevice->addItem(unavailable(device), device);
    m_outputDevice->setCurrentIndex(std::max(0, m_outputDevice->findData(device)));

    m_defaultVolume->setValue(Settings::defaultVolume.read());
    m_crossfadeEnabled->setChecked(Settings::crossfadeEnabled.read());
    m_mixPointMs->setValue(Settings::mixPointMs.read());
    m_fadeInMs->setValue(Settings::fadeInMs.read());
    m_fadeOutMs->setValue(Settings::fadeOutMs.read());
    m_triggerMixEnabled->setChecked(Settings::triggerMixEnabled.read());
    m_triggerMixDb->setValue(Settings::triggerMixDb.read());
    m_fadeOutOnMix->setChecked(Settings::fadeOutOnMix.read());
    m_minCrossfadeMs->setValue(Settings::minCrossfadeMs.read());
    m_autoPlayNext->setChecked(Settings::autoPlayNext.read());
    m_voiceoversEnabled->setChecked(Settings::voiceoversEnabled.read());
    m_startNextOnStop->setChecked(Settings::relayStartNextOnStop.read());
    m_targetLufs->setValue(Settings::targetLufs.read());
    m_normalizeLoudness->setChecked(Settings::normalizeLoudness.read());
    m_useCuePoints->setChecked(Settings::useCuePoints.read());
    m_shownAtOpen = shownValues();
}

void SettingsDialog::save() const
{
    Settings::outputDevice.write(m_outputDevice->currentData().toString());
    Settings::defaultVolume.write(m_defaultVolume->value());
    Settings::crossfadeEnabled.write(m_crossfadeEnabled->isChecked());
    Settings::mixPointMs.write(m_mixPointMs->value());
    Settings::fadeInMs.write(m_fadeInMs->value());
    Settings::fadeOutMs.write(m_fadeOutMs->value());
    Settings::triggerMixEnabled.write(m_triggerMixEnabled->isChecked());
    Settings::triggerMixDb.write(m_triggerMixDb->value());
    Settings::fadeOutOnMix.write(m_fadeOutOnMix->isChecked());
    Settings::minCrossfadeMs.write(m_minCrossfadeMs->value());
    Settings::autoPlayNext.write(m_autoPlayNext->isChecked());
    Settings::voiceoversEnabled.write(m_voiceoversEnabled->isChecked());
    Settings::relayStartNextOnStop.write(m_startNextOnStop->isChecked());
    Settings::targetLufs.write(m_targetLufs->value());
    Settings::normalizeLoudness.write(m_normalizeLoudness->isChecked());
    Settings::useCuePoints.write(m_useCuePoints->isChecked());
    QSettings().sync();
}

QVariantMap SettingsDialog::shownValues() const
{
    QVariantMap values;
    for (const QWidget* editor : findChildren<QWidget*>()) {
        const QString key = editor->objectName();
        if (!key.contains(QLatin1Char('/')))
            continue;
        if (const auto* combo = qobject_cast<const QComboBox*>(editor))
            values.insert(key, combo->currentData());
        else if (const auto* spin = qobject_cast<const QSpinBox*>(editor))
            values.insert(key, spin->value());
        else if (const auto* spin = qobject_cast<const QDoubleSpinBox*>(editor))
            values.insert(key, spin->value());
        else if (const auto* check = qobject_cast<const QCheckBox*>(editor))
            values.insert(key, check->isChecked());
    }
    return values;
}

void SettingsDialog::accept()
{
    const bool changed = shownValues() != m_shownAtOpen;
    save();
    if (m_engine) {
        // OK without a change leaves the engine alone: nothing on air moves.
        if (changed)
            applyToEngine();
        // The engine keeps its own voiceover switch from start-up; it follows the stored one from now on.
        m_engine->setVoiceoverEnabled(m_voiceoversEnabled->isChecked());
    }
    QDialog::accept();
}

void SettingsDialog::applyToEngine()
{
    // The engine re-reads every key at once, the volume at start included; the presenter's fader is
    // not the volume at start, so it is handed back straight away. The output device is set again
    // too, which the audio output ignores when it is the one already in use.
    const int presenterVolume = int(std::lround(m_engine->volume() * 100.0));
    m_engine->reloadSettings();
    m_engine->setVolume(presenterVolume);
}
