#include "sqldialect.h"

#include "libraryconnection.h"
#include "librarylogging.h"
#include "librarysql.h"

#include <QSqlDriver>

namespace {

// The columns a query's free text looks in, in the order of its condition.
const QStringList kQueryTextColumns = {QStringLiteral("artist"),
                                       QStringLiteral("title"),
                                       QStringLiteral("album"),
                                       QStringLiteral("genre"),
                                       QStringLiteral("comment"),
                                       QStringLiteral("filename"),
                                       QStringLiteral("CAST(year AS TEXT)"),
                                       QStringLiteral("duration_str")};
// A search looks in the whole path instead of the file name.
const QStringList kSearchColumns = {QStringLiteral("artist"),
                                    QStringLiteral("title"),
                                    QStringLiteral("album"),
                                    QStringLiteral("genre"),
                                    QStringLiteral("comment"),
                                    QStringLiteral("filepath"),
                                    QStringLiteral("CAST(year AS TEXT)"),
                                    QStringLiteral("duration_str")};

// "(a ILIKE ? OR b ILIKE ? ...)": PostgreSQL's LIKE heeds case, its ILIKE does what SQLite's LIKE does.
QString serverAnyContains(const QStringList& columns)
{
    QStringList parts;
    for (const QString& c : columns)
        parts << c + QStringLiteral(" ILIKE ?");
    return QLatin1Char('(') + parts.join(QStringLiteral(" OR ")) + QLatin1Char(')');
}

const QString kServerSelectTracks =
    QStringLiteral("SELECT ") + librarysql::serverColumns + QStringLiteral(" FROM tracks");

const QString kInsertTrackColumns = QStringLiteral(
    "INSERT INTO tracks(library,filepath,filename,artist,title,album,genre,comment,year,duration_ms,"
    "duration_str,category,is_stream,stream_limit_ms,date_added) VALUES");
const QString kTrackValues = QStringLiteral("(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");

// Rows per INSERT statement on a server (15 values each).
constexpr int kRowsPerServerInsert = 50;

// Bytes FTS5 reads as part of a bareword: ASCII letters, digits, "_", 0x1A and anything beyond ASCII.
bool isBareword(const QString& word)
{
    for (const QChar c : word) {
        const char16_t u = c.unicode();
        if (u >= 0x80 || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z') || (u >= '0' && u <= '9') ||
            u == '_' || u == 0x1A)
            continue;
        return false;
    }
    return !word.isEmpty();
}

} // namespace

const QList<SqlDialect::Statement> SqlDialect::kStatements = {
    Statement::InsertLibrary,       Statement::ListLibraries, Statement::PlainListing,
    Statement::FullTextListing,     Statement::LikeSearch,    Statement::LikeQueryText,
    Statement::FilesWithoutDuration};

SqlDialect::SqlDialect(Engine engine) : m_engine(engine) {}

SqlDialect SqlDialect::current()
{
    return SqlDialect(LibraryConnection::isServer() ? Engine::Server : Engine::Embedded);
}

SqlDialect SqlDialect::of(const QSqlDatabase& db)
{
    const bool server = db.driver() && db.driver()->dbmsType() == QSqlDriver::PostgreSQL;
    return SqlDialect(server ? Engine::Server : Engine::Embedded);
}

