#include "audiofiles.h"

#include <QDir>
#include <QFileInfo>

const QStringList& AudioFiles::supportedExtensions()
{
    static const QStringList extensions = {
        QStringLiteral("mp3"),  QStringLiteral("wav"), QStringLiteral("ogg"),  QStringLiteral("flac"),
        QStringLiteral("m4a"),  QStringLiteral("aac"), QStringLiteral("opus"), QStringLiteral("wma"),
        QStringLiteral("aiff"), QStringLiteral("alac")};
    return extensions;
}

bool AudioFiles::isSupported(const QString& path)
{
    return supportedExtensions().contains(QFileInfo(path).suffix().toLower());
}

bool AudioFiles::isStreamUrl(const QString& text)
{
    static const QStringList schemes = {QStringLiteral("http://"), QStringLiteral("https://"),
                                        QStringLiteral("mms://"), QStringLiteral("rtsp://"),
                                        QStringLiteral("rtmp://")};
    const QString trimmed = text.trimmed();
    for (const QString& scheme : schemes) {
        if (trimmed.startsWith(scheme, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

Track AudioFiles::trackFromFile(const QString& path)
{
    Track t;
    readTags(path, t);
    return t;
}

QStringList AudioFiles::filesDirectlyIn(const QString& dir)
{
    static const QStringList filters = [] {
        QStringList f;
        for (const QString& ext : supportedExtensions())
            f << QStringLiteral("*.") + ext;
        return f;
    }();
    QStringList paths;
    for (const QFileInfo& info : QDir(dir).entryInfoList(filters, QDir::Files, QDir::Name))
        paths << info.absoluteFilePath();
    return paths;
}

QStringList AudioFiles::subfoldersOf(const QString& dir)
{
    QStringList paths;
    for (const QFileInfo& info : QDir(dir).entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
        paths << info.absoluteFilePath();
    return paths;
}

QStringList AudioFiles::filesIn(const QString& dir, bool recursive)
{
    QStringList paths = filesDirectlyIn(dir);
    if (recursive) {
        for (const QString& sub : subfoldersOf(dir))
            paths << filesIn(sub, true);
    }
    return paths;
}

QList<Track> AudioFiles::readTracks(const QStringList& paths)
{
    QList<Track> found;
    for (const QString& path : paths) {
        if (!isSupported(path))
            continue;
        Track track;
        readTags(path, track);
        found.append(track);
    }
    return found;
}
