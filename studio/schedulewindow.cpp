#include "schedulewindow.h"

#include "formatreader.h"
#include "musiclibrary.h"
#include "playlistfile.h"
#include "schedulebuilder.h"
#include "settingkeys.h"
#include "storereader.h"
#include "tracktext.h"

#include <QComboBox>
#include <QDateEdit>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QSpinBox>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

namespace {

const QString kNothingToReport = QStringLiteral("Nothing to report: every slot was filled within the rules.");
const QStringList kColumns = {QStringLiteral("Start"), QStringLiteral("Length"),   QStringLiteral("Artist"),
                              QStringLiteral("Title"), QStringLiteral("Category"), QStringLiteral("Clock")};

QTableWidgetItem* cell(const QString& text)
{
    auto* item = new QTableWidgetItem(text);
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable);
    return item;
}

} // namespace

ScheduleWindow::ScheduleWindow(QWidget* parent) : QDialog(parent)
{
    setWindowTitle(QStringLiteral("Schedule"));
    resize(1000, 600);

    m_formatPath = new QLineEdit(this);
    m_formatPath->setObjectName(QStringLiteral("formatPath"));
    m_formatPath->setText(Settings::scheduleFormatFile.read());
    auto* browse = new QPushButton(QStringLiteral("Browse…"), this);
    connect(browse, &QPushButton::clicked, this, &ScheduleWindow::chooseFormatFile);
    auto* formatRow = new QHBoxLayout;
    formatRow->addWidget(m_formatPath, 1);
    formatRow->addWidget(browse);

    m_library = new QComboBox(this);
    m_library->setObjectName(QStringLiteral("librarySelector"));
    m_date = new QDateEdit(QDate::currentDate(), this);
    m_date->setObjectName(QStringLiteral("scheduleDate"));
    m_date->setCalendarPopup(true);
    m_date->setDisplayFormat(QStringLiteral("yyyy-MM-dd (ddd)"));
    m_firstHour = new QSpinBox(this);
    m_firstHour->setObjectName(QStringLiteral("firstHour"));
    m_firstHour->setRange(0, 23);
    m_firstHour->setValue(QTime::currentTime().hour());
    m_firstHour->setSuffix(QStringLiteral(":00"));
    m_hours = new QSpinBox(this);
    m_hours->setObjectName(QStringLiteral("hourCount"));
    m_hours->setRange(1, 24 * 7);
    m_hours->setValue(3);
    m_seed = new QLineEdit(QStringLiteral("0"), this);
    m_seed->setObjectName(QStringLiteral("seed"));
    m_seed->setValidator(
        new QRegularExpressionValidator(QRegularExpression(QStringLiteral("[0-9]{1,19}")), m_seed));
    m_seed->setToolTip(QStringLiteral("The same library, format, start and seed give the same schedule."));

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Format:"), formatRow);
    form->addRow(QStringLiteral("Library:"), m_library);
    form->addRow(QStringLiteral("Date:"), m_date);
    form->addRow(QStringLiteral("First hour:"), m_firstHour);
    form->addRow(QStringLiteral("Hours:"), m_hours);
    form->addRow(QStringLiteral("Seed:"), m_seed);

    m_table = new QTableWidget(0, int(kColumns.size()), this);
    m_table->setObjectName(QStringLiteral("previewTable"));
    m_table->setHorizontalHeaderLabels(kColumns);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->verticalHeader()->setVisible(false);
    m_table->horizontalHeader()->setStretchLastSection(true);
    m_report = new QPlainTextEdit(this);
    m_report->setObjectName(QStringLiteral("reportView"));
    m_report->setReadOnly(true);
    m_report->setPlaceholderText(QStringLiteral("Relaxed rules and skipped slots are listed here."));
    auto* splitter = new QSplitter(Qt::Horizontal, this);
    splitter->addWidget(m_table);
    splitter->addWidget(m_report);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);

    m_previewButton = new QPushButton(QStringLiteral("Preview"), this);
    m_previewButton->setObjectName(QStringLiteral("previewButton"));
    m_appendButton = new QPushButton(QStringLiteral("Append to playlist"), this);
    m_appendButton->setObjectName(QStringLiteral("appendButton"));
    m_saveButton = new QPushButton(QStringLiteral("Save as M3U…"), this);
    m_saveButton->setObjectName(QStringLiteral("saveButton"));
    auto* close = new QPushButton(QStringLiteral("Close"), this);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("statusLabel"));
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_previewButton);
    buttons->addWidget(m_status, 1);
    buttons->addWidget(m_appendButton);
    buttons->addWidget(m_saveButton);
    buttons->addWidget(close);
    connect(m_previewButton, &QPushButton::clicked, this, &ScheduleWindow::preview);
    connect(m_appendButton, &QPushButton::clicked, this,
            [this] { emit appendToPlaylist(m_schedule.tracks()); });
    connect(m_saveButton, &QPushButton::clicked, this, &ScheduleWindow::saveAsInteractive);
    connect(close, &QPushButton::clicked, this, &QDialog::close);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(splitter, 1);
    layout->addLayout(buttons);

    m_watcher = new QFutureWatcher<Schedule>(this);
    connect(m_watcher, &QFutureWatcher<Schedule>::finished, this, [this] {
        m_schedule = m_watcher->result();
        setBusy(false);
        showSchedule();
        emit previewFinished();
    });

    m_reader = new StoreReader(this);
    connect(m_reader, &StoreReader::waitingChanged, this, [this](bool waiting) {
        if (waiting)
            m_status->setText(StoreReader::waitingText());
    });

    reloadLibraries();
    setBusy(false);
}

