#pragma once

#include "stationformat.h"

#include <QDateTime>
#include <QList>

class PlayHistory;
class RotationPool;
class SeededRandom;
struct RotationCandidate;
struct RotationKeys;

// How far the separation rules had to give way for a choice.
enum class Relaxation {
    None,
    ArtistSeparation,        // artist separation dropped, title separation kept
    ArtistAndTitleSeparation // both dropped
};

struct RotationChoice {
    int candidate = -1; // index in the pool; -1 when no track of the category is allowed at that time
    Relaxation relaxation = Relaxation::None;
};

// The rules that pick the track for a category slot, as functions over plain values: which
// candidates may play at a time, which keep their separation, and which of those goes first.
class RotationRules
{
public:
    // A play at `lastMs` no longer holds back a play at `atMs`: it never happened, the separation is
    // 0, or at least `minutes` lie between the two starts. A play after `atMs` holds back as well.
    static bool isSeparated(qint64 lastMs, qint64 atMs, int minutes);

    // The candidate's parameters allow it at that time (TrackParams::isScheduledAt).
    static bool isAllowedAt(const RotationCandidate& candidate, const QDateTime& at);
    static bool keepsArtistSeparation(const RotationKeys& keys, const PlayHistory& history, qint64 atMs,
                                      const SeparationRules& rules);
    static bool keepsTitleSeparation(const RotationKeys& keys, const PlayHistory& history, qint64 atMs,
                                     const SeparationRules& rules);
    // Both separations that are still in force after `relaxation`.
    static bool keepsSeparation(const RotationKeys& keys, const PlayHistory& history, qint64 atMs,
                                const SeparationRules& rules, Relaxation relaxation);

    // The indexes of `indexes` whose parameters allow them at `at`, in their order.
    static QList<int> allowedAt(const RotationPool& pool, const QList<int>& indexes, const QDateTime& at);
    // The indexes of `allowed` that keep the separations still in force after `relaxation`.
    static QList<int> separated(const RotationPool& pool, const QList<int>& allowed,
                                const PlayHistory& history, qint64 atMs, const SeparationRules& rules,
                                Relaxation relaxation);
    // Of `eligible`, the file played or scheduled least recently (never played first); ties go to the
    // higher rating and then to a draw. -1 when `eligible` is empty.
    static int leastRecentlyPlayed(const RotationPool& pool, const QList<int>& eligible,
                                   const PlayHistory& history, SeededRandom& random);

    // The whole choice among `allowed` (see allowedAt): the least recently played of those that keep
    // both separations; failing that, of those that keep title separation; failing that, of all.
    static RotationChoice choose(const RotationPool& pool, const QList<int>& allowed,
                                 const PlayHistory& history, const QDateTime& at,
                                 const SeparationRules& rules, SeededRandom& random);
};
