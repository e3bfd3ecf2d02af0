#pragma once

#include "stationformat.h"

#include <QByteArray>
#include <QString>

// Reads a station format from its JSON document. A malformed document is refused as a whole with a
// message that names the key and the reason ("clocks.Morning[1].command": must be a text); nothing
// of it is used then.
class FormatReader
{
public:
    struct Result {
        bool ok = false;
        QString error; // empty when ok
        StationFormat format;
    };

    static Result parse(const QByteArray& json);
    // Reads a format file; fixed files given by relative paths are taken from the file's folder.
    static Result read(const QString& path);
};
