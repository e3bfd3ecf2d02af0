#include "silentrowguard.h"

#include "audioengine.h"
#include "playlistmodel.h"

#include <QDir>
#include <QFileInfo>
#include <QTimer>

SilentRowGuard::SilentRowGuard(AudioEngine* engine, PlaylistModel* playlist, QObject* parent)
    : QObject(parent), m_engine(engine), m_playlist(playlist), m_timer(new QTimer(this))
{
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, &SilentRowGuard::onTimeout);
    connect(engine, &AudioEngine::currentRowChanged, this, &SilentRowGuard::onRowTaken);
    connect(engine, &AudioEngine::trackStarted, this, [this](int row) {
        if (row == m_row)
            cancel();
    });
}

void SilentRowGuard::setLimits(int fileMs, int streamMs)
{
    m_fileLimitMs = fileMs;
    m_streamLimitMs = streamMs;
}

bool SilentRowGuard::isWaiting() const
{
    return m_timer->isActive();
}

QString SilentRowGuard::streamSkippedText(const QString& url, int seconds)
{
    return QStringLiteral("Stream did not answer within %1 s, skipped: %2").arg(seconds).arg(url);
}

QString SilentRowGuard::fileSkippedText(const QString& path, int seconds)
{
    return QStringLiteral("File did not start playing within %1 s, skipped: %2")
        .arg(seconds)
        .arg(QDir::toNativeSeparators(path));
}

void SilentRowGuard::cancel()
{
    m_timer->stop();
    m_row = -1;
}

void SilentRowGuard::onRowTaken(int row)
{
    cancel();
    const QList<Track>& rows = m_playlist->tracks();
    if (row < 0 || row >= rows.size())
        return;
    const Track& track = rows.at(row);
    // Missing files are the missing-file guard's; command rows never sound.
    if (track.isCommand || track.filePath.isEmpty() ||
        (!track.isStream && !QFileInfo(track.filePath).isFile()))
        return;
    m_row = row;
    m_path = track.filePath;
    m_stream = track.isStream;
    m_timer->start(m_stream ? m_streamLimitMs : m_fileLimitMs);
}

void SilentRowGuard::onTimeout()
{
    const int row = m_row;
    m_row = -1;
    // The engine moved on, or there is no device to play on: nothing to skip.
    if (row < 0 || m_engine->currentRow() != row || !m_engine->hasOutputDevice())
        return;
    const int limit = m_stream ? m_streamLimitMs : m_fileLimitMs;
    emit message(m_stream ? streamSkippedText(m_path, limit / 1000) : fileSkippedText(m_path, limit / 1000));
    m_engine->next();
}
