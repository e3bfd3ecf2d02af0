#include "musiclibrary.h"

#include "directquery.h"
#include "jsonnumber.h"
#include "libraryconnection.h"
#include "librarylogging.h"
#include "librarysql.h"
#include "sqldialect.h"
#include "storelocation.h"
#include "storequery.h"
#include "storeschema.h"
#include "storetransaction.h"
#include "trackrowreader.h"
#include "tracktext.h"

#include <algorithm>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSqlError>
#include <QSqlRecord>
#include <QStandardPaths>

namespace {

// An empty text; StoreQuery binds it (and a null one) as ''.
const QString kEmptyText = QStringLiteral("");


bool g_ftsDisabledForTesting = false;

// The values as StoreQuery binds them, for the direct reads.
QVariantList bindable(QVariantList values)
{
    for (QVariant& v : values)
        v = StoreQuery::bindable(v);
    return values;
}

qint64 firstValue(const QString& sql, const QVariantList& values)
{
    StoreQuery q("Reading a count");
    if (q.run(sql, values) && q.next())
        return q.value(0).toLongLong();
    return 0;
}

bool contains(const QString& field, const QString& needle, Qt::CaseSensitivity cs)
{
    return needle.isEmpty() || field.contains(needle, cs);
}

bool matchesFreeText(const Track& t, const QString& text)
{
    if (text.isEmpty())
        return true;
    return t.artist.contains(text, Qt::CaseInsensitive) || t.title.contains(text, Qt::CaseInsensitive) ||
           t.album.contains(text, Qt::CaseInsensitive) || t.genre.contains(text, Qt::CaseInsensitive) ||
           t.comment.contains(text, Qt::CaseInsensitive) || QString::number(t.year).contains(text) ||
           formatDuration(t.durationMs).contains(text) ||
           QFileInfo(t.filePath).fileName().contains(text, Qt::CaseInsensitive);
}

// The supported audio files of one folder level, plain files only, sorted by name.
QStringList audioFilesDirectlyIn(const QString& dir)
{
    static const QStringList filters = [] {
        QStringList f;
        for (const QString& ext : MusicLibrary::supportedExtensions())
            f << QStringLiteral("*.") + ext;
        return f;
    }();
    QStringList paths;
    for (const QFileInfo& info : QDir(dir).entryInfoList(filters, QDir::Files, QDir::Name))
        paths << info.absoluteFilePath();
    return paths;
}

QStringList subfoldersOf(const QString& dir)
{
    QStringList paths;
    for (const QFileInfo& info : QDir(dir).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
        paths << info.absoluteFilePath();
    return paths;
}

Track trackFromJson(const QJsonObject& o)
{
    Track t;
    t.artist = o.value(QStringLiteral("artist")).toString();
    t.title = o.value(QStringLiteral("title")).toString();
    t.album = o.value(QStringLiteral("album")).toString();
    t.genre = o.value(QStringLiteral("genre")).toString();
    t.comment = o.value(QStringLiteral("comment")).toString();
    t.filePath = o.value(QStringLiteral("filePath")).toString();
    t.year = o.value(QStringLiteral("year")).toInt(0);
    t.durationMs = truncatedJsonNumber(o.value(QStringLiteral("durationMs")), 0);
    t.category = o.value(QStringLiteral("category")).toString(QStringLiteral("Foreign"));
    t.isStream = o.value(QStringLiteral("isStream")).toBool(false);
    t.streamLimitMs = truncatedJsonNumber(o.value(QStringLiteral("streamLimitMs")), 0);
    return t;
}

// A file entry the duration scanner should measure.
bool lacksDuration(const QString& path, bool isStream, qint64 durationMs)
{
    return !isStream && durationMs <= 0 && !path.isEmpty();
}

} // namespace

// Known to Qt by name, so that the window can keep its current query in a QVariant.
[[maybe_unused]] static const int kQueryMetaTypeId =
    qRegisterMetaType<MusicLibrary::Query>("MusicLibrary::Query");

// ---------------------------------------------------------------------------------------------
// Database and schema

QSqlDatabase MusicLibrary::database()
{
    return LibraryConnection::database();
}

QString MusicLibrary::databaseFolder(const QString& configLocation)
{
    return StoreLocation::databaseFolder(configLocation);
}

QString MusicLibrary::embeddedDatabaseFile()
{
    return StoreLocation::embeddedDatabaseFile();
}

void MusicLibrary::ensureSchema()
{
    StoreSchema::applyTrackTables();
}

bool MusicLibrary::ftsAvailable()
{
    return StoreSchema::fullTextReady() && !g_ftsDisabledForTesting;
}

void MusicLibrary::setFullTextSearchDisabledForTesting(bool disabled)
{
    g_ftsDisabledForTesting = disabled;
}

bool MusicLibrary::initialize()
{
    // A server that is not there yet is set up, legacy import included, when a reconnect reaches it.
    static const bool stepGiven = [] {
        LibraryConnection::setSchemaStep([] { initialize(); });
        return true;
    }();
    Q_UNUSED(stepGiven);
    if (!setUpTables())
        return false;
    importLegacyLibraries();
    return true;
}

bool MusicLibrary::setUpTables()
{
    if (!StoreSchema::apply())
        return false;
    LibraryConnection::setSchemaReady(true);
    return true;
}

void MusicLibrary::importLegacyLibraries()
{
    if (firstValue(QStringLiteral("SELECT COUNT(*) FROM libraries"), {}) > 0)
        return;
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
                      QStringLiteral("/libraries"));
    if (!folder.exists())
        return;
    const QFileInfoList files = folder.entryInfoList({QStringLiteral("*.json")}, QDir::Files, QDir::NoSort);
    for (const QFileInfo& info : files) {
        QFile file(info.absoluteFilePath());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QJsonObject doc = QJsonDocument::fromJson(file.readAll()).object();
        const QJsonValue nameValue = doc.value(QStringLiteral("name"));
        const QString name = nameValue.isString() ? nameValue.toString() : info.completeBaseName();
        MusicLibrary library;
        createLibrary(name);
        library.setLibrary(name);
        const QJsonArray list = doc.value(QStringLiteral("tracks")).toArray();
        for (const QJsonValue& v : list)
            library.addTrack(trackFromJson(v.toObject()));
    }
}

