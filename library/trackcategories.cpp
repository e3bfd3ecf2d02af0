#include "trackcategories.h"

#include "storequery.h"
#include "storetransaction.h"

#include <QVariant>

#include <algorithm>

int TrackCategories::setCategory(const QString& library, const QStringList& filePaths,
                                 const QString& category)
{
    const QString trimmed = category.trimmed();
    if (trimmed.isEmpty() || filePaths.isEmpty())
        return 0;
    // All of the selection or none of it: a batch that fails part-way is rolled back and changes 0.
    // Made before the transaction, so that it ends after the rollback: a server cannot free a
    // statement inside a failed transaction.
    StoreQuery update("Setting a category");
    StoreTransaction batch("Setting a category");
    if (!batch.isActive())
        return 0;
    if (!update.prepare(QStringLiteral("UPDATE tracks SET category=? WHERE library=? AND filepath=?")))
        return 0;
    // A path selected twice is updated once.
    QStringList paths = filePaths;
    paths.removeDuplicates();
    int changed = 0;
    for (const QString& path : paths) {
        update.bind(trimmed);
        update.bind(library);
        update.bind(path);
        if (!update.exec())
            return 0;
        changed += qMax(update.numRowsAffected(), 0);
    }
    return batch.commit() ? changed : 0;
}

QStringList TrackCategories::categoriesInUse(const QString& library)
{
    QStringList categories;
    StoreQuery q("Listing the categories");
    if (!q.run(QStringLiteral("SELECT DISTINCT category FROM tracks WHERE library=?"), {library}))
        return categories;
    while (q.next()) {
        const QString category = q.value(0).toString();
        if (!category.trimmed().isEmpty())
            categories << category;
    }
    // Sorted here rather than in SQL, so that every database orders them the same way.
    std::sort(categories.begin(), categories.end(), [](const QString& a, const QString& b) {
        const int c = a.compare(b, Qt::CaseInsensitive);
        return c != 0 ? c < 0 : a < b;
    });
    return categories;
}
