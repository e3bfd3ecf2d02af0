#include "rotationpool.h"

#include <algorithm>
#include <vector>

RotationPool RotationPool::build(const QList<Track>& tracks, const QHash<QString, TrackParams>& params,
                                 const QStringList& categories)
{
    RotationPool pool;
    pool.listing = tracks;
    QStringList wanted;
    for (const QString& category : categories)
        wanted << category.toCaseFolded();

    // The pool's order decides every draw, so it must not depend on how the store sorted its
    // listing. Candidates go by category (so that a pass over one category reads one stretch of
    // memory), then in the order of a fixed hash of their path, then of the path itself; sorting by
    // the paths alone costs several times as much on a large library.
    struct Entry {
        int category;
        quint64 hash;
        const Track* track;
    };
    QHash<QString, int> categoryNumbers; // case-folded name -> number in order of first appearance
    QStringList names;
    std::vector<Entry> rotation;
    rotation.reserve(static_cast<size_t>(tracks.size()));
    for (const Track& track : tracks) {
        if (!isRotationTrack(track))
            continue;
        const QString category = track.category.toCaseFolded();
        auto number = categoryNumbers.constFind(category);
        if (number == categoryNumbers.constEnd()) {
            if (!wanted.isEmpty() && !wanted.contains(category))
                continue;
            number = categoryNumbers.insert(category, int(names.size()));
            names << category;
        }
        rotation.push_back({number.value(), pathHash(track.filePath), &track});
    }
    // Categories in the order of their names, not of their first appearance in the listing.
    QVector<int> rank(names.size());
    {
        QVector<int> byName(names.size());
        for (int i = 0; i < names.size(); ++i)
            byName[i] = i;
        std::sort(byName.begin(), byName.end(), [&names](int a, int b) { return names.at(a) < names.at(b); });
        for (int i = 0; i < byName.size(); ++i)
            rank[byName.at(i)] = i;
    }
    std::sort(rotation.begin(), rotation.end(), [&rank](const Entry& a, const Entry& b) {
        if (a.category != b.category)
            return rank.at(a.category) < rank.at(b.category);
        return a.hash != b.hash ? a.hash < b.hash : a.track->filePath < b.track->filePath;
    });

    pool.candidates.reserve(static_cast<qsizetype>(rotation.size()));
    pool.keyTable.reserve(static_cast<qsizetype>(rotation.size()));
    pool.fileIds.reserve(static_cast<qsizetype>(rotation.size()));
    for (const Entry& entry : rotation) {
        const Track* track = entry.track;
        const int fileCount = pool.fileIds.size();
        const int fileId = intern(pool.fileIds, track->filePath);
        if (fileId < fileCount)
            continue; // the same file listed twice
        RotationCandidate candidate;
        candidate.track = *track;
        const auto stored = params.constFind(track->filePath);
        if (stored != params.constEnd())
            candidate.params = stored.value();
        RotationKeys& keys = candidate.keys;
        keys.rating = candidate.params.rating;
        keys.lengthMs = track->durationMs;
        keys.limited = candidate.params.disabled || candidate.params.hasDaypart() ||
                       (candidate.params.startDate.isValid() && candidate.params.endDate.isValid());
        const QString artist = artistKey(track->artist);
        keys.artistId = artist.isEmpty() ? -1 : intern(pool.artistIds, artist);
        keys.songId = intern(pool.songIds, songKey(artist, track->title, track->filePath));
        keys.fileId = fileId;
        pool.byCategory[names.at(entry.category)] << pool.candidates.size();
        pool.keyTable << keys;
        pool.candidates << candidate;
    }
    return pool;
}

// 64-bit FNV-1a over the path's UTF-16 code units: the same value on every platform and Qt version,
// unlike qHash, whose algorithm Qt may change.
quint64 RotationPool::pathHash(const QString& path)
{
    quint64 hash = 14695981039346656037ull;
    for (const QChar c : path) {
        hash ^= c.unicode();
        hash *= 1099511628211ull;
    }
    return hash;
}

bool RotationPool::isRotationTrack(const Track& track)
{
    return !track.isStream && !track.isCommand && !track.filePath.isEmpty() && track.durationMs > 0;
}

QList<int> RotationPool::inCategory(const QString& category) const
{
    return byCategory.value(category.toCaseFolded());
}

const Track* RotationPool::libraryTrack(const QString& path) const
{
    for (const Track& track : listing) {
        if (track.filePath == path)
            return &track;
    }
    return nullptr;
}

int RotationPool::artistId(const QString& artist) const
{
    const QString key = artistKey(artist);
    return key.isEmpty() ? -1 : artistIds.value(key, -1);
}

int RotationPool::songId(const QString& artist, const QString& title, const QString& filePath) const
{
    return songIds.value(songKey(artistKey(artist), title, filePath), -1);
}

int RotationPool::fileId(const QString& path) const
{
    return fileIds.value(path, -1);
}

// Artists and songs are compared ignoring case and surrounding blanks: "ABBA " and "Abba" are one act.
QString RotationPool::artistKey(const QString& artist)
{
    return artist.trimmed().toCaseFolded();
}

// A song is its artist (as artistKey gives it) and title; an entry without a title stands for itself,
// by its path.
QString RotationPool::songKey(const QString& artistKey, const QString& title, const QString& filePath)
{
    const QString t = title.trimmed().toCaseFolded();
    if (t.isEmpty())
        return QStringLiteral("\x01") + filePath;
    return artistKey + QLatin1Char('\x1f') + t;
}

int RotationPool::intern(QHash<QString, int>& ids, const QString& key)
{
    const auto it = ids.constFind(key);
    if (it != ids.constEnd())
        return it.value();
    const int id = ids.size();
    ids.insert(key, id);
    return id;
}
