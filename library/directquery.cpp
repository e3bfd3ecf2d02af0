#include "directquery.h"

#include <QByteArray>
#include <QDateTime>
#include <QSqlDriver>

#include <sqlite3.h>

#include <cstring>

#if defined(Q_OS_UNIX) && __has_include(<dlfcn.h>)
#include <dlfcn.h>
#define ONDARO_HAS_DLFCN 1
#endif

// The SQLite functions used here, taken from the library Qt's driver plugin runs on.
struct DirectQueryApi {
    decltype(&sqlite3_prepare_v2) prepare = nullptr;
    decltype(&sqlite3_finalize) finalize = nullptr;
    decltype(&sqlite3_bind_parameter_count) bindParameterCount = nullptr;
    decltype(&sqlite3_bind_null) bindNull = nullptr;
    decltype(&sqlite3_bind_int64) bindInt64 = nullptr;
    decltype(&sqlite3_bind_double) bindDouble = nullptr;
    decltype(&sqlite3_bind_text) bindText = nullptr;
    decltype(&sqlite3_bind_blob) bindBlob = nullptr;
    decltype(&sqlite3_step) step = nullptr;
    decltype(&sqlite3_column_count) columnCount = nullptr;
    decltype(&sqlite3_column_name) columnName = nullptr;
    decltype(&sqlite3_column_type) columnType = nullptr;
    decltype(&sqlite3_column_int64) columnInt64 = nullptr;
    decltype(&sqlite3_column_double) columnDouble = nullptr;
    decltype(&sqlite3_column_text) columnText = nullptr;
    decltype(&sqlite3_column_text16) columnText16 = nullptr;
    decltype(&sqlite3_column_blob) columnBlob = nullptr;
    decltype(&sqlite3_column_bytes) columnBytes = nullptr;
    decltype(&sqlite3_column_bytes16) columnBytes16 = nullptr;
    bool complete = false;
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
// Looks `name` up among the plugin and the libraries it depends on. When the process also has an
// SQLite in its global scope, that one must be the same, or the plugin might be bound to either.
template <typename Function> bool lookUp(void* plugin, const char* name, Function& function)
{
    void* local = dlsym(plugin, name);
    void* global = dlsym(RTLD_DEFAULT, name);
    if (!local || (global && global != local))
        return false;
    function = reinterpret_cast<Function>(local);
    return true;
}

DirectQueryApi resolve(const QSqlDriver* driver)
{
    DirectQueryApi api;
    // The driver's meta-object lies in the plugin's own image, whose path dladdr gives.
    Dl_info info{};
    if (!dladdr(driver->metaObject(), &info) || !info.dli_fname)
        return api;
    // Kept open for the life of the process, as the connection that uses these functions is.
    void* plugin = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
    if (!plugin)
        return api;
    api.complete = lookUp(plugin, "sqlite3_prepare_v2", api.prepare) &&
                   lookUp(plugin, "sqlite3_finalize", api.finalize) &&
                   lookUp(plugin, "sqlite3_bind_parameter_count", api.bindParameterCount) &&
                   lookUp(plugin, "sqlite3_bind_null", api.bindNull) &&
                   lookUp(plugin, "sqlite3_bind_int64", api.bindInt64) &&
                   lookUp(plugin, "sqlite3_bind_double", api.bindDouble) &&
                   lookUp(plugin, "sqlite3_bind_text", api.bindText) &&
                   lookUp(plugin, "sqlite3_bind_blob", api.bindBlob) &&
                   lookUp(plugin, "sqlite3_step", api.step) &&
                   lookUp(plugin, "sqlite3_column_count", api.columnCount) &&
                   lookUp(plugin, "sqlite3_column_name", api.columnName) &&
                   lookUp(plugin, "sqlite3_column_type", api.columnType) &&
                   lookUp(plugin, "sqlite3_column_int64", api.columnInt64) &&
                   lookUp(plugin, "sqlite3_column_double", api.columnDouble) &&
                   lookUp(plugin, "sqlite3_column_text", api.columnText) &&
                   lookUp(plugin, "sqlite3_column_text16", api.columnText16) &&
                   lookUp(plugin, "sqlite3_column_blob", api.columnBlob) &&
                   lookUp(plugin, "sqlite3_column_bytes", api.columnBytes) &&
                   lookUp(plugin, "sqlite3_column_bytes16", api.columnBytes16);
    return api;
}
#else
DirectQueryApi resolve(const QSqlDriver*)
{
    return {};
}
#endif

// The process has one SQLite driver plugin, so the functions are looked up once.
const DirectQueryApi* apiFor(const QSqlDriver* driver)
{
    static const DirectQueryApi api = resolve(driver);
    return api.complete ? &api : nullptr;
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
        api->finalize(statement);
    statement = nullptr;
    firstRowPending = false;
    done = true;
}

bool DirectQuery::exec(const QString& sql, const QVariantList& values)
{
    finish();
    if (!isUsable())
        return false;
    const QByteArray text = sql.toUtf8();
    if (api->prepare(static_cast<sqlite3*>(connection), text.constData(), int(text.size()), &statement,
                     nullptr) != SQLITE_OK ||
        !statement) {
        finish();
        return false;
    }
    // Qt refuses a statement whose placeholders and values do not pair up.
    if (api->bindParameterCount(statement) != values.size()) {
        finish();
        return false;
    }
    for (int i = 0; i < values.size(); ++i) {
        const QVariant& v = values.at(i);
        const int position = i + 1;
        int rc = SQLITE_OK;
        if (bindsAsNull(v)) {
            rc = api->bindNull(statement, position);
        } else {
            switch (v.typeId()) {
            case QMetaType::Bool:
            case QMetaType::Int:
            case QMetaType::UInt:
            case QMetaType::LongLong:
                rc = api->bindInt64(statement, position, v.toLongLong());
                break;
            case QMetaType::Double:
                rc = api->bindDouble(statement, position, v.toDouble());
                break;
            case QMetaType::QByteArray: {
                const QByteArray bytes = v.toByteArray();
                rc = api->bindBlob(statement, position, bytes.constData(), int(bytes.size()),
                                   SQLITE_TRANSIENT);
                break;
            }
            default: {
                const QByteArray utf8 = v.toString().toUtf8();
                rc = api->bindText(statement, position, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
                break;
            }
            }
        }
        if (rc != SQLITE_OK) {
            finish();
            return false;
        }
    }
    recentTexts.assign(size_t(api->columnCount(statement)), RecentText());
    const int rc = api->step(statement);
    if (rc == SQLITE_ROW) {
        firstRowPending = true;
        done = false;
        return true;
    }
    if (rc == SQLITE_DONE)
        return true;
    finish();
    return false;
}

bool DirectQuery::next()
{
    if (firstRowPending) {
        firstRowPending = false;
        return true;
    }
    if (done || !statement)
        return false;
    if (api->step(statement) == SQLITE_ROW)
        return true;
    done = true;
    return false;
}

QStringList DirectQuery::columnNames() const
{
    QStringList names;
    if (!statement)
        return names;
    const int count = api->columnCount(statement);
    for (int i = 0; i < count; ++i)
        names << QString::fromUtf8(api->columnName(statement, i));
    return names;
}

QString DirectQuery::utf16Text(int column) const
{
    const auto* unicode = static_cast<const QChar*>(api->columnText16(statement, column));
    return QString(unicode, api->columnBytes16(statement, column) / qsizetype(sizeof(QChar)));
}

QVariant DirectQuery::value(int column) const
{
    // The values Qt's SQLite driver makes of each storage class.
    switch (api->columnType(statement, column)) {
    case SQLITE_INTEGER:
        return QVariant(qint64(api->columnInt64(statement, column)));
    case SQLITE_FLOAT:
        return QVariant(api->columnDouble(statement, column));
    case SQLITE_BLOB: {
        const auto* bytes = static_cast<const char*>(api->columnBlob(statement, column));
        return QVariant(QByteArray(bytes, api->columnBytes(statement, column)));
    }
    case SQLITE_NULL:
        return QVariant(QMetaType::fromType<QString>());
    default:
        return QVariant(utf16Text(column));
    }
}

QString DirectQuery::text(int column) const
{
    const int type = api->columnType(statement, column);
    if (type == SQLITE_NULL)
        return QString();
    if (type != SQLITE_TEXT)
        return value(column).toString();
    const auto* utf8 = reinterpret_cast<const char*>(api->columnText(statement, column));
    const int size = api->columnBytes(statement, column);
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
    switch (api->columnType(statement, column)) {
    case SQLITE_INTEGER:
        return api->columnInt64(statement, column);
    case SQLITE_NULL:
        return 0;
    default:
        return value(column).toLongLong();
    }
}

int DirectQuery::toInt(int column) const
{
    switch (api->columnType(statement, column)) {
    case SQLITE_INTEGER:
        return QVariant(qint64(api->columnInt64(statement, column))).toInt();
    case SQLITE_NULL:
        return 0;
    default:
        return value(column).toInt();
    }
}
