#include "storelocation.h"

#include <QDir>
#include <QStandardPaths>

QString StoreLocation::databaseFolder(const QString& configLocation)
{
    if (!configLocation.isEmpty())
        return configLocation;
    return QDir::homePath() + QStringLiteral("/.ondaro");
}

QString StoreLocation::embeddedDatabaseFile()
{
    const QString folder =
        databaseFolder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation));
    QDir().mkpath(folder);
    return folder + QStringLiteral("/library.db");
}
