#pragma once

#include <QTableWidget>

// The library window's track table. Its only own behaviour is the drag payload: the dragged rows
// leave as a URL list ("text/uri-list"), which a playlist or any other drop target can take.
class TrackTableWidget : public QTableWidget
{
    Q_OBJECT

public:
    explicit TrackTableWidget(QWidget* parent = nullptr);

    // True when the trimmed text starts with a stream scheme (http, https, mms, rtsp, rtmp).
    static bool isStreamUrl(const QString& text);

protected:
    QMimeData* mimeData(const QList<QTableWidgetItem*>& items) const override;
};
