#include "track.h"

#include "trackrowreader.h"
#include "tracktext.h"

#include <QSqlQuery>
#include <QSqlRecord>
#include <QVariant>

#include <taglib/fileref.h>
#include <taglib/tag.h>
#include <taglib/taglib.h>
#include <taglib/wavfile.h>

namespace {

QString fromTagString(const TagLib::String& s)
{
    return QString::fromUtf8(s.to8Bit(true).c_str()).trimmed();
}

// The one place where TagLib versions differ for us. TagLib 1.x gives, for a WAV file, only the ID3v2
// tag through FileRef::tag(), so RIFF INFO artist/title come back empty. TagLib 2 merges both tags,
// each field taken from the first tag (ID3v2, then INFO) that has it; do the same on 1.x.
struct TagTexts {
    QString artist, title, album, genre, comment;
    int year = 0;
};

TagTexts textsOf(const TagLib::Tag* tag)
{
    TagTexts t;
    t.artist = fromTagString(tag->artist());
    t.title = fromTagString(tag->title());
    t.album = fromTagString(tag->album());
    t.genre = fromTagString(tag->genre());
    t.comment = fromTagString(tag->comment());
    t.year = static_cast<int>(tag->year());
    return t;
}

TagTexts tagTexts(const TagLib::FileRef& ref)
{
    TagTexts t = textsOf(ref.tag());
#if TAGLIB_MAJOR_VERSION < 2
    const auto* wav = dynamic_cast<const TagLib::RIFF::WAV::File*>(ref.file());
    if (wav && wav->hasInfoTag()) {
        const TagTexts info = textsOf(wav->InfoTag());
        auto fill = [](QString& field, const QString& fallback) {
            if (field.isEmpty())
                field = fallback;
        };
        fill(t.artist, info.artist);
        fill(t.title, info.title);
        fill(t.album, info.album);
        fill(t.genre, info.genre);
        fill(t.comment, info.comment);
        if (t.year == 0)
            t.year = info.year;
    }
#endif
    return t;
}

} // namespace

// Known to Qt by name, so that queued connections and QVariant lookups by "Track" work.
[[maybe_unused]] static const int kTrackMetaTypeId = qRegisterMetaType<Track>("Track");

QString formatDuration(qint64 ms)
{
    if (ms < 1)
        return QStringLiteral("--:--");
    // Written digit by digit: QString::arg costs more than the rest of a table cell, and a large
    // library's table formats 100,000 of these at once.
    const qint64 seconds = ms / 1000;
    qint64 minutes = seconds / 60;
    char text[32];
    char* const end = text + sizeof text;
    char* p = end;
    *--p = char('0' + seconds % 60 % 10);
    *--p = char('0' + seconds % 60 / 10);
    *--p = ':';
    do {
        *--p = char('0' + minutes % 10);
        minutes /= 10;
    } while (minutes > 0);
    if (end - p < 5) // at least two digits of minutes
        *--p = '0';
    return QString::fromLatin1(p, end - p);
}

Track trackFromRecord(const QSqlQuery& row)
{
    return TrackRowReader(row.record()).read(row);
}

bool readTags(const QString& path, Track& track)
{
    track.filePath = path;
    const QByteArray encoded = path.toUtf8();
    TagLib::FileRef ref(TagLib::FileName(encoded.constData()), true, TagLib::AudioProperties::Average);
    if (!ref.isNull()) {
        if (ref.tag()) {
            const TagTexts texts = tagTexts(ref);
            track.artist = texts.artist;
            track.title = texts.title;
            track.album = texts.album;
            track.genre = texts.genre;
            track.comment = texts.comment;
            track.year = texts.year;
        }
        if (const TagLib::AudioProperties* props = ref.audioProperties())
            track.durationMs = static_cast<qint64>(props->lengthInMilliseconds());
    }

    if (track.title.isEmpty()) {
        const ArtistTitle named = splitArtistTitle(fileBaseName(path));
        track.title = named.title;
        if (track.artist.isEmpty())
            track.artist = named.artist;
    }
    return true;
}
