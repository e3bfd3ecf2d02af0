// Benchmark of the music library store, run on demand (not a test): prints figures and ratios.
//  1. Import: 2,000 small tagged mp3 files; readTags alone, then addFiles in batches of 50.
//  2. Search on one library of 100,000 generated tracks: plain listing, full-text prefix search
//     matching about 1% of the rows, one matching nothing, and the LIKE form.
// Both run on the embedded database and then on a PostgreSQL server, and the two are compared: the
// server named by --url URL or ONDARO_DATABASE_URL (its libraries "Import", "InsertOnly" and "Big"
// are replaced), or else a private one started through scripts/pg-test-server.sh; --no-server skips it.
// Usage: bench_library [files=2000] [tracks=100000] [--url URL | --no-server]
// Everything else lives in a temporary folder (Qt test locations under a private HOME).

#include "databaseurl.h"
#include "directquery.h"
#include "libraryconnection.h"
#include "musiclibrary.h"
#include "pgschema.h"
#include "sqldialect.h"
#include "track.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

const QStringList kFirstWords = {
    "Amber",  "Silver",   "Crimson",  "Velvet",   "Electric", "Midnight", "Golden",  "Broken", "Wild",
    "Lonely", "Neon",     "Paper",    "Iron",     "Crystal",  "Hollow",   "Scarlet", "Frozen", "Burning",
    "Quiet",  "Restless", "Northern", "Southern", "Distant",  "Hidden",   "Falling", "Rising", "Painted",
    "Faded",  "Savage",   "Gentle",   "Cosmic",   "Lucky",    "Sleepy",   "Violet",  "Copper", "Marble",
    "Rusty",  "Sunny",    "Stormy",   "Dusty",    "Little",   "Grand",    "Royal",   "Urban",  "Rural",
    "Modern", "Ancient",  "Sacred",   "Secret",   "Magic"};
const QStringList kSecondWords = {
    "Wolves",   "Rivers",   "Hearts",  "Shadows", "Horses",    "Mirrors", "Engines",  "Gardens",  "Lanterns",
    "Sparrows", "Tigers",   "Oceans",  "Canyons", "Pilots",    "Sailors", "Dreamers", "Drifters", "Ghosts",
    "Saints",   "Kings",    "Queens",  "Rebels",  "Strangers", "Lovers",  "Brothers", "Sisters",  "Machines",
    "Robots",   "Comets",   "Planets", "Islands", "Mountains", "Valleys", "Forests",  "Deserts",  "Cities",
    "Bridges",  "Towers",   "Castles", "Harbors", "Echoes",    "Voices",  "Signals",  "Waves",    "Flames",
    "Stones",   "Feathers", "Petals",  "Thorns",  "Crowns"};
// Title words: 100 of them, so one word stands in about 1% of the titles when each title uses one.
QStringList titleWords()
{
    QStringList words;
    const QStringList roots = {"Love",  "Night", "Rain", "Fire", "Road",
                               "Dance", "Heart", "Sky",  "Time", "Home"};
    const QStringList tails = {"song", "light", "fall", "line", "beat",
                               "side", "wind",  "land", "glow", "tide"};
    for (const QString& r : roots) {
        for (const QString& t : tails)
            words << r + t;
    }
    return words;
}
const QStringList kGenres = {"Rock", "Pop",     "Jazz",   "Blues", "Soul",
                             "Folk", "Country", "Reggae", "Funk",  "Disco"};
const QStringList kAlbumWords = {"Live",    "Sessions", "Collection", "Stories",
                                 "Anthems", "Tapes",    "Nights",     "Days"};

// One second of silent MPEG-1 Layer III frames (128 kb/s, 44.1 kHz, mono): a valid stream without any
// tool, 417 bytes per frame.
QByteArray silentMp3(int frames)
{
    QByteArray frame(417, '\0');
    frame[0] = char(0xFF);
    frame[1] = char(0xFB);
    frame[2] = char(0x90);
    frame[3] = char(0xC4);
    return frame.repeated(frames);
}

QByteArray id3Frame(const char* id, const QByteArray& body)
{
    QByteArray f(id);
    const quint32 size = quint32(body.size());
    f.append(char(size >> 24)).append(char(size >> 16)).append(char(size >> 8)).append(char(size));
    f.append(2, '\0');
    return f + body;
}

