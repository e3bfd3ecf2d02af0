#pragma once

#include <QSqlDatabase>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVariantList>

#include <string>
#include <vector>

struct sqlite3_stmt;
struct DirectQueryApi;

// A forward-only read on the store's connection through SQLite's own C interface.
//
// Qt's driver wraps every value of every row in a QVariant holding UTF-16 text that SQLite converts
// for it; on a 100,000-row listing that costs more than running the statement. Reading the UTF-8
// text straight into the QStrings a Track keeps gives the same values at a fraction of the cost.
//
// The program links SQLite itself and checks once that Qt's driver plugin runs on that same library,
// so the handle and the functions always belong to one SQLite. Where that cannot be established
// (another platform, a driver with a private SQLite copy, a closed connection) the object is not
// usable and callers read through QSqlQuery as before. Every value comes out as QSqlQuery::value() would give it.
class DirectQuery
{
public:
    explicit DirectQuery(const QSqlDatabase& db);
    ~DirectQuery();
    DirectQuery(const DirectQuery&) = delete;
    DirectQuery& operator=(const DirectQuery&) = delete;

    bool isUsable() const;
    // Prepares `sql`, binds `values` in order and steps to the first row, as QSqlQuery::exec does
    // with Qt's SQLite driver: false when preparing, binding or that first step fails (logged
    // through "ondaro.library" with the statement and its values).
    bool exec(const QString& sql, const QVariantList& values);
    // Moves to the next row (the first call after exec to the row exec found); false at the end.
    bool next();
    QStringList columnNames() const;

    // The current row's value as QSqlQuery::value(column) gives it, and its usual conversions
    // without building a QVariant for the common storage classes.
    QVariant value(int column) const;
    QString text(int column) const;   // value(column).toString()
    qint64 integer(int column) const; // value(column).toLongLong()
    int toInt(int column) const;      // value(column).toInt()

    // Test hook: every DirectQuery reports itself unusable, so that the QSqlQuery path can be run
    // and compared with this one.
    static void setDisabledForTesting(bool disabled);

private:
    QString utf16Text(int column) const;
    // Ends the statement, logs the failure with the statement and its values, and gives false.
    bool fail(const QString& sql, const QVariantList& values, const QString& reason);
    void finish();

    struct RecentText {
        std::string bytes;
        QString text;
        bool known = false;
    };

    const DirectQueryApi* api = nullptr;
    void* connection = nullptr; // sqlite3*
    sqlite3_stmt* statement = nullptr;
    bool firstRowPending = false;
    bool done = true;
    mutable std::vector<RecentText> recentTexts; // per column: the last text decoded
};
