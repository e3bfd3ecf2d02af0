#include "settingsdialog.h"

#include "audioengine.h"

#include <QAudioDevice>
#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QMediaDevices>
#include <QSettings>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// The keys and defaults the engine reads (AudioEngine::reloadSettings, MixSettings, the relay, the
// voiceovers and the loudness analysis).
const QString kOutputDevice = QStringLiteral("audio/outputDevice");
const QString kDefaultVolume = QStringLiteral("audio/defaultVolume");
const QString kCrossfadeEnabled = QStringLiteral("playback/crossfadeEnabled");
const QString kMixPointMs = QStringLiteral("playback/mixPointMs");
const QString kFadeInMs = QStringLiteral("playback/fadeInMs");
const QString kFadeOutMs = QStringLiteral("playback/fadeOutMs");
const QString kTriggerMixEnabled = QStringLiteral("playback/triggerMixEnabled");
const QString kTriggerMixDb = QStringLiteral("playback/triggerMixDb");
const QString kFadeOutOnMix = QStringLiteral("playback/fadeOutOnMix");
const QString kMinCrossfadeMs = QStringLiteral("playback/minCrossfadeMs");
const QString kAutoPlayNext = QStringLiteral("playback/autoPlayNext");
const QString kVoiceoversEnabled = QStringLiteral("voiceovers/enabled");
const QString kStartNextOnStop = QStringLiteral("relay/startNextOnStop");
const QString kTargetLufs = QStringLiteral("analysis/targetLufs");
const QString kNormalizeLoudness = QStringLiteral("playback/normalizeLoudness");
const QString kUseCuePoints = QStringLiteral("playback/useCuePoints");

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
    m_outputDevice->setObjectName(kOutputDevice);
    m_defaultVolume = new QSpinBox(this);
    m_defaultVolume->setObjectName(kDefaultVolume);
    m_defaultVolume->setRange(0, 100);
    m_defaultVolume->setSuffix(QStringLiteral(" %"));
    auto* audio = new QGroupBox(QStringLiteral("Audio"), this);
    auto* audioForm = new QFormLayout(audio);
    audioForm->addRow(QStringLiteral("Output device:"), m_outputDevice);
    audioForm->addRow(QStringLiteral("Volume at start:"), m_defaultVolume);

    m_crossfadeEnabled = addCheck(kCrossfadeEnabled, QStringLiteral("Crossfade and mix automatically"));
    m_mixPointMs = addMs(kMixPointMs, kMaxMixPointMs);
    m_fadeInMs = addMs(kFadeInMs, kMaxFadeMs);
    m_fadeOutMs = addMs(kFadeOutMs, kMaxFadeMs);
    m_triggerMixEnabled =
        addCheck(kTriggerMixEnabled, QStringLiteral("Start the next track when the level falls"));
    m_triggerMixDb = new QDoubleSpinBox(this);
    m_triggerMixDb->setObjectName(kTriggerMixDb);
    m_triggerMixDb->setRange(-100.0, 0.0);
    m_triggerMixDb->setDecimals(1);
    m_triggerMixDb->setSingleStep(0.5);
    m_triggerMixDb->setSuffix(QStringLiteral(" dB"));
    m_fadeOutOnMix = addCheck(kFadeOutOnMix, QStringLiteral("Fade the outgoing track out at the mix point"));
    m_minCrossfadeMs = addMs(kMinCrossfadeMs, kMaxMinCrossfadeMs);
    m_autoPlayNext = addCheck(kAutoPlayNext, QStringLiteral("Go on to the next row at the end of a track"));
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
    m_targetLufs->setObjectName(kTargetLufs);
    m_targetLufs->setRange(-70.0, 0.0);
    m_targetLufs->setDecimals(1);
    m_targetLufs->setSingleStep(0.5);
    m_targetLufs->setSuffix(QStringLiteral(" LUFS"));
    m_normalizeLoudness =
        addCheck(kNormalizeLoudness, QStringLiteral("Play every track at the target loudness"));
    m_useCuePoints = addCheck(kUseCuePoints, QStringLiteral("Use the cue points found by the analysis"));
    auto* analysis = new QGroupBox(QStringLiteral("Loudness and cue points"), this);
    auto* analysisForm = new QFormLayout(analysis);
    analysisForm->addRow(QStringLiteral("Target loudness:"), m_targetLufs);
    analysisForm->addRow(m_normalizeLoudness);
    analysisForm->addRow(m_useCuePoints);

    m_voiceoversEnabled = addCheck(kVoiceoversEnabled, QStringLiteral("Play voiceovers"));
    m_startNextOnStop = addCheck(kStartNextOnStop, QStringLiteral("After a relay stops, start the next row"));
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
    const QSettings s;
    const QString device = s.value(kOutputDevice).toString();
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

    m_defaultVolume->setValue(s.value(kDefaultVolume, 80).toInt());
    m_crossfadeEnabled->setChecked(s.value(kCrossfadeEnabled, false).toBool());
    m_mixPointMs->setValue(s.value(kMixPointMs, 2500).toInt());
    m_fadeInMs->setValue(s.value(kFadeInMs, 1500).toInt());
    m_fadeOutMs->setValue(s.value(kFadeOutMs, 2500).toInt());
    m_triggerMixEnabled->setChecked(s.value(kTriggerMixEnabled, false).toBool());
    m_triggerMixDb->setValue(s.value(kTriggerMixDb, -14.0).toDouble());
    m_fadeOutOnMix->setChecked(s.value(kFadeOutOnMix, true).toBool());
    m_minCrossfadeMs->setValue(s.value(kMinCrossfadeMs, 45000).toInt());
    m_autoPlayNext->setChecked(s.value(kAutoPlayNext, true).toBool());
    m_voiceoversEnabled->setChecked(s.value(kVoiceoversEnabled, true).toBool());
    m_startNextOnStop->setChecked(s.value(kStartNextOnStop, false).toBool());
    m_targetLufs->setValue(s.value(kTargetLufs, -18.0).toDouble());
    m_normalizeLoudness->setChecked(s.value(kNormalizeLoudness, false).toBool());
    m_useCuePoints->setChecked(s.value(kUseCuePoints, false).toBool());
}