ScheduleWindow::~ScheduleWindow()
{
    // The worker holds copies of its inputs only; waiting keeps it from outliving the program.
    m_watcher->waitForFinished();
}

bool ScheduleWindow::isBusy() const
{
    return m_readingInputs || m_watcher->isRunning();
}

void ScheduleWindow::setFormatFile(const QString& path)
{
    m_formatPath->setText(path);
}

void ScheduleWindow::reloadLibraries()
{
    // One read at a time, and one more for all asked meanwhile: a server that hangs would otherwise
    // collect a queue of them.
    if (m_readingLibraries) {
        m_librariesAgain = true;
        return;
    }
    m_readingLibraries = true;
    m_reader->read([this] {
        const QStringList names = MusicLibrary::libraries();
        return StoreReader::Answer([this, names] {
            m_readingLibraries = false;
            const QString current = m_library->currentText();
            m_library->clear();
            m_library->addItems(names);
            const int index = m_library->findText(current);
            if (index >= 0)
                m_library->setCurrentIndex(index);
            if (names.isEmpty() && !m_reader->problem().isEmpty())
                m_status->setText(m_reader->problem());
            if (std::exchange(m_librariesAgain, false))
                reloadLibraries();
        });
    });
}

void ScheduleWindow::chooseFormatFile()
{
    const QString path =
        QFileDialog::getOpenFileName(this, QStringLiteral("Station format"), m_formatPath->text(),
                                     QStringLiteral("Station formats (*.json);;All files (*)"));
    if (!path.isEmpty())
        m_formatPath->setText(path);
}

void ScheduleWindow::setBusy(bool busy)
{
    m_previewButton->setEnabled(!busy);
    m_appendButton->setEnabled(!busy && m_schedule.hasAudio());
    m_saveButton->setEnabled(!busy && m_schedule.hasAudio());
}

void ScheduleWindow::showFailure(const QString& message)
{
    m_schedule = Schedule();
    m_table->setRowCount(0);
    m_report->setPlainText(message);
    m_status->setText(QStringLiteral("No schedule: %1").arg(message));
    setBusy(false);
    emit previewFinished();
}

void ScheduleWindow::preview()
{
    if (isBusy())
        return;
    const QString formatPath = m_formatPath->text().trimmed();
    if (formatPath.isEmpty()) {
        showFailure(QStringLiteral("choose a format file first"));
        return;
    }
    const FormatReader::Result format = FormatReader::read(formatPath);
    if (!format.ok) {
        showFailure(QStringLiteral("format %1: %2").arg(formatPath, format.error));
        return;
    }
    Settings::scheduleFormatFile.write(formatPath);
    bool seedOk = false;
    const quint64 seed = m_seed->text().toULongLong(&seedOk);
    if (!seedOk) {
        showFailure(QStringLiteral("the seed must be a whole number"));
        return;
    }
    const QDateTime from(m_date->date(), QTime(m_firstHour->value(), 0));
    const int hours = m_hours->value();
    const QString libraryName = m_library->currentText();
    const StationFormat stationFormat = format.format;
    m_status->setText(QStringLiteral("Scheduling…"));
    m_schedule = Schedule();
    m_readingInputs = true;
    setBusy(true);
    m_reader->read([this, libraryName, stationFormat, from, hours, seed] {
        ScheduleBuilder::Inputs inputs;
        QString error;
        const bool ok = ScheduleBuilder::read(libraryName, stationFormat, from, hours, &inputs, &error);
        return StoreReader::Answer([this, ok, inputs, error, stationFormat, from, hours, seed] {
            m_readingInputs = false;
            if (!ok) {
                // The store's own words say more than "cannot be opened" when a server is away.
                const QString problem = m_reader->problem();
                showFailure(problem.isEmpty() ? error : QStringLiteral("%1 (%2)").arg(error, problem));
                return;
            }
            startGenerator(inputs, stationFormat, from, hours, seed);
        });
    });
}

