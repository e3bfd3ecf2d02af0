#include "voiceoverrules.h"

#include "musiclibrary.h"
#include "settingkeys.h"
#include "trackparams.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>

bool voiceoversEnabledSetting()
{
    return Settings::voiceoversEnabled.read();
}

void setVoiceoversEnabledSetting(bool enabled)
{
    Settings::voiceoversEnabled.write(enabled);
}

bool shouldPlayVoiceover(const TrackParams& params, const QDate& today, int r, bool enabled)
{
    if (!enabled || params.voiceoverIns < 1 || params.voiceoverSource.isEmpty())
        return false;
    if (params.voiceoverNotAfter.isValid() && params.voiceoverNotAfter < today)
        return false;
    if (params.voiceoverProbability < 1)
        return false;
    if (params.voiceoverProbability > 99)
        return true;
    return params.voiceoverProbability > r;
}

bool shouldPlayVoiceover(const TrackParams& params, const QDate& today, int r)
{
    return shouldPlayVoiceover(params, today, r, voiceoversEnabledSetting());
}

qint64 voiceoverInsertPoint(const TrackParams& params, qint64 voiceoverDurationMs)
{
    if (params.voiceoverPosition == 1)
        return std::max<qint64>(params.voiceoverIns - voiceoverDurationMs, 0);
    return std::max<qint64>(params.voiceoverIns, 0);
}

QString chooseVoiceoverFile(const QString& source, quint64 draw)
{
    const QFileInfo info(source);
    if (info.isFile())
        return info.absoluteFilePath();
    if (!info.isDir())
        return QString();
    QStringList candidates;
    const QFileInfoList files = QDir(source).entryInfoList(QDir::Files, QDir::Name);
    for (const QFileInfo& file : files) {
        if (MusicLibrary::isSupportedAudioFile(file.absoluteFilePath()))
            candidates << file.absoluteFilePath();
    }
    if (candidates.isEmpty())
        return QString();
    return candidates.at(int(draw % quint64(candidates.size())));
}
