#pragma once

#include "asrunentry.h"

#include <QList>
#include <QString>

// The store's shared connection in tests: closed, its files removed, and set up again empty.
namespace ondarotest {

// The name of the store's one shared connection.
QString storeConnection(); // "od_library"

// The embedded database file of the current locations (AppConfigLocation + "/library.db").
QString storeFile();

// Closes a connection by name and forgets it.
void closeConnection(const QString& name);

// Closes the shared connection and forgets it; the next MusicLibrary::database() opens it anew.
void closeStore();

// Removes an SQLite database file with its journal and write-ahead files.
void removeDatabaseFiles(const QString& file);

// Closes the store, removes its embedded database and sets the store up again on an empty one.
// Returns whether it is open.
bool freshStore();

// The play count the store holds for a file; -1 when it holds no such file or cannot be read.
int playCount(const QString& path);

// Every as-run row the store holds, oldest first.
QList<AsRunEntry> allAsRunRows();

} // namespace ondarotest
