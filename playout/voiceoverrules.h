#pragma once

#include <QDate>
#include <QString>

struct TrackParams;

// Whether and where a voiceover is laid over a track, as plain functions over the track's
// parameters, so they can be checked without audio.

// The stored switch "voiceovers/enabled" (default on).
bool voiceoversEnabledSetting();
void setVoiceoversEnabledSetting(bool enabled);

// r is a random whole number 0..99. The three-argument form reads the stored switch.
bool shouldPlayVoiceover(const TrackParams& params, const QDate& today, int r, bool enabled);
bool shouldPlayVoiceover(const TrackParams& params, const QDate& today, int r);

// Milliseconds into the track at which the voiceover starts. With voiceoverPosition 1 the
// voiceover ends at the insert point instead (its duration, 0 while unknown, is taken off).
qint64 voiceoverInsertPoint(const TrackParams& params, qint64 voiceoverDurationMs);

// The file named by source, or one supported audio file of the folder it names, picked by draw
// (any non-negative number; taken modulo the number of files). Empty when there is none.
QString chooseVoiceoverFile(const QString& source, quint64 draw);
