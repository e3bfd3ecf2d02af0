#pragma once

#include <QString>
#include <QStringList>

// The set of named libraries in the store.
class LibraryCatalogue
{
public:
    // Adds the trimmed name (an existing one is no error); false for an empty name or a failed write.
    static bool create(const QString& name);
    // Removes the library and every one of its tracks.
    static bool remove(const QString& name);
    // The names, ignoring case.
    static QStringList names();
};
