// ondaro-schedule: builds the running order of some hours from a station format (clocks, grid and
// rotation rules in one JSON document) and a library of the store, and writes it as an extended M3U
// playlist. The report says where a rotation rule had to give way, which slots stayed empty, and how
// each hour with timed slots meets their times.

#include "applicationidentity.h"
#include "formatreader.h"
#include "musiclibrary.h"
#include "playlistfile.h"
#include "schedulebuilder.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QSaveFile>

#include <cstdio>

namespace {

enum ExitStatus { Built = 0, NothingScheduled = 1, UsageError = 2 };

constexpr int kMaxHours = 24 * 366;

const char* const kDescription =
    "Builds the running order of the given hours from a station format and a library, and writes it\n"
    "as an extended M3U playlist.\n"
    "\n"
    "The format is one JSON document:\n"
    "  {\"rules\": {\"artistSeparationMinutes\": 60, \"titleSeparationMinutes\": 240},\n"
    "   \"clocks\": {\"Standard\": [{\"category\": \"A\"}, {\"file\": \"/audio/id.wav\"}, {\"command\": "
    "\"stop\"}]},\n"
    "   \"grid\": [{\"days\": [1,2,3,4,5], \"hours\": [6,7,8], \"clock\": \"Standard\"}, {\"clock\": "
    "\"Standard\"}]}\n"
    "A clock is the order of one hour; each hour runs its clock's slots again and again while the planned\n"
    "start is before the next full hour. The first grid entry whose days (1 = Monday ... 7 = Sunday) and\n"
    "hours (0-23) contain the hour picks its clock; a missing \"days\" or \"hours\" means all.\n"
    "A category slot takes the track of that category that may play then and keeps the separations, played\n"
    "least recently, the higher rating first, then drawn with the seed. Separations are relaxed (artist\n"
    "first, then title) when no track is left; such relaxations and skipped slots are reported.\n"
    "A slot may be timed: {\"file\": \"/audio/news.wav\", \"at\": \"00:00\", \"timing\": \"hard\"} is due\n"
    "at the top of the hour (\"at\" is minutes:seconds past the hour; a category slot may be timed too).\n"
    "The slots between two timed ones run in order, again while time is left, and their tracks are chosen\n"
    "by length so that they end within \"fillToleranceSeconds\" (in \"rules\", default 30) of the timed\n"
    "slot. Hard: the timed row starts on its time; soft: after the row before it. Timed rows carry\n"
    "\"#ONDARO-TIME\" lines, and the report gives each hour's planned over/under and any timed slot\n"
    "missed beyond the tolerance.\n"
    "The same library, format, start and seed give the same playlist.\n"
    "\n"
    "Exit status: 0 the playlist was built (relaxations included), 1 nothing could be scheduled (no\n"
    "playlist is written), 2 usage, format, library or output error.";

void printError(const QString& text)
{
    std::fprintf(stderr, "ondaro-schedule: %s\n", qPrintable(text));
}

bool writeAll(FILE* stream, const QByteArray& bytes)
{
    return std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream) ==
               static_cast<size_t>(bytes.size()) &&
           std::fflush(stream) == 0;
}

bool writeReport(const QString& path, const QByteArray& text, QString* error)
{
    if (path.isEmpty())
        return writeAll(stderr, text);
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.commit()) {
        *error = file.errorString();
        return false;
    }
    return true;
}

