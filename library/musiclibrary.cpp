#include "musiclibrary.h"

#include "audiofiles.h"
#include "legacyimport.h"
#include "librarycatalogue.h"
#include "libraryconnection.h"
#include "sqldialect.h"
#include "storelocation.h"
#include "storeschema.h"
#include "trackrows.h"
#include "tracksearch.h"
#include "tracktext.h"

#include <QFileInfo>

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
    return TrackSearch::fullTextEnabled();
}

void MusicLibrary::setFullTextSearchDisabledForTesting(bool disabled)
{
    TrackSearch::setFullTextDisabledForTesting(disabled);
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
    LegacyImport::importOnce();
}

// ---------------------------------------------------------------------------------------------
// The set of libraries and the files they take

bool MusicLibrary::createLibrary(const QString& name)
{
    return LibraryCatalogue::create(name);
}

bool MusicLibrary::deleteLibrary(const QString& name)
{
    return LibraryCatalogue::remove(name);
}

QStringList MusicLibrary::libraries()
{
    return LibraryCatalogue::names();
}

bool MusicLibrary::recordPlay(const QString& filePath, const QDateTime& when)
{
    return TrackRows::recordPlay(filePath, when);
}

const QStringList& MusicLibrary::supportedExtensions()
{
    return AudioFiles::supportedExtensions();
}

bool MusicLibrary::isSupportedAudioFile(const QString& path)
{
    return AudioFiles::isSupported(path);
}

bool MusicLibrary::isStreamUrl(const QString& text)
{
    return AudioFiles::isStreamUrl(text);
}

Track MusicLibrary::trackFromFile(const QString& path)
{
    return AudioFiles::trackFromFile(path);
}

QStringList MusicLibrary::audioFilesIn(const QString& dir, bool recursive)
{
    return AudioFiles::filesIn(dir, recursive);
}

// ---------------------------------------------------------------------------------------------
// One library

bool MusicLibrary::setLibrary(const QString& libraryName)
{
    useStoredLibrary(libraryName.trimmed());
    createLibrary(m_name);
    return true;
}

void MusicLibrary::useStoredLibrary(const QString& libraryName)
{
    m_folderMode = false;
    m_folder.clear();
    m_name = libraryName;
}

int MusicLibrary::loadFolder(const QString& path)
{
    m_folderMode = true;
    m_name = path;
    return m_folder.load(path);
}

void MusicLibrary::clear()
{
    if (m_folderMode)
        m_folder.clear();
    else
        TrackRows(m_name).clear();
}

int MusicLibrary::trackCount() const
{
    return m_folderMode ? int(m_folder.tracks().size()) : TrackRows(m_name).count();
}

qint64 MusicLibrary::totalDurationMs() const
{
    return m_folderMode ? m_folder.totalDurationMs() : TrackRows(m_name).totalDurationMs();
}

void MusicLibrary::addTrack(const Track& t)
{
    if (m_folderMode)
        m_folder.add(t);
    else
        TrackRows(m_name).add(t);
}

int MusicLibrary::addFiles(const QStringList& paths)
{
    const QList<Track> found = AudioFiles::readTracks(paths);
    if (m_folderMode) {
        m_folder.add(found);
        return int(found.size());
    }
    return TrackRows(m_name).addBatch(found);
}

int MusicLibrary::addFolder(const QString& dir, bool recursive)
{
    // One transaction per folder level; files of a folder come before those of its subfolders.
    int count = addFiles(AudioFiles::filesDirectlyIn(dir));
    if (recursive) {
        for (const QString& sub : AudioFiles::subfoldersOf(dir))
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
    if (!m_folderMode)
        TrackRows(m_name).updateStream(oldUrl, title, newUrl);
}

int MusicLibrary::updateDuration(const QString& filePath, qint64 ms)
{
    return m_folderMode ? m_folder.updateDuration(filePath, ms)
                        : TrackRows(m_name).updateDuration(filePath, ms);
}

int MusicLibrary::removeMissingFiles()
{
    if (m_folderMode)
        return m_folder.removeMissingFiles();
    QStringList missing;
    for (const Track& t : search(QString())) {
        if (!t.isStream && !t.filePath.isEmpty() && !QFileInfo::exists(t.filePath))
            missing << t.filePath;
    }
    // All of them or none: a clean-up that fails part-way is rolled back and removes nothing (0).
    return TrackRows(m_name).removeFiles(missing);
}

QStringList MusicLibrary::pathsWithoutDuration(const QList<Track>& listing)
{
    QStringList paths;
    for (const Track& t : listing) {
        if (TrackRows::lacksDuration(t.filePath, t.isStream, t.durationMs))
            paths << t.filePath;
    }
    return paths;
}

QStringList MusicLibrary::filesWithoutDuration() const
{
    if (m_folderMode)
        return pathsWithoutDuration(m_folder.tracks());
    return TrackRows(m_name).filesWithoutDuration();
}

// ---------------------------------------------------------------------------------------------
// Search

void MusicLibrary::appendFtsTerms(QStringList& terms, const QString& column, const QString& text)
{
    TrackSearch::appendFtsTerms(terms, column, text);
}

void MusicLibrary::appendLikeCondition(QStringList& conditions, QVariantList& values,
                                       const QString& expression, const QString& value)
{
    TrackSearch::appendContainsCondition(SqlDialect(SqlDialect::Engine::Embedded), conditions, values,
                                         expression, value);
}

QList<Track> MusicLibrary::search(const QString& text) const
{
    if (m_folderMode) {
        Query q;
        q.text = text;
        return m_folder.filter(q);
    }
    return TrackSearch(m_name).search(text);
}

QList<Track> MusicLibrary::query(const Query& q) const
{
    if (m_folderMode)
        return m_folder.filter(q);
    return TrackSearch(m_name).query(q);
}
