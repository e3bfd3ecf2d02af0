#include "storeschema.h"

#include "libraryconnection.h"
#include "librarylogging.h"
#include "storequery.h"
#include "storetransaction.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QHash>

namespace {

const QString kSectionMark = QStringLiteral("-- @");

using Sections = QList<QPair<QString, QStringList>>;

Sections load(const QString& resource)
{
    QFile file(resource);
    if (!file.open(QIODevice::ReadOnly)) {
        qCCritical(lcLibrary).noquote() << "The store's schema file" << resource << "is missing";
        return {};
    }
    return StoreSchema::parse(QString::fromUtf8(file.readAll()));
}

// Read once per process; function statics are thread-safe, and worker threads set up no schema but
// may ask for a section.
const Sections& sectionsOf(SqlDialect::Engine engine)
{
    static const Sections embedded = load(QStringLiteral(":/ondaro/schema/sqlite-3.sql"));
    static const Sections server = load(QStringLiteral(":/ondaro/schema/postgresql-1.sql"));
    return engine == SqlDialect::Engine::Server ? server : embedded;
}

bool g_fullTextReady = false;

// The column names of `tracks`, as "PRAGMA table_info" lists them (field 1).
QStringList trackColumns()
{
    QStringList names;
    StoreQuery q("Reading the columns of the tracks");
    const QStringList sql =
        StoreSchema::statements(SqlDialect::Engine::Embedded, QStringLiteral("track-columns"));
    if (sql.isEmpty() || !q.exec(sql.first()))
        return names;
    while (q.next())
        names << q.value(1).toString();
    return names;
}

int embeddedVersion()
{
    StoreQuery q("Reading the schema version");
    const QStringList sql =
        StoreSchema::statements(SqlDialect::Engine::Embedded, QStringLiteral("read-version"));
    if (!sql.isEmpty() && q.exec(sql.first()) && q.next())
        return q.value(0).toInt();
    return 0;
}

bool serverTableExists(const QSqlDatabase& db, const QString& table)
{
    StoreQuery q(db, "Looking for a table");
    return q.run(QStringLiteral("SELECT to_regclass(?) IS NOT NULL"), {table}) && q.next() &&
           q.value(0).toBool();
}

bool serverHasSearchColumn(const QSqlDatabase& db)
{
    StoreQuery q(db, "Looking for the search column");
    return q.exec(QStringLiteral("SELECT 1 FROM information_schema.columns WHERE table_schema = "
                                 "current_schema() AND table_name = 'tracks' AND column_name = "
                                 "'search_words'")) &&
           q.next();
}

} // namespace

QList<QPair<QString, QStringList>> StoreSchema::parse(const QString& text)
{
    Sections sections;
    QStringList lines;
    auto endStatement = [&] {
        if (lines.isEmpty())
            return;
        QString statement = lines.join(QLatin1Char(' '));
        if (statement.endsWith(QLatin1Char(';')))
            statement.chop(1);
        if (!sections.isEmpty())
            sections.last().second << statement;
        else
            qCCritical(lcLibrary).noquote()
                << "A schema statement outside any section is ignored:" << statement;
        lines.clear();
    };
    for (const QString& raw : text.split(QLatin1Char('\n'))) {
        const QString line = raw.trimmed();
        if (line.startsWith(kSectionMark)) {
            endStatement();
            sections.append({line.mid(kSectionMark.size()).trimmed(), {}});
        } else if (line.isEmpty()) {
            endStatement();
        } else if (!line.startsWith(QStringLiteral("--"))) {
            lines << line;
        }
    }
    endStatement();
    return sections;
}

QStringList StoreSchema::sections(SqlDialect::Engine engine)
{
    QStringList names;
    for (const auto& section : sectionsOf(engine))
        names << section.first;
    return names;
}

QStringList StoreSchema::statements(SqlDialect::Engine engine, const QString& section)
{
    for (const auto& s : sectionsOf(engine)) {
        if (s.first == section)
            return s.second;
    }
    qCCritical(lcLibrary).noquote() << "The store's schema has no section" << section << "for"
                                    << (engine == SqlDialect::Engine::Server ? "the database server"
                                                                             : "the embedded database");
    return {};
}

bool StoreSchema::run(const QString& section, const QVariantList& values, bool stopAtFailure,
                      const char* operation)
{
    const QStringList sql = statements(SqlDialect::current().engine(), section);
    if (sql.isEmpty())
        return false;
    bool ok = true;
    for (const QString& statement : sql) {
        StoreQuery q(operation);
        const bool done = statement.contains(QLatin1Char('?')) ? q.run(statement, values) : q.exec(statement);
        ok = done && ok;
        if (!done && stopAtFailure)
            return false;
    }
    return ok;
}

bool StoreSchema::fullTextReady()
{
    return g_fullTextReady;
}

