#include "playlistfile.h"

#include "librarylogging.h"
#include "musiclibrary.h"
#include "trackdetails.h"
#include "tracktext.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStringDecoder>
#include <QUrl>

#include <cmath>

namespace {

const QString extinfPrefix = QStringLiteral("#EXTINF:");

// The text after "#EXTINF:<seconds>," for a track; line breaks would end the comment line early.
QString entryTitle(const Track& track)
{
    QString text =
        track.title.isEmpty() ? QFileInfo(track.filePath).completeBaseName() : trackDisplayText(track);
    text.replace(QLatin1Char('\r'), QLatin1Char(' '));
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return text;
}

// "Artist - Title" of an #EXTINF line or a file name; without a separator it is all title.
void nameFrom(const QString& text, Track& track)
{
    const ArtistTitle named = splitArtistTitle(text);
    track.artist = named.artist;
    track.title = named.title.trimmed();
}

// A playlist is text: UTF-8 (the .m3u8 habit and ours), or Latin-1 as older players wrote .m3u.
// NUL bytes mean binary data, not a playlist.
bool decodeText(const QByteArray& content, QString& text)
{
    if (content.contains('\0'))
        return false;
    QStringDecoder utf8(QStringDecoder::Utf8);
    text = utf8(content);
    if (utf8.hasError())
        text = QString::fromLatin1(content);
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);
    return true;
}

QString resolvePath(const QString& entry, const QString& baseFolder)
{
    if (entry.startsWith(QStringLiteral("file:"), Qt::CaseInsensitive))
        return QUrl(entry).toLocalFile();
    if (QDir::isAbsolutePath(entry) || baseFolder.isEmpty())
        return QDir::cleanPath(entry);
    return QDir::cleanPath(QDir(baseFolder).absoluteFilePath(entry));
}

// Another scheme than a playable stream's or a local file's ("ftp://", "smb://"): the engine cannot
// play it.
bool isOtherUrl(const QString& entry)
{
    const int scheme = entry.indexOf(QStringLiteral("://"));
    if (scheme <= 1 || entry.startsWith(QStringLiteral("file:"), Qt::CaseInsensitive))
        return false; // "C://", plain paths and file URLs are local files
    for (int i = 0; i < scheme; ++i) {
        if (!entry.at(i).isLetterOrNumber() && entry.at(i) != QLatin1Char('+'))
            return false;
    }
    return true;
}

} // namespace

QString PlaylistFile::timePrefix()
{
    return QStringLiteral("#ONDARO-TIME:");
}

QString PlaylistFile::timingText(const TimedStart& timed)
{
    if (!timed.isTimed())
        return QString();
    const QString mode = timed.isHard() ? QStringLiteral("hard") : QStringLiteral("soft");
    const QString when = timed.timeOfDay ? timed.at.time().toString(QStringLiteral("HH:mm:ss"))
                                         : timed.at.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
    return mode + QLatin1Char(' ') + when;
}

bool PlaylistFile::parseTiming(const QString& text, const QDateTime& loadedAt, TimedStart& timed,
                               QString* error)
{
    const auto fail = [error](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    const QStringList words = text.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (words.size() != 2)
        return fail(QStringLiteral("expected \"hard\" or \"soft\" and a time"));
    TimedStart result;
    const QString mode = words.at(0).toLower();
    if (mode == QLatin1String("hard"))
        result.mode = TimedStart::Mode::Hard;
    else if (mode == QLatin1String("soft"))
        result.mode = TimedStart::Mode::Soft;
    else
        return fail(QStringLiteral("\"%1\" is neither \"hard\" nor \"soft\"").arg(words.at(0)));

    const QString when = words.at(1);
    if (when.contains(QLatin1Char('T'))) {
        // Local time: a zone or an offset would name another clock than the station's.
        result.at = QDateTime::fromString(when, QStringLiteral("yyyy-MM-ddTHH:mm:ss"));
    } else {
        const QTime time = QTime::fromString(when, QStringLiteral("HH:mm:ss"));
        if (time.isValid()) {
            const QDateTime from = loadedAt.isValid() ? loadedAt : QDateTime::currentDateTime();
            // The next such time: today's when it is still to come, else tomorrow's (or the day
            // after, should a clock change skip the hour on the way).
            for (int day = 0; day < 3 && !result.at.isValid(); ++day) {
                const QDateTime candidate(from.date().addDays(day), time);
                if (candidate.isValid() && candidate.time() == time && candidate >= from)
                    result.at = candidate;
            }
            result.timeOfDay = true;
        }
    }
    if (!result.at.isValid())
        return fail(QStringLiteral("\"%1\" is not a local date and time (2026-11-23T12:00:00) "
                                   "or a time of day (12:00:00)").arg(when));
    timed = result;
    return true;
}

QString PlaylistFile::commandPrefix()
{
    return QStringLiteral("#ONDARO-COMMAND:");
}

bool PlaylistFile::isPlaylistPath(const QString& path)
{
    const QString suffix = QFileInfo(path).suffix().toLower();
    return suffix == QLatin1String("m3u") || suffix == QLatin1String("m3u8");
}

PlaylistFile::ReadResult PlaylistFile::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        ReadResult result;
        result.error = QStringLiteral("Cannot read %1: %2").arg(QDir::toNativeSeparators(path), file.errorString());
        qCWarning(lcLibrary) << "playlist" << path << "not readable:" << file.errorString();
        return result;
    }
    ReadResult result = parse(file.readAll(), QFileInfo(path).absolutePath());
    if (result.ok)
        TrackDetails::fill(result.tracks, result.rowsWithoutInfo);
    return result;
}

