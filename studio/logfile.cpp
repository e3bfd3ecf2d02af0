#include "logfile.h"

#include "studiologging.h"

#include <QDateTime>
#include <QDir>
#include <QStandardPaths>

namespace {

const QString cannotWrite = QStringLiteral("Log file cannot be written: %1 (%2)");

} // namespace

LogFile::LogFile(const QString& folder, QObject* parent)
    : QObject(parent), m_folder(folder.isEmpty() ? defaultFolder() : folder)
{
}

QString LogFile::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) + QStringLiteral("/logs");
}

QString LogFile::pathFor(const QDate& day) const
{
    return m_folder + QLatin1Char('/') + day.toString(QStringLiteral("yyyy-MM-dd")) + QStringLiteral(".log");
}

bool LogFile::openFor(const QDate& day)
{
    if (m_day == day && m_file.isOpen())
        return true;
    m_file.close();
    m_day = day;
    if (!QDir().mkpath(m_folder)) {
        fail(cannotWrite.arg(m_folder, QStringLiteral("folder cannot be created")));
        return false;
    }
    m_file.setFileName(pathFor(day));
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text)) {
        fail(cannotWrite.arg(m_file.fileName(), m_file.errorString()));
        return false;
    }
    return true;
}

bool LogFile::append(const QDateTime& stamp, const QString& text)
{
    if (!openFor(stamp.date()))
        return false;
    const QByteArray line =
        (stamp.toString(QStringLiteral("HH:mm:ss")) + QStringLiteral("  ") + text + QLatin1Char('\n'))
            .toUtf8();
    if (m_file.write(line) != line.size() || !m_file.flush()) {
        fail(cannotWrite.arg(m_file.fileName(), m_file.errorString()));
        // Try a fresh open next time: the disk may come back.
        m_file.close();
        return false;
    }
    m_failing = false;
    return true;
}

void LogFile::fail(const QString& reason)
{
    if (m_failing)
        return;
    m_failing = true;
    qCWarning(lcStudio).noquote() << reason;
    emit writeFailed(reason);
}