bool StoreSchema::apply()
{
    QSqlDatabase db = LibraryConnection::database();
    if (!db.isOpen())
        return false;
    const bool server = SqlDialect::current().isServer();
    // On a server several machines may start at once; one sets the schema up at a time.
    if (server)
        run(QStringLiteral("lock"));
    applyTrackTables();
    run(QStringLiteral("track-params"));
    run(QStringLiteral("track-analysis"));
    run(QStringLiteral("as-run"), {}, false);
    if (server) {
        finishServer(db, g_fullTextReady);
        run(QStringLiteral("unlock"));
    }
    return true;
}

void StoreSchema::applyTrackTables()
{
    if (SqlDialect::current().isServer())
        g_fullTextReady = applyServerTrackTables(LibraryConnection::database());
    else
        applyEmbeddedTrackTables();
}

// The column and its values in one transaction: a migration that fails part-way leaves the column
// missing, so that the next start runs it again, instead of a column of empty names.
bool StoreSchema::addFilenameColumn()
{
    const QStringList fill = statements(SqlDialect::Engine::Embedded, QStringLiteral("fill-filenames"));
    if (fill.size() != 2)
        return false;
    StoreQuery rows("Adding file names to the tracks");
    StoreQuery update("Adding file names to the tracks");
    StoreTransaction migration("Adding file names to the tracks");
    if (!run(QStringLiteral("add-filename")) || !rows.exec(fill.at(0)) || !update.prepare(fill.at(1)))
        return false;
    while (rows.next()) {
        update.bind(QFileInfo(rows.value(1).toString()).fileName());
        update.bind(rows.value(0));
        if (!update.exec())
            return false;
    }
    return migration.commit();
}

void StoreSchema::applyEmbeddedTrackTables()
{
    run(QStringLiteral("journal"));
    run(QStringLiteral("tables"), {}, false);

    // Column migrations go by the columns actually present, never by the version number.
    const QStringList columns = trackColumns();
    const bool hadDurationStr = columns.contains(QStringLiteral("duration_str"));
    const bool hadFilename = columns.contains(QStringLiteral("filename"));
    // Each column step runs in one transaction: one that fails part-way is rolled back and, its
    // column still missing, runs again at the next start. The rest of the set-up (the index and the
    // version) then waits for that start too, so that the index is rebuilt over complete columns.
    bool migrated = true;
    if (!hadDurationStr) {
        StoreTransaction migration("Adding display lengths to the tracks");
        migrated = run(QStringLiteral("add-duration-str")) && migration.commit();
    }
    // A second probe: the three play columns count as one step, decided by play_count alone.
    if (!trackColumns().contains(QStringLiteral("play_count"))) {
        StoreTransaction migration("Adding play counts to the tracks");
        migrated =
            run(QStringLiteral("add-play-counts"), {QDateTime::currentDateTime().toString(Qt::ISODate)}) &&
            migration.commit() && migrated;
    }
    if (!hadFilename)
        migrated = addFilenameColumn() && migrated;
    if (!migrated) {
        qCWarning(lcLibrary) << "The library database was not brought up to date; the next start tries again";
        return;
    }

    const int version = embeddedVersion();
    if (version < kEmbeddedVersion)
        run(QStringLiteral("drop-old-index"), {}, false);
    g_fullTextReady = run(QStringLiteral("fts-index"));
    if (g_fullTextReady) {
        run(QStringLiteral("fts-triggers"), {}, false);
        if (version >= kEmbeddedVersion)
            return;
        run(QStringLiteral("fts-rebuild"));
    } else if (version >= kEmbeddedVersion) {
        return;
    }
    run(QStringLiteral("version"));
}

int StoreSchema::serverVersion(const QSqlDatabase& db)
{
    if (!serverTableExists(db, QStringLiteral("ondaro_schema")))
        return 0;
    StoreQuery q(db, "Reading the schema version");
    if (q.exec(QStringLiteral("SELECT max(version) FROM ondaro_schema")) && q.next())
        return q.value(0).toInt();
    return 0;
}

bool StoreSchema::applyServerTrackTables(const QSqlDatabase& db)
{
    // Every start of every studio would otherwise take the tables' locks for nothing.
    if (serverVersion(db) >= kServerVersion && serverHasSearchColumn(db))
        return true;
    bool ok = run(QStringLiteral("version-table"));
    ok = run(QStringLiteral("tables"), {}, false) && ok;
    const bool search = run(QStringLiteral("search"));
    return ok && search;
}

// After every table exists: each change of a store table notifies, and, when `complete` (every step
// succeeded), the version is recorded.
void StoreSchema::finishServer(const QSqlDatabase& db, bool complete)
{
    if (serverVersion(db) >= kServerVersion)
        return;
    run(QStringLiteral("notify"), {}, false);
    if (complete)
        run(QStringLiteral("version"));
}