void ScheduleWindow::startGenerator(const ScheduleBuilder::Inputs& inputs, const StationFormat& format,
                                    const QDateTime& from, int hours, quint64 seed)
{
    m_status->setText(QStringLiteral("Scheduling…"));
    m_watcher->setFuture(QtConcurrent::run([inputs, format, from, hours, seed] {
        return ScheduleBuilder::generate(inputs, format, from, hours, seed);
    }));
}

void ScheduleWindow::showSchedule()
{
    m_table->setUpdatesEnabled(false);
    m_table->setRowCount(int(m_schedule.items.size()));
    QDate lastDate;
    for (int row = 0; row < m_schedule.items.size(); ++row) {
        const ScheduledItem& item = m_schedule.items.at(row);
        const Track& t = item.track;
        // The date only where a new day begins, so that a week stays readable.
        const QString start = item.start.date() == lastDate
                                  ? item.start.toString(QStringLiteral("HH:mm:ss"))
                                  : item.start.toString(QStringLiteral("ddd yyyy-MM-dd HH:mm:ss"));
        lastDate = item.start.date();
        m_table->setItem(row, 0, cell(start));
        m_table->setItem(row, 1, cell(t.isCommand ? QString() : formatDuration(t.durationMs)));
        m_table->setItem(row, 2, cell(t.isCommand ? QString() : t.artist));
        m_table->setItem(row, 3,
                         cell(t.isCommand
                                  ? commandRowText(t)
                                  : t.title));
        m_table->setItem(row, 4, cell(t.isCommand || t.isStream ? QString() : t.category));
        m_table->setItem(row, 5, cell(item.clock));
    }
    m_table->resizeColumnsToContents();
    m_table->setUpdatesEnabled(true);
    m_report->setPlainText(m_schedule.notes.isEmpty() && m_schedule.timedHours.isEmpty()
                               ? kNothingToReport
                               : m_schedule.reportText());
    if (m_schedule.hasAudio())
        m_status->setText(
            QStringLiteral("%1 rows from %2; %3 report lines")
                .arg(m_schedule.items.size())
                .arg(m_schedule.items.first().start.toString(QStringLiteral("yyyy-MM-dd HH:mm")))
                .arg(m_schedule.notes.size()));
    else
        m_status->setText(QStringLiteral("Nothing could be scheduled; see the report."));
    setBusy(false);
}

bool ScheduleWindow::saveTo(const QString& path)
{
    if (!m_schedule.hasAudio()) {
        m_status->setText(QStringLiteral("Nothing to save."));
        return false;
    }
    QString error;
    if (!PlaylistFile::write(path, m_schedule.tracks(), &error)) {
        m_status->setText(QStringLiteral("Cannot save \"%1\": %2").arg(path, error));
        return false;
    }
    m_status->setText(QStringLiteral("Saved %1 rows to \"%2\"").arg(m_schedule.items.size()).arg(path));
    return true;
}

void ScheduleWindow::saveAsInteractive()
{
    if (!m_schedule.hasAudio())
        return;
    const QString suggested =
        QStringLiteral("schedule-%1.m3u")
            .arg(m_schedule.items.first().start.toString(QStringLiteral("yyyy-MM-dd-HH")));
    const QString path = QFileDialog::getSaveFileName(this, QStringLiteral("Save schedule as M3U"), suggested,
                                                      QStringLiteral("Playlists (*.m3u *.m3u8)"));
    if (path.isEmpty())
        return;
    if (!saveTo(path))
        QMessageBox::warning(this, QStringLiteral("Save schedule"), m_status->text());
}
