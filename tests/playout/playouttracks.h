#pragma once

// Playlist rows for the engine tests, and the engine's log as a list of lines.

#include "audioengine.h"
#include "testtracks.h"
#include "playlistmodel.h"
#include "track.h"

#include <QList>
#include <QSignalSpy>
#include <QString>
#include <QStringList>

#include <initializer_list>

namespace playouttest {

using ondarotest::fileTrack;

using ::commandTrack;

// A stream entry as the library shows one: the URL is both its path and its title.
inline Track streamTrack(const QString& url, qint64 limitMs = 0)
{
    Track t;
    t.artist = QStringLiteral("Online stream");
    t.title = url;
    t.filePath = url;
    t.isStream = true;
    t.streamLimitMs = limitMs;
    return t;
}

// Appends the rows in their order.
inline void appendRows(PlaylistModel& playlist, std::initializer_list<Track> rows)
{
    for (const Track& row : rows)
        playlist.appendTrack(row);
}

// Collects every line the engine logs in `logs`, which is cleared first, while `context` lives.
inline void collectLog(AudioEngine& engine, QObject* context, QStringList& logs)
{
    logs.clear();
    QObject::connect(&engine, &AudioEngine::logMessage, context,
                     [&logs](const QString& text) { logs << text; });
}

// What the engine logs when it reaches a STOP row.
inline QString stopCommandLine()
{
    return QStringLiteral("STOP command - playback halted (press Play or Next to continue)");
}

// The RelayState of each emission a spy on a relay state signal recorded, in order.
inline QList<RelayState> relayStates(const QSignalSpy& spy)
{
    QList<RelayState> states;
    for (const QList<QVariant>& args : spy)
        states << qvariant_cast<RelayState>(args.at(0));
    return states;
}

} // namespace playouttest
