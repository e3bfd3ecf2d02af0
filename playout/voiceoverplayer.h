#pragma once

#include "trackparams.h"

#include <QAudioDevice>
#include <QObject>
#include <QString>

class AudioPlayer;
class OutputRouter;

// The voiceover laid over a music track: armed when the track starts (from the parameters read
// then), fired when the track's position reaches the insert point. Its player is created on
// first use. Problems with the voiceover file are silent for the user: no voiceover plays.
class VoiceoverPlayer : public QObject
{
    Q_OBJECT

public:
    // With a router, the voiceover plays on the router's device and follows its changes.
    explicit VoiceoverPlayer(QObject* parent = nullptr, OutputRouter* router = nullptr);

    void setEnabled(bool enabled) { m_enabled = enabled; }
    bool isEnabled() const { return m_enabled; }

    // Drops any armed voiceover, then arms the one the parameters ask for (after the random
    // draws); returns the chosen file, empty when none is armed.
    QString arm(const TrackParams& params, const QAudioDevice& device);
    // Starts the armed voiceover when position (ms into the track) has reached its insert point;
    // returns the file that was started, empty when none.
    QString fire(qint64 position);
    // Clears the armed voiceover and stops one that plays.
    void disarm();
    void setDevice(const QAudioDevice& device);

    bool isArmed() const { return m_armed; }
    qint64 insertAt() const { return m_insertAt; }
    QString file() const { return m_file; }
    bool isPlaying() const;

private:
    void onDuration(qint64 durationMs);

    bool m_enabled = true;
    bool m_armed = false;
    qint64 m_insertAt = 0; // ms into the current track
    QString m_file;
    double m_level = 1.0;
    TrackParams m_params; // of the track it is armed for
    OutputRouter* m_router = nullptr;
    AudioPlayer* m_player = nullptr;
};
