#pragma once

#include "libraryquery.h"
#include "track.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>

class SqlDialect;

// Listings of one named library in the store: the whole library, a free-text search and a query by
// columns, through the full-text index when there is one and through LIKE otherwise. Every listing
// orders by artist, then title, ignoring case.
class TrackSearch
{
public:
    explicit TrackSearch(const QString& library);

    QList<Track> search(const QString& text) const;
    QList<Track> query(const LibraryQuery& q) const;
    QList<Track> plainListing() const;

    // Whether the listings use the full-text index: it is ready and not switched off for a test.
    static bool fullTextEnabled();
    static void setFullTextDisabledForTesting(bool disabled);

    // The full-text terms of `text`: each word a prefix, tagged with `column` when one is given.
    static void appendFtsTerms(QStringList& terms, const QString& column, const QString& text);
    // "<expression> LIKE ?" in the words of `dialect` and "%value%", for a non-empty value.
    static void appendContainsCondition(const SqlDialect& dialect, QStringList& conditions,
                                        QVariantList& values, const QString& expression,
                                        const QString& value);

private:
    // The full-text form for the terms of appendFtsTerms (not empty).
    QList<Track> fullTextListing(const QStringList& terms) const;
    QList<Track> runListing(const QString& sql, const QVariantList& values) const;

    QString m_library;
};
