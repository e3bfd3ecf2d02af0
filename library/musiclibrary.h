#pragma once

#include "track.h"

#include <QList>
#include <QMetaType>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <QVariantList>

class SqlDialect;
class StoreQuery;

// The store. One object stands for one open library: a named set of rows in the shared database
// (database mode) or a folder read into memory (folder mode).
class MusicLibrary
{
public:
    // A search request; an empty member is no condition, non-empty members combine with AND.
    struct Query {
        QString text;
        QString artist;
        QString title;
        QString album;
        QString genre;
        QString comment;
        QString filename;
        QString year;
        QString duration;

        // No condition at all: the query lists the whole library.
        bool isEmpty() const
        {
            return text.isEmpty() && artist.isEmpty() && title.isEmpty() && album.isEmpty() &&
                   genre.isEmpty() && comment.isEmpty() && filename.isEmpty() && year.isEmpty() &&
                   duration.isEmpty();
        }
    };

    // --- database and schema -------------------------------------------------------------
    static QSqlDatabase database();
    // The folder of library.db: the configuration location, or "~/.ondaro" when that is empty.
    static QString databaseFolder(const QString& configLocation);
    // The embedded database file of this user: databaseFolder() of the configuration location plus
    // "library.db"; the folder is created when missing.
    static QString embeddedDatabaseFile();
    static void ensureSchema();
    static bool ftsAvailable();
    // Opens the database and, when it is open, sets up the schema, the track-parameter table and
    // imports legacy JSON libraries once. Returns whether the database is open.
    static bool initialize();
    // The same without the legacy import: the tables of the store, created and migrated.
    static bool setUpTables();
    // One-time import of the JSON libraries of the configuration location's "libraries" folder.
    static void importLegacyLibraries();
    // Test hook: forces the LIKE forms of search and query, as on an SQLite without FTS5.
    static void setFullTextSearchDisabledForTesting(bool disabled);

    // --- the set of libraries ------------------------------------------------------------
    static bool createLibrary(const QString& name);
    static bool deleteLibrary(const QString& name);
    static QStringList libraries();
    // Raises the play count of every row of the file and sets its last play; false when the store
    // could not be written (a file that is in no library is no failure).
    static bool recordPlay(const QString& filePath, const QDateTime& when);
    static bool isSupportedAudioFile(const QString& path);
    static const QStringList& supportedExtensions();
    static Track trackFromFile(const QString& path);
    // The stream test shared by the playlist and the library window: the trimmed text begins, ignoring
    // case, with "http://", "https://", "mms://", "rtsp://" or "rtmp://". Touches no database.
    static bool isStreamUrl(const QString& text);
    // The audio files of a folder (files before subfolders, sorted by name); touches no database.
    static QStringList audioFilesIn(const QString& dir, bool recursive);

    // --- one library ---------------------------------------------------------------------
    bool setLibrary(const QString& name);
    int loadFolder(const QString& path);
    void clear();
    int trackCount() const;
    qint64 totalDurationMs() const;
    void addTrack(const Track& t);
    int addFiles(const QStringList& paths);
    int addFolder(const QString& dir, bool recursive);
    void addStream(const QString& name, const QString& url);
    void updateStream(const QString& oldUrl, const QString& title, const QString& newUrl);
    int updateDuration(const QString& filePath, qint64 ms);
    int removeMissingFiles();
    // Paths of the file entries without a duration, in the order of the plain listing.
    QStringList filesWithoutDuration() const;
    // The same test over tracks already listed: files (not streams) with a path and no duration.
    static QStringList pathsWithoutDuration(const QList<Track>& tracks);

    // --- search --------------------------------------------------------------------------
    QList<Track> search(const QString& text) const;
    QList<Track> query(const Query& q) const;
    static void appendFtsTerms(QStringList& terms, const QString& column, const QString& text);
    // Adds "<expression> LIKE ?" (the embedded database's words) and "%value%" for a non-empty value.
    static void appendLikeCondition(QStringList& conditions, QVariantList& values, const QString& expression,
                                    const QString& value);

    QString name;
    bool folderMode = false;
    QList<Track> tracks; // folder mode only

private:
    QList<Track> filterInMemory(const Query& q) const;
    QList<Track> plainListing() const;
    // The full-text form for the terms of appendFtsTerms (not empty).
    QList<Track> fullTextListing(const QStringList& terms) const;
    static void appendContainsCondition(const SqlDialect& dialect, QStringList& conditions,
                                        QVariantList& values, const QString& expression, const QString& value);
    QList<Track> runListing(const QString& sql, const QVariantList& values) const;
    // False when a statement failed (logged).
    bool insertRows(StoreQuery& insert, const QList<Track>& rows) const;
    // Binds the 15 values of a new row, in the order of the insert statement.
    void bindRow(StoreQuery& insert, const Track& t) const;
};

Q_DECLARE_METATYPE(MusicLibrary::Query)