PlaylistFile::ReadResult PlaylistFile::parse(const QByteArray& content, const QString& baseFolder,
                                             const QDateTime& loadedAt)
{
    ReadResult result;
    QString text;
    if (!decodeText(content, text)) {
        result.error = QStringLiteral("This is not a playlist: the file holds binary data.");
        return result;
    }

    const QStringList lines = text.split(QLatin1Char('\n'));
    bool haveInfo = false;
    int infoLine = 0;
    qint64 infoMs = 0;
    QString infoTitle;
    // A time line applies to the next entry; command rows between leave it waiting for that entry.
    TimedStart timing;
    int timingLine = 0;
    const auto timingProblem = [&result](int line, const QString& why) {
        result.timingProblems.append(QStringLiteral("Line %1: %2").arg(line).arg(why));
        qCWarning(lcLibrary) << "playlist: line" << line << "untimed:" << why;
    };
    for (int i = 0; i < lines.size(); ++i) {
        const QString line = lines.at(i).trimmed();
        if (line.isEmpty())
            continue;
        if (line.startsWith(extinfPrefix, Qt::CaseInsensitive)) {
            if (haveInfo) {
                result.error = QStringLiteral("Line %1: #EXTINF without an entry after it.").arg(infoLine);
                return result;
            }
            const QString rest = line.mid(extinfPrefix.size());
            const int comma = rest.indexOf(QLatin1Char(','));
            // Players write attributes after the length ("-1 tvg-id=..."); the length is the first word.
            const QString lengthText = rest.left(comma < 0 ? rest.size() : comma).section(QLatin1Char(' '), 0, 0);
            bool numeric = false;
            const double seconds = lengthText.toDouble(&numeric);
            if (!numeric || !std::isfinite(seconds)) {
                result.error = QStringLiteral("Line %1: #EXTINF without a valid length.").arg(i + 1);
                return result;
            }
            haveInfo = true;
            infoLine = i + 1;
            infoMs = seconds > 0 ? qint64(std::llround(seconds * 1000.0)) : 0;
            infoTitle = comma < 0 ? QString() : rest.mid(comma + 1).trimmed();
            continue;
        }
        if (line.startsWith(commandPrefix(), Qt::CaseInsensitive)) {
            const QString word = line.mid(commandPrefix().size()).trimmed();
            if (word.isEmpty()) {
                result.error = QStringLiteral("Line %1: a command line without its word.").arg(i + 1);
                return result;
            }
            result.tracks.append(commandTrack(word.toLower()));
            continue;
        }
        if (line.startsWith(timePrefix(), Qt::CaseInsensitive)) {
            if (timingLine > 0)
                timingProblem(timingLine, QStringLiteral("a second time line follows before its entry; "
                                                         "that one holds"));
            QString why;
            timing = TimedStart();
            timingLine = 0;
            if (parseTiming(line.mid(timePrefix().size()), loadedAt, timing, &why))
                timingLine = i + 1;
            else
                timingProblem(i + 1, why);
            continue;
        }
        if (line.startsWith(QLatin1Char('#')))
            continue; // "#EXTM3U" and the comments of other players

        Track track;
        if (MusicLibrary::isStreamUrl(line)) {
            track = trackFromStreamUrl(line);
            if (haveInfo && !infoTitle.isEmpty())
                nameFrom(infoTitle, track);
        } else if (isOtherUrl(line)) {
            result.skipped.append(line);
            haveInfo = false;
            if (timingLine > 0)
                timingProblem(timingLine, QStringLiteral("its entry cannot be played, so nothing is timed"));
            timing = TimedStart();
            timingLine = 0;
            continue;
        } else {
            track.filePath = resolvePath(line, baseFolder);
            nameFrom(haveInfo && !infoTitle.isEmpty() ? infoTitle
                                                      : QFileInfo(track.filePath).completeBaseName(),
                     track);
            track.durationMs = haveInfo ? infoMs : 0;
            if (!haveInfo)
                result.rowsWithoutInfo.append(int(result.tracks.size()));
            if (!QFileInfo::exists(track.filePath))
                result.missingFiles.append(track.filePath);
        }
        track.timed = timing;
        timing = TimedStart();
        timingLine = 0;
        result.tracks.append(track);
        haveInfo = false;
    }
    if (timingLine > 0)
        timingProblem(timingLine, QStringLiteral("no entry follows it"));
    if (haveInfo) {
        result.error = QStringLiteral("Line %1: #EXTINF without an entry after it.").arg(infoLine);
        return result;
    }
    result.ok = true;
    return result;
}

QByteArray PlaylistFile::toM3u(const QList<Track>& tracks)
{
    QString text = QStringLiteral("#EXTM3U\n");
    text.reserve(tracks.size() * 120);
    for (const Track& track : tracks) {
        if (track.isCommand) {
            text += commandPrefix() + track.command + QLatin1Char('\n');
            continue;
        }
        // -1 is M3U's "unknown or endless", as for a live stream.
        if (track.timed.isTimed())
            text += timePrefix() + timingText(track.timed) + QLatin1Char('\n');
        const qint64 seconds = !track.isStream && track.durationMs > 0 ? (track.durationMs + 500) / 1000 : -1;
        text += extinfPrefix + QString::number(seconds) + QLatin1Char(',') + entryTitle(track) + QLatin1Char('\n');
        text += track.filePath + QLatin1Char('\n');
    }
    return text.toUtf8();
}

bool PlaylistFile::write(const QString& path, const QList<Track>& tracks, QString* error)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(toM3u(tracks)) < 0 || !file.commit()) {
        if (error)
            *error = QStringLiteral("Cannot write %1: %2").arg(QDir::toNativeSeparators(path), file.errorString());
        qCWarning(lcLibrary) << "playlist" << path << "not written:" << file.errorString();
        return false;
    }
    return true;
}
