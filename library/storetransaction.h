#pragma once

#include <QSqlDatabase>

// A batch of store writes: begins a transaction, and commits it only when asked. A transaction that
// was not committed is rolled back when the object ends, so a batch that fails part-way leaves no
// half-written rows. Begin, commit and rollback are checked; a failure is logged through
// "ondaro.library" and reported to LibraryConnection like a failed statement.
//
//     StoreTransaction batch("Adding files");
//     ... statements; on a failure: return (the batch rolls back)
//     if (!batch.commit()) ...
class StoreTransaction
{
public:
    // `operation` names the batch in the log; it must outlive the object (a literal).
    explicit StoreTransaction(const char* operation);
    StoreTransaction(const QSqlDatabase& db, const char* operation);
    ~StoreTransaction();
    StoreTransaction(const StoreTransaction&) = delete;
    StoreTransaction& operator=(const StoreTransaction&) = delete;

    // Whether the transaction began (a closed or lost connection cannot begin one).
    bool isActive() const;
    // Commits the batch; false (logged, and rolled back) when it did not begin or the commit failed.
    bool commit();
    // Drops the batch now; the destructor does the same for an uncommitted batch.
    void rollback();

private:
    QSqlDatabase db;
    const char* operation;
    bool active = false;
};
