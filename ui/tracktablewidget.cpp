#include "tracktablewidget.h"

#include "musiclibrary.h"

#include <QMimeData>
#include <QSet>
#include <QUrl>

TrackTableWidget::TrackTableWidget(QWidget* parent) : QTableWidget(0, 12, parent) {}

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
        const QString stored = first->data(Qt::UserRole).toString();
        if (stored.isEmpty())
            continue;
        // A file entry whose path reads like a stream address leaves as that address.
        const QString path = stored.trimmed();
        urls << (MusicLibrary::isStreamUrl(path) ? QUrl(path) : QUrl::fromLocalFile(path));
    }
    data->setUrls(urls);
    return data;
}
