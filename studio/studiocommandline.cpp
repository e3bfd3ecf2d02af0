#include "studiocommandline.h"

#include <QCommandLineParser>

namespace {

const QString description = QStringLiteral(
    "Ondaro Studio, the on-air window: plays a playlist through two decks with crossfades, shows what\n"
    "is on air and what comes next, relays live streams and logs everything it plays.\n"
    "\n"
    "Files, stream URLs (http, https, mms, rtsp, rtmp) and M3U playlists given as arguments are\n"
    "loaded into the playlist in the order given. Missing files stay in the list and are reported\n"
    "in the log; when they come up they are skipped.");

void describe(QCommandLineParser& parser)
{
    parser.setApplicationDescription(description);
    parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
    parser.addOption(QCommandLineOption(
        QStringLiteral("play"), QStringLiteral("Start playback at once with the first row (unattended "
                                               "automation).")));
    parser.addPositionalArgument(QStringLiteral("items"),
                                 QStringLiteral("Audio files, stream URLs or .m3u/.m3u8 playlists to load."),
                                 QStringLiteral("[FILE|URL|M3U...]"));
}

} // namespace

StudioCommandLine::Options StudioCommandLine::parse(const QStringList& arguments)
{
    QCommandLineParser parser;
    describe(parser);
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    Options options;
    if (!parser.parse(arguments)) {
        options.error = parser.errorText();
        return options;
    }
    options.showHelp = parser.isSet(help);
    options.showVersion = parser.isSet(version);
    options.play = parser.isSet(QStringLiteral("play"));
    options.items = parser.positionalArguments();
    return options;
}

QString StudioCommandLine::helpText()
{
    QCommandLineParser parser;
    describe(parser);
    parser.addHelpOption();
    parser.addVersionOption();
    QString text = parser.helpText();
    // Qt names the binary from argv[0]; the usage line reads the same whatever it was started as.
    const qsizetype end = text.indexOf(QLatin1Char('\n'));
    if (text.startsWith(QLatin1String("Usage:")) && end > 0)
        text.replace(0, end, QStringLiteral("Usage: ondaro-studio [options] [FILE|URL|M3U...]"));
    return text;
}