// An ID3v2.3 tag with Latin-1 texts and a COMM comment frame.
QByteArray id3Tag(const Track& t)
{
    auto text = [](const QString& s) { return QByteArray(1, '\0') + s.toLatin1(); };
    QByteArray frames = id3Frame("TPE1", text(t.artist)) + id3Frame("TIT2", text(t.title)) +
                        id3Frame("TALB", text(t.album)) + id3Frame("TCON", text(t.genre)) +
                        id3Frame("COMM", QByteArray("\0eng\0", 5) + t.comment.toLatin1()) +
                        id3Frame("TYER", text(QString::number(t.year)));
    const quint32 size = quint32(frames.size());
    QByteArray header("ID3\x03\x00\x00", 6);
    header.append(char((size >> 21) & 0x7F)).append(char((size >> 14) & 0x7F));
    header.append(char((size >> 7) & 0x7F)).append(char(size & 0x7F));
    return header + frames;
}

Track generatedTrack(QRandomGenerator& rng, const QStringList& titles, int i)
{
    Track t;
    t.artist = QStringLiteral("%1 %2").arg(kFirstWords.at(rng.bounded(kFirstWords.size())),
                                           kSecondWords.at(rng.bounded(kSecondWords.size())));
    t.title = QStringLiteral("%1 %2").arg(titles.at(i % titles.size()), QString::number(i));
    t.album = QStringLiteral("%1 %2").arg(kAlbumWords.at(rng.bounded(kAlbumWords.size())),
                                          QString::number(rng.bounded(1, 30)));
    t.genre = kGenres.at(rng.bounded(kGenres.size()));
    t.comment = QStringLiteral("catalogue %1").arg(i);
    t.year = 1950 + rng.bounded(75);
    t.durationMs = 90000 + rng.bounded(300000);
    return t;
}

// Processor time of this process in ms. On a shared, busy machine wall-clock figures swing with the
// load of others; the processor time spent is the steadier measure, so both are printed.
double cpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

struct Timing {
    double wallMs = 0;
    double cpuMs = 0;
};

class Stopwatch
{
public:
    Stopwatch() { restart(); }
    void restart()
    {
        wall.start();
        cpu = cpuMs();
    }
    Timing elapsed() const { return {double(wall.nsecsElapsed()) / 1e6, cpuMs() - cpu}; }

private:
    QElapsedTimer wall;
    double cpu = 0;
};

// The median of several runs, by elapsed time (SQLite sorts a large listing on a second thread, so
// processor time overstates what a user waits); `reset` runs before each run, outside the timing.
Timing median(int runs, const std::function<void()>& work, const std::function<void()>& reset = {})
{
    std::vector<Timing> times;
    for (int i = 0; i < runs; ++i) {
        if (reset)
            reset();
        Stopwatch watch;
        work();
        times.push_back(watch.elapsed());
    }
    std::sort(times.begin(), times.end(),
              [](const Timing& a, const Timing& b) { return a.wallMs < b.wallMs; });
    return times[times.size() / 2];
}

// Runs a listing statement and steps through its rows without building Tracks, the way search()
// reads them (straight through SQLite where the store can, else through QSqlQuery).
int stepRows(const QString& sql, const QVariantList& values)
{
    QSqlDatabase db = MusicLibrary::database();
    int rows = 0;
    DirectQuery direct(db);
    if (direct.isUsable()) {
        direct.exec(sql, values);
        while (direct.next())
            ++rows;
        return rows;
    }
    QSqlQuery q(db);
    q.setForwardOnly(true);
    q.prepare(sql);
    for (const QVariant& v : values)
        q.addBindValue(v);
    q.exec();
    while (q.next())
        ++rows;
    return rows;
}

void printTiming(const char* label, const Timing& t, int count, const char* unit)
{
    std::printf("%-16s: wall %8.1f ms  cpu %8.1f ms  %8.0f %s/s (by cpu)\n", label, t.wallMs, t.cpuMs,
                count / (t.cpuMs / 1000.0), unit);
}

struct ImportFigures {
    Timing read;
    Timing import;
    Timing insert;
    int added = 0;
};

struct SearchFigures {
    Timing fill;
    int rows = 0;
    Timing plain;
    Timing fts;
    Timing noMatch;
    Timing like;
    int ftsRows = 0;
};

// The statements search() runs on the database of this run.
struct Statements {
    QString plain;
    QString fts;
    QString like;
    bool server = false;
    QString match(const QString& text) const
    {
        QStringList terms;
        MusicLibrary::appendFtsTerms(terms, QString(), text);
        const SqlDialect dialect(server ? SqlDialect::Engine::Server : SqlDialect::Engine::Embedded);
        return dialect.fullTextArgument(terms, nullptr);
    }
};

