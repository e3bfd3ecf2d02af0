#include "mixsettings.h"

#include <QSettings>

MixSettings MixSettings::fromSettings()
{
    MixSettings s;
    s.crossfadeEnabled = QSettings().value(QStringLiteral("playback/crossfadeEnabled"), false).toBool();
    s.mixPointMs = QSettings().value(QStringLiteral("playback/mixPointMs"), 2500).toInt();
    s.fadeOutMs = QSettings().value(QStringLiteral("playback/fadeOutMs"), 2500).toInt();
    s.triggerMixEnabled = QSettings().value(QStringLiteral("playback/triggerMixEnabled"), false).toBool();
    s.triggerMixDb = QSettings().value(QStringLiteral("playback/triggerMixDb"), -14.0).toDouble();
    s.fadeOutOnMix = QSettings().value(QStringLiteral("playback/fadeOutOnMix"), true).toBool();
    s.minCrossfadeMs = QSettings().value(QStringLiteral("playback/minCrossfadeMs"), 45000).toInt();
    return s;
}
