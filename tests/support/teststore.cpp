#include "teststore.h"

#include "asrunlog.h"
#include "musiclibrary.h"

#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>

namespace ondarotest {

QString storeConnection()
{
    return QStringLiteral("od_library");
}

QString storeFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
           QStringLiteral("/library.db");
}

void closeConnection(const QString& name)
{
    if (!QSqlDatabase::contains(name))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(name, false);
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
}

void closeStore()
{
    closeConnection(storeConnection());
}

void removeDatabaseFiles(const QString& file)
{
    for (const char* suffix : {"", "-wal", "-shm", "-journal"})
        QFile::remove(file + QLatin1String(suffix));
}

bool freshStore()
{
    closeStore();
    removeDatabaseFiles(storeFile());
    return MusicLibrary::initialize();
}

int playCount(const QString& path)
{
    QSqlQuery q(MusicLibrary::database());
    q.prepare(QStringLiteral("SELECT play_count FROM tracks WHERE filepath=?"));
    q.addBindValue(path);
    return q.exec() && q.next() ? q.value(0).toInt() : -1;
}

QList<AsRunEntry> allAsRunRows()
{
    // Wider than any row a test writes.
    return AsRunLog::entriesBetween(QDateTime(QDate(2000, 1, 1), QTime(0, 0)),
                                    QDateTime(QDate(2100, 1, 1), QTime(0, 0)));
}

} // namespace ondarotest
