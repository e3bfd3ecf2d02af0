#pragma once

#include <QtGlobal>

#include <random>

// The scheduler's source of chance. The engine (std::mt19937_64) is defined bit for bit by the C++
// standard; the draw onto a range is our own, because the standard distributions may differ between
// standard libraries. So one seed gives one schedule on every platform and Qt version.
class SeededRandom
{
public:
    explicit SeededRandom(quint64 seed);

    // A whole number in [0, count), every value equally likely; 0 when count is 0 or 1.
    quint64 below(quint64 count);

private:
    std::mt19937_64 engine;
};
