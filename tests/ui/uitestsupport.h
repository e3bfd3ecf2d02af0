#pragma once

// Helpers shared by the window tests: a fresh database per test case, generated audio files and a
// way to answer the window's modal dialogs from inside the test.

#include "musiclibrary.h"
#include "musiclibrarydialog.h"
#include "testlocations.h"
#include "testmedia.h"
#include "teststore.h"
#include "testtracks.h"
#include "tracktablewidget.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QContextMenuEvent>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QPointer>
#include <QProcess>
#include <QSqlDatabase>
#include <QStandardPaths>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include <functional>
#include <memory>

namespace uitest {

// Points the per-user locations at test folders and gives this run its own application name, so
// that the database lives in a location nobody else uses.
inline void useTestLocations(const char* testName)
{
    ondarotest::useTestLocations(
        QStringLiteral("OndaroTest"),
        QStringLiteral("%1-%2").arg(QLatin1String(testName)).arg(QCoreApplication::applicationPid()));
}

inline QString configFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation);
}

// Drops the shared connection and its file and brings the store up again on an empty database.
inline void freshDatabase()
{
    ondarotest::freshStore();
}

inline void removeTestLocations()
{
    ondarotest::closeStore();
    QDir(configFolder()).removeRecursively();
}

// A short sine tone made with sox; returns whether the file exists afterwards.
inline bool makeTone(const QString& path, double seconds = 0.2)
{
    return ondarotest::makeSmallTone(path, seconds);
}

// A file entry as the store keeps it, with a length unless one is given as 0.
inline Track fileTrack(const QString& artist, const QString& title, const QString& path, qint64 ms = 180000)
{
    return ondarotest::fileTrack(artist, title, path, ms);
}

using ondarotest::writeFile;

// Parent of every pending watcher below, so that a test case that ends early (a failed check) can
// drop the watchers that still refer to its locals.
inline std::unique_ptr<QObject>& watcherScope()
{
    static std::unique_ptr<QObject> scope = std::make_unique<QObject>();
    return scope;
}

inline void stopWatchers()
{
    watcherScope() = std::make_unique<QObject>();
}

// Runs `answer` once on the first visible widget of type T that `find` turns up, polling every
// 10 ms until `limitMs` has passed or `scope` is destroyed. Returns a flag that tells whether it ran.
template <typename T>
std::shared_ptr<bool> whenShown(std::function<T*()> find, std::function<void(T*)> answer, int limitMs = 60000,
                                QObject* scope = nullptr)
{
    auto ran = std::make_shared<bool>(false);
    auto* timer = new QTimer(scope ? scope : watcherScope().get());
    timer->setInterval(10);
    const QDeadlineTimer deadline(limitMs);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, find, answer, ran, deadline] {
        if (T* widget = find()) {
            if (widget->isVisible()) {
                timer->stop();
                timer->deleteLater();
                *ran = true;
                answer(widget);
                return;
            }
        }
        if (deadline.hasExpired()) {
            timer->stop();
            timer->deleteLater();
        }
    });
    timer->start();
    return ran;
}

// Answers the next application-modal dialog of type T (message box, input dialog, file dialog).
template <typename T>
std::shared_ptr<bool> whenModal(std::function<void(T*)> answer, int limitMs = 60000, QObject* scope = nullptr)
{
    return whenShown<T>([] { return qobject_cast<T*>(QApplication::activeModalWidget()); }, answer, limitMs,
                        scope);
}

// Answers the next pop-up (a context menu).
template <typename T>
std::shared_ptr<bool> whenPopup(std::function<void(T*)> answer, int limitMs = 60000, QObject* scope = nullptr)
{
    return whenShown<T>([] { return qobject_cast<T*>(QApplication::activePopupWidget()); }, answer, limitMs,
                        scope);
}

// Opens the Library Manager on what the store holds; `table` is then its track table, which must
// show `rows` rows.
inline void openLibraryManager(std::unique_ptr<MusicLibraryDialog>& dialog, TrackTableWidget*& table,
                               int rows)
{
    dialog = std::make_unique<MusicLibraryDialog>();
    dialog->show();
    table = dialog->findChild<TrackTableWidget*>(QStringLiteral("trackTable"));
    QVERIFY(table);
    QCOMPARE(table->rowCount(), rows);
}

// Asks a view for its context menu, as a right click near its top left corner does.
inline void requestContextMenu(QAbstractItemView* view)
{
    const QPoint pos(5, 5);
    QContextMenuEvent event(QContextMenuEvent::Mouse, pos, view->viewport()->mapToGlobal(pos));
    QApplication::sendEvent(view->viewport(), &event);
}

} // namespace uitest
