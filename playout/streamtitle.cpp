#include "streamtitle.h"

#include <QMediaMetaData>

QString streamTitle(const QMediaMetaData& data)
{
    const QString title = data.value(QMediaMetaData::Title).toString().trimmed();
    const QString artist = data.value(QMediaMetaData::ContributingArtist).toString().trimmed();
    if (title.isEmpty())
        return QString();
    return !artist.isEmpty() && !title.contains(artist) ? artist + QStringLiteral(" - ") + title : title;
}
