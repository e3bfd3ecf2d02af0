#include "seededrandom.h"

#include <limits>

SeededRandom::SeededRandom(quint64 seed) : engine(seed) {}

quint64 SeededRandom::below(quint64 count)
{
    if (count <= 1)
        return 0;
    // The engine gives 2^64 equally likely values. The last 2^64 mod count of them would favour the
    // low results, so they are drawn again.
    const quint64 max = std::numeric_limits<quint64>::max();
    const quint64 surplus = (max % count + 1) % count;
    quint64 value = engine();
    while (surplus != 0 && value > max - surplus)
        value = engine();
    return value % count;
}
