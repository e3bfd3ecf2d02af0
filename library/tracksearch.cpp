#include "tracksearch.h"

#include "directquery.h"
#include "libraryconnection.h"
#include "librarylogging.h"
#include "sqldialect.h"
#include "storequery.h"
#include "storeschema.h"
#include "trackrowreader.h"

#include <QRegularExpression>
#include <QSqlRecord>

namespace {

bool g_fullTextDisabledForTesting = false;

// The values as StoreQuery binds them, for the direct reads.
QVariantList bindable(QVariantList values)
{
    for (QVariant& v : values)
        v = StoreQuery::bindable(v);
    return values;
}

} // namespace

TrackSearch::TrackSearch(const QString& library) : m_library(library) {}

bool TrackSearch::fullTextEnabled()
{
    return StoreSchema::fullTextReady() && !g_fullTextDisabledForTesting;
}

void TrackSearch::setFullTextDisabledForTesting(bool disabled)
{
    g_fullTextDisabledForTesting = disabled;
}

void TrackSearch::appendFtsTerms(QStringList& terms, const QString& column, const QString& text)
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

void TrackSearch::appendContainsCondition(const SqlDialect& dialect, QStringList& conditions,
                                          QVariantList& values, const QString& expression,
                                          const QString& value)
{
    if (value.isEmpty())
        return;
    conditions << dialect.containsCondition(expression);
    values << QString(QLatin1Char('%') + value + QLatin1Char('%'));
}

QList<Track> TrackSearch::runListing(const QString& sql, const QVariantList& values) const
{
    QList<Track> result;
    if (sql.isEmpty())
        return result; // no form for this engine (logged by SqlDialect)
    // Column names are resolved once per result set; 100,000 rows must list in well under a second.
    DirectQuery direct(LibraryConnection::database());
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

QList<Track> TrackSearch::plainListing() const
{
    return runListing(SqlDialect::current().statement(SqlDialect::Statement::PlainListing), {m_library});
}

QList<Track> TrackSearch::fullTextListing(const QStringList& terms) const
{
    const SqlDialect dialect = SqlDialect::current();
    bool ok = false;
    const QString argument = dialect.fullTextArgument(terms, &ok);
    if (!ok) {
        // The embedded index fails on such a term and the search finds nothing; so here too.
        qCInfo(lcLibrary).noquote() << "Search terms not understood:" << terms.join(QLatin1Char(' '));
        return {};
    }
    return runListing(dialect.statement(SqlDialect::Statement::FullTextListing), {m_library, argument});
}

QList<Track> TrackSearch::search(const QString& text) const
{
    const QString t = text.trimmed();
    if (t.isEmpty())
        return plainListing();
    if (!fullTextEnabled()) {
        const QString like = QLatin1Char('%') + t + QLatin1Char('%');
        return runListing(SqlDialect::current().statement(SqlDialect::Statement::LikeSearch),
                          {m_library, like, like, like, like, like, like, like, like});
    }
    QStringList terms;
    appendFtsTerms(terms, QString(), t);
    if (terms.isEmpty())
        return plainListing();
    return fullTextListing(terms);
}

QList<Track> TrackSearch::query(const LibraryQuery& q) const
{
    if (q.isEmpty())
        return plainListing();
    if (fullTextEnabled()) {
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
            return plainListing();
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
    values.prepend(m_library);
    return runListing(dialect.selectTracks() + QStringLiteral(" WHERE library=? AND ") +
                          conditions.join(QStringLiteral(" AND ")) + dialect.orderByArtistTitle(),
                      values);
}
