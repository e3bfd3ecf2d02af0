// ondaro-playout: plays a list of files, stream URLs or M3U playlists through the playout without
// the window, as the studio plays it, printing every log line with a time stamp. A station
// engineer uses it to check a playlist or an audio set-up, or to run a list unattended.
// Exit status: see PlayoutRunner::ExitStatus (0 stopped normally, 1 nothing could be played,
// 2 usage error, 3 no audio output device, 4 a playlist could not be read).

#include "playoutrunner.h"
#include "applicationidentity.h"
#include "musiclibrary.h"

#include <QAudioDevice>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QMediaDevices>
#include <QSocketNotifier>
#include <QTimer>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

void printLine(FILE* stream, const QString& text)
{
    const QString stamp = QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"));
    std::fprintf(stream, "%s  %s\n", qPrintable(stamp), qPrintable(text));
    std::fflush(stream);
}

// SIGTERM (a service manager) and SIGINT (Ctrl+C) end an unattended run like the end of the list,
// so that the rows on air are closed in the as-run log. The handler only writes a byte to a socket
// the event loop watches: nothing else is safe inside a signal handler.
int g_signalSocket[2] = {-1, -1};

void onStopSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(g_signalSocket[0], &byte, 1);
}

void stopOnSignals(QCoreApplication& app, const PlayoutRunner& runner)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalSocket) != 0)
        return;
    auto* notifier = new QSocketNotifier(g_signalSocket[1], QSocketNotifier::Read, &app);
    QObject::connect(notifier, &QSocketNotifier::activated, &app, [notifier, &runner] {
        notifier->setEnabled(false);
        printLine(stderr, QStringLiteral("Stopped by a signal"));
        QCoreApplication::exit(runner.status());
    });
    struct sigaction action = {};
    action.sa_handler = onStopSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    // Same identity as the window, so the same settings, track parameters and as-run log apply.
    setOndaroIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Plays audio files and stream URLs (or M3U playlists of them) through the Ondaro playout "
        "with the current settings, as the studio does, printing every event."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption listDevices(QStringLiteral("list-devices"),
                                         QStringLiteral("Print the audio output devices and exit."));
    const QCommandLineOption streamLimit(
        QStringLiteral("stream-limit"),
        QStringLiteral("Play each stream for at most <seconds>, then go on (default: no limit)."),
        QStringLiteral("seconds"));
    const QCommandLineOption noAsRun(
        QStringLiteral("no-as-run"),
        QStringLiteral("Dry run: write nothing into the as-run log and count no plays."));
    parser.addOption(listDevices);
    parser.addOption(streamLimit);
    parser.addOption(noAsRun);
    parser.addPositionalArgument(QStringLiteral("items"),
                                 QStringLiteral("Audio files, stream URLs or .m3u playlists."),
                                 QStringLiteral("items..."));
    // An unknown option is a usage error (2) like every other one, not QCommandLineParser's 1.
    if (!parser.parse(QCoreApplication::arguments())) {
        printLine(stderr, parser.errorText());
        return PlayoutRunner::UsageError;
    }
    if (parser.isSet(help))
        parser.showHelp(PlayoutRunner::Played);

    if (parser.isSet(listDevices)) {
        const QAudioDevice fallback = QMediaDevices::defaultAudioOutput();
        for (const QAudioDevice& device : QMediaDevices::audioOutputs())
            std::printf("%s%s\n", qPrintable(device.description()),
                        device.id() == fallback.id() ? " (default)" : "");
        return QMediaDevices::audioOutputs().isEmpty() ? PlayoutRunner::NoDevice : PlayoutRunner::Played;
    }

    PlayoutRunner::Options options;
    options.recordAsRun = !parser.isSet(noAsRun);
    if (parser.isSet(streamLimit)) {
        bool ok = false;
        options.streamLimitMs = qint64(parser.value(streamLimit).toDouble(&ok) * 1000.0);
        if (!ok || options.streamLimitMs < 1) {
            printLine(stderr, QStringLiteral("--stream-limit needs a number of seconds above 0"));
            return PlayoutRunner::UsageError;
        }
    }
    if (parser.positionalArguments().isEmpty())
        parser.showHelp(PlayoutRunner::UsageError);

    // Track parameters, names and lengths of known files, and the as-run log live in the library.
    if (!MusicLibrary::initialize())
        printLine(stderr, QStringLiteral("Library database not available: track parameters are not applied"));

    PlayoutRunner runner(options);
    QObject::connect(&runner, &PlayoutRunner::logLine, &app,
                     [](const QString& text) { printLine(stdout, text); });
    QObject::connect(&runner, &PlayoutRunner::problem, &app,
                     [](const QString& text) { printLine(stderr, text); });
    QObject::connect(&runner, &PlayoutRunner::finished, &app, &QCoreApplication::exit, Qt::QueuedConnection);

    const PlayoutRunner::ExitStatus loaded = runner.load(parser.positionalArguments());
    if (loaded != PlayoutRunner::Played)
        return loaded;
    stopOnSignals(app, runner);
    QTimer::singleShot(0, &runner, &PlayoutRunner::start);
    const int status = app.exec();
    runner.finish();
    if (status == PlayoutRunner::NothingPlayed)
        printLine(stderr, QStringLiteral("Nothing could be played"));
    return status;
}