Statements statementsFor(bool server)
{
    const SqlDialect dialect(server ? SqlDialect::Engine::Server : SqlDialect::Engine::Embedded);
    return {dialect.statement(SqlDialect::Statement::PlainListing),
            dialect.statement(SqlDialect::Statement::FullTextListing),
            dialect.statement(SqlDialect::Statement::LikeSearch), server};
}

ImportFigures benchImport(const QString& root, int fileCount)
{
    std::printf("== Import: %d tagged mp3 files, batches of 50 ==\n", fileCount);
    QRandomGenerator rng(42);
    const QStringList titles = titleWords();
    const QByteArray audio = silentMp3(40);
    const QString dir = root + QStringLiteral("/files");
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    QStringList paths;
    for (int i = 0; i < fileCount; ++i) {
        const Track t = generatedTrack(rng, titles, i);
        const QString path = dir + QStringLiteral("/%1.mp3").arg(i, 5, 10, QLatin1Char('0'));
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly))
            continue;
        f.write(id3Tag(t) + audio);
        paths << path;
    }

    // Warm caches: read every file once before timing.
    for (const QString& p : paths) {
        Track t;
        readTags(p, t);
    }
    int withTitle = 0;
    Stopwatch watch;
    for (const QString& p : paths) {
        Track t;
        readTags(p, t);
        withTitle += t.title.isEmpty() ? 0 : 1;
    }
    const Timing read = watch.elapsed();

    MusicLibrary::deleteLibrary(QStringLiteral("Import"));
    MusicLibrary::deleteLibrary(QStringLiteral("InsertOnly"));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Import"));
    int added = 0;
    watch.restart();
    for (int first = 0; first < paths.size(); first += 50)
        added += lib.addFiles(paths.mid(first, 50));
    const Timing import = watch.elapsed();

    // The store's share alone: the same rows inserted from Tracks already read, batches of 50.
    QList<Track> tracks;
    for (const QString& p : paths)
        tracks << MusicLibrary::trackFromFile(p);
    MusicLibrary insertOnly;
    insertOnly.setLibrary(QStringLiteral("InsertOnly"));
    watch.restart();
    for (int first = 0; first < tracks.size(); first += 50) {
        QSqlDatabase db = MusicLibrary::database();
        db.transaction();
        for (const Track& t : tracks.mid(first, 50))
            insertOnly.addTrack(t);
        db.commit();
    }
    const Timing insert = watch.elapsed();

    printTiming("readTags alone", read, int(paths.size()), "files");
    printTiming("addFiles", import, added, "files");
    printTiming("inserting alone", insert, int(tracks.size()), "rows");
    std::printf("(%d titles read, %d rows added, %d in the library)\n", withTitle, added, lib.trackCount());
    std::printf("ratio import/read speed: %.2f by cpu, %.2f by wall   (goal >= 0.40)\n\n",
                read.cpuMs / import.cpuMs, read.wallMs / import.wallMs);
    return {read, import, insert, added};
}

