#include "directquery.h"

#include "librarylogging.h"
#include "storequery.h"

#include <QByteArray>
#include <QDateTime>
#include <QSqlDriver>
#include <QSqlError>

#include <sqlite3.h>

#include <cstring>

#if defined(Q_OS_UNIX) && __has_include(<dlfcn.h>)
#include <dlfcn.h>
#define ONDARO_HAS_DLFCN 1
#endif

// Whether the SQLite this program links is the very library Qt's driver plugin runs on: only then
// may the driver's connection handle be used with the linked functions.
struct DirectQueryApi {
    bool sameLibrary = false;
};

namespace {

bool g_disabledForTesting = false;

// Qt's SQL layer binds NULL for an invalid value and for a null string, byte array or time value.
bool bindsAsNull(const QVariant& v)
{
    if (v.isNull())
        return true;
    switch (v.typeId()) {
    case QMetaType::QString:
        return static_cast<const QString*>(v.constData())->isNull();
    case QMetaType::QByteArray:
        return static_cast<const QByteArray*>(v.constData())->isNull();
    case QMetaType::QDateTime:
        return static_cast<const QDateTime*>(v.constData())->isNull();
    case QMetaType::QDate:
        return static_cast<const QDate*>(v.constData())->isNull();
    case QMetaType::QTime:
        return static_cast<const QTime*>(v.constData())->isNull();
    default:
        return false;
    }
}

#ifdef ONDARO_HAS_DLFCN
// Checked once: the driver plugin (found through its meta-object's image) must resolve SQLite's entry
// point to the same function this program calls. A Qt built with a private SQLite copy would not, and
// then every read goes through QSqlQuery.
DirectQueryApi resolve(const QSqlDriver* driver)
{
    DirectQueryApi api;
    Dl_info info{};
    void* plugin = nullptr;
    if (dladdr(driver->metaObject(), &info) && info.dli_fname)
        plugin = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD); // kept open with the connection
    void* driverPrepare = plugin ? dlsym(plugin, "sqlite3_prepare_v2") : nullptr;
    api.sameLibrary = driverPrepare && driverPrepare == reinterpret_cast<void*>(&sqlite3_prepare_v2);
    if (api.sameLibrary)
        qCDebug(lcLibrary, "SQLite %s is shared with Qt's driver: listings read it directly", sqlite3_libversion());
    else
        qCWarning(lcLibrary, "Qt's SQLite driver does not use the linked SQLite %s: listings read through QSqlQuery",
                  sqlite3_libversion());
    return api;
}
#else
DirectQueryApi resolve(const QSqlDriver*)
{
    qCWarning(lcLibrary, "No way to check Qt's SQLite driver here: listings read through QSqlQuery");
    return {};
}
#endif

// The process has one SQLite driver plugin, so the functions are looked up once.
const DirectQueryApi* apiFor(const QSqlDriver* driver)
{
    static const DirectQueryApi api = resolve(driver);
    return api.sameLibrary ? &api : nullptr;
}

} // namespace

DirectQuery::DirectQuery(const QSqlDatabase& db)
{
    if (g_disabledForTesting || !db.isOpen())
        return;
    const QSqlDriver* driver = db.driver();
    if (!driver || driver->dbmsType() != QSqlDriver::SQLite)
        return;
    const QVariant handle = driver->handle();
    if (!handle.isValid() || qstrcmp(handle.typeName(), "sqlite3*") != 0)
        return;
    connection = *static_cast<sqlite3* const*>(handle.constData());
    if (connection)
        api = apiFor(driver);
}

DirectQuery::~DirectQuery()
{
    finish();
}

void DirectQuery::setDisabledForTesting(bool disabled)
{
    g_disabledForTesting = disabled;
}

bool DirectQuery::isUsable() const
{
    return api && connection;
}

void DirectQuery::finish()
{
    if (statement)
        sqlite3_finalize(statement);
    statement = nullptr;
    firstRowPending = false;
    done = true;
}

bool DirectQuery::fail(const QString& sql, const QVariantList& values, const QString& reason)
{
    finish();
    StoreQuery::reportFailure("Reading the library", sql, values,
                              QSqlError(QString(), reason, QSqlError::StatementError));
    return false;
}

