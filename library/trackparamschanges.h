#pragma once

#include <QObject>
#include <QString>

// Says when a file's stored track parameters were written or removed in this process, so that what
// shows them (the playlist's colours) reads them again then, and not on every repaint. Changes made
// by another machine on a shared server come from LibraryWatcher::paramsChanged instead.
class TrackParamsChanges : public QObject
{
    Q_OBJECT

public:
    // The one object, living on the application's thread; the signal reaches a receiver on another
    // thread queued, as usual.
    static TrackParamsChanges* instance();
    // Called by the store after it wrote or removed the parameters of `filePath`.
    static void announce(const QString& filePath);

signals:
    void changed(const QString& filePath);

private:
    TrackParamsChanges() = default;
};
