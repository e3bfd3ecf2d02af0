// ondaro-analyse: loudness and cue points of audio files from the command line.
#include "analysisqueue.h"
#include "analysisreport.h"
#include "applicationidentity.h"
#include "audioanalyser.h"
#include "musiclibrary.h"
#include "settingkeys.h"
#include "trackanalysis.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QHash>
#include <QTextStream>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

namespace {

constexpr int kExitAnalysed = 0;
constexpr int kExitSomeFailed = 1;
constexpr int kExitUsage = 2;
// A run that has not ended after this long shows its progress on standard error.
constexpr int kProgressAfterMs = 2000;

const char* const kDescription =
    "Measures the loudness (EBU R 128: integrated loudness, loudness range, true peak) and finds the\n"
    "cue points (cue-in, cue-out, mix start) of audio files, and the gain that brings each to the\n"
    "target loudness (setting \"%1\", default %2 LUFS) with its true peak at or\n"
    "below -1 dBTP. Folders are searched recursively for audio files, as Add folder does.\n"
    "\n"
    "Exit status: 0 when every file was analysed, 1 when some failed, 2 on a usage error.";

// Writes the results in the order the files were given, whatever order the workers finish in.
class ResultPrinter
{
public:
    ResultPrinter(const QStringList& paths, bool json) : m_paths(paths), m_json(json)
    {
        if (!m_json && !m_paths.isEmpty())
            m_out << AnalysisReport::tableHeader() << '\n';
        m_out.flush();
    }

    void add(const TrackAnalysis& analysis)
    {
        if (!analysis.error.isEmpty())
            m_failed = true;
        m_ready.insert(analysis.filePath, analysis);
        while (m_next < m_paths.size() && m_ready.contains(m_paths.at(m_next))) {
            const TrackAnalysis a = m_ready.take(m_paths.at(m_next++));
            if (m_json)
                m_out << QString::fromUtf8(AnalysisReport::jsonLine(a)) << '\n';
            else
                m_out << AnalysisReport::tableRow(a) << '\n';
        }
        m_out.flush();
    }

    bool anyFailed() const { return m_failed; }

private:
    QTextStream m_out{stdout};
    QStringList m_paths;
    QHash<QString, TrackAnalysis> m_ready;
    qsizetype m_next = 0;
    bool m_json = false;
    bool m_failed = false;
};

QStringList filesToAnalyse(const QStringList& arguments)
{
    QStringList files;
    for (const QString& argument : arguments) {
        const QFileInfo info(argument);
        if (info.isDir())
            files << MusicLibrary::audioFilesIn(info.absoluteFilePath(), true);
        else
            files << (info.exists() ? info.absoluteFilePath() : argument);
    }
    files.removeDuplicates();
    return files;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    setOndaroIdentity();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QString::fromUtf8(kDescription).arg(Settings::targetLufs.key()).arg(Settings::targetLufs.fallback));
    const QCommandLineOption helpOption = parser.addHelpOption();
    const QCommandLineOption jsonOption(QStringLiteral("json"),
                                        QStringLiteral("Print one JSON object per file, one per line."));
    const QCommandLineOption jobsOption(QStringLiteral("jobs"),
                                        QStringLiteral("Analyse N files at a time (default: one per core)."),
                                        QStringLiteral("N"));
    const QCommandLineOption storeOption(
        QStringLiteral("store"),
        QStringLiteral("Write the results into the library database; files whose stored analysis is "
                       "up to date are not analysed again, their stored results are printed."));
    parser.addOption(jsonOption);
    parser.addOption(jobsOption);
    parser.addOption(storeOption);
    parser.addPositionalArgument(QStringLiteral("paths"), QStringLiteral("Audio files and folders."),
                                 QStringLiteral("FILE|FOLDER..."));

    QTextStream err(stderr);
    auto usageError = [&](const QString& message) {
        err << "ondaro-analyse: " << message << "\n"
            << "Try 'ondaro-analyse --help'.\n";
        return kExitUsage;
    };
    if (!parser.parse(QCoreApplication::arguments()))
        return usageError(parser.errorText());
    if (parser.isSet(helpOption)) {
        QTextStream(stdout) << parser.helpText();
        return kExitAnalysed;
    }
    int jobs = 0;
    if (parser.isSet(jobsOption)) {
        bool ok = false;
        jobs = parser.value(jobsOption).toInt(&ok);
        if (!ok || jobs < 1)
            return usageError(QStringLiteral("--jobs needs a whole number of 1 or more"));
    }
    if (parser.positionalArguments().isEmpty())
        return usageError(QStringLiteral("no file or folder given"));
    if (parser.positionalArguments().contains(QString()))
        return usageError(QStringLiteral("an empty file name was given"));

    const bool store = parser.isSet(storeOption);
    if (store && !MusicLibrary::initialize()) {
        err << "ondaro-analyse: cannot open the library database\n";
        return kExitSomeFailed;
    }

    const QStringList files = filesToAnalyse(parser.positionalArguments());
    if (files.isEmpty())
        err << "ondaro-analyse: no audio files found\n";
    ResultPrinter printer(files, parser.isSet(jsonOption));
    AnalysisQueue queue;
    queue.setStoreResults(store);
    queue.setSkipUpToDate(false); // up-to-date files are printed from the store below
    if (jobs > 0)
        queue.setMaxJobs(jobs);
    QObject::connect(&queue, &AnalysisQueue::analysed, &app,
                     [&printer](const TrackAnalysis& analysis) { printer.add(analysis); });

    // Progress on standard error once a run lasts: rewritten in place on a terminal, a line now and
    // then otherwise.
    const bool terminal = isatty(fileno(stderr)) != 0;
    QElapsedTimer clock;
    clock.start();
    qint64 lastLineMs = 0;
    QTimer progressTimer;
    progressTimer.setInterval(1000);
    QObject::connect(&progressTimer, &QTimer::timeout, &app, [&] {
        const qint64 elapsed = clock.elapsed();
        if (elapsed < kProgressAfterMs || (!terminal && elapsed - lastLineMs < 10000))
            return;
        lastLineMs = elapsed;
        err << (terminal ? "\r" : "") << "ondaro-analyse: " << queue.doneCount() << " of "
            << queue.totalCount() << " files analysed" << (terminal ? "" : "\n");
        err.flush();
    });
    QObject::connect(&queue, &AnalysisQueue::finished, &app, [&] {
        if (terminal && lastLineMs > 0)
            err << "\r\033[K";
        err.flush();
        QCoreApplication::quit();
    });

    // One read of the stored stamps for the whole list, then only the disk per file.
    QStringList toAnalyse;
    const auto stamps = store ? TrackAnalysis::storedStamps(files) : QHash<QString, QPair<qint64, qint64>>();
    for (const QString& path : files) {
        const auto stamp = stamps.constFind(path);
        if (stamp != stamps.cend() && TrackAnalysis::fileMatchesStamp(path, *stamp))
            printer.add(TrackAnalysis::load(path));
        else
            toAnalyse << path;
    }
    if (!toAnalyse.isEmpty()) {
        progressTimer.start();
        queue.enqueue(toAnalyse);
        QCoreApplication::exec();
    }
    return printer.anyFailed() ? kExitSomeFailed : kExitAnalysed;
}
