#pragma once

#include "asrunentry.h"

#include <QDateTime>
#include <QString>

// One write of the as-run recorder, in the order it happened: a play count, the start of a row, its
// end, or a new title. `row` is the recorder's own number for an as-run row (the store's id is known
// only once the start is written).
struct AsRunWrite {
    enum class Kind { Play, Start, End, Title };
    Kind kind = Kind::Start;
    qint64 row = 0;
    AsRunEntry entry; // Play: filePath and startedAt; Start: all; End: end columns; Title: title
    int refusals = 0; // times a server that answers refused it
};
