#pragma once

#include <QString>

// Every line the audio engine shows the user through logMessage, in one place, so that whatever
// watches the log (the headless runner, a window) compares against the same texts.
namespace PlayoutLog {

inline const QString stopCommand =
    QStringLiteral("STOP command - playback halted (press Play or Next to continue)");
inline const QString pauseCommand = QStringLiteral("PAUSE command");
inline const QString command = QStringLiteral("Command: ");
inline const QString noDevice = QStringLiteral("No audio output device available - cannot play");
inline const QString queue = QStringLiteral("Playback queue: playing ");
inline const QString stop = QStringLiteral("Stop");
inline const QString endOfTrack = QStringLiteral("End of track: ");
inline const QString playbackError = QStringLiteral("Playback error: ");
inline const QString streamLimit = QStringLiteral("Stream time limit reached");
inline const QString streamMetadata = QStringLiteral("Stream metadata: ");
inline const QString voiceoverArmed = QStringLiteral("Voiceover armed: ");
inline const QString voiceover = QStringLiteral("Voiceover: ");
inline const QString relayStarting = QStringLiteral("Relay: starting ");
inline const QString relayLive = QStringLiteral("Relay: live");
inline const QString relayLost = QStringLiteral("Relay: stream lost - back to playlist");
inline const QString relayReconnecting = QStringLiteral("Relay: reconnecting...");
inline const QString relayStopped = QStringLiteral("Relay: stopped");
inline const QString relayError = QStringLiteral("Relay error: ");
// "File not found: <path>"; the row waits as any row without media does.
inline const QString fileNotFound = QStringLiteral("File not found: ");
// "Parameters not read yet - playing with defaults: <track>"; the store had not answered for it.
inline const QString defaultParameters = QStringLiteral("Parameters not read yet - playing with defaults: ");
// "Output device lost: <device> - moved to the system default <device>".
inline const QString outputLost = QStringLiteral("Output device lost: ");
inline const QString outputMoved = QStringLiteral(" - moved to the system default ");
// Loudness normalisation asked for more than full output volume: "%1" the dB applied, "%2" asked.
inline const QString gainCapped =
    QStringLiteral("Loudness raised by %1 dB only, not %2 dB: the output is at full volume");

} // namespace PlayoutLog