// ---------------------------------------------------------------------------------------------
// The set of libraries

bool MusicLibrary::createLibrary(const QString& name)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return false;
    StoreQuery q("Creating a library");
    return q.run(SqlDialect::current().statement(SqlDialect::Statement::InsertLibrary), {trimmed});
}

bool MusicLibrary::deleteLibrary(const QString& name)
{
    StoreQuery tracks("Deleting a library's tracks");
    tracks.run(QStringLiteral("DELETE FROM tracks WHERE library=?"), {name});
    StoreQuery library("Deleting a library");
    return library.run(QStringLiteral("DELETE FROM libraries WHERE name=?"), {name});
}

QStringList MusicLibrary::libraries()
{
    QStringList names;
    StoreQuery q("Listing the libraries");
    if (!q.exec(SqlDialect::current().statement(SqlDialect::Statement::ListLibraries)))
        return names;
    while (q.next())
        names << q.value(0).toString();
    return names;
}

bool MusicLibrary::recordPlay(const QString& filePath, const QDateTime& when)
{
    if (filePath.isEmpty())
        return true;
    StoreQuery q("Recording a play");
    return q.run(
        QStringLiteral("UPDATE tracks SET play_count = play_count + 1, last_played = ? WHERE filepath = ?"),
        {when.toString(Qt::ISODate), filePath});
}

const QStringList& MusicLibrary::supportedExtensions()
{
    static const QStringList extensions = {
        QStringLiteral("mp3"),  QStringLiteral("wav"), QStringLiteral("ogg"),  QStringLiteral("flac"),
        QStringLiteral("m4a"),  QStringLiteral("aac"), QStringLiteral("opus"), QStringLiteral("wma"),
        QStringLiteral("aiff"), QStringLiteral("alac")};
    return extensions;
}