QDateTime parseStart(const QString& text)
{
    for (const char* pattern : {"yyyy-MM-ddTHH:mm", "yyyy-MM-ddTHH:mm:ss"}) {
        const QDateTime when = QDateTime::fromString(text, QLatin1String(pattern));
        if (when.isValid())
            return when;
    }
    return QDateTime();
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    setOndaroIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(kDescription));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption libraryOption(
        QStringLiteral("library"), QStringLiteral("The library to choose from."), QStringLiteral("NAME"));
    const QCommandLineOption formatOption(
        QStringLiteral("format"), QStringLiteral("The station format (JSON)."), QStringLiteral("FILE.json"));
    const QCommandLineOption fromOption(QStringLiteral("from"),
                                        QStringLiteral("Local start time, e.g. 2024-05-06T06:00."),
                                        QStringLiteral("YYYY-MM-DDTHH:MM"));
    const QCommandLineOption hoursOption(QStringLiteral("hours"),
                                         QStringLiteral("Number of clock hours, from the start's hour on."),
                                         QStringLiteral("N"));
    const QCommandLineOption seedOption(QStringLiteral("seed"),
                                        QStringLiteral("Seed for the draw between equal tracks (default 0)."),
                                        QStringLiteral("S"), QStringLiteral("0"));
    const QCommandLineOption outOption(QStringLiteral("out"),
                                       QStringLiteral("Write the playlist here instead of standard output."),
                                       QStringLiteral("FILE.m3u"));
    const QCommandLineOption reportOption(QStringLiteral("report"),
                                          QStringLiteral("Write the report here instead of standard error."),
                                          QStringLiteral("FILE"));
    parser.addOptions(
        {libraryOption, formatOption, fromOption, hoursOption, seedOption, outOption, reportOption});

    if (!parser.parse(QCoreApplication::arguments())) {
        printError(parser.errorText());
        return UsageError;
    }
    if (parser.isSet(helpOption)) {
        writeAll(stdout, parser.helpText().toUtf8());
        return Built;
    }
    if (!parser.positionalArguments().isEmpty()) {
        printError(QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first()));
        return UsageError;
    }
    for (const QCommandLineOption& required : {libraryOption, formatOption, fromOption, hoursOption}) {
        if (!parser.isSet(required)) {
            printError(QStringLiteral("--%1 is required (see --help)").arg(required.names().first()));
            return UsageError;
        }
    }
    const QDateTime from = parseStart(parser.value(fromOption));
    if (!from.isValid()) {
        printError(QStringLiteral("--from \"%1\" is not a time of the form YYYY-MM-DDTHH:MM")
                       .arg(parser.value(fromOption)));
        return UsageError;
    }
    bool ok = false;
    const int hours = parser.value(hoursOption).toInt(&ok);
    if (!ok || hours < 1 || hours > kMaxHours) {
        printError(QStringLiteral("--hours \"%1\" must be a whole number from 1 to %2")
                       .arg(parser.value(hoursOption))
                       .arg(kMaxHours));
        return UsageError;
    }
    const quint64 seed = parser.value(seedOption).toULongLong(&ok);
    if (!ok) {
        printError(QStringLiteral("--seed \"%1\" must be a whole number from 0 to 18446744073709551615")
                       .arg(parser.value(seedOption)));
        return UsageError;
    }

    const FormatReader::Result format = FormatReader::read(parser.value(formatOption));
    if (!format.ok) {
        printError(QStringLiteral("format %1: %2").arg(parser.value(formatOption), format.error));
        return UsageError;
    }

    MusicLibrary::initialize();
    const ScheduleBuilder::Outcome outcome =
        ScheduleBuilder::build(parser.value(libraryOption), format.format, from, hours, seed);
    if (!outcome.ok) {
        printError(outcome.error);
        return UsageError;
    }

    QString error;
    if (!writeReport(parser.value(reportOption), outcome.schedule.reportText().toUtf8(), &error)) {
        printError(
            QStringLiteral("cannot write the report to \"%1\": %2").arg(parser.value(reportOption), error));
        return UsageError;
    }
    if (!outcome.schedule.hasAudio()) {
        printError(QStringLiteral("nothing could be scheduled from library \"%1\"")
                       .arg(parser.value(libraryOption)));
        return NothingScheduled;
    }
    const QList<Track> tracks = outcome.schedule.tracks();
    if (parser.isSet(outOption)) {
        if (!PlaylistFile::write(parser.value(outOption), tracks, &error)) {
            printError(QStringLiteral("cannot write the playlist to \"%1\": %2")
                           .arg(parser.value(outOption), error));
            return UsageError;
        }
    } else if (!writeAll(stdout, PlaylistFile::toM3u(tracks))) {
        printError(QStringLiteral("cannot write the playlist to standard output"));
        return UsageError;
    }
    return Built;
}
