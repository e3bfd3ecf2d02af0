#include "teststore.h"

#include "musiclibrary.h"

#include <QFile>
#include <QSqlDatabase>
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

void closeStore()
{
    if (!QSqlDatabase::contains(storeConnection()))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(storeConnection(), false);
        db.close();
    }
    QSqlDatabase::removeDatabase(storeConnection());
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

} // namespace ondarotest