// No default: a statement added to the enum without its forms is a compiler warning (-Wswitch), and
// one left without a server form is an error in the log at its first use (and in tst_sqldialect).
SqlDialect::Forms SqlDialect::forms(Statement s)
{
    switch (s) {
    case Statement::InsertLibrary:
        return {QStringLiteral("INSERT OR IGNORE INTO libraries(name) VALUES(?)"),
                QStringLiteral("INSERT INTO libraries(name) VALUES(?) ON CONFLICT DO NOTHING")};
    case Statement::ListLibraries:
        // lower() of a "C"-collated text folds ASCII letters only, as NOCASE does; ties by name.
        return {QStringLiteral("SELECT name FROM libraries ORDER BY name COLLATE NOCASE"),
                QStringLiteral("SELECT name FROM libraries ORDER BY lower(name COLLATE \"C\"), name")};
    case Statement::PlainListing:
        return {librarysql::plainListing, kServerSelectTracks + QStringLiteral(" WHERE library=?") +
                                              librarysql::serverOrderByArtistTitle};
    case Statement::FullTextListing:
        return {librarysql::ftsListing,
                kServerSelectTracks +
                    QStringLiteral(" WHERE library=? AND search_words @@ ondaro_search_query(?)") +
                    librarysql::serverOrderByArtistTitle};
    case Statement::LikeSearch:
        return {librarysql::likeSearch, kServerSelectTracks + QStringLiteral(" WHERE library=? AND ") +
                                            serverAnyContains(kSearchColumns) +
                                            librarysql::serverOrderByArtistTitle};
    case Statement::LikeQueryText:
        return {librarysql::likeQueryText, serverAnyContains(kQueryTextColumns)};
    case Statement::FilesWithoutDuration: {
        const QString select =
            QStringLiteral("SELECT filepath, is_stream, duration_ms FROM tracks WHERE library=?");
        return {select + librarysql::orderByArtistTitle, select + librarysql::serverOrderByArtistTitle};
    }
    }
    return {};
}

QString SqlDialect::statement(Statement s) const
{
    const Forms f = forms(s);
    const QString& text = isServer() ? f.server : f.embedded;
    if (text.isEmpty())
        qCCritical(lcLibrary) << "A store statement has no form for"
                              << (isServer() ? "the database server" : "the embedded database") << "("
                              << static_cast<int>(s) << "); it is not run";
    return text;
}

QString SqlDialect::trackColumns() const
{
    return isServer() ? librarysql::serverColumns : QStringLiteral("*");
}

QString SqlDialect::selectTracks() const
{
    return isServer() ? kServerSelectTracks : QStringLiteral("SELECT * FROM tracks");
}

QString SqlDialect::orderByArtistTitle() const
{
    return isServer() ? librarysql::serverOrderByArtistTitle : librarysql::orderByArtistTitle;
}

QString SqlDialect::containsCondition(const QString& expression) const
{
    return expression + (isServer() ? QStringLiteral(" ILIKE ?") : QStringLiteral(" LIKE ?"));
}

QString SqlDialect::insertTracks(int rows) const
{
    if (rows < 1)
        rows = 1;
    QStringList values;
    for (int i = 0; i < rows; ++i)
        values << kTrackValues;
    return kInsertTrackColumns + values.join(QLatin1Char(','));
}

int SqlDialect::rowsPerTrackInsert() const
{
    return isServer() ? kRowsPerServerInsert : 1;
}

QString SqlDialect::columnsOfTable(const QString& table) const
{
    if (isServer())
        return QStringLiteral("SELECT column_name FROM information_schema.columns WHERE table_schema = "
                              "current_schema() AND table_name = '%1' AND is_generated = 'NEVER' ORDER BY "
                              "ordinal_position")
            .arg(table);
    return QStringLiteral("PRAGMA table_info(%1)").arg(table);
}

int SqlDialect::columnNameField() const
{
    return isServer() ? 0 : 1;
}

QString SqlDialect::identityAfterCopy(const QString& table) const
{
    // SQLite's AUTOINCREMENT follows the largest id inserted, given or not.
    if (!isServer())
        return QString();
    return QStringLiteral(
               "SELECT setval(pg_get_serial_sequence('%1', 'id'), COALESCE(MAX(id), 0) + 1, false) FROM %1")
        .arg(table);
}

QString SqlDialect::fullTextArgument(const QStringList& terms, bool* ok) const
{
    if (ok)
        *ok = true;
    if (!isServer())
        return terms.join(QLatin1Char(' '));
    static const QStringList keywords = {QStringLiteral("AND"), QStringLiteral("OR"), QStringLiteral("NOT")};
    QStringList parts;
    for (QString term : terms) {
        if (term.endsWith(QLatin1Char('*')))
            term.chop(1);
        const int colon = term.indexOf(QLatin1Char(':'));
        const QString word = colon < 0 ? term : term.mid(colon + 1);
        // The embedded index reads these as syntax and fails the whole search.
        if (!isBareword(word) || keywords.contains(word)) {
            if (ok)
                *ok = false;
            return QString();
        }
        parts << term;
    }
    return parts.join(QLatin1Char(' '));
}