SearchFigures benchSearch(int trackCount, const Statements& sql)
{
    SearchFigures figures;
    std::printf("== Search: one library of %d generated tracks ==\n", trackCount);
    QRandomGenerator rng(7);
    const QStringList titles = titleWords();
    MusicLibrary::deleteLibrary(QStringLiteral("Big"));
    MusicLibrary lib;
    lib.setLibrary(QStringLiteral("Big"));
    Stopwatch watch;
    QSqlDatabase db = MusicLibrary::database();
    for (int first = 0; first < trackCount; first += 1000) {
        db.transaction();
        for (int i = first; i < qMin(trackCount, first + 1000); ++i) {
            Track t = generatedTrack(rng, titles, i);
            t.filePath = QStringLiteral("/music/%1/%2 - %3.mp3").arg(t.artist, t.artist, t.title);
            lib.addTrack(t);
        }
        db.commit();
    }
    figures.fill = watch.elapsed();
    figures.rows = lib.trackCount();
    printTiming("filling", figures.fill, figures.rows, "rows");
    if (sql.server) {
        // Fresh statistics, as the server's autovacuum gathers them after a large import.
        QSqlQuery(MusicLibrary::database()).exec(QStringLiteral("VACUUM ANALYZE tracks"));
    }

    const int runs = 7;
    // The very statements search() runs, so that "statement" and "to Tracks" add up to the search.
    const QString& plainSql = sql.plain;
    const QString& ftsSql = sql.fts;
    const QString& likeSql = sql.like;

    std::printf("median of %d runs by elapsed time; 'statement' = running it and stepping through its rows,\n"
                "'to Tracks' = the rest of search() (building the list of Tracks); cpu counts every thread\n",
                runs);
    auto report = [&](const char* label, const QString& text, const QString& statementSql,
                      const QVariantList& values, double goalMs, Timing* into) {
        int rows = 0;
        int found = 0;
        const Timing statement = median(runs, [&] { rows = stepRows(statementSql, values); });
        // The list is kept and freed outside the timing: a caller holds on to what search returns.
        QList<Track> kept;
        const Timing total = median(
            runs, [&] { kept = lib.search(text); }, [&] { kept = QList<Track>(); });
        found = int(kept.size());
        std::printf("%-16s: %6d rows  statement %7.1f  to Tracks %7.1f  total %7.1f ms  (cpu total %7.1f ms)",
                    label, found, statement.wallMs, std::max(0.0, total.wallMs - statement.wallMs),
                    total.wallMs, total.cpuMs);
        if (goalMs > 0)
            std::printf("  goal < %.0f ms", goalMs);
        std::printf("\n");
        if (rows != found)
            std::printf("  note: the statement alone gave %d rows\n", rows);
        *into = total;
        return found;
    };

    const QString word = titles.at(17); // in one title of a hundred
    report("plain listing", QString(), plainSql, {lib.name()}, sql.server ? 1000 : 500, &figures.plain);
    // The MATCH texts come from the store's own term builder, as in search().
    figures.ftsRows = report("FTS prefix ~1%", word, ftsSql, {lib.name(), sql.match(word)},
                             sql.server ? 30 : 15, &figures.fts);
    report("FTS no match", QStringLiteral("Qwertyuiop"), ftsSql,
           {lib.name(), sql.match(QStringLiteral("Qwertyuiop"))}, 0, &figures.noMatch);
    MusicLibrary::setFullTextSearchDisabledForTesting(true);
    const QString like = QLatin1Char('%') + word + QLatin1Char('%');
    if (sql.server) {
        // The server always searches its index; its LIKE form is timed through the statement alone.
        const Timing t = median(runs, [&] {
            stepRows(likeSql, {lib.name(), like, like, like, like, like, like, like, like});
        });
        std::printf("%-16s: statement %7.1f ms (the store never runs it while the index exists)\n",
                    "ILIKE same word", t.wallMs);
        figures.like = t;
    } else {
        report("LIKE same word", word, likeSql, {lib.name(), like, like, like, like, like, like, like, like}, 0,
               &figures.like);
    }
    MusicLibrary::setFullTextSearchDisabledForTesting(false);
    std::printf("\n");
    return figures;
}

// The source folder, from the build folder's CMake cache above this program.
QString sourceFolder()
{
    QDir dir(QCoreApplication::applicationDirPath());
    do {
        QFile cache(dir.filePath(QStringLiteral("CMakeCache.txt")));
        if (cache.open(QIODevice::ReadOnly)) {
            while (!cache.atEnd()) {
                const QByteArray line = cache.readLine().trimmed();
                if (line.startsWith("CMAKE_HOME_DIRECTORY:INTERNAL="))
                    return QString::fromUtf8(line.mid(int(qstrlen("CMAKE_HOME_DIRECTORY:INTERNAL="))));
            }
        }
    } while (dir.cdUp());
    return QString();
}

