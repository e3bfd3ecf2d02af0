#include "rotationrules.h"

#include "playhistory.h"
#include "rotationpool.h"
#include "seededrandom.h"
#include "timedfill.h"

#include <algorithm>
#include <limits>

namespace {

// The separation test of the inner loops, visible to the compiler so that it can be inlined there.
inline bool separatedFrom(qint64 lastMs, qint64 atMs, qint64 separationMs)
{
    return lastMs == PlayHistory::never || separationMs <= 0 || atMs - lastMs >= separationMs;
}

// The least recently played of the indexes that `keep` accepts, ties to the higher rating and then
// to a draw. Two passes instead of a list of ties: early in a schedule nothing has played, and every
// candidate of a category ties with every other.
template <typename Keep>
int pickLeastRecent(const RotationPool& pool, const QList<int>& indexes, const PlayHistory& history,
                    SeededRandom& random, Keep keep)
{
    qint64 oldest = 0;
    int bestRating = 0;
    int ties = 0;
    for (int index : indexes) {
        const RotationKeys& k = pool.keys(index);
        if (!keep(k))
            continue;
        const qint64 last = history.lastFilePlay(k.fileId);
        if (ties == 0 || last < oldest || (last == oldest && k.rating > bestRating)) {
            oldest = last;
            bestRating = k.rating;
            ties = 1;
        } else if (last == oldest && k.rating == bestRating) {
            ++ties;
        }
    }
    if (ties == 0)
        return -1;
    int wanted = static_cast<int>(random.below(static_cast<quint64>(ties)));
    for (int index : indexes) {
        const RotationKeys& k = pool.keys(index);
        if (keep(k) && history.lastFilePlay(k.fileId) == oldest && k.rating == bestRating && wanted-- == 0)
            return index;
    }
    return -1; // not reached: the second pass sees the same ties as the first
}

} // namespace

bool RotationRules::isSeparated(qint64 lastMs, qint64 atMs, int minutes)
{
    return separatedFrom(lastMs, atMs, qint64(minutes) * 60000);
}

bool RotationRules::isAllowedAt(const RotationCandidate& candidate, const QDateTime& at)
{
    // Most tracks carry no limits; asking them is pure cost on a large library.
    return !candidate.keys.limited || candidate.params.isScheduledAt(at);
}

bool RotationRules::keepsArtistSeparation(const RotationKeys& keys, const PlayHistory& history, qint64 atMs,
                                          const SeparationRules& rules)
{
    return isSeparated(history.lastArtistPlay(keys.artistId), atMs, rules.artistSeparationMinutes);
}

bool RotationRules::keepsTitleSeparation(const RotationKeys& keys, const PlayHistory& history, qint64 atMs,
                                         const SeparationRules& rules)
{
    return isSeparated(history.lastSongPlay(keys.songId), atMs, rules.titleSeparationMinutes);
}

bool RotationRules::keepsSeparation(const RotationKeys& keys, const PlayHistory& history, qint64 atMs,
                                    const SeparationRules& rules, Relaxation relaxation)
{
    if (relaxation == Relaxation::None && !separatedFrom(history.lastArtistPlay(keys.artistId), atMs,
                                                         qint64(rules.artistSeparationMinutes) * 60000))
        return false;
    return relaxation == Relaxation::ArtistAndTitleSeparation ||
           separatedFrom(history.lastSongPlay(keys.songId), atMs,
                         qint64(rules.titleSeparationMinutes) * 60000);
}

QList<int> RotationRules::allowedAt(const RotationPool& pool, const QList<int>& indexes, const QDateTime& at)
{
    QList<int> allowed;
    allowed.reserve(indexes.size());
    for (int index : indexes) {
        // The small key table answers for the many tracks without limits.
        if (!pool.keys(index).limited || isAllowedAt(pool.candidate(index), at))
            allowed << index;
    }
    return allowed;
}

QList<int> RotationRules::separated(const RotationPool& pool, const QList<int>& allowed,
                                    const PlayHistory& history, qint64 atMs, const SeparationRules& rules,
                                    Relaxation relaxation)
{
    QList<int> result;
    for (int index : allowed) {
        if (keepsSeparation(pool.keys(index), history, atMs, rules, relaxation))
            result << index;
    }
    return result;
}

int RotationRules::leastRecentlyPlayed(const RotationPool& pool, const QList<int>& eligible,
                                       const PlayHistory& history, SeededRandom& random)
{
    return pickLeastRecent(pool, eligible, history, random, [](const RotationKeys&) { return true; });
}

