#pragma once

#include <QSettings>
#include <QString>
#include <QVariant>

// Every setting of the playout side, the analysis and the studio, each key with its default in one
// place. Readers use key.read(), writers key.write(value); nobody spells a key or a default again.
// Each read takes a fresh QSettings, so a value another program (or the settings dialog) wrote is
// seen at once.
template <typename T>
struct SettingKey {
    const char* name;
    T fallback;

    QString key() const { return QString::fromLatin1(name); }
    T read() const { return QSettings().value(key(), QVariant::fromValue(fallback)).template value<T>(); }
    void write(const T& value) const { QSettings().setValue(key(), QVariant::fromValue(value)); }
};

namespace Settings {

// Audio output.
inline const SettingKey<QString> outputDevice{"audio/outputDevice", QString()}; // description; empty = default
inline const SettingKey<int> defaultVolume{"audio/defaultVolume", 80};          // percent

// Playback and mixing (milliseconds unless stated).
inline const SettingKey<bool> crossfadeEnabled{"playback/crossfadeEnabled", false};
inline const SettingKey<int> mixPointMs{"playback/mixPointMs", 2500};
inline const SettingKey<int> fadeInMs{"playback/fadeInMs", 1500};
inline const SettingKey<int> fadeOutMs{"playback/fadeOutMs", 2500};
inline const SettingKey<bool> triggerMixEnabled{"playback/triggerMixEnabled", false};
inline const SettingKey<double> triggerMixDb{"playback/triggerMixDb", -14.0}; // dB
inline const SettingKey<bool> fadeOutOnMix{"playback/fadeOutOnMix", true};
inline const SettingKey<int> minCrossfadeMs{"playback/minCrossfadeMs", 45000};
inline const SettingKey<bool> autoPlayNext{"playback/autoPlayNext", true};
inline const SettingKey<bool> useCuePoints{"playback/useCuePoints", false};
inline const SettingKey<bool> normalizeLoudness{"playback/normalizeLoudness", false};
// How long a taken row may stay silent before the playout skips it.
inline const SettingKey<int> silentFileLimitMs{"playback/silentFileLimitMs", 10000};
inline const SettingKey<int> silentStreamLimitMs{"playback/silentStreamLimitMs", 20000};
// How long a deck may take to load a local file before the load counts as failed.
inline const SettingKey<int> loadLimitMs{"playback/loadLimitMs", 5000};
// A hard timed row: how long what is on air fades out as the row cuts in.
inline const SettingKey<int> hardTimeFadeMs{"playback/hardTimeFadeMs", 500};
// A timed row that could not start within this long of its time is given up, never fired late.
inline const SettingKey<int> timedLateLimitMs{"playback/timedLateLimitMs", 60000};

inline const SettingKey<bool> voiceoversEnabled{"voiceovers/enabled", true};
inline const SettingKey<bool> relayStartNextOnStop{"relay/startNextOnStop", false};

// Analysis.
inline const SettingKey<double> targetLufs{"analysis/targetLufs", -18.0}; // LUFS

// The library's database: a PostgreSQL URL, empty for the embedded database.
inline const SettingKey<QString> databaseUrl{"library/databaseUrl", QString()};

// The station format file the schedule window generated from last; empty until one was used.
inline const SettingKey<QString> scheduleFormatFile{"schedule/formatFile", QString()};

// Every key above, each handed to visit(key) once: for checks that must cover all of them. A key
// declared above and missing here is caught by tests/library/tst_settingkeys.cpp.
template <typename Visitor>
void forEachKey(Visitor&& visit)
{
    visit(outputDevice);
    visit(defaultVolume);
    visit(crossfadeEnabled);
    visit(mixPointMs);
    visit(fadeInMs);
    visit(fadeOutMs);
    visit(triggerMixEnabled);
    visit(triggerMixDb);
    visit(fadeOutOnMix);
    visit(minCrossfadeMs);
    visit(autoPlayNext);
    visit(useCuePoints);
    visit(normalizeLoudness);
    visit(silentFileLimitMs);
    visit(silentStreamLimitMs);
    visit(loadLimitMs);
    visit(hardTimeFadeMs);
    visit(timedLateLimitMs);
    visit(voiceoversEnabled);
    visit(relayStartNextOnStop);
    visit(targetLufs);
    visit(databaseUrl);
    visit(scheduleFormatFile);
}

} // namespace Settings