bool runServerScript(const QString& command, const QString& folder, const QString& option = QString())
{
    const QString script = sourceFolder() + QStringLiteral("/scripts/pg-test-server.sh");
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QStringList args{script, command, folder};
    if (!option.isEmpty())
        args << option;
    process.start(QStringLiteral("bash"), args);
    return process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

// Makes the store's shared connection the given database (an empty URL: the embedded one).
bool switchTo(const DatabaseUrl& url)
{
    if (QSqlDatabase::contains(QStringLiteral("od_library"))) {
        QSqlDatabase::database(QStringLiteral("od_library"), false).close();
        QSqlDatabase::removeDatabase(QStringLiteral("od_library"));
    }
    LibraryConnection::setUrl(url);
    return MusicLibrary::initialize();
}

void compare(const ImportFigures& embeddedImport, const SearchFigures& embeddedSearch,
             const ImportFigures& serverImport, const SearchFigures& serverSearch)
{
    auto rate = [](int n, const Timing& t) { return n / (t.wallMs / 1000.0); };
    std::printf("== PostgreSQL compared with the embedded database (elapsed time) ==\n");
    const double embeddedRate = rate(embeddedImport.added, embeddedImport.import);
    const double serverRate = rate(serverImport.added, serverImport.import);
    std::printf("import (addFiles)   : %8.0f vs %8.0f files/s  ratio %.2f  (goal >= 0.50)\n", serverRate,
                embeddedRate, serverRate / embeddedRate);
    const double embeddedInsert = rate(embeddedImport.added, embeddedImport.insert);
    const double serverInsert = rate(serverImport.added, serverImport.insert);
    std::printf("inserting alone     : %8.0f vs %8.0f rows/s   ratio %.2f\n", serverInsert, embeddedInsert,
                serverInsert / embeddedInsert);
    std::printf("filling %d rows : %8.0f vs %8.0f rows/s   ratio %.2f\n", serverSearch.rows,
                rate(serverSearch.rows, serverSearch.fill), rate(embeddedSearch.rows, embeddedSearch.fill),
                rate(serverSearch.rows, serverSearch.fill) / rate(embeddedSearch.rows, embeddedSearch.fill));
    std::printf("plain listing       : %8.1f vs %8.1f ms       ratio %.2f  (goal on the server < 1000 ms)\n",
                serverSearch.plain.wallMs, embeddedSearch.plain.wallMs,
                serverSearch.plain.wallMs / embeddedSearch.plain.wallMs);
    std::printf("search ~1%% (%d/%d) : %8.1f vs %8.1f ms       ratio %.2f  (goal on the server < 30 ms)\n",
                serverSearch.ftsRows, embeddedSearch.ftsRows, serverSearch.fts.wallMs,
                embeddedSearch.fts.wallMs, serverSearch.fts.wallMs / embeddedSearch.fts.wallMs);
    std::printf("search, no match    : %8.1f vs %8.1f ms\n", serverSearch.noMatch.wallMs,
                embeddedSearch.noMatch.wallMs);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    if (!home.isValid())
        return 1;
    qputenv("HOME", QFile::encodeName(home.path()));
    QStandardPaths::setTestModeEnabled(true);

    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    bool withServer = !args.removeAll(QStringLiteral("--no-server"));
    DatabaseUrl url = DatabaseUrl::parse(QString::fromLocal8Bit(qgetenv("ONDARO_DATABASE_URL")));
    const int urlAt = int(args.indexOf(QStringLiteral("--url")));
    if (urlAt >= 0 && urlAt + 1 < args.size()) {
        url = DatabaseUrl::parse(args.at(urlAt + 1));
        args.remove(urlAt, 2);
    }
    const int files = args.size() > 0 ? args.at(0).toInt() : 2000;
    const int tracks = args.size() > 1 ? args.at(1).toInt() : 100000;

    if (!switchTo(DatabaseUrl())) {
        std::fprintf(stderr, "cannot open the library database\n");
        return 1;
    }
    std::printf("######## embedded SQLite database\n");
    const ImportFigures embeddedImport = benchImport(home.path(), files);
    const SearchFigures embeddedSearch = benchSearch(tracks, statementsFor(false));
    if (!withServer)
        return 0;

    // A socket folder's path must stay short.
    const QString serverFolder =
        QStringLiteral("/tmp/ondaro-bench-%1").arg(QCoreApplication::applicationPid());
    const bool ownServer = url.isEmbedded();
    if (ownServer) {
        if (!runServerScript(QStringLiteral("start"), serverFolder, QStringLiteral("--fresh"))) {
            std::fprintf(stderr, "cannot start a PostgreSQL server (scripts/pg-test-server.sh)\n");
            return 1;
        }
        url = DatabaseUrl::parse(QStringLiteral("postgresql://ondaro@/ondaro?host=") + serverFolder);
    }
    int result = 0;
    if (!url.isValid() || !switchTo(url)) {
        std::fprintf(stderr, "cannot use the server %s: %s\n", qPrintable(url.displayText()),
                     qPrintable(url.isValid() ? LibraryConnection::problem() : url.error));
        result = 1;
    } else {
        std::printf("######## PostgreSQL server %s\n", qPrintable(url.displayText()));
        const ImportFigures serverImport = benchImport(home.path(), files);
        const SearchFigures serverSearch = benchSearch(tracks, statementsFor(true));
        compare(embeddedImport, embeddedSearch, serverImport, serverSearch);
    }
    if (QSqlDatabase::contains(QStringLiteral("od_library"))) {
        QSqlDatabase::database(QStringLiteral("od_library"), false).close();
        QSqlDatabase::removeDatabase(QStringLiteral("od_library"));
    }
    if (ownServer)
        runServerScript(QStringLiteral("stop"), serverFolder, QStringLiteral("--remove"));
    return result;
}
