#include "missingfileguard.h"

#include "audioengine.h"
#include "playlistmodel.h"

#include <QDir>
#include <QFileInfo>
#include <QTimer>

MissingFileGuard::MissingFileGuard(AudioEngine* engine, PlaylistModel* playlist, QObject* parent)
    : QObject(parent), m_engine(engine), m_playlist(playlist)
{
    connect(engine, &AudioEngine::currentRowChanged, this, &MissingFileGuard::onRowTaken);
    connect(engine, &AudioEngine::trackStarted, this, [this] { m_skipsInARow = 0; });
}

QString MissingFileGuard::skippedText(const QString& path)
{
    return QStringLiteral("File not found, skipped: %1").arg(QDir::toNativeSeparators(path));
}

QString MissingFileGuard::nothingPlayableText()
{
    return QStringLiteral("No playable file found in the playlist - playback stopped");
}

void MissingFileGuard::onRowTaken(int row)
{
    const QList<Track>& rows = m_playlist->tracks();
    if (row < 0 || row >= rows.size())
        return;
    const Track& track = rows.at(row);
    if (track.isCommand || track.isStream || track.filePath.isEmpty() || QFileInfo(track.filePath).isFile()) {
        if (!track.isCommand)
            m_skipsInARow = 0;
        return;
    }
    emit message(skippedText(track.filePath));
    if (++m_skipsInARow > rows.size()) {
        m_skipsInARow = 0;
        emit message(nothingPlayableText());
        m_engine->stop();
        return;
    }
    // After the engine has finished taking this row, never from inside its own signal.
    QTimer::singleShot(0, m_engine, &AudioEngine::next);
}
