#pragma once

#include "schedule.h"
#include "schedulebuilder.h"
#include "track.h"

#include <QDialog>
#include <QFutureWatcher>
#include <QList>

class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QSpinBox;
class QTableWidget;
class StoreReader;

// "Schedule…": builds the running order of some hours from a station format and a library of the
// store, shows it with its start times beside the report of relaxed rules and skipped slots, and hands
// it to the playlist or saves it as extended M3U. The library is read through a StoreReader (off the
// window's thread on a shared server, with "waiting for the server" in the status line while it is
// slow); the generator runs on a worker thread.
class ScheduleWindow : public QDialog
{
    Q_OBJECT

public:
    explicit ScheduleWindow(QWidget* parent = nullptr);
    ~ScheduleWindow() override;

    // The schedule on show; empty before the first preview and after a failed one.
    const Schedule& schedule() const { return m_schedule; }
    bool isBusy() const;
    void setFormatFile(const QString& path);
    // Writes the schedule on show as extended M3U; false with the reason in the status line.
    bool saveTo(const QString& path);

signals:
    void appendToPlaylist(const QList<Track>& tracks);
    // A preview ended, with a schedule or with a message.
    void previewFinished();

public slots:
    void preview();
    void reloadLibraries();
    void chooseFormatFile();
    // Asks for a file name, then saveTo().
    void saveAsInteractive();

private:
    void showSchedule();
    void showFailure(const QString& message);
    void setBusy(bool busy);
    void startGenerator(const ScheduleBuilder::Inputs& inputs, const StationFormat& format,
                        const QDateTime& from, int hours, quint64 seed);

    QLineEdit* m_formatPath = nullptr;
    QComboBox* m_library = nullptr;
    QDateEdit* m_date = nullptr;
    QSpinBox* m_firstHour = nullptr;
    QSpinBox* m_hours = nullptr;
    QLineEdit* m_seed = nullptr;
    QPushButton* m_previewButton = nullptr;
    QPushButton* m_appendButton = nullptr;
    QPushButton* m_saveButton = nullptr;
    QTableWidget* m_table = nullptr;
    QPlainTextEdit* m_report = nullptr;
    QLabel* m_status = nullptr;
    QFutureWatcher<Schedule>* m_watcher = nullptr;
    StoreReader* m_reader = nullptr;
    bool m_readingInputs = false;
    bool m_readingLibraries = false;
    bool m_librariesAgain = false; // asked again while a read was under way
    Schedule m_schedule;
};
