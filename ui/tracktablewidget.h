#pragma once

#include <QTableWidget>

// The library window's track table. Its only own behaviour is the drag payload: the dragged rows
// leave as a URL list ("text/uri-list"), which a playlist or any other drop target can take.
class TrackTableWidget : public QTableWidget
{
    Q_OBJECT

public:
    explicit TrackTableWidget(QWidget* parent = nullptr);

protected:
    QMimeData* mimeData(const QList<QTableWidgetItem*>& items) const override;
};
