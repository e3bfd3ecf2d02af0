#pragma once

#include <QJsonValue>

#include <cmath>
#include <limits>

// Reading numbers out of the store's JSON texts (track parameters, older library files).

// A JSON number truncated toward zero to 64 bits; anything that is not a number gives `fallback`.
// Values beyond the 64-bit range saturate instead of overflowing.
inline qint64 truncatedJsonNumber(const QJsonValue& value, qint64 fallback)
{
    if (!value.isDouble())
        return fallback;
    const double d = std::trunc(value.toDouble());
    if (std::isnan(d))
        return fallback;
    if (d <= -9.2e18)
        return std::numeric_limits<qint64>::min();
    if (d >= 9.2e18)
        return std::numeric_limits<qint64>::max();
    return static_cast<qint64>(d);
}
