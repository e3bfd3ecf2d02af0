#include "tracktablewidget.h"

#include <QMimeData>
#include <QSet>
#include <QUrl>

TrackTableWidget::TrackTableWidget(QWidget* parent) : QTableWidget(0, 12, parent) {}

bool TrackTableWidget::isStreamUrl(const QString& text)
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

QMimeData* TrackTableWidget::mimeData(const QList<QTableWidgetItem*>& items) const
{
    auto* data = new QMimeData;
    QSet<int> rowsTaken;
    QList<QUrl> urls;
    for (const QTableWidgetItem* item : items) {
        if (!item)
            continue;
        const int row = item->row();
        if (rowsTaken.contains(row))
            continue;
        rowsTaken.insert(row);
        const QTableWidgetItem* first = this->item(row, 0);
        if (!first)
            continue;
        // Only file rows carry their path; stream rows have none and are never dragged.
        const QString path = first->data(Qt::UserRole).toString().trimmed();
        if (path.isEmpty())
            continue;
        urls << (isStreamUrl(path) ? QUrl(path) : QUrl::fromLocalFile(path));
    }
    data->setUrls(urls);
    return data;
}
