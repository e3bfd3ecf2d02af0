#pragma once

#include "folderlibrary.h"
#include "libraryquery.h"
#include "track.h"

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <QVariantList>

// The store. One object stands for one open library: a named set of rows in the shared database
// (database mode) or a folder read into memory (folder mode). The work is done by one class per
// concern (StoreSchema, LibraryCatalogue, TrackRows, TrackSearch, LegacyImport, FolderLibrary,
// AudioFiles); this class keeps the interface the rest of the program uses.
class MusicLibrary
{
public:
    // A search request; an empty member is no condition, non-empty members combine with AND.
    using Query = LibraryQuery;

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
    // Works on the stored library `name` as it is, without adding it to the set of libraries.
    void useStoredLibrary(const QString& name);
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

    // The library's name (a folder's path in folder mode); empty before one is set.
    const QString& name() const { return m_name; }
    bool folderMode() const { return m_folderMode; }
    // The tracks of a folder read into memory (folder mode only).
    const QList<Track>& tracks() const { return m_folder.tracks(); }

    // --- search --------------------------------------------------------------------------
    QList<Track> search(const QString& text) const;
    QList<Track> query(const Query& q) const;
    static void appendFtsTerms(QStringList& terms, const QString& column, const QString& text);
    // Adds "<expression> LIKE ?" (the embedded database's words) and "%value%" for a non-empty value.
    static void appendLikeCondition(QStringList& conditions, QVariantList& values, const QString& expression,
                                    const QString& value);

private:
    QString m_name;
    bool m_folderMode = false;
    FolderLibrary m_folder;
};
