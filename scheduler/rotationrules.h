#pragma once

#include "stationformat.h"

#include <QDateTime>
#include <QList>
#include <QVector>

class PlayHistory;
class TimedFill;
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

// A choice for a slot before a timed one (see RotationRules::chooseToFit).
struct FitChoice {
    RotationChoice choice;
    bool anyAllowed = false; // some candidate kept the rules; without a choice, stopping the fill is closer
    qint64 missMs = 0;       // how far the gap the chosen track leaves lies from one the fill can close
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
    // The lengths of the candidates choose() would consider at `at` (those of the first relaxation that
    // leaves any), sorted; empty when `allowed` is.
    static QVector<qint64> eligibleLengths(const RotationPool& pool, const QList<int>& allowed,
                                           const PlayHistory& history, const QDateTime& at,
                                           const SeparationRules& rules);
    // The choice by length for a slot before a timed one, with `gapMs` left until its time. Of the
    // candidates choose() would consider (the same relaxations, in the same order), those whose length
    // leaves a gap the slots after it can close (see TimedFill), deepest inside it first, or, failing
    // that, comes closest; the least recently played of them. When no track that keeps the rules
    // lands, a further relaxation is tried for one that does. No candidate when none comes closer than
    // `stopMissMs`, what stopping the fill now would miss by: then no draw is made either.
    static FitChoice chooseToFit(const RotationPool& pool, const QList<int>& allowed,
                                 const PlayHistory& history, const QDateTime& at,
                                 const SeparationRules& rules, SeededRandom& random, const TimedFill& fill,
                                 qint64 gapMs, qint64 stopMissMs);
};
