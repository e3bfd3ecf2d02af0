#include "pgschema.h"

#include "storequery.h"

#include <QVariant>

const QString PgSchema::kChannel = QStringLiteral("ondaro_library");
const QStringList PgSchema::kTables = {QStringLiteral("libraries"), QStringLiteral("tracks"),
                                       QStringLiteral("track_params"), QStringLiteral("as_run"),
                                       QStringLiteral("track_analysis")};

namespace {

// Any number: every machine that sets the schema up takes this advisory lock first.
const QString kLockKey = QStringLiteral("736401");

// Latin letters with accents and their bare forms, so that "Motörhead" is found by "motor" as in the
// embedded index (upper case too, for servers whose lower() knows only ASCII).
const QString kAccented = QStringLiteral(
    "ÀÁÂÃÄÅÇÈÉÊËÌÍÎÏÑÒÓÔÕÖØÙÚÛÜÝàáâãäåçèéêëìíîïñòóôõöøùúûüýÿĀāĂăĄąĆćĈĉĊċČčĎďĐđĒēĔĕĖėĘęĚěĜĝĞğĠġĢģĤĥĦħĨĩĪīĬ"
    "ĭĮįİıĴĵĶķĹĺĻļĽľĿŀŁłŃńŅņŇňŌōŎŏŐőŔŕŖŗŘřŚśŜŝŞşŠšŢţŤťŦŧŨũŪūŬŭŮůŰűŲųŴŵŶŷŸŹźŻżŽž");
const QString kBare = QStringLiteral(
    "aaaaaaceeeeiiiinoooooouuuuyaaaaaaceeeeiiiinoooooouuuuyyaaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiii"
    "iiiiijjkkllllllllllnnnnnnoooooorrrrrrssssssssttttttuuuuuuuuuuuuwwyyyzzzzzz");

// The searched columns and the tag that marks a word as coming from that column. "!" never occurs in
// a word, so a tagged word never matches an untagged prefix.
struct SearchColumn {
    const char* name;
    const char* tag;
};
const SearchColumn kSearchColumns[] = {{"artist", "a!"}, {"title", "t!"},       {"album", "b!"},
                                       {"genre", "g!"},  {"comment", "c!"},     {"filename", "f!"},
                                       {"year", "y!"},   {"duration_str", "d!"}};

QString wordsFunction()
{
    return QStringLiteral(
               "CREATE OR REPLACE FUNCTION ondaro_search_words(value text) RETURNS text[] LANGUAGE sql "
               "IMMUTABLE PARALLEL SAFE AS $$ SELECT array_remove(regexp_split_to_array(translate(lower("
               "coalesce(value, '')), '%1', '%2'), '[^[:alnum:]]+'), '') $$")
        .arg(kAccented, kBare);
}

// Per column the folded words, separated by blanks, once as they are and once with the column's tag.
// One SQL expression, which the server inlines into the column: a PL/pgSQL function costs several
// times as much per row. Most tags are plain ASCII, so translate() with its long table runs only for
// the others.
QString documentFunction()
{
    const QString folded = QStringLiteral("regexp_replace(CASE WHEN octet_length(%1) = char_length(%1) THEN "
                                          "lower(%1) ELSE translate(lower(%1), "
                                          "'%2', '%3') END, '[^[:alnum:]]+', ' ', 'g')");
    QStringList parts;
    for (const SearchColumn& c : kSearchColumns) {
        const QString column =
            QStringLiteral("coalesce(%1, '')")
                .arg(QLatin1String(c.name) == QLatin1String("year") ? QStringLiteral("year::text")
                                                                    : QLatin1String(c.name));
        const QString words = folded.arg(column, kAccented, kBare);
        parts << words
              << QStringLiteral("regexp_replace(%1, '([[:alnum:]]+)', '%2\\1', 'g')")
                     .arg(words, QLatin1String(c.tag));
    }
    return QStringLiteral("CREATE OR REPLACE FUNCTION ondaro_search_document(artist text, title text, album "
                          "text, genre text, comment text, filename text, year integer, duration_str text) "
                          "RETURNS tsvector LANGUAGE sql IMMUTABLE PARALLEL SAFE AS $$ SELECT "
                          "array_to_tsvector(array_remove(string_to_array(%1, ' '), '')) $$")
        .arg(parts.join(QStringLiteral(" || ' ' || ")));
}

// The terms come space-separated, each "word" or "column:word": every term is a prefix match, the
// words of one term (split at characters that are not letters or digits) must all occur, and all terms
// must match. A term without words adds no condition; no condition at all matches nothing.
QString queryFunction()
{
    QStringList cases;
    for (const SearchColumn& c : kSearchColumns)
        cases << QStringLiteral("WHEN '%1' THEN '%2'").arg(QLatin1String(c.name), QLatin1String(c.tag));
    return QStringLiteral(
               "CREATE OR REPLACE FUNCTION ondaro_search_query(terms text) RETURNS tsquery LANGUAGE plpgsql "
               "IMMUTABLE PARALLEL SAFE AS $$ DECLARE term text; tag text; words text[]; phrase text; parts "
               "text[] := '{}'; BEGIN FOREACH term IN ARRAY string_to_array(terms, ' ') LOOP tag := ''; IF "
               "position(':' IN term) > 0 THEN tag := CASE split_part(term, ':', 1) %1 END; term := "
               "substr(term, position(':' IN term) + 1); END IF; IF tag IS NULL THEN RETURN NULL; END IF; "
               "words := ondaro_search_words(term); IF cardinality(words) = 0 THEN CONTINUE; END IF; SELECT "
               "string_agg('''' || tag || w || '''' || CASE WHEN o = cardinality(words) THEN ':*' ELSE '' "
               "END, ' & ' ORDER BY o) INTO phrase FROM unnest(words) WITH ORDINALITY u(w, o); parts := "
               "parts || ('(' || phrase || ')'); END LOOP; IF cardinality(parts) = 0 THEN RETURN NULL; END "
               "IF; RETURN array_to_string(parts, ' & ')::tsquery; END $$")
        .arg(cases.join(QLatin1Char(' ')));
}

QString searchColumnStatement()
{
    QStringList columns;
    for (const SearchColumn& c : kSearchColumns)
        columns << QLatin1String(c.name);
    return QStringLiteral(
               "ALTER TABLE tracks ADD COLUMN IF NOT EXISTS search_words tsvector GENERATED ALWAYS "
               "AS (ondaro_search_document(%1)) STORED")
        .arg(columns.join(QLatin1Char(',')));
}

const QString kNotifyFunction = QStringLiteral(
    "CREATE OR REPLACE FUNCTION ondaro_notify_change() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN "
    "PERFORM pg_notify('ondaro_library', TG_TABLE_NAME); RETURN NULL; END $$");

bool run(const QSqlDatabase& db, const QString& sql)
{
    StoreQuery q(db, "Setting up the database server");
    return q.exec(sql);
}

bool tableExists(const QSqlDatabase& db, const QString& table)
{
    StoreQuery q(db, "Looking for a table");
    return q.run(QStringLiteral("SELECT to_regclass(?) IS NOT NULL"), {table}) && q.next() &&
           q.value(0).toBool();
}

bool hasSearchColumn(const QSqlDatabase& db)
{
    StoreQuery q(db, "Looking for the search column");
    return q.exec(QStringLiteral("SELECT 1 FROM information_schema.columns WHERE table_schema = "
                                 "current_schema() AND table_name = 'tracks' AND column_name = "
                                 "'search_words'")) &&
           q.next();
}

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

int PgSchema::version(const QSqlDatabase& db)
{
    if (!tableExists(db, QStringLiteral("ondaro_schema")))
        return 0;
    StoreQuery q(db, "Reading the schema version");
    if (q.exec(QStringLiteral("SELECT max(version) FROM ondaro_schema")) && q.next())
        return q.value(0).toInt();
    return 0;
}

void PgSchema::lock(const QSqlDatabase& db)
{
    run(db, QStringLiteral("SELECT pg_advisory_lock(%1)").arg(kLockKey));
}

void PgSchema::unlock(const QSqlDatabase& db)
{
    run(db, QStringLiteral("SELECT pg_advisory_unlock(%1)").arg(kLockKey));
}

bool PgSchema::ensure(const QSqlDatabase& db)
{
    // Every start of every studio would otherwise take the tables' locks for nothing.
    if (version(db) >= kVersion && hasSearchColumn(db))
        return true;
    bool ok = run(db, QStringLiteral("CREATE TABLE IF NOT EXISTS ondaro_schema(version INTEGER NOT NULL)"));
    ok = run(db, QStringLiteral("CREATE TABLE IF NOT EXISTS libraries(name TEXT PRIMARY KEY)")) && ok;
    ok = run(db,
             QStringLiteral(
                 "CREATE TABLE IF NOT EXISTS tracks( id BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY, "
                 "library TEXT NOT NULL, filepath TEXT, filename TEXT DEFAULT '', artist TEXT, title TEXT, "
                 "album TEXT, genre TEXT, comment TEXT, year INTEGER DEFAULT 0, duration_ms BIGINT DEFAULT "
                 "0, duration_str TEXT DEFAULT '', play_count INTEGER DEFAULT 0, last_played TEXT DEFAULT "
                 "'', date_added TEXT DEFAULT '', category TEXT DEFAULT 'Foreign', is_stream INTEGER "
                 "DEFAULT 0, stream_limit_ms BIGINT DEFAULT 0)")) &&
         ok;
    ok = run(db, QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_lib ON tracks(library)")) && ok;
    ok = run(db, QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_artist ON tracks(library, artist)")) &&
         ok;
    ok = run(db, QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_title ON tracks(library, title)")) &&
         ok;
    // The listings' order (librarysql::serverOrderByArtistTitle), so that a whole library comes in
    // order from the index instead of through a sort that spills to disk.
    ok = run(db, QStringLiteral(
                     "CREATE INDEX IF NOT EXISTS idx_tracks_order ON tracks(library, lower(artist COLLATE "
                     "\"C\") NULLS FIRST, lower(title COLLATE \"C\") NULLS FIRST, id)")) &&
         ok;

    bool search = run(db, wordsFunction()) && run(db, documentFunction()) && run(db, queryFunction()) &&
                  run(db, searchColumnStatement()) &&
                  run(db, QStringLiteral("CREATE INDEX IF NOT EXISTS idx_tracks_search ON tracks USING "
                                         "gin(search_words)"));
    return ok && search;
}

void PgSchema::finish(const QSqlDatabase& db, bool complete)
{
    if (version(db) >= kVersion)
        return;
    run(db, kNotifyFunction);
    for (const QString& table : kTables) {
        if (!tableExists(db, table))
            continue;
        run(db, QStringLiteral("CREATE OR REPLACE TRIGGER %1_notify AFTER INSERT OR UPDATE OR DELETE OR "
                               "TRUNCATE ON %1 FOR EACH STATEMENT EXECUTE FUNCTION ondaro_notify_change()")
                    .arg(table));
    }
    if (!complete)
        return;
    run(db, QStringLiteral("DELETE FROM ondaro_schema"));
    run(db, QStringLiteral("INSERT INTO ondaro_schema(version) VALUES(%1)").arg(kVersion));
}

QString PgSchema::searchArgument(const QStringList& terms, bool* ok)
{
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
    if (ok)
        *ok = true;
    return parts.join(QLatin1Char(' '));
}
