#include "sessionfiles.h"

#include "playlistfile.h"
#include "studiologging.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cmath>

namespace {

const QString playlistName = QStringLiteral("session.m3u");
const QString positionName = QStringLiteral("session.json");
const QString unreadableSuffix = QStringLiteral(".unreadable");

// The side file belongs to the rows it was written with; a crash between the two writes leaves a
// side file of the list before, which is then not applied.
QJsonObject positionObject(int rows, int currentRow, const QList<int>& queue, const QList<int>& played,
                           const QList<QPair<int, PlaylistModel::MixOverride>>& overrides)
{
    QJsonArray queueArray;
    for (int row : queue)
        queueArray.append(row);
    QJsonArray playedArray;
    for (int row : played)
        playedArray.append(row);
    QJsonArray overrideArray;
    for (const auto& [row, value] : overrides)
        overrideArray.append(QJsonArray{row, value.first, value.second});
    return QJsonObject{{QStringLiteral("rows"), rows},
                       {QStringLiteral("currentRow"), currentRow},
                       {QStringLiteral("queue"), queueArray},
                       {QStringLiteral("played"), playedArray},
                       {QStringLiteral("mixOverrides"), overrideArray}};
}

// Whole numbers in 0..rows-1 of a JSON array, each once, in their order; false when any is not.
bool readRows(const QJsonValue& value, int rows, QList<int>& out)
{
    if (!value.isArray())
        return false;
    for (const QJsonValue& entry : value.toArray()) {
        const double number = entry.toDouble(-1.0);
        if (!entry.isDouble() || !(number >= 0.0 && number < rows) || number != std::floor(number))
            return false;
        const int row = int(number);
        if (out.contains(row))
            return false;
        out.append(row);
    }
    return true;
}

// What the log is told when a session is not restored in full.
const QString keptAside = QStringLiteral("%1 (the file was kept as %2)");
const QString anotherList = QStringLiteral("it was written for another list");
const QString outOfRange = QStringLiteral("its rows are out of range");

// The position of a list of `rows` rows from the side file's object; false when any part is wrong.
bool readPosition(const QJsonObject& position, int rows, SessionFiles::Saved& saved)
{
    const int current = position.value(QStringLiteral("currentRow")).toInt(-2);
    bool fine = current >= -1 && current < rows;
    fine = fine && readRows(position.value(QStringLiteral("queue")), rows, saved.queue);
    fine = fine && readRows(position.value(QStringLiteral("played")), rows, saved.played);
    const QJsonValue overrides = position.value(QStringLiteral("mixOverrides"));
    fine = fine && overrides.isArray();
    for (const QJsonValue& entry : overrides.toArray()) {
        const QJsonArray triple = entry.toArray();
        const int row = triple.at(0).toInt(-1);
        fine = fine && triple.size() == 3 && row >= 0 && row < rows;
        saved.mixOverrides.append({row, {triple.at(1).toInt(-1), triple.at(2).toInt(-1)}});
    }
    if (fine)
        saved.currentRow = current;
    return fine;
}

} // namespace

SessionFiles::SessionFiles(const QString& folder) : m_folder(folder) {}

QString SessionFiles::playlistPath() const
{
    return QDir(m_folder).filePath(playlistName);
}

QString SessionFiles::positionPath() const
{
    return QDir(m_folder).filePath(positionName);
}

QString SessionFiles::unreadablePath() const
{
    return playlistPath() + unreadableSuffix;
}

bool SessionFiles::write(const Snapshot& snapshot, QString* error) const
{
    if (!QDir().mkpath(m_folder)) {
        *error = QStringLiteral("Cannot create %1").arg(QDir::toNativeSeparators(m_folder));
        return false;
    }
    // The rows first: a side file always describes rows that are already on disk.
    if (!PlaylistFile::write(playlistPath(), snapshot.tracks, error))
        return false;
    const int rows = int(snapshot.tracks.size());
    // The queue and played rows only name rows that exist.
    QList<int> queue;
    for (int row : snapshot.queue)
        if (row >= 0 && row < rows && !queue.contains(row))
            queue.append(row);
    QList<int> played;
    for (int row : snapshot.played)
        if (row >= 0 && row < rows)
            played.append(row);
    const int current = snapshot.currentRow >= 0 && snapshot.currentRow < rows ? snapshot.currentRow : -1;
    const QByteArray json = QJsonDocument(positionObject(rows, current, queue, played, snapshot.mixOverrides))
                                .toJson(QJsonDocument::Compact);
    QSaveFile file(positionPath());
    if (!file.open(QIODevice::WriteOnly) || file.write(json) != json.size() || !file.commit()) {
        *error = QStringLiteral("Cannot write %1: %2")
                     .arg(QDir::toNativeSeparators(file.fileName()), file.errorString());
        return false;
    }
    return true;
}

SessionFiles::Saved SessionFiles::read() const
{
    Saved saved;
    if (!QFile::exists(playlistPath()))
        return saved;
    saved.found = true;
    PlaylistFile::ReadResult read = PlaylistFile::read(playlistPath());
    if (!read.ok) {
        // Kept for a look by hand; the next write would otherwise replace it.
        const QString aside = unreadablePath();
        QFile::remove(aside);
        const bool moved = QFile::rename(playlistPath(), aside);
        saved.error = moved ? keptAside.arg(read.error, QDir::toNativeSeparators(aside)) : read.error;
        qCWarning(lcStudio).noquote()
            << "session playlist" << playlistPath() << "not restored:" << read.error;
        return saved;
    }
    saved.tracks = std::move(read.tracks);
    saved.missingFiles = std::move(read.missingFiles);
    saved.skipped = std::move(read.skipped);

    QFile file(positionPath());
    if (!file.exists())
        return saved;
    QJsonParseError parseError;
    const QJsonDocument document = file.open(QIODevice::ReadOnly)
                                       ? QJsonDocument::fromJson(file.readAll(), &parseError)
                                       : QJsonDocument();
    const QJsonObject position = document.object();
    const int rows = int(saved.tracks.size());
    if (!file.isOpen())
        saved.positionProblem = file.errorString();
    else if (!document.isObject())
        saved.positionProblem = parseError.errorString();
    else if (position.value(QStringLiteral("rows")).toInt(-1) != rows)
        saved.positionProblem = anotherList;
    else if (readPosition(position, rows, saved))
        saved.positionKnown = true;
    else
        saved.positionProblem = outOfRange;
    if (!saved.positionKnown) {
        saved.queue.clear();
        saved.played.clear();
        saved.mixOverrides.clear();
        saved.currentRow = -1;
        qCWarning(lcStudio).noquote()
            << "session position" << positionPath() << "not used:" << saved.positionProblem;
    }
    return saved;
}
