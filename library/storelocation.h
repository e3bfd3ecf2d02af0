#pragma once

#include <QString>

// Where the embedded database of this user lives.
class StoreLocation
{
public:
    // The folder of library.db: the configuration location, or "~/.ondaro" when that is empty.
    static QString databaseFolder(const QString& configLocation);
    // databaseFolder() of the configuration location plus "library.db"; the folder is created when
    // missing.
    static QString embeddedDatabaseFile();
};