bool MusicLibrary::isSupportedAudioFile(const QString& path)
{
    return supportedExtensions().contains(QFileInfo(path).suffix().toLower());
}

bool MusicLibrary::isStreamUrl(const QString& text)
{
    static const QStringList schemes = {QStringLiteral("http://"), QStringLiteral("https://"),
                                        QStringLiteral("mms://"), QStringLiteral("rtsp://"),
                                        QStringLiteral("rtmp://")};
    const QString trimmed = text.trimmed();
    for (const QString& scheme : schemes) {
        if (trimmed.startsWith(scheme, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

Track MusicLibrary::trackFromFile(const QString& path)
{
    Track t;
    readTags(path, t);
    return t;
}

QStringList MusicLibrary::audioFilesIn(const QString& dir, bool recursive)
{
    QStringList paths = audioFilesDirectlyIn(dir);
    if (recursive) {
        for (const QString& sub : subfoldersOf(dir))
            paths << audioFilesIn(sub, true);
    }
    return paths;
}

// ---------------------------------------------------------------------------------------------
// One library

bool MusicLibrary::setLibrary(const QString& libraryName)
{
    folderMode = false;
    tracks.clear();
    name = libraryName.trimmed();
    createLibrary(name);
    return true;
}

int MusicLibrary::loadFolder(const QString& path)
{
    folderMode = true;
    name = path;
    tracks.clear();
    return addFolder(path, true);
}

void MusicLibrary::clear()
{
    if (folderMode) {
        tracks.clear();
        return;
    }
    StoreQuery q("Clearing a library");
    q.run(QStringLiteral("DELETE FROM tracks WHERE library=?"), {name});
}

int MusicLibrary::trackCount() const
{
    if (folderMode)
        return tracks.size();
    return static_cast<int>(
        firstValue(QStringLiteral("SELECT COUNT(*) FROM tracks WHERE library=?"), {name}));
}

qint64 MusicLibrary::totalDurationMs() const
{
    if (folderMode) {
        qint64 sum = 0;
        for (const Track& t : tracks)
            sum += t.durationMs;
        return sum;
    }
    return firstValue(QStringLiteral("SELECT COALESCE(SUM(duration_ms),0) FROM tracks WHERE library=?"),
                      {name});
}

bool MusicLibrary::insertRows(StoreQuery& insert, const QList<Track>& rows) const
{
    // As many rows per statement as the engine takes at once; a statement is prepared again only when
    // its row count changes (the last, shorter part of a batch).
    const SqlDialect dialect = SqlDialect::current();
    const qsizetype perStatement = dialect.rowsPerTrackInsert();
    qsizetype prepared = 0;
    for (qsizetype first = 0; first < rows.size(); first += perStatement) {
        const qsizetype count = qMin<qsizetype>(perStatement, rows.size() - first);
        if (count != prepared) {
            if (!insert.prepare(dialect.insertTracks(int(count))))
                return false;
            prepared = count;
        }
        for (qsizetype i = first; i < first + count; ++i)
            bindRow(insert, rows.at(i));
        if (!insert.exec())
            return false;
    }
    return true;
}

void MusicLibrary::bindRow(StoreQuery& insert, const Track& t) const
{
    insert.bind(name);
    insert.bind(t.filePath);
    insert.bind(t.isStream ? kEmptyText : QFileInfo(t.filePath).fileName());
    insert.bind(t.artist);
    insert.bind(t.title);
    insert.bind(t.album);
    insert.bind(t.genre);
    insert.bind(t.comment);
    insert.bind(t.year);
    insert.bind(t.durationMs);
    // An unknown length is stored as '' and never as "--:--".
    insert.bind(t.durationMs > 0 ? formatDuration(t.durationMs) : kEmptyText);
    insert.bind(t.category);
    insert.bind(t.isStream ? 1 : 0);
    insert.bind(t.streamLimitMs);
    insert.bind(QDateTime::currentDateTime().toString(Qt::ISODate));
}

void MusicLibrary::addTrack(const Track& t)
{
    if (folderMode) {
        tracks.append(t);
        return;
    }
    StoreQuery insert("Adding a track");
    insertRows(insert, {t});
}

int MusicLibrary::addFiles(const QStringList& paths)
{
    QList<Track> found;
    for (const QString& path : paths) {
        if (!isSupportedAudioFile(path))
            continue;
        Track track;
        readTags(path, track);
        found.append(track);
    }
    if (folderMode) {
        tracks.append(found);
        return int(found.size());
    }
    if (found.isEmpty())
        return 0;
    // Made before the transaction, so that it ends after the rollback: a server cannot free a
    // statement inside a failed transaction.
    StoreQuery insert("Adding tracks");
    // All of the batch or none of it: a batch that fails part-way is rolled back and counts 0.
    StoreTransaction batch("Adding files");
    if (!batch.isActive())
        return 0;
    if (!insertRows(insert, found))
        return 0;
    return batch.commit() ? int(found.size()) : 0;
}

int MusicLibrary::addFolder(const QString& dir, bool recursive)
{
    // One transaction per folder level; files of a folder come before those of its subfolders.
    int count = addFiles(audioFilesDirectlyIn(dir));
    if (recursive) {
        for (const QString& sub : subfoldersOf(dir))
            count += addFolder(sub, true);
    }
    return count;
}

void MusicLibrary::addStream(const QString& streamName, const QString& url)
{
    Track t;
    t.filePath = url.trimmed();
    t.isStream = true;
    t.title = streamName.trimmed().isEmpty() ? url.trimmed() : streamName.trimmed();
    t.artist = onlineStreamArtist();
    addTrack(t);
}

void MusicLibrary::updateStream(const QString& oldUrl, const QString& title, const QString& newUrl)
{
    if (folderMode)
        return;
    StoreQuery q("Changing a stream");
    q.run(QStringLiteral(
              "UPDATE tracks SET filepath=?, title=? WHERE library=? AND filepath=? AND is_stream=1"),
          {newUrl.trimmed(), title.trimmed().isEmpty() ? newUrl.trimmed() : title.trimmed(), name, oldUrl});
}

int MusicLibrary::updateDuration(const QString& filePath, qint64 ms)
{
    if (folderMode) {
        int changed = 0;
        for (Track& t : tracks) {
            if (t.filePath == filePath && !t.isStream) {
                t.durationMs = ms;
                ++changed;
            }
        }
        return changed;
    }
    StoreQuery q("Storing a duration");
    if (!q.run(QStringLiteral("UPDATE tracks SET duration_ms=?, duration_str=? WHERE library=? AND "
                              "filepath=? AND is_stream=0"),
               {ms, formatDuration(ms), name, filePath}))
        return 0;
    return q.numRowsAffected();
}

int MusicLibrary::removeMissingFiles()
{
    const QList<Track> all = search(QString());
    QStringList missing;
    for (const Track& t : all) {
        if (!t.isStream && !t.filePath.isEmpty() && !QFileInfo::exists(t.filePath))
            missing << t.filePath;
    }
    if (folderMode) {
        // A folder library lives in memory only: drop the entries whose files are gone.
        tracks.erase(std::remove_if(tracks.begin(), tracks.end(),
                                    [&missing](const Track& t) { return missing.contains(t.filePath); }),
                     tracks.end());
        return missing.size();
    }
    if (missing.isEmpty())
        return 0;
    // Made before the transaction, so that it ends after the rollback (see addFiles).
    StoreQuery remove("Removing a missing file");
    // All of them or none: a clean-up that fails part-way is rolled back and removes nothing (0).
    StoreTransaction batch("Removing missing files");
    if (!batch.isActive())
        return 0;
    if (!remove.prepare(QStringLiteral("DELETE FROM tracks WHERE library=? AND filepath=?")))
        return 0;
    for (const QString& path : missing) {
        remove.bind(name);
        remove.bind(path);
        if (!remove.exec())
            return 0;
    }
    return batch.commit() ? int(missing.size()) : 0;
}

QStringList MusicLibrary::pathsWithoutDuration(const QList<Track>& listing)
{
    QStringList paths;
    for (const Track& t : listing) {
        if (lacksDuration(t.filePath, t.isStream, t.durationMs))
            paths << t.filePath;
    }
    return paths;
}

QStringList MusicLibrary::filesWithoutDuration() const
{
    if (folderMode)
        return pathsWithoutDuration(tracks);
    QStringList paths;
    // Same condition and order as the plain listing, so rows that tie on artist and title come in
    // the order the table shows them; the filter runs here rather than in SQL for that reason.
    const QString sql = SqlDialect::current().statement(SqlDialect::Statement::FilesWithoutDuration);
    const QVariantList values{name};
    auto keep = [&paths](const QString& path, int isStream, qint64 durationMs) {
        if (lacksDuration(path, isStream != 0, durationMs))
            paths << path;
    };
    DirectQuery direct(database());
    if (direct.isUsable()) {
        if (direct.exec(sql, bindable(values))) {
            while (direct.next())
                keep(direct.text(0), direct.toInt(1), direct.integer(2));
        }
        return paths;
    }
    StoreQuery q("Listing the files without a duration");
    q.setForwardOnly(true);
    if (!q.run(sql, values))
        return paths;
    while (q.next())
        keep(q.value(0).toString(), q.value(1).toInt(), q.value(2).toLongLong());
    return paths;
}

// ---------------------------------------------------------------------------------------------
// Search

void MusicLibrary::appendFtsTerms(QStringList& terms, const QString& column, const QString& text)
{
    // Compiled once per process.
    static const QRegularExpression separators(QStringLiteral("[\\s:/\\\\._\\-,;]+"));
    static const QRegularExpression strip(QStringLiteral("[\"\"*()^]"));
    const QStringList parts = text.split(separators, Qt::SkipEmptyParts);
    for (QString part : parts) {
        part.remove(strip);
        if (part.isEmpty())
            continue;
        terms << (column.isEmpty() ? part + QLatin1Char('*')
                                   : column + QLatin1Char(':') + part + QLatin1Char('*'));
    }
}

void MusicLibrary::appendLikeCondition(QStringList& conditions, QVariantList& values,
                                       const QString& expression, const QString& value)
{
    appendContainsCondition(SqlDialect(SqlDialect::Engine::Embedded), conditions, values, expression, value);
}

void MusicLibrary::appendContainsCondition(const SqlDialect& dialect, QStringList& conditions,
                                           QVariantList& values, const QString& expression,
                                           const QString& value)
{
    if (value.isEmpty())
        return;
    conditions << dialect.containsCondition(expression);
    values << QString(QLatin1Char('%') + value + QLatin1Char('%'));
}

QList<Track> MusicLibrary::runListing(const QString& sql, const QVariantList& values) const
{
    QList<Track> result;
    if (sql.isEmpty())
        return result; // no form for this engine (logged by SqlDialect)
    // Column names are resolved once per result set; 100,000 rows must list in well under a second.
    DirectQuery direct(database());
    if (direct.isUsable()) {
        if (!direct.exec(sql, bindable(values)))
            return result;
        TrackRowReader reader(direct.columnNames());
        while (direct.next())
            result.append(reader.read(direct));
        return result;
    }
    StoreQuery q("Listing tracks");
    q.setForwardOnly(true);
    if (!q.run(sql, values))
        return result;
    TrackRowReader reader(q.record());
    while (q.next())
        result.append(reader.read(q.query()));
    return result;
}

QList<Track> MusicLibrary::plainListing() const
{
    return runListing(SqlDialect::current().statement(SqlDialect::Statement::PlainListing), {name});
}

QList<Track> MusicLibrary::fullTextListing(const QStringList& terms) const
{
    const SqlDialect dialect = SqlDialect::current();
    bool ok = false;
    const QString argument = dialect.fullTextArgument(terms, &ok);
    if (!ok) {
        // The embedded index fails on such a term and the search finds nothing; so here too.
        qCInfo(lcLibrary).noquote() << "Search terms not understood:" << terms.join(QLatin1Char(' '));
        return {};
    }
    return runListing(dialect.statement(SqlDialect::Statement::FullTextListing), {name, argument});
}

QList<Track> MusicLibrary::filterInMemory(const Query& q) const
{
    QList<Track> result;
    for (const Track& t : tracks) {
        if (!matchesFreeText(t, q.text))
            continue;
        if (!contains(t.artist, q.artist, Qt::CaseInsensitive) ||
            !contains(t.title, q.title, Qt::CaseInsensitive) ||
            !contains(t.album, q.album, Qt::CaseInsensitive) ||
            !contains(t.genre, q.genre, Qt::CaseInsensitive) ||
            !contains(t.comment, q.comment, Qt::CaseInsensitive) ||
            !contains(QFileInfo(t.filePath).fileName(), q.filename, Qt::CaseInsensitive) ||
            !contains(QString::number(t.year), q.year, Qt::CaseSensitive) ||
            !contains(formatDuration(t.durationMs), q.duration, Qt::CaseSensitive))
            continue;
        result.append(t);
    }
    return result;
}

QList<Track> MusicLibrary::search(const QString& text) const
{
    if (folderMode) {
        Query q;
        q.text = text;
        return filterInMemory(q);
    }
    const QString t = text.trimmed();
    if (t.isEmpty())
        return plainListing();
    if (!ftsAvailable()) {
        const QString like = QLatin1Char('%') + t + QLatin1Char('%');
        return runListing(SqlDialect::current().statement(SqlDialect::Statement::LikeSearch),
                          {name, like, like, like, like, like, like, like, like});
    }
    QStringList terms;
    appendFtsTerms(terms, QString(), t);
    if (terms.isEmpty())
        return plainListing();
    return fullTextListing(terms);
}

QList<Track> MusicLibrary::query(const Query& q) const
{
    if (q.isEmpty())
        return search(QString());
    if (folderMode)
        return filterInMemory(q);
    if (ftsAvailable()) {
        QStringList terms;
        appendFtsTerms(terms, QString(), q.text);
        appendFtsTerms(terms, QStringLiteral("artist"), q.artist);
        appendFtsTerms(terms, QStringLiteral("title"), q.title);
        appendFtsTerms(terms, QStringLiteral("album"), q.album);
        appendFtsTerms(terms, QStringLiteral("genre"), q.genre);
        appendFtsTerms(terms, QStringLiteral("comment"), q.comment);
        appendFtsTerms(terms, QStringLiteral("filename"), q.filename);
        appendFtsTerms(terms, QStringLiteral("year"), q.year);
        appendFtsTerms(terms, QStringLiteral("duration_str"), q.duration);
        if (terms.isEmpty())
            return search(QString());
        return fullTextListing(terms);
    }
    const SqlDialect dialect = SqlDialect::current();
    QStringList conditions;
    QVariantList values;
    if (!q.text.isEmpty()) {
        conditions << dialect.statement(SqlDialect::Statement::LikeQueryText);
        const QString like = QLatin1Char('%') + q.text + QLatin1Char('%');
        for (int i = 0; i < 8; ++i)
            values << like;
    }
    appendContainsCondition(dialect, conditions, values, QStringLiteral("artist"), q.artist);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("title"), q.title);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("album"), q.album);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("genre"), q.genre);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("comment"), q.comment);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("filename"), q.filename);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("CAST(year AS TEXT)"), q.year);
    appendContainsCondition(dialect, conditions, values, QStringLiteral("duration_str"), q.duration);
    values.prepend(name);
    return runListing(dialect.selectTracks() + QStringLiteral(" WHERE library=? AND ") +
                          conditions.join(QStringLiteral(" AND ")) + dialect.orderByArtistTitle(),
                      values);
}
