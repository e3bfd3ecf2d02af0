#pragma once

#include <QList>
#include <QPair>
#include <QSqlDatabase>
#include <QString>

#include <functional>

// Copies the store's tables (libraries, tracks, track parameters, as-run log, analyses) from one
// database into another, embedded or server, in one transaction on the target: either every row
// arrives or none does. Rows keep their ids. The target must already have the store's tables and hold
// no row in any of them; the columns copied are those both sides have.
class DatabaseCopy
{
public:
    struct Result {
        bool ok = false;
        QString message;                          // why it failed; empty on success
        QList<QPair<QString, qint64>> rowsCopied; // per table, in copy order
        QString summary() const;                  // "libraries 2, tracks 120, ..."
    };
    // Called every few hundred rows and at the end of each table.
    using Progress = std::function<void(const QString& table, qint64 done, qint64 total)>;

    static Result copy(const QSqlDatabase& from, const QSqlDatabase& to, const Progress& progress = {});
    // The first store table of `db` that holds rows, with its row count; an empty name when none does.
    static QPair<QString, qint64> firstNonEmptyTable(const QSqlDatabase& db);
    static QStringList columnsOf(const QSqlDatabase& db, const QString& table);
};
