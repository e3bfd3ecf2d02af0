#include "asruncsv.h"

#include "asrunlog.h"

#include <QSaveFile>

namespace asruncsv {

QStringList header()
{
    return {QStringLiteral("Start"),  QStringLiteral("End"),     QStringLiteral("Played (ms)"),
            QStringLiteral("Artist"), QStringLiteral("Title"),   QStringLiteral("File"),
            QStringLiteral("Stream"), QStringLiteral("Ended by")};
}

QString field(const QString& text)
{
    static const QString special = QStringLiteral(",\"\r\n");
    bool quote = false;
    for (const QChar c : text) {
        if (special.contains(c)) {
            quote = true;
            break;
        }
    }
    if (!quote)
        return text;
    QString quoted = text;
    quoted.replace(QLatin1Char('"'), QStringLiteral("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}

namespace {

QString line(const QStringList& fields)
{
    QStringList out;
    out.reserve(fields.size());
    for (const QString& f : fields)
        out << field(f);
    return out.join(QLatin1Char(',')) + QStringLiteral("\r\n");
}

} // namespace

QByteArray toCsv(const QList<AsRunEntry>& entries)
{
    QString text = line(header());
    for (const AsRunEntry& e : entries) {
        text += line({AsRunLog::timeText(e.startedAt), AsRunLog::timeText(e.endedAt),
                      QString::number(e.playedMs), e.artist, e.title, e.filePath,
                      e.isStream ? QStringLiteral("1") : QStringLiteral("0"), e.endedBy});
    }
    return text.toUtf8();
}

} // namespace asruncsv

bool exportCsv(const QList<AsRunEntry>& entries, const QString& path, QString* error)
{
    QSaveFile file(path);
    bool written = false;
    if (file.open(QIODevice::WriteOnly)) {
        const QByteArray data = asruncsv::toCsv(entries);
        written = file.write(data) == data.size() && file.commit();
    }
    if (written)
        return true;
    if (error) {
        *error = file.errorString();
        if (error->isEmpty())
            *error = QStringLiteral("The file could not be written.");
    }
    return false;
}
