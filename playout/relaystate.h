#pragma once

#include <QMetaType>
#include <QString>

// Where a relay of a live stream stands.
enum class RelayState {
    Off,        // no relay
    Connecting, // started or reconnecting, not yet on air
    Live,       // the stream is on air
    Lost,       // the stream went away; the playlist has the air and a reconnection is due
};

// "off", "connecting", "live", "lost".
inline QString relayStateText(RelayState state)
{
    switch (state) {
    case RelayState::Off:
        return QStringLiteral("off");
    case RelayState::Connecting:
        return QStringLiteral("connecting");
    case RelayState::Live:
        return QStringLiteral("live");
    case RelayState::Lost:
        return QStringLiteral("lost");
    }
    return QString();
}

Q_DECLARE_METATYPE(RelayState)
