#include "trackcategories.h"

#include "librarylogging.h"
#include "musiclibrary.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <algorithm>

namespace {

// Begins a transaction on the shared connection and commits it when it goes out of scope.
class ScopedTransaction
{
public:
    explicit ScopedTransaction(QSqlDatabase db) : m_db(std::move(db))
    {
        if (!m_db.transaction())
            qCWarning(lcLibrary) << "categories: cannot begin a transaction:" << m_db.lastError().text();
    }
    ~ScopedTransaction()
    {
        if (!m_db.commit())
            qCWarning(lcLibrary) << "categories: cannot commit:" << m_db.lastError().text();
    }
    ScopedTransaction(const ScopedTransaction&) = delete;
    ScopedTransaction& operator=(const ScopedTransaction&) = delete;

private:
    QSqlDatabase m_db;
};

} // namespace

int TrackCategories::setCategory(const QString& library, const QStringList& filePaths,
                                 const QString& category)
{
    const QString trimmed = category.trimmed();
    if (trimmed.isEmpty() || filePaths.isEmpty())
        return 0;
    QSqlDatabase db = MusicLibrary::database();
    if (!db.isOpen()) {
        qCWarning(lcLibrary) << "categories: the database is not open; nothing set";
        return 0;
    }
    int changed = 0;
    ScopedTransaction transaction(db);
    QSqlQuery update(db);
    if (!update.prepare(QStringLiteral("UPDATE tracks SET category=? WHERE library=? AND filepath=?"))) {
        qCWarning(lcLibrary) << "categories: cannot prepare the update:" << update.lastError().text();
        return 0;
    }
    // A path selected twice is updated once.
    QStringList paths = filePaths;
    paths.removeDuplicates();
    for (const QString& path : paths) {
        update.addBindValue(trimmed);
        update.addBindValue(library.isNull() ? QStringLiteral("") : library); // a null text binds as NULL
        update.addBindValue(path);
        if (!update.exec()) {
            qCWarning(lcLibrary) << "categories: setting" << path << "failed:" << update.lastError().text();
            continue;
        }
        changed += qMax(update.numRowsAffected(), 0);
    }
    return changed;
}

QStringList TrackCategories::categoriesInUse(const QString& library)
{
    QStringList categories;
    QSqlQuery q(MusicLibrary::database());
    if (!q.prepare(QStringLiteral("SELECT DISTINCT category FROM tracks WHERE library=?"))) {
        qCWarning(lcLibrary) << "categories: cannot prepare the listing:" << q.lastError().text();
        return categories;
    }
    q.addBindValue(library.isNull() ? QStringLiteral("") : library);
    if (!q.exec()) {
        qCWarning(lcLibrary) << "categories: listing failed:" << q.lastError().text();
        return categories;
    }
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