void SettingsDialog::save() const
{
    QSettings s;
    s.setValue(kOutputDevice, m_outputDevice->currentData().toString());
    s.setValue(kDefaultVolume, m_defaultVolume->value());
    s.setValue(kCrossfadeEnabled, m_crossfadeEnabled->isChecked());
    s.setValue(kMixPointMs, m_mixPointMs->value());
    s.setValue(kFadeInMs, m_fadeInMs->value());
    s.setValue(kFadeOutMs, m_fadeOutMs->value());
    s.setValue(kTriggerMixEnabled, m_triggerMixEnabled->isChecked());
    s.setValue(kTriggerMixDb, m_triggerMixDb->value());
    s.setValue(kFadeOutOnMix, m_fadeOutOnMix->isChecked());
    s.setValue(kMinCrossfadeMs, m_minCrossfadeMs->value());
    s.setValue(kAutoPlayNext, m_autoPlayNext->isChecked());
    s.setValue(kVoiceoversEnabled, m_voiceoversEnabled->isChecked());
    s.setValue(kStartNextOnStop, m_startNextOnStop->isChecked());
    s.setValue(kTargetLufs, m_targetLufs->value());
    s.setValue(kNormalizeLoudness, m_normalizeLoudness->isChecked());
    s.setValue(kUseCuePoints, m_useCuePoints->isChecked());
    s.sync();
}

void SettingsDialog::accept()
{
    save();
    if (m_engine) {
        m_engine->reloadSettings();
        // The engine keeps its own voiceover switch from start-up; it follows the stored one from now on.
        m_engine->setVoiceoverEnabled(m_voiceoversEnabled->isChecked());
    }
    QDialog::accept();
}
