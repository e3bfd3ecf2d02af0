#pragma once

#include <QString>
#include <QStringList>

// The rotation category of library entries (the tracks table's "category" column), as the scheduler
// reads it and the Library Manager sets it.
class TrackCategories
{
public:
    // Sets the category of every entry of `library` whose path is one of `filePaths` (every copy of a
    // path listed twice), in one transaction. The category is trimmed; an empty one changes nothing.
    // Returns the number of entries changed, 0 on failure (logged through lcLibrary).
    static int setCategory(const QString& library, const QStringList& filePaths, const QString& category);
    // The distinct categories of the entries of `library`, sorted ignoring case; empty categories are
    // left out. An empty list on failure (logged).
    static QStringList categoriesInUse(const QString& library);
};
