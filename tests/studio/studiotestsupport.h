#pragma once

// Shared pieces of the studio tests: private locations and settings for each run, generated tone
// files, and answering the window's message boxes and menus from inside a test.

#include "../ui/uitestsupport.h"
#include "asrunrecorder.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "playouttracks.h"

#include <QDir>
#include <QSettings>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>

namespace studiotest {

// Settings in `dir`, the store and the data location in Qt's test folders under a name of this
// run alone, every key cleared, the null sink as output, and a fresh database.
inline void useStudioLocations(const QString& dir, const char* testName)
{
    QStandardPaths::setTestModeEnabled(true);
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir);
    QSettings::setDefaultFormat(QSettings::IniFormat);
    uitest::useTestLocations(testName);
    QSettings().clear();
    playouttest::setSetting(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
    uitest::freshDatabase();
}

inline QString dataFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

// Removes what this run left in Qt's test folders.
inline void removeStudioLocations()
{
    QDir(dataFolder()).removeRecursively();
    uitest::removeTestLocations();
}

// A list played by an engine, with a recorder writing its as-run rows. The engine has its list
// before the recorder watches it, as in the programs.
struct RecordedPlayout {
    explicit RecordedPlayout(std::initializer_list<Track> rows) : recorder(attach(rows)) {}

    PlaylistModel playlist;
    AudioEngine engine;
    AsRunRecorder recorder;

private:
    AudioEngine* attach(std::initializer_list<Track> rows)
    {
        playouttest::appendRows(playlist, rows);
        engine.setPlaylist(&playlist);
        return &engine;
    }
};

inline QString titleOf(const Track& track)
{
    if (track.isCommand)
        return QStringLiteral(">>") + track.command;
    return track.artist + QStringLiteral(" - ") + track.title;
}

inline QStringList titlesOf(const QList<Track>& tracks)
{
    QStringList titles;
    for (const Track& track : tracks)
        titles << titleOf(track);
    return titles;
}

} // namespace studiotest
