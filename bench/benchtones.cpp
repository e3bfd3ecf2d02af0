#include "benchtones.h"

#include <QDir>
#include <QProcess>

QString makeBenchTone(const QString& dir, const QString& fileName, int frequency, double seconds, double amplitude)
{
    const QString path = QDir(dir).filePath(fileName);
    const int rc = QProcess::execute(
        QStringLiteral("sox"), {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("44100"),
                                QStringLiteral("-c"), QStringLiteral("2"), path, QStringLiteral("synth"),
                                QString::number(seconds), QStringLiteral("sine"), QString::number(frequency),
                                QStringLiteral("vol"), QString::number(amplitude)});
    return rc == 0 ? path : QString();
}
