#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QVariant>
#include <QVariantList>

class QSqlRecord;

// One statement of the store. Every store file prepares, binds and runs its SQL through this class,
// so that a failure is handled in one place: it is logged once through "ondaro.library" with the
// statement and its bound values, and reported to LibraryConnection, which tells a refused statement
// from a server that went away. Callers turn a false result into their operation's neutral result.
//
// Binding follows one rule: a null QString is the empty text '' (Qt would bind it as NULL, and the
// store keeps '' for an empty text), while a null QVariant (QVariant(QMetaType(...)), or a NULL read
// from another row) stays NULL.
class StoreQuery
{
public:
    // `operation` names the work in the log ("Adding a track"); it must outlive the object (a literal).
    explicit StoreQuery(const char* operation);
    StoreQuery(const QSqlDatabase& db, const char* operation);

    bool prepare(const QString& sql);
    void bind(const QVariant& value);
    void bind(const QVariantList& values);
    // Runs the prepared statement with the values bound since the last exec().
    bool exec();
    // Runs `sql` as it stands (no values).
    bool exec(const QString& sql);
    // Prepares `sql`, binds `values` in order and runs it.
    bool run(const QString& sql, const QVariantList& values);

    void setForwardOnly(bool forward);
    bool next();
    QVariant value(int column) const;
    QSqlRecord record() const;
    int numRowsAffected() const;
    QVariant lastInsertId() const;
    QSqlError lastError() const;
    // The underlying query, for readers that take a QSqlQuery row (trackFromRecord, TrackRowReader).
    const QSqlQuery& query() const;

    // The value as it is bound: a null QString becomes ''.
    static QVariant bindable(const QVariant& value);
    // Logs a failed statement once, with its values, and reports it to the lost-server detection.
    static void reportFailure(const char* operation, const QString& sql, const QVariantList& values,
                              const QSqlError& error);

private:
    bool fail();

    QSqlQuery q;
    const char* operation;
    QString sql;
    QVariantList values;
};
