#include "databasecopy.h"

#include "pgschema.h"
#include "sqldialect.h"
#include "storequery.h"
#include "storetransaction.h"

#include <QSqlDriver>
#include <QSqlError>
#include <QStringList>
#include <QVariant>

namespace {

constexpr qint64 kProgressEvery = 500;

qint64 rowCount(const QSqlDatabase& db, const QString& table)
{
    StoreQuery q(db, "Counting the rows of a table");
    if (q.exec(QStringLiteral("SELECT COUNT(*) FROM %1").arg(table)) && q.next())
        return q.value(0).toLongLong();
    return -1;
}

QString failure(const QString& what, const QSqlError& error)
{
    QString text = error.text().trimmed();
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return what + QStringLiteral(": ") + text;
}

// The ids of copied rows were given explicitly; new ids must go on after the last.
bool advanceIdentity(const QSqlDatabase& db, const QString& table, QString& message)
{
    const QString sql = SqlDialect::of(db).identityAfterCopy(table);
    if (sql.isEmpty())
        return true;
    StoreQuery q(db, "Setting the next id");
    if (q.exec(sql))
        return true;
    message = failure(QStringLiteral("Setting the next id of %1 failed").arg(table), q.lastError());
    return false;
}

} // namespace

QString DatabaseCopy::Result::summary() const
{
    QStringList parts;
    for (const auto& count : rowsCopied)
        parts << QStringLiteral("%1 %2").arg(count.first).arg(count.second);
    return parts.join(QStringLiteral(", "));
}

QStringList DatabaseCopy::columnsOf(const QSqlDatabase& db, const QString& table)
{
    QStringList names;
    StoreQuery q(db, "Reading the columns of a table");
    const SqlDialect dialect = SqlDialect::of(db);
    // Generated columns (the server's search words) are left out: the target computes them.
    if (!q.exec(dialect.columnsOfTable(table)))
        return names;
    const int column = dialect.columnNameField();
    while (q.next())
        names << q.value(column).toString();
    return names;
}

QPair<QString, qint64> DatabaseCopy::firstNonEmptyTable(const QSqlDatabase& db)
{
    for (const QString& table : PgSchema::kTables) {
        if (columnsOf(db, table).isEmpty())
            continue;
        const qint64 rows = rowCount(db, table);
        if (rows != 0)
            return {table, rows};
    }
    return {QString(), 0};
}

DatabaseCopy::Result DatabaseCopy::copy(const QSqlDatabase& from, const QSqlDatabase& to,
                                        const Progress& progress)
{
    Result result;
    const QPair<QString, qint64> occupied = firstNonEmptyTable(to);
    if (!occupied.first.isEmpty()) {
        result.message =
            QStringLiteral("The target database is not empty (table %1 holds %2 rows); nothing "
                           "was copied. Copy only into an empty database.")
                .arg(occupied.first)
                .arg(occupied.second < 0 ? QStringLiteral("unknown") : QString::number(occupied.second));
        return result;
    }
    const QSqlDatabase& target = to;
    // The whole copy or nothing of it.
    StoreTransaction transaction(target, "Copying the database");
    if (!transaction.isActive()) {
        result.message =
            failure(QStringLiteral("Could not begin a transaction on the target"), target.lastError());
        return result;
    }
    auto fail = [&](const QString& message) {
        transaction.rollback();
        result.rowsCopied.clear();
        result.message = message + QStringLiteral(" Nothing was copied.");
        return result;
    };

    for (const QString& table : PgSchema::kTables) {
        const QStringList sourceColumns = columnsOf(from, table);
        if (sourceColumns.isEmpty())
            continue; // an older database without this table
        const QStringList targetColumns = columnsOf(to, table);
        QStringList columns;
        for (const QString& c : targetColumns) {
            if (sourceColumns.contains(c))
                columns << c;
        }
        const qint64 total = rowCount(from, table);
        if (columns.isEmpty()) {
            if (total > 0)
                return fail(
                    QStringLiteral("The target has no table %1 to take its %2 rows.").arg(table).arg(total));
            continue;
        }
        const QString list = columns.join(QLatin1Char(','));
        StoreQuery read(from, "Reading a table to copy");
        read.setForwardOnly(true);
        const QString order = columns.contains(QStringLiteral("id")) ? QStringLiteral("id") : columns.first();
        if (!read.exec(QStringLiteral("SELECT %1 FROM %2 ORDER BY %3").arg(list, table, order)))
            return fail(failure(QStringLiteral("Reading %1 failed").arg(table), read.lastError()));
        QStringList marks;
        for (int i = 0; i < columns.size(); ++i)
            marks << QStringLiteral("?");
        StoreQuery write(target, "Copying a row");
        if (!write.prepare(QStringLiteral("INSERT INTO %1(%2) VALUES(%3)")
                               .arg(table, list, marks.join(QLatin1Char(',')))))
            return fail(
                failure(QStringLiteral("Preparing the rows of %1 failed").arg(table), write.lastError()));
        qint64 done = 0;
        while (read.next()) {
            for (int i = 0; i < columns.size(); ++i)
                write.bind(read.value(i));
            if (!write.exec())
                return fail(failure(QStringLiteral("Copying row %1 of %2 failed").arg(done + 1).arg(table),
                                    write.lastError()));
            ++done;
            if (progress && done % kProgressEvery == 0)
                progress(table, done, total);
        }
        if (read.lastError().isValid())
            return fail(failure(QStringLiteral("Reading %1 failed").arg(table), read.lastError()));
        if (columns.contains(QStringLiteral("id"))) {
            QString message;
            if (!advanceIdentity(target, table, message))
                return fail(message);
        }
        if (progress)
            progress(table, done, total);
        result.rowsCopied.append({table, done});
    }
    if (!transaction.commit())
        return fail(failure(QStringLiteral("Committing the copy failed"), target.lastError()));
    result.ok = true;
    return result;
}
