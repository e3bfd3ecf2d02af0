#pragma once

#include <QDialog>
#include <QPointer>
#include <QVariantMap>

class AudioEngine;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QSpinBox;

// Every playout setting the engine reads, shown with its stored value (or its default). OK writes
// each key (library/settingkeys.h) and, when something changed, has the engine read them again
// without moving the presenter's volume. Each editor's object name is its key.
class SettingsDialog : public QDialog
{
    Q_OBJECT

public:
    explicit SettingsDialog(AudioEngine* engine, QWidget* parent = nullptr);

    // The combo entry that stands for the system's default output (stored as an empty text).
    static QString systemDefaultText() { return QStringLiteral("System default"); }
    // Shown under the loudness switch: what normalisation can and cannot do.
    static QString normalizationNoteText()
    {
        return QStringLiteral("Quiet tracks are raised only up to full volume; loud ones are lowered to the "
                              "target.");
    }

public slots:
    void accept() override;

private:
    void load();
    void save() const;
    void applyToEngine();
    // Every editor's value by its key, as shown now.
    QVariantMap shownValues() const;
    QSpinBox* addMs(const QString& key, int maximum);
    QCheckBox* addCheck(const QString& key, const QString& text);

    QPointer<AudioEngine> m_engine;
    QVariantMap m_shownAtOpen;
    QComboBox* m_outputDevice = nullptr;
    QSpinBox* m_defaultVolume = nullptr;
    QCheckBox* m_crossfadeEnabled = nullptr;
    QSpinBox* m_mixPointMs = nullptr;
    QSpinBox* m_fadeInMs = nullptr;
    QSpinBox* m_fadeOutMs = nullptr;
    QCheckBox* m_triggerMixEnabled = nullptr;
    QDoubleSpinBox* m_triggerMixDb = nullptr;
    QCheckBox* m_fadeOutOnMix = nullptr;
    QSpinBox* m_minCrossfadeMs = nullptr;
    QCheckBox* m_autoPlayNext = nullptr;
    QCheckBox* m_voiceoversEnabled = nullptr;
    QCheckBox* m_startNextOnStop = nullptr;
    QDoubleSpinBox* m_targetLufs = nullptr;
    QCheckBox* m_normalizeLoudness = nullptr;
    QCheckBox* m_useCuePoints = nullptr;
};