RotationChoice RotationRules::choose(const RotationPool& pool, const QList<int>& allowed,
                                     const PlayHistory& history, const QDateTime& at,
                                     const SeparationRules& rules, SeededRandom& random)
{
    RotationChoice choice;
    const qint64 atMs = at.toMSecsSinceEpoch();
    for (Relaxation relaxation :
         {Relaxation::None, Relaxation::ArtistSeparation, Relaxation::ArtistAndTitleSeparation}) {
        choice.candidate = pickLeastRecent(pool, allowed, history, random, [&](const RotationKeys& keys) {
            return keepsSeparation(keys, history, atMs, rules, relaxation);
        });
        if (choice.candidate >= 0) {
            choice.relaxation = relaxation;
            return choice;
        }
    }
    return choice; // `allowed` is empty: without any separation every allowed candidate is eligible
}

FitChoice RotationRules::chooseToFit(const RotationPool& pool, const QList<int>& allowed,
                                     const PlayHistory& history, const QDateTime& at,
                                     const SeparationRules& rules, SeededRandom& random,
                                     const TimedFill& fill, qint64 gapMs, qint64 stopMissMs)
{
    FitChoice fit;
    const qint64 atMs = at.toMSecsSinceEpoch();
    // Of the lengths that leave a closable gap, those that leave it well inside the closable range (a
    // tolerance from its ends or more) go first: the last row then lands as near the time as the tracks
    // allow, and a gap at the edge of what the slots to come seem to close is not left to chance.
    const qint64 wantedDepth = qMax<qint64>(fill.toleranceMs(), 1);
    const auto depthOf = [&](qint64 lengthMs) { return qMin(fill.depthMs(gapMs - lengthMs), wantedDepth); };
    QList<int> fallback; // the candidates to draw from, and the rules they keep
    Relaxation fallbackRelaxation = Relaxation::None;
    for (Relaxation relaxation :
         {Relaxation::None, Relaxation::ArtistSeparation, Relaxation::ArtistAndTitleSeparation}) {
        // One pass scores each candidate; the best of them, in pool order, go to the rotation's draw.
        qint64 best = std::numeric_limits<qint64>::max();
        qint64 bestDepth = 0;
        QList<int> closest;
        for (int index : allowed) {
            const RotationKeys& keys = pool.keys(index);
            if (!keepsSeparation(keys, history, atMs, rules, relaxation))
                continue;
            const qint64 miss = fill.missMs(gapMs - keys.lengthMs);
            const qint64 depth = miss == 0 ? depthOf(keys.lengthMs) : 0;
            if (miss < best || (miss == best && depth > bestDepth)) {
                best = miss;
                bestDepth = depth;
                closest.clear();
            }
            if (miss == best && depth == bestDepth)
                closest << index;
        }
        if (closest.isEmpty())
            continue; // nothing keeps these rules: relax further, as choose() does
        // A timed slot outweighs a separation: when no track that keeps these rules lands, the next
        // relaxation is tried for one that does (and reported like any relaxation). Failing that, the
        // closest of the first rules that left any is taken.
        if (!fit.anyAllowed || best == 0) {
            fit.anyAllowed = true;
            fit.missMs = best;
            fallback = closest;
            fallbackRelaxation = relaxation;
        }
        if (best == 0)
            break;
    }
    if (!fit.anyAllowed || fit.missMs >= stopMissMs)
        return fit;
    fit.choice.candidate = leastRecentlyPlayed(pool, fallback, history, random);
    fit.choice.relaxation = fallbackRelaxation;
    return fit;
}

QVector<qint64> RotationRules::eligibleLengths(const RotationPool& pool, const QList<int>& allowed,
                                               const PlayHistory& history, const QDateTime& at,
                                               const SeparationRules& rules)
{
    QVector<qint64> lengths;
    const qint64 atMs = at.toMSecsSinceEpoch();
    for (Relaxation relaxation :
         {Relaxation::None, Relaxation::ArtistSeparation, Relaxation::ArtistAndTitleSeparation}) {
        for (int index : allowed) {
            const RotationKeys& keys = pool.keys(index);
            if (keepsSeparation(keys, history, atMs, rules, relaxation))
                lengths << keys.lengthMs;
        }
        if (!lengths.isEmpty())
            break;
    }
    std::sort(lengths.begin(), lengths.end());
    return lengths;
}
