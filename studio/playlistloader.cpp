#include "playlistloader.h"

#include "musiclibrary.h"
#include "playlistfile.h"
#include "playlistmodel.h"
#include "trackdetails.h"
#include "tracktext.h"

#include <QDir>
#include <QFileInfo>
#include <QUrl>

namespace {

const QString notPlayable = QStringLiteral("Not a file or stream, ignored: %1");
const QString playlistFailed = QStringLiteral("Playlist not loaded: %1 (%2)");
const QString timingNotUsed = QStringLiteral("Fixed start time not used: %1, %2");

// The absolute path a file entry names ("file:" URLs included).
QString localPath(const QString& entry)
{
    const QString path =
        entry.startsWith(QLatin1String("file:"), Qt::CaseInsensitive) ? QUrl(entry).toLocalFile() : entry;
    return QFileInfo(path).absoluteFilePath();
}

} // namespace

bool PlaylistLoader::isPlaylistPath(const QString& path)
{
    return PlaylistFile::isPlaylistPath(path);
}

QString PlaylistLoader::missingFileText(const QString& path)
{
    return QStringLiteral("File not found: %1").arg(QDir::toNativeSeparators(path));
}

QString PlaylistLoader::timingProblemText(const QString& playlistPath, const QString& problem)
{
    return timingNotUsed.arg(QDir::toNativeSeparators(playlistPath), problem);
}

QStringList PlaylistLoader::timingProblemTexts(const QString& playlistPath, const QStringList& problems)
{
    QStringList texts;
    for (const QString& problem : problems)
        texts << timingProblemText(playlistPath, problem);
    return texts;
}

Track PlaylistLoader::trackFor(const QString& entry)
{
    if (isStreamUrl(entry))
        return trackFromStreamUrl(entry);
    const QString path = localPath(entry);
    if (!QFileInfo(path).isFile())
        return trackFromDroppedFile(path);
    return MusicLibrary::trackFromFile(path);
}

Track PlaylistLoader::withTags(const Track& bare)
{
    if (bare.isStream || bare.isCommand || bare.filePath.isEmpty() || !QFileInfo(bare.filePath).isFile())
        return bare;
    Track tagged = MusicLibrary::trackFromFile(bare.filePath);
    tagged.startTime = bare.startTime;
    tagged.timed = bare.timed;
    return tagged;
}

PlaylistLoader::Result PlaylistLoader::load(const QStringList& entries)
{
    Result result;
    QList<int> namedFiles; // file entries: named from the library or their tags below, in one pass
    for (const QString& raw : entries) {
        const QString entry = raw.trimmed();
        if (entry.isEmpty())
            continue;
        if (isStreamUrl(entry)) {
            result.tracks << trackFromStreamUrl(entry);
            continue;
        }
        const QUrl url(entry);
        const bool otherScheme = url.isValid() && url.scheme().size() > 1 &&
                                 url.scheme().compare(QLatin1String("file"), Qt::CaseInsensitive) != 0 &&
                                 entry.contains(QLatin1String("://"));
        if (otherScheme) {
            result.problems << notPlayable.arg(entry);
            continue;
        }
        if (isPlaylistPath(entry)) {
            const PlaylistFile::ReadResult read = PlaylistFile::read(entry);
            if (!read.ok) {
                result.failedPlaylists << playlistFailed.arg(QDir::toNativeSeparators(entry), read.error);
                result.problems << result.failedPlaylists.last();
                continue;
            }
            result.tracks << read.tracks;
            for (const QString& missing : read.missingFiles)
                result.problems << missingFileText(missing);
            for (const QString& skipped : read.skipped)
                result.problems << notPlayable.arg(skipped);
            result.problems << timingProblemTexts(entry, read.timingProblems);
            continue;
        }
        const Track track = trackFromFileName(localPath(entry));
        if (!QFileInfo(track.filePath).isFile())
            result.problems << missingFileText(track.filePath);
        namedFiles << int(result.tracks.size());
        result.tracks << track;
    }
    TrackDetails::fill(result.tracks, namedFiles);
    return result;
}
