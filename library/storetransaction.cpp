#include "storetransaction.h"

#include "libraryconnection.h"
#include "librarylogging.h"

#include <QSqlError>

namespace {

QString why(const QSqlDatabase& db)
{
    QString text = db.lastError().text().trimmed();
    text.replace(QLatin1Char('\n'), QLatin1Char(' '));
    if (text.isEmpty())
        text = db.isOpen() ? QStringLiteral("no reason given") : QStringLiteral("the database is not open");
    return text;
}

} // namespace

StoreTransaction::StoreTransaction(const char* operation)
    : StoreTransaction(LibraryConnection::database(), operation)
{
}

StoreTransaction::StoreTransaction(const QSqlDatabase& database, const char* operation)
    : db(database), operation(operation)
{
    active = db.transaction();
    if (active)
        return;
    qCWarning(lcLibrary).noquote() << operation << "cannot begin a transaction:" << why(db);
    LibraryConnection::reportFailure(db.lastError());
}

StoreTransaction::~StoreTransaction()
{
    rollback();
}

bool StoreTransaction::isActive() const
{
    return active;
}

bool StoreTransaction::commit()
{
    if (!active)
        return false;
    if (db.commit()) {
        active = false;
        return true;
    }
    qCWarning(lcLibrary).noquote() << operation << "cannot commit:" << why(db);
    LibraryConnection::reportFailure(db.lastError());
    rollback();
    return false;
}

void StoreTransaction::rollback()
{
    if (!active)
        return;
    active = false;
    // A connection found lost meanwhile was closed; the server dropped the transaction with it.
    if (!db.isOpen()) {
        qCInfo(lcLibrary).noquote() << operation << "ended with the connection; nothing of it was stored";
        return;
    }
    if (db.rollback()) {
        qCInfo(lcLibrary).noquote() << operation << "was rolled back; nothing of it was stored";
        return;
    }
    qCWarning(lcLibrary).noquote() << operation << "cannot roll back:" << why(db);
    LibraryConnection::reportFailure(db.lastError());
}
