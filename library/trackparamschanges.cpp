#include "trackparamschanges.h"

#include <QCoreApplication>
#include <QThread>

TrackParamsChanges* TrackParamsChanges::instance()
{
    // Made on first use, which may be a store thread; it lives with the application all the same.
    static TrackParamsChanges* const changes = [] {
        auto* made = new TrackParamsChanges;
        if (QCoreApplication::instance())
            made->moveToThread(QCoreApplication::instance()->thread());
        return made;
    }();
    return changes;
}

void TrackParamsChanges::announce(const QString& filePath)
{
    emit instance()->changed(filePath);
}
