// ondaro-playout: plays a list of files or stream URLs through the playout engine without the
// window, printing every engine log line with a time stamp. A station engineer uses it to check a
// playlist or an audio set-up. Exit status: 0 when playback stopped normally, 1 when nothing could
// be played, 2 for a usage error, 3 when there is no audio output device.

#include "applicationidentity.h"
#include "audioengine.h"
#include "musiclibrary.h"
#include "playlistmodel.h"
#include "playoutlog.h"

#include <QAudioDevice>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMediaDevices>
#include <QTextStream>
#include <QTimer>

#include <cstdio>

namespace {

enum ExitStatus { Played = 0, NothingPlayed = 1, UsageError = 2, NoDevice = 3 };

// How long a row that reported an error may take to start playing before it is skipped; the
// sound server's position can stall for over a second at the start of a track.
constexpr int failedRowGraceMs = 3000;

void printLine(FILE* stream, const QString& text)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"));
    std::fprintf(stream, "%s  %s\n", qPrintable(stamp), qPrintable(text));
    std::fflush(stream);
}

bool isPlaylistFile(const QString& argument)
{
    const QString suffix = QFileInfo(argument).suffix().toLower();
    return suffix == QLatin1String("m3u") || suffix == QLatin1String("m3u8");
}

// Entries of an M3U file: one path or URL a line; lines starting with '#' are comments or
// extended info. Relative paths are taken from the playlist file's folder.
QStringList readM3u(const QString& path, bool* ok)
{
    QFile file(path);
    *ok = file.open(QIODevice::ReadOnly | QIODevice::Text);
    QStringList entries;
    if (!*ok)
        return entries;
    const QDir base = QFileInfo(path).absoluteDir();
    QTextStream in(&file);
    while (!in.atEnd()) {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        if (isStreamUrl(line) || QDir::isAbsolutePath(line))
            entries << line;
        else if (line.startsWith(QLatin1String("file://")))
            entries << QUrl(line).toLocalFile();
        else
            entries << base.filePath(line);
    }
    return entries;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    // Same identity as the window, so the same settings and track parameters apply.
    setOndaroIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays audio files and stream URLs (or M3U playlists of them) through the Ondaro playout "
        "engine with the current settings, printing every engine event."));
    parser.addHelpOption();
    const QCommandLineOption listDevices(QStringLiteral("list-devices"),
                                         QStringLiteral("Print the audio output devices and exit."));
    const QCommandLineOption streamLimit(
        QStringLiteral("stream-limit"),
        QStringLiteral("Play each stream for at most <seconds>, then go on (default: no limit)."),
        QStringLiteral("seconds"));
    parser.addOption(listDevices);
    parser.addOption(streamLimit);
    parser.addPositionalArgument(QStringLiteral("items"),
                                 QStringLiteral("Audio files, stream URLs or .m3u playlists."),
                                 QStringLiteral("items..."));
    parser.process(app);

    if (parser.isSet(listDevices)) {
        const QAudioDevice fallback = QMediaDevices::defaultAudioOutput();
        for (const QAudioDevice& device : QMediaDevices::audioOutputs())
            std::printf("%s%s\n", qPrintable(device.description()),
                        device.id() == fallback.id() ? " (default)" : "");
        return QMediaDevices::audioOutputs().isEmpty() ? NoDevice : Played;
    }

    qint64 streamLimitMs = 0;
    if (parser.isSet(streamLimit)) {
        bool ok = false;
        streamLimitMs = qint64(parser.value(streamLimit).toDouble(&ok) * 1000.0);
        if (!ok || streamLimitMs < 1) {
            printLine(stderr, QStringLiteral("--stream-limit needs a number of seconds above 0"));
            return UsageError;
        }
    }

    QStringList items;
    for (const QString& argument : parser.positionalArguments()) {
        if (!isStreamUrl(argument) && isPlaylistFile(argument)) {
            bool ok = false;
            const QStringList entries = readM3u(argument, &ok);
            if (!ok)
                printLine(stderr, QStringLiteral("Cannot read playlist: ") + argument);
            items << entries;
        } else {
            items << argument;
        }
    }
    if (items.isEmpty()) {
        parser.showHelp(UsageError);
    }

    // Track parameters (mix points, fades) live in the library database.
    if (!MusicLibrary::initialize())
        printLine(stderr, QStringLiteral("Library database not available: track parameters are not applied"));

    PlaylistModel playlist;
    for (const QString& item : std::as_const(items)) {
        if (isStreamUrl(item)) {
            Track track = trackFromStreamUrl(item);
            track.streamLimitMs = streamLimitMs;
            playlist.appendTrack(track);
        } else if (QFileInfo(item).isFile()) {
            playlist.appendTrack(MusicLibrary::trackFromFile(QFileInfo(item).absoluteFilePath()));
        } else {
            printLine(stderr, QStringLiteral("Skipping missing file: ") + item);
        }
    }
    if (playlist.rowCount() == 0) {
        printLine(stderr,
                  QStringLiteral("Nothing to play: none of the items is an existing file or a stream URL"));
        return NothingPlayed;
    }

    AudioEngine engine;
    engine.setPlaylist(&playlist);

    int exitStatus = NothingPlayed;
    int lastFailedRow = -1;
    QObject::connect(&engine, &AudioEngine::positionChanged, &app, [&](qint64 position) {
        if (position > 0)
            exitStatus = Played; // audio actually went out
    });
    // A short track may end before its first position report; it was heard all the same.
    QObject::connect(&engine, &AudioEngine::trackStarted, &app, [&] { exitStatus = Played; });
    QObject::connect(&engine, &AudioEngine::logMessage, &app, [&](const QString& text) {
        printLine(stdout, text);
        if (text == PlayoutLog::noDevice) {
            printLine(stderr, QStringLiteral("No audio output device: check the sound server or "
                                             "\"audio/outputDevice\" (see --list-devices)"));
            QCoreApplication::exit(NoDevice);
        } else if (text == PlayoutLog::stop || text == PlayoutLog::stopCommand) {
            QCoreApplication::exit(exitStatus);
        } else if (text == PlayoutLog::pauseCommand) {
            // Nobody is here to press Play again.
            printLine(stdout, QStringLiteral("Paused by a PAUSE row: nothing more will play"));
            QCoreApplication::exit(exitStatus);
        } else if (text.startsWith(PlayoutLog::playbackError) && engine.currentRow() != lastFailedRow) {
            // The engine does not advance on an error; a check of a whole list should go on. An
            // error can also arrive late from the track before, so skip only a row that is
            // still not playing a little later.
            const int row = engine.currentRow();
            lastFailedRow = row;
            QTimer::singleShot(failedRowGraceMs, &engine, [&engine, row] {
                if (engine.currentRow() == row && !(engine.isPlaying() && engine.position() > 0))
                    engine.next();
            });
        }
    });

    QTimer::singleShot(0, &engine, [&engine] { engine.playRow(0); });
    const int status = app.exec();
    if (status == NothingPlayed)
        printLine(stderr, QStringLiteral("Nothing could be played"));
    return status;
}
