#pragma once

#include "asrunentry.h"

#include <QDate>
#include <QDialog>
#include <QList>
#include <QPointer>

class AsRunRecorder;
class StoreReader;
class QDateEdit;
class QLabel;
class QPushButton;
class QTableWidget;

// Shows one day of the as-run log (start, end, played, artist, title, file, ended by) and exports it
// as CSV. Read-only: the log is written by AsRunRecorder. On a shared server the day is read off the
// window's thread (StoreReader), and the status line says so while the server is slow.
class AsRunWindow : public QDialog
{
    Q_OBJECT

public:
    explicit AsRunWindow(QWidget* parent = nullptr);

    // While the recorder writes, a window showing today follows it.
    void setRecorder(AsRunRecorder* recorder);
    QDate date() const;
    void setDate(const QDate& day);
    // The rows on show, oldest first.
    const QList<AsRunEntry>& entries() const { return m_entries; }
    // Writes the rows on show to `path`; false with a message in the status line on failure.
    bool exportTo(const QString& path);

public slots:
    void refresh();
    // Asks for a file name, then exportTo().
    void exportCsvInteractive();

private:
    void showEntries(const QList<AsRunEntry>& entries);

    QDateEdit* m_date = nullptr;
    QTableWidget* m_table = nullptr;
    QLabel* m_status = nullptr;
    QPushButton* m_refresh = nullptr;
    QPushButton* m_export = nullptr;
    QPointer<AsRunRecorder> m_recorder;
    QList<AsRunEntry> m_entries;
    StoreReader* m_reader = nullptr;
    bool m_readAgain = false; // asked again while a read was under way
};
