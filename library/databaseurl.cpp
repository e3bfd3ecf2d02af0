#include "databaseurl.h"

#include "settingkeys.h"

#include <QStringList>
#include <QUrl>
#include <QUrlQuery>

namespace {

// Query keys the driver is given unchanged; anything else is more likely a typing error than intent.
const QStringList kPassedOptions = {QStringLiteral("sslmode"), QStringLiteral("connect_timeout"),
                                    QStringLiteral("application_name"), QStringLiteral("sslrootcert")};

// A server that does not answer must not freeze a window for long (seconds).
const QString kDefaultConnectTimeout = QStringLiteral("5");

DatabaseUrl invalid(DatabaseUrl url, const QString& reason)
{
    url.error = reason;
    return url;
}

bool parsePort(const QString& text, int& port)
{
    bool ok = false;
    const int value = text.toInt(&ok);
    if (!ok || value < 1 || value > 65535)
        return false;
    port = value;
    return true;
}

} // namespace

QString DatabaseUrl::displayText() const
{
    if (password.isEmpty())
        return text;
    QUrl url(text, QUrl::TolerantMode);
    url.setPassword(QString());
    return url.isValid() ? url.toString() : text;
}

DatabaseUrl DatabaseUrl::withDatabase(const QString& name) const
{
    DatabaseUrl copy = *this;
    copy.databaseName = name;
    QUrl url(text, QUrl::TolerantMode);
    QUrlQuery query(url);
    query.removeAllQueryItems(QStringLiteral("dbname"));
    url.setQuery(query);
    url.setPath(QLatin1Char('/') + name);
    copy.text = url.toString();
    return copy;
}

DatabaseUrl DatabaseUrl::parse(const QString& input)
{
    DatabaseUrl result;
    result.text = input.trimmed();
    if (result.text.isEmpty())
        return result;

    const QUrl url(result.text, QUrl::StrictMode);
    if (!url.isValid())
        return invalid(result, QStringLiteral("it is not a URL (%1)").arg(url.errorString()));
    const QString scheme = url.scheme().toLower();
    if (scheme != QLatin1String("postgresql") && scheme != QLatin1String("postgres"))
        return invalid(result, QStringLiteral("it must begin with \"postgresql://\""));
    if (!result.text.contains(QLatin1String("://")))
        return invalid(result, QStringLiteral("it must begin with \"postgresql://\""));

    result.userName = url.userName(QUrl::FullyDecoded);
    result.password = url.password(QUrl::FullyDecoded);
    result.host = url.host(QUrl::FullyDecoded);
    if (url.port() != -1)
        result.port = url.port();
    QString path = url.path(QUrl::FullyDecoded);
    if (path.startsWith(QLatin1Char('/')))
        path.remove(0, 1);
    if (path.contains(QLatin1Char('/')))
        return invalid(result, QStringLiteral("the database name \"%1\" contains \"/\"").arg(path));
    result.databaseName = path;

    QStringList options;
    const QUrlQuery query(url);
    for (const auto& item : query.queryItems(QUrl::FullyDecoded)) {
        const QString key = item.first;
        const QString value = item.second;
        if (key == QLatin1String("host")) {
            result.host = value;
        } else if (key == QLatin1String("port")) {
            if (!parsePort(value, result.port))
                return invalid(result,
                               QStringLiteral("the port \"%1\" is not a number from 1 to 65535").arg(value));
        } else if (key == QLatin1String("user")) {
            result.userName = value;
        } else if (key == QLatin1String("password")) {
            result.password = value;
        } else if (key == QLatin1String("dbname")) {
            result.databaseName = value;
        } else if (kPassedOptions.contains(key)) {
            if (value.contains(QLatin1Char(';')) || value.contains(QLatin1Char(' ')))
                return invalid(
                    result, QStringLiteral("the value of \"%1\" may not contain blanks or \";\"").arg(key));
            options << key + QLatin1Char('=') + value;
        } else {
            return invalid(result, QStringLiteral("the parameter \"%1\" is not known").arg(key));
        }
    }
    if (result.databaseName.isEmpty())
        return invalid(result, QStringLiteral("it names no database (add \"/name\" after the server)"));
    if (!options.join(QLatin1Char(';')).contains(QLatin1String("connect_timeout=")))
        options << QStringLiteral("connect_timeout=") + kDefaultConnectTimeout;
    result.connectOptions = options.join(QLatin1Char(';'));
    return result;
}

DatabaseUrl DatabaseUrl::configured()
{
    const QByteArray fromEnvironment = qgetenv("ONDARO_DATABASE_URL");
    if (!fromEnvironment.trimmed().isEmpty())
        return parse(QString::fromLocal8Bit(fromEnvironment));
    return parse(Settings::databaseUrl.read());
}
