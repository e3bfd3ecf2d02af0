#include "legacyimport.h"

#include "jsonnumber.h"
#include "librarycatalogue.h"
#include "storequery.h"
#include "trackrows.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>

Track LegacyImport::trackFromJson(const QJsonObject& o)
{
    Track t;
    t.artist = o.value(QStringLiteral("artist")).toString();
    t.title = o.value(QStringLiteral("title")).toString();
    t.album = o.value(QStringLiteral("album")).toString();
    t.genre = o.value(QStringLiteral("genre")).toString();
    t.comment = o.value(QStringLiteral("comment")).toString();
    t.filePath = o.value(QStringLiteral("filePath")).toString();
    t.year = o.value(QStringLiteral("year")).toInt(0);
    t.durationMs = truncatedJsonNumber(o.value(QStringLiteral("durationMs")), 0);
    t.category = o.value(QStringLiteral("category")).toString(QStringLiteral("Foreign"));
    t.isStream = o.value(QStringLiteral("isStream")).toBool(false);
    t.streamLimitMs = truncatedJsonNumber(o.value(QStringLiteral("streamLimitMs")), 0);
    return t;
}

void LegacyImport::importOnce()
{
    StoreQuery count("Reading a count");
    if (count.exec(QStringLiteral("SELECT COUNT(*) FROM libraries")) && count.next() &&
        count.value(0).toLongLong() > 0)
        return;
    const QDir folder(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
                      QStringLiteral("/libraries"));
    if (!folder.exists())
        return;
    const QFileInfoList files = folder.entryInfoList({QStringLiteral("*.json")}, QDir::Files, QDir::NoSort);
    for (const QFileInfo& info : files) {
        QFile file(info.absoluteFilePath());
        if (!file.open(QIODevice::ReadOnly))
            continue;
        const QJsonObject doc = QJsonDocument::fromJson(file.readAll()).object();
        const QJsonValue nameValue = doc.value(QStringLiteral("name"));
        const QString name = nameValue.isString() ? nameValue.toString() : info.completeBaseName();
        LibraryCatalogue::create(name);
        const TrackRows rows(name.trimmed());
        const QJsonArray list = doc.value(QStringLiteral("tracks")).toArray();
        for (const QJsonValue& v : list)
            rows.add(trackFromJson(v.toObject()));
    }
}
