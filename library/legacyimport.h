#pragma once

#include "track.h"

#include <QJsonObject>

// The JSON libraries of earlier versions, in the configuration location's "libraries" folder, taken
// into the store once: while the store holds no library at all.
class LegacyImport
{
public:
    static void importOnce();
    static Track trackFromJson(const QJsonObject& o);
};
