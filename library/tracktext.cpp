#include "tracktext.h"

#include <algorithm>

namespace {

const QString kSeparator = QStringLiteral(" - ");

} // namespace

QString trackDisplayText(const Track& track)
{
    if (!track.artist.isEmpty() && !track.title.isEmpty())
        return track.artist + kSeparator + track.title;
    if (!track.title.isEmpty())
        return track.title;
    return track.filePath;
}

QString commandRowText(const Track& track)
{
    return QStringLiteral(">> ") + track.command.toUpper() + QStringLiteral(" <<");
}

QString playlistRowText(const Track& track)
{
    return track.isCommand ? commandRowText(track) : trackDisplayText(track);
}

QString fileBaseName(const QString& path)
{
    const qsizetype slash = std::max(path.lastIndexOf(QLatin1Char('/')), path.lastIndexOf(QLatin1Char('\\')));
    QString name = path.mid(slash + 1);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot > 0)
        name.truncate(dot);
    return name;
}

ArtistTitle splitArtistTitle(const QString& text)
{
    const qsizetype separator = text.indexOf(kSeparator);
    if (separator < 1)
        return {QString(), text};
    return {text.left(separator).trimmed(), text.mid(separator + kSeparator.size()).trimmed()};
}

QString onlineStreamArtist()
{
    return QStringLiteral("Online stream");
}

Track trackFromStreamUrl(const QString& text)
{
    Track track;
    const QString address = text.trimmed();
    track.artist = onlineStreamArtist();
    track.title = address;
    track.filePath = address;
    track.isStream = true;
    return track;
}

Track trackFromFileName(const QString& path)
{
    Track track;
    track.filePath = path;
    const ArtistTitle named = splitArtistTitle(fileBaseName(path));
    track.artist = named.artist;
    track.title = named.title;
    return track;
}

Track commandTrack(const QString& word)
{
    Track track;
    track.isCommand = true;
    track.command = word;
    return track;
}
