#include "storequery.h"

#include "libraryconnection.h"
#include "librarylogging.h"

#include <QSqlRecord>
#include <QStringList>

namespace {

// A batch insert on a server binds hundreds of values; the log keeps the first ones.
constexpr qsizetype kLoggedValues = 30;
// Characters of one logged text value.
constexpr qsizetype kLoggedTextLength = 200;

QString oneLine(QString text)
{
    text = text.trimmed();
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    return text;
}

QString valueText(const QVariant& v)
{
    if (v.isNull())
        return QStringLiteral("NULL");
    switch (v.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return v.toString();
    case QMetaType::QByteArray:
        return QStringLiteral("<%1 bytes>").arg(v.toByteArray().size());
    default: {
        QString text = v.toString();
        if (text.size() > kLoggedTextLength)
            text = text.left(kLoggedTextLength) + QStringLiteral("...");
        return QLatin1Char('\'') + text + QLatin1Char('\'');
    }
    }
}

QString valuesText(const QVariantList& values)
{
    QStringList shown;
    for (qsizetype i = 0; i < values.size() && i < kLoggedValues; ++i)
        shown << valueText(values.at(i));
    if (values.size() > kLoggedValues)
        shown << QStringLiteral("... %1 more").arg(values.size() - kLoggedValues);
    return QLatin1Char('(') + shown.join(QStringLiteral(", ")) + QLatin1Char(')');
}

} // namespace

StoreQuery::StoreQuery(const char* operation) : StoreQuery(LibraryConnection::database(), operation) {}

StoreQuery::StoreQuery(const QSqlDatabase& db, const char* operation) : q(db), operation(operation) {}

QVariant StoreQuery::bindable(const QVariant& value)
{
    if (!value.isNull() && value.typeId() == QMetaType::QString &&
        static_cast<const QString*>(value.constData())->isNull())
        return QVariant(QStringLiteral(""));
    return value;
}

bool StoreQuery::prepare(const QString& statement)
{
    sql = statement;
    values.clear();
    if (q.prepare(statement))
        return true;
    return fail();
}

void StoreQuery::bind(const QVariant& value)
{
    const QVariant bound = bindable(value);
    values << bound;
    q.addBindValue(bound);
}

void StoreQuery::bind(const QVariantList& list)
{
    for (const QVariant& v : list)
        bind(v);
}

bool StoreQuery::exec()
{
    const bool ok = q.exec();
    if (!ok)
        fail();
    // Qt keeps positional values after exec; the next row binds its own from the first place on.
    values.clear();
    return ok;
}

bool StoreQuery::exec(const QString& statement)
{
    sql = statement;
    values.clear();
    if (q.exec(statement))
        return true;
    return fail();
}

bool StoreQuery::run(const QString& statement, const QVariantList& list)
{
    sql = statement;
    values.clear();
    if (!q.prepare(statement)) {
        // The values it was to run with belong in the log line too.
        for (const QVariant& v : list)
            values << bindable(v);
        return fail();
    }
    bind(list);
    return exec();
}

bool StoreQuery::fail()
{
    reportFailure(operation, sql, values, q.lastError());
    return false;
}

void StoreQuery::reportFailure(const char* operation, const QString& sql, const QVariantList& values,
                               const QSqlError& error)
{
    QString why = oneLine(error.text());
    if (why.isEmpty()) {
        why = LibraryConnection::problem();
        if (why.isEmpty())
            why = QStringLiteral("the database is not open");
    }
    qCWarning(lcLibrary).noquote() << operation << "failed:" << why << "| statement:" << oneLine(sql)
                                   << "| values:" << valuesText(values);
    LibraryConnection::reportFailure(error);
}

void StoreQuery::setForwardOnly(bool forward)
{
    q.setForwardOnly(forward);
}

bool StoreQuery::next()
{
    if (!q.isActive())
        return false;
    if (q.next())
        return true;
    // A server may fail a read between rows (a forward-only result comes row by row).
    if (q.lastError().isValid())
        fail();
    return false;
}

QVariant StoreQuery::value(int column) const
{
    return q.value(column);
}

QSqlRecord StoreQuery::record() const
{
    return q.record();
}

int StoreQuery::numRowsAffected() const
{
    return q.numRowsAffected();
}

QVariant StoreQuery::lastInsertId() const
{
    return q.lastInsertId();
}

QSqlError StoreQuery::lastError() const
{
    return q.lastError();
}

const QSqlQuery& StoreQuery::query() const
{
    return q;
}