bool DirectQuery::exec(const QString& sql, const QVariantList& values)
{
    finish();
    if (!isUsable())
        return false;
    auto* db = static_cast<sqlite3*>(connection);
    const QByteArray text = sql.toUtf8();
    if (sqlite3_prepare_v2(db, text.constData(), int(text.size()), &statement, nullptr) != SQLITE_OK ||
        !statement)
        return fail(sql, values, QString::fromUtf8(sqlite3_errmsg(db)));
    // Qt refuses a statement whose placeholders and values do not pair up.
    if (sqlite3_bind_parameter_count(statement) != values.size())
        return fail(sql, values,
                    QStringLiteral("the statement takes %1 values, %2 were given")
                        .arg(sqlite3_bind_parameter_count(statement))
                        .arg(values.size()));
    for (int i = 0; i < values.size(); ++i) {
        const QVariant& v = values.at(i);
        const int position = i + 1;
        int rc = SQLITE_OK;
        if (bindsAsNull(v)) {
            rc = sqlite3_bind_null(statement, position);
        } else {
            switch (v.typeId()) {
            case QMetaType::Bool:
            case QMetaType::Int:
            case QMetaType::UInt:
            case QMetaType::LongLong:
                rc = sqlite3_bind_int64(statement, position, v.toLongLong());
                break;
            case QMetaType::Double:
                rc = sqlite3_bind_double(statement, position, v.toDouble());
                break;
            case QMetaType::QByteArray: {
                const QByteArray bytes = v.toByteArray();
                rc = sqlite3_bind_blob(statement, position, bytes.constData(), int(bytes.size()),
                                   SQLITE_TRANSIENT);
                break;
            }
            default: {
                const QByteArray utf8 = v.toString().toUtf8();
                rc = sqlite3_bind_text(statement, position, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
                break;
            }
            }
        }
        if (rc != SQLITE_OK)
            return fail(sql, values, QString::fromUtf8(sqlite3_errmsg(db)));
    }
    recentTexts.assign(size_t(sqlite3_column_count(statement)), RecentText());
    const int rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) {
        firstRowPending = true;
        done = false;
        return true;
    }
    if (rc == SQLITE_DONE)
        return true;
    return fail(sql, values, QString::fromUtf8(sqlite3_errmsg(db)));
}

bool DirectQuery::next()
{
    if (firstRowPending) {
        firstRowPending = false;
        return true;
    }
    if (done || !statement)
        return false;
    if (sqlite3_step(statement) == SQLITE_ROW)
        return true;
    done = true;
    return false;
}

QStringList DirectQuery::columnNames() const
{
    QStringList names;
    if (!statement)
        return names;
    const int count = sqlite3_column_count(statement);
    for (int i = 0; i < count; ++i)
        names << QString::fromUtf8(sqlite3_column_name(statement, i));
    return names;
}

QString DirectQuery::utf16Text(int column) const
{
    const auto* unicode = static_cast<const QChar*>(sqlite3_column_text16(statement, column));
    return QString(unicode, sqlite3_column_bytes16(statement, column) / qsizetype(sizeof(QChar)));
}

QVariant DirectQuery::value(int column) const
{
    // The values Qt's SQLite driver makes of each storage class.
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return QVariant(qint64(sqlite3_column_int64(statement, column)));
    case SQLITE_FLOAT:
        return QVariant(sqlite3_column_double(statement, column));
    case SQLITE_BLOB: {
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
        return QVariant(QByteArray(bytes, sqlite3_column_bytes(statement, column)));
    }
    case SQLITE_NULL:
        return QVariant(QMetaType::fromType<QString>());
    default:
        return QVariant(utf16Text(column));
    }
}

QString DirectQuery::text(int column) const
{
    const int type = sqlite3_column_type(statement, column);
    if (type == SQLITE_NULL)
        return QString();
    if (type != SQLITE_TEXT)
        return value(column).toString();
    const auto* utf8 = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
    const int size = sqlite3_column_bytes(statement, column);
    static const QString empty = QStringLiteral("");
    if (size == 0)
        return empty;
    // Neighbouring rows of a sorted listing often repeat a value (an artist, an album, a genre):
    // they share one QString instead of each decoding and keeping a copy.
    RecentText& recent = recentTexts[column];
    if (recent.known && recent.bytes.size() == size_t(size) &&
        std::memcmp(recent.bytes.data(), utf8, size) == 0)
        return recent.text;
    QString decoded = QString::fromUtf8(utf8, size);
    // The two decoders differ only on bytes that are not valid UTF-8 (a lone surrogate stored by an
    // older writer, say); there SQLite's own conversion decides, as it does for Qt's driver.
    if (decoded.contains(QChar::ReplacementCharacter))
        decoded = utf16Text(column);
    recent.bytes.assign(utf8, size_t(size));
    recent.text = decoded;
    recent.known = true;
    return decoded;
}

qint64 DirectQuery::integer(int column) const
{
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return sqlite3_column_int64(statement, column);
    case SQLITE_NULL:
        return 0;
    default:
        return value(column).toLongLong();
    }
}

int DirectQuery::toInt(int column) const
{
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
        return QVariant(qint64(sqlite3_column_int64(statement, column))).toInt();
    case SQLITE_NULL:
        return 0;
    default:
        return value(column).toInt();
    }
}
