#include "track.h"

#include <QSqlQuery>
#include <QVariant>

#include <taglib/fileref.h>
#include <taglib/tag.h>
#include <taglib/tpropertymap.h>
#include <taglib/taglib.h>

namespace {

QString fromTagString(const TagLib::String& s)
{
    return QString::fromUtf8(s.to8Bit(true).c_str()).trimmed();
}

// The one place where TagLib versions differ for us. TagLib 1.x gives, for a RIFF file, only the
// ID3v2 tag through FileRef::tag(), so INFO chunk artist/title come back empty; its properties()
// map merges both. TagLib 2 merges them in tag() already.
struct TagTexts {
    QString artist, title, album, genre, comment;
    int year = 0;
};

TagTexts tagTexts(const TagLib::FileRef& ref)
{
    TagTexts t;
    const TagLib::Tag* tag = ref.tag();
    t.artist = fromTagString(tag->artist());
    t.title = fromTagString(tag->title());
    t.album = fromTagString(tag->album());
    t.genre = fromTagString(tag->genre());
    t.comment = fromTagString(tag->comment());
    t.year = static_cast<int>(tag->year());
#if TAGLIB_MAJOR_VERSION < 2
    const TagLib::PropertyMap props = ref.file()->properties();
    auto fill = [&props](QString& field, const char* key) {
        if (!field.isEmpty())
            return;
        const auto it = props.find(key);
        if (it != props.end() && !it->second.isEmpty())
            field = fromTagString(it->second.front());
    };
    fill(t.artist, "ARTIST");
    fill(t.title, "TITLE");
    fill(t.album, "ALBUM");
    fill(t.genre, "GENRE");
    fill(t.comment, "COMMENT");
    if (t.year == 0) {
        const auto it = props.find("DATE");
        if (it != props.end() && !it->second.isEmpty())
            t.year = fromTagString(it->second.front()).left(4).toInt();
    }
#endif
    return t;
}

} // namespace

QString formatDuration(qint64 ms)
{
    if (ms < 1)
        return QStringLiteral("--:--");
    const qint64 s = ms / 1000;
    return QStringLiteral("%1:%2").arg(s / 60, 2, 10, QLatin1Char('0')).arg(s % 60, 2, 10, QLatin1Char('0'));
}

Track trackFromRecord(const QSqlQuery& row)
{
    Track t;
    t.filePath = row.value(QStringLiteral("filepath")).toString();
    t.artist = row.value(QStringLiteral("artist")).toString();
    t.title = row.value(QStringLiteral("title")).toString();
    t.album = row.value(QStringLiteral("album")).toString();
    t.genre = row.value(QStringLiteral("genre")).toString();
    t.comment = row.value(QStringLiteral("comment")).toString();
    t.year = row.value(QStringLiteral("year")).toInt();
    t.durationMs = row.value(QStringLiteral("duration_ms")).toLongLong();
    t.category = row.value(QStringLiteral("category")).toString();
    t.isStream = row.value(QStringLiteral("is_stream")).toInt() != 0;
    t.streamLimitMs = row.value(QStringLiteral("stream_limit_ms")).toLongLong();
    t.playCount = row.value(QStringLiteral("play_count")).toInt();
    t.lastPlayed = QDateTime::fromString(row.value(QStringLiteral("last_played")).toString(), Qt::ISODate);
    t.dateAdded = QDateTime::fromString(row.value(QStringLiteral("date_added")).toString(), Qt::ISODate);
    return t;
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
        // Both separators count on every platform: paths may come from another system.
        const int cut = qMax(path.lastIndexOf(QLatin1Char('/')), path.lastIndexOf(QLatin1Char('\\')));
        QString base = path.mid(cut + 1);
        const int dot = base.lastIndexOf(QLatin1Char('.'));
        if (dot > 0)
            base.truncate(dot);
        QString artist;
        QString title = base;
        const int sep = base.indexOf(QStringLiteral(" - "));
        if (sep >= 1) {
            artist = base.left(sep).trimmed();
            title = base.mid(sep + 3).trimmed();
        }
        track.title = title;
        if (track.artist.isEmpty())
            track.artist = artist;
    }
    return true;
}
