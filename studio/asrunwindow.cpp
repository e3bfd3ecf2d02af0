#include "asrunwindow.h"

#include "asruncsv.h"
#include "asrunlog.h"
#include "asrunrecorder.h"
#include "storereader.h"
#include "track.h"

#include <QDateEdit>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

const QStringList kColumns = {QStringLiteral("Start"),   QStringLiteral("End"),   QStringLiteral("Played"),
                              QStringLiteral("Artist"),  QStringLiteral("Title"), QStringLiteral("File"),
                              QStringLiteral("Ended by")};
const QString kTimeShown = QStringLiteral("HH:mm:ss");
const QString kOnAir = QStringLiteral("on air");

QTableWidgetItem* cell(const QString& text)
{
    auto* item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsSelectable | Qt::ItemIsEnabled);
    item->setToolTip(text);
    return item;
}

// Whole minutes and seconds; a row ended at once shows 00:00 rather than the unknown-length dashes.
QString playedText(qint64 ms)
{
    return ms < 1 ? QStringLiteral("00:00") : formatDuration(ms);
}

} // namespace

AsRunWindow::AsRunWindow(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("As-run log"));
    resize(900, 500);

    m_date = new QDateEdit(QDate::currentDate(), this);
    m_date->setObjectName(QStringLiteral("asRunDate"));
    m_date->setCalendarPopup(true);
    m_date->setDisplayFormat(QStringLiteral("yyyy-MM-dd"));
    m_refresh = new QPushButton(QStringLiteral("Refresh"), this);
    m_refresh->setObjectName(QStringLiteral("asRunRefresh"));
    m_export = new QPushButton(QStringLiteral("Export CSV…"), this);
    m_export->setObjectName(QStringLiteral("asRunExport"));

    m_table = new QTableWidget(0, int(kColumns.size()), this);
    m_table->setObjectName(QStringLiteral("asRunTable"));
    m_table->setHorizontalHeaderLabels(kColumns);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->verticalHeader()->setVisible(false);
    m_table->horizontalHeader()->setStretchLastSection(true);

    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("asRunStatus"));

    auto* top = new QHBoxLayout;
    top->addWidget(new QLabel(QStringLiteral("Day:"), this));
    top->addWidget(m_date);
    top->addWidget(m_refresh);
    top->addStretch(1);
    top->addWidget(m_export);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_table, 1);
    layout->addWidget(m_status);

    connect(m_date, &QDateEdit::dateChanged, this, &AsRunWindow::refresh);
    connect(m_refresh, &QPushButton::clicked, this, &AsRunWindow::refresh);
    connect(m_export, &QPushButton::clicked, this, &AsRunWindow::exportCsvInteractive);
    m_reader = new StoreReader(this);
    connect(m_reader, &StoreReader::waitingChanged, this, [this](bool waiting) {
        if (waiting)
            m_status->setText(StoreReader::waitingText());
    });
    refresh();
}

void AsRunWindow::setRecorder(AsRunRecorder* recorder)
{
    if (m_recorder)
        m_recorder->disconnect(this);
    m_recorder = recorder;
    if (!recorder)
        return;
    connect(recorder, &AsRunRecorder::entriesChanged, this, [this] {
        if (date() == QDate::currentDate())
            refresh();
    });
}

QDate AsRunWindow::date() const
{
    return m_date->date();
}

void AsRunWindow::setDate(const QDate& day)
{
    if (day == m_date->date())
        refresh();
    else
        m_date->setDate(day); // refreshes through dateChanged
}

void AsRunWindow::refresh()
{
    // Days asked for while a read is under way come down to one read of the day then shown.
    if (m_reader->isBusy()) {
        m_readAgain = true;
        return;
    }
    const QDate day = date();
    m_reader->read([this, day] {
        const QList<AsRunEntry> entries = AsRunLog::entriesOn(day);
        return StoreReader::Answer([this, entries] {
            showEntries(entries);
            if (std::exchange(m_readAgain, false))
                refresh();
        });
    });
}

void AsRunWindow::showEntries(const QList<AsRunEntry>& entries)
{
    m_entries = entries;
    m_table->setRowCount(int(m_entries.size()));
    qint64 totalMs = 0;
    for (int row = 0; row < m_entries.size(); ++row) {
        const AsRunEntry& e = m_entries[row];
        const bool sounding = !e.endedAt.isValid();
        m_table->setItem(row, 0, cell(e.startedAt.toString(kTimeShown)));
        m_table->setItem(row, 1, cell(sounding ? kOnAir : e.endedAt.toString(kTimeShown)));
        m_table->setItem(row, 2, cell(sounding ? QString() : playedText(e.playedMs)));
        m_table->setItem(row, 3, cell(e.artist));
        m_table->setItem(row, 4, cell(e.title));
        m_table->setItem(row, 5, cell(e.filePath));
        m_table->setItem(row, 6, cell(e.endedBy));
        totalMs += e.playedMs;
    }
    m_export->setEnabled(!m_entries.isEmpty());
    m_status->setText((m_entries.size() == 1 ? QStringLiteral("1 entry")
                                             : QStringLiteral("%1 entries").arg(m_entries.size())) +
                      QStringLiteral(", %1 played").arg(playedText(totalMs)));
    // A store that could not be read shows an empty day; the status line says why.
    if (!m_reader->problem().isEmpty())
        m_status->setText(m_reader->problem());
}

bool AsRunWindow::exportTo(const QString& path)
{
    QString error;
    if (!exportCsv(m_entries, path, &error)) {
        m_status->setText(QStringLiteral("Export failed: %1").arg(error));
        return false;
    }
    m_status->setText(QStringLiteral("Exported %1 entries to %2")
                          .arg(m_entries.size())
                          .arg(QDir::toNativeSeparators(path)));
    return true;
}

void AsRunWindow::exportCsvInteractive()
{
    const QString suggested = QStringLiteral("as-run-%1.csv").arg(date().toString(Qt::ISODate));
    const QString path =
        QFileDialog::getSaveFileName(this, QStringLiteral("Export CSV"), QDir::home().filePath(suggested),
                                     QStringLiteral("CSV files (*.csv)"));
    if (!path.isEmpty())
        exportTo(path);
}
