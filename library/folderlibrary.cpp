#include "folderlibrary.h"

#include "audiofiles.h"

#include <algorithm>

#include <QFileInfo>

namespace {

bool contains(const QString& field, const QString& needle, Qt::CaseSensitivity cs)
{
    return needle.isEmpty() || field.contains(needle, cs);
}

bool matchesFreeText(const Track& t, const QString& text)
{
    if (text.isEmpty())
        return true;
    return t.artist.contains(text, Qt::CaseInsensitive) || t.title.contains(text, Qt::CaseInsensitive) ||
           t.album.contains(text, Qt::CaseInsensitive) || t.genre.contains(text, Qt::CaseInsensitive) ||
           t.comment.contains(text, Qt::CaseInsensitive) || QString::number(t.year).contains(text) ||
           formatDuration(t.durationMs).contains(text) ||
           QFileInfo(t.filePath).fileName().contains(text, Qt::CaseInsensitive);
}

void addFolder(QList<Track>& tracks, const QString& dir)
{
    // Files of a folder come before those of its subfolders.
    tracks.append(AudioFiles::readTracks(AudioFiles::filesDirectlyIn(dir)));
    for (const QString& sub : AudioFiles::subfoldersOf(dir))
        addFolder(tracks, sub);
}

} // namespace

int FolderLibrary::load(const QString& path)
{
    m_tracks.clear();
    addFolder(m_tracks, path);
    return int(m_tracks.size());
}

qint64 FolderLibrary::totalDurationMs() const
{
    qint64 sum = 0;
    for (const Track& t : m_tracks)
        sum += t.durationMs;
    return sum;
}

int FolderLibrary::updateDuration(const QString& filePath, qint64 ms)
{
    int changed = 0;
    for (Track& t : m_tracks) {
        if (t.filePath == filePath && !t.isStream) {
            t.durationMs = ms;
            ++changed;
        }
    }
    return changed;
}

int FolderLibrary::removeMissingFiles()
{
    QStringList missing;
    for (const Track& t : m_tracks) {
        if (!t.isStream && !t.filePath.isEmpty() && !QFileInfo::exists(t.filePath))
            missing << t.filePath;
    }
    m_tracks.erase(std::remove_if(m_tracks.begin(), m_tracks.end(),
                                  [&missing](const Track& t) { return missing.contains(t.filePath); }),
                   m_tracks.end());
    return int(missing.size());
}

QList<Track> FolderLibrary::filter(const LibraryQuery& q) const
{
    QList<Track> result;
    for (const Track& t : m_tracks) {
        if (!matchesFreeText(t, q.text))
            continue;
        if (!contains(t.artist, q.artist, Qt::CaseInsensitive) ||
            !contains(t.title, q.title, Qt::CaseInsensitive) ||
            !contains(t.album, q.album, Qt::CaseInsensitive) ||
            !contains(t.genre, q.genre, Qt::CaseInsensitive) ||
            !contains(t.comment, q.comment, Qt::CaseInsensitive) ||
            !contains(QFileInfo(t.filePath).fileName(), q.filename, Qt::CaseInsensitive) ||
            !contains(QString::number(t.year), q.year, Qt::CaseSensitive) ||
            !contains(formatDuration(t.durationMs), q.duration, Qt::CaseSensitive))
            continue;
        result.append(t);
    }
    return result;
}
