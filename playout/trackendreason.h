#pragma once

#include <QMetaType>
#include <QString>

// How a track stopped sounding, as the as-run log records it.
enum class TrackEndReason {
    End,   // played to its end (or its cue-out)
    Mix,   // the next track took over at the mix point
    Skip,  // another row was started, or Next / Previous pressed
    Stop,  // stopped by the user or a STOP row
    Relay, // a live relay took the air
    Timed, // cut by a hard timed row
};

// "end", "mix", "skip", "stop", "relay", "timed".
inline QString trackEndReasonText(TrackEndReason reason)
{
    switch (reason) {
    case TrackEndReason::End:
        return QStringLiteral("end");
    case TrackEndReason::Mix:
        return QStringLiteral("mix");
    case TrackEndReason::Skip:
        return QStringLiteral("skip");
    case TrackEndReason::Stop:
        return QStringLiteral("stop");
    case TrackEndReason::Relay:
        return QStringLiteral("relay");
    case TrackEndReason::Timed:
        return QStringLiteral("timed");
    }
    return QString();
}

Q_DECLARE_METATYPE(TrackEndReason)
