#pragma once

#include <QString>

// The listing statements of the store in the embedded database's words, and the pieces of their
// server forms; SqlDialect hands them out (the benchmark asks it too, so that it times exactly what
// search() and query() run). Every form orders by artist, then title, ignoring case.
namespace librarysql {

inline const QString orderByArtistTitle =
    QStringLiteral(" ORDER BY artist COLLATE NOCASE, title COLLATE NOCASE");

// The whole library.
inline const QString plainListing =
    QStringLiteral("SELECT * FROM tracks WHERE library=?") + orderByArtistTitle;

// Full-text form: bind the library, then the MATCH expression.
inline const QString ftsListing = QStringLiteral(
    "SELECT t.* FROM tracks t WHERE t.library=? AND t.id IN (SELECT rowid FROM tracks_fts WHERE tracks_fts "
    "MATCH ?) ORDER BY t.artist COLLATE NOCASE, t.title COLLATE NOCASE");

// LIKE form of a free-text search: bind the library, then "%text%" eight times. It looks in the whole
// path ("filepath"), while the free text of a query looks in the file name only.
inline const QString likeSearch =
    QStringLiteral(
        "SELECT * FROM tracks WHERE library=? AND (artist LIKE ? OR title LIKE ? OR album LIKE ? OR "
        "genre LIKE ? OR comment LIKE ? OR filepath LIKE ? OR CAST(year AS TEXT) LIKE ? OR "
        "duration_str LIKE ?)") +
    orderByArtistTitle;

// Free-text condition of a query's LIKE form, one "%text%" per column.
inline const QString likeQueryText =
    QStringLiteral("(artist LIKE ? OR title LIKE ? OR album LIKE ? OR genre LIKE ? OR comment LIKE ? OR "
                   "filename LIKE ? OR CAST(year AS TEXT) LIKE ? OR duration_str LIKE ?)");

// Pieces of the same listings on a PostgreSQL server, from which SqlDialect builds them. The columns
// are named, so that the search column (a tsvector) is not sent along. lower() of a "C"-collated text folds ASCII letters only and compares
// code points, exactly as SQLite's NOCASE does; SQLite puts NULL first; ties keep insertion order.
inline const QString serverColumns = QStringLiteral(
    "id, library, filepath, filename, artist, title, album, genre, comment, year, duration_ms, duration_str, "
    "play_count, last_played, date_added, category, is_stream, stream_limit_ms");

inline const QString serverOrderByArtistTitle = QStringLiteral(
    " ORDER BY lower(artist COLLATE \"C\") NULLS FIRST, lower(title COLLATE \"C\") NULLS FIRST, id");

} // namespace librarysql
