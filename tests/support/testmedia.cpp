#include "testmedia.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QtGlobal>

namespace ondarotest {

bool runTool(const QString& program, const QStringList& arguments, int timeoutMs)
{
    QProcess process;
    process.start(program, arguments);
    if (!process.waitForFinished(timeoutMs)) {
        qWarning("%s did not finish", qPrintable(program));
        return false;
    }
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qWarning("%s failed: %s", qPrintable(program), process.readAllStandardError().constData());
        return false;
    }
    return true;
}

bool makeSmallTone(const QString& path, double seconds)
{
    runTool(QStringLiteral("sox"), {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("8000"),
                                    QStringLiteral("-c"), QStringLiteral("1"), path, QStringLiteral("synth"),
                                    QString::number(seconds), QStringLiteral("sine"), QStringLiteral("440")});
    return QFile::exists(path);
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    return file.write(bytes) == bytes.size();
}

QString fixturePath(const QString& relative)
{
    return QDir(QStringLiteral(ONDARO_FIXTURE_DIR)).filePath(relative);
}

} // namespace ondarotest
