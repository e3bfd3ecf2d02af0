#include "librarycatalogue.h"

#include "sqldialect.h"
#include "storequery.h"

bool LibraryCatalogue::create(const QString& name)
{
    const QString trimmed = name.trimmed();
    if (trimmed.isEmpty())
        return false;
    StoreQuery q("Creating a library");
    return q.run(SqlDialect::current().statement(SqlDialect::Statement::InsertLibrary), {trimmed});
}

bool LibraryCatalogue::remove(const QString& name)
{
    StoreQuery tracks("Deleting a library's tracks");
    tracks.run(QStringLiteral("DELETE FROM tracks WHERE library=?"), {name});
    StoreQuery library("Deleting a library");
    return library.run(QStringLiteral("DELETE FROM libraries WHERE name=?"), {name});
}

QStringList LibraryCatalogue::names()
{
    QStringList names;
    StoreQuery q("Listing the libraries");
    if (!q.exec(SqlDialect::current().statement(SqlDialect::Statement::ListLibraries)))
        return names;
    while (q.next())
        names << q.value(0).toString();
    return names;
}
