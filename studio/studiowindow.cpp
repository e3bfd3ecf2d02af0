#include "studiowindow.h"

#include "analysisqueue.h"
#include "asrunrecorder.h"
#include "asrunwindow.h"
#include "audioengine.h"
#include "levelmeter.h"
#include "libraryconnection.h"
#include "librarywatcher.h"
#include "logfile.h"
#include "logpane.h"
#include "musiclibrary.h"
#include "musiclibrarydialog.h"
#include "onairdisplay.h"
#include "playlistfile.h"
#include "playlistloader.h"
#include "playlistmodel.h"
#include "playlistsession.h"
#include "playlistview.h"
#include "relaypanel.h"
#include "schedulewindow.h"
#include "settingsdialog.h"
#include "studioschedule.h"
#include "trackinfocache.h"
#include "transportbar.h"

#include <QCloseEvent>
#include <QDateTime>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSet>
#include <QSplitter>
#include <QStatusBar>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// More problem lines than this from one load go to the log as a count, not one by one.
constexpr int maximumProblemLines = 50;

const QString studioTitle = QStringLiteral("Ondaro Studio");
const QString playlistFilter = QStringLiteral("Playlists (*.m3u *.m3u8);;All files (*)");
const QString openTitle = QStringLiteral("Open playlist");
const QString saveTitle = QStringLiteral("Save playlist");
const QString cannotOpen = QStringLiteral("The playlist could not be opened.\n\n%1\n\n%2");
const QString cannotSave = QStringLiteral("The playlist could not be saved.\n\n%1");
const QString loadedText = QStringLiteral("Playlist loaded: %1 rows from %2");
const QString appendedText = QStringLiteral("Playlist appended (a track is on air): %1 rows from %2");
const QString savedText = QStringLiteral("Playlist saved: %1 rows to %2");
const QString moreProblems = QStringLiteral("... and %1 more");
const QString asRunOff = QStringLiteral("As-run log is off: %1");
const QString serverBack = QStringLiteral("Connected to the database server %1 again");
const QString restoredText = QStringLiteral("Playlist restored from the last session: %1 rows");
const QString notRestoredText = QStringLiteral("The last session's playlist could not be restored: %1");
const QString quitTitle = QStringLiteral("Quit while on air?");
const QString quitQuestion = QStringLiteral(
    "The station is on air. Quitting stops the sound now.\n\nThe playlist and its position are kept "
    "for the next start.");
const QString noDatabase = QStringLiteral(
    "Library database cannot be opened - the studio plays what it is given, without the library");

} // namespace

StudioWindow::StudioWindow(QWidget* parent) : QMainWindow(parent)
{
    setWindowTitle(studioTitle);
    m_playlist = new PlaylistModel(this);
    m_engine = new AudioEngine(this);
    m_engine->setPlaylist(m_playlist);
    // Row colours come from what the playout read ahead, never from a store call while painting;
    // rows are repainted once a batch of reads has come in.
    QPointer<TrackInfoCache> info = m_engine->trackInfo();
    m_playlist->setParamsSource([info](const QString& path) {
        if (!LibraryConnection::isServer())
            return TrackParams::load(path); // a local file: read as painted, as always
        return info ? info->lookup(path).params : TrackParams();
    });
    auto* repaint = new QTimer(this);
    repaint->setSingleShot(true);
    repaint->setInterval(250);
    connect(repaint, &QTimer::timeout, m_playlist, &PlaylistModel::refresh);
    connect(info, &TrackInfoCache::infoReady, repaint, [repaint] {
        if (!repaint->isActive())
            repaint->start();
    });
    m_logFile = new LogFile(QString(), this);

    setCentralWidget(buildCentre());
    m_transport->setSelectionModel(m_view->selectionModel());
    buildMenus();
    m_rowCount = new QLabel(this);
    statusBar()->addPermanentWidget(m_rowCount);

    connect(m_engine, &AudioEngine::logMessage, this, &StudioWindow::log);
    connect(m_engine, &AudioEngine::levels, this, [this](double left, double right) {
        m_leftMeter->setLevel(left);
        m_rightMeter->setLevel(right);
    });
    // The schedule follows what really happens: the row that starts now starts now.
    connect(m_engine, &AudioEngine::trackStarted, this,
            [this](int row, const Track&, const QDateTime& startedAt) {
                m_playlist->setStartAnchorAt(StudioSchedule::anchorAt(m_playlist->tracks(), row, startedAt));
            });
    connect(m_view, &PlaylistView::playRowRequested, m_engine, &AudioEngine::playRow);
    connect(m_playlist, &PlaylistModel::tracksInserted, this, &StudioWindow::onTracksDropped);
    for (auto signal : {&QAbstractItemModel::rowsInserted, &QAbstractItemModel::rowsRemoved})
        connect(m_playlist, signal, this, &StudioWindow::updateRowCount);
    connect(m_playlist, &QAbstractItemModel::modelReset, this, &StudioWindow::updateRowCount);
    connect(m_logFile, &LogFile::writeFailed, this, [this](const QString& reason) {
        m_logPane->appendLine(QDateTime::currentDateTime(), reason);
        statusBar()->showMessage(reason);
    });

    // Unattended playout: a vanished file or a row that never sounds is skipped, whichever way it
    // was started.
    m_engine->setSkipUnplayableRows(true);

    m_asRun = new AsRunRecorder(m_engine, this);
    connect(m_asRun, &AsRunRecorder::disabled, this, [this](const QString& reason) {
        log(asRunOff.arg(reason));
        // A server that is away says more in the status line than the as-run log that follows from it.
        const QString problem = LibraryConnection::problem();
        statusBar()->showMessage(problem.isEmpty() ? asRunOff.arg(reason) : problem);
    });
    // A shared server going away does not stop the air; the presenter reads why the library and the
    // as-run log are missing, and when they are back.
    auto* watcher = new LibraryWatcher(this);
    connect(watcher, &LibraryWatcher::connectionLost, this, [this](const QString& reason) {
        log(reason);
        statusBar()->showMessage(reason);
    });
    // The watcher reports changes; a server already away when the window opens is said at once.
    if (!LibraryConnection::problem().isEmpty()) {
        log(LibraryConnection::problem());
        statusBar()->showMessage(LibraryConnection::problem());
    }
    // Parameters another studio changed recolour the list (ours come from the store's own signal).
    connect(watcher, &LibraryWatcher::paramsChanged, repaint, [repaint] {
        if (!repaint->isActive())
            repaint->start();
    });
    connect(watcher, &LibraryWatcher::connectionRestored, this, [this] {
        const QString text = serverBack.arg(LibraryConnection::url().displayText());
        log(text);
        statusBar()->showMessage(text);
        // What aired meanwhile goes into the as-run log now.
        m_asRun->writeHeldBack();
    });
    m_analysis = new AnalysisQueue(this);
    m_session = new PlaylistSession(m_playlist, PlaylistSession::defaultFolder(), this);
    connect(m_session, &PlaylistSession::message, this, &StudioWindow::log);
    updateRowCount();
    resize(1280, 860);
}

StudioWindow::~StudioWindow()
{
    // A window that goes without being closed (the application told to quit) still leaves its list.
    if (m_session->hasUnsavedChanges())
        m_session->saveNow();
}

QWidget* StudioWindow::buildCentre()
{
    auto* centre = new QWidget(this);
    auto* column = new QVBoxLayout(centre);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);

    auto* top = new QHBoxLayout;
    top->setSpacing(0);
    m_display = new OnAirDisplay(m_engine, m_playlist, centre);
    top->addWidget(m_display, 1);
    auto* meters = new QWidget(centre);
    meters->setAutoFillBackground(true);
    meters->setPalette(m_display->palette());
    auto* meterColumn = new QVBoxLayout(meters);
    meterColumn->setContentsMargins(8, 12, 10, 12);
    m_leftMeter = new LevelMeter(QStringLiteral("L"), meters);
    m_rightMeter = new LevelMeter(QStringLiteral("R"), meters);
    meterColumn->addStretch(1);
    meterColumn->addWidget(m_leftMeter);
    meterColumn->addWidget(m_rightMeter);
    auto* scale = new QLabel(QStringLiteral("-60 dBFS … 0"), meters);
    scale->setStyleSheet(QStringLiteral("color: #9aa4b5; font-size: 9px;"));
    scale->setAlignment(Qt::AlignRight);
    meterColumn->addWidget(scale);
    meterColumn->addStretch(1);
    meters->setMinimumWidth(300);
    top->addWidget(meters);
    column->addLayout(top);

    auto* controls = new QHBoxLayout;
    controls->setSpacing(0);
    m_transport = new TransportBar(m_engine, m_playlist, centre);
    controls->addWidget(m_transport, 1);
    auto* libraryButton = new QPushButton(QStringLiteral("Library…"), centre);
    libraryButton->setToolTip(QStringLiteral("Open the Library Manager"));
    libraryButton->setMinimumHeight(34);
    connect(libraryButton, &QPushButton::clicked, this, &StudioWindow::showLibrary);
    controls->addWidget(libraryButton);
    controls->addSpacing(6);
    column->addLayout(controls);

    m_relay = new RelayPanel(m_engine, centre);
    column->addWidget(m_relay);

    auto* splitter = new QSplitter(Qt::Vertical, centre);
    m_view = new PlaylistView(m_playlist, splitter);
    m_logPane = new LogPane(splitter);
    splitter->addWidget(m_view);
    splitter->addWidget(m_logPane);
    splitter->setStretchFactor(0, 4);
    splitter->setStretchFactor(1, 1);
    column->addWidget(splitter, 1);
    return centre;
}

void StudioWindow::buildMenus()
{
    QMenu* file = menuBar()->addMenu(QStringLiteral("&File"));
    file->addAction(QStringLiteral("&Open playlist…"), QKeySequence::Open, this,
                    &StudioWindow::openPlaylistDialog);
    file->addAction(QStringLiteral("&Save playlist as…"), QKeySequence::Save, this,
                    &StudioWindow::savePlaylistDialog);
    file->addSeparator();
    file->addAction(QStringLiteral("&Quit"), QKeySequence::Quit, this, &QWidget::close);

    QMenu* playlist = menuBar()->addMenu(QStringLiteral("&Playlist"));
    m_hourMarkers = playlist->addAction(QStringLiteral("&Hour markers"));
    m_hourMarkers->setCheckable(true);
    m_hourMarkers->setChecked(m_playlist->hourMarkersVisible());
    connect(m_hourMarkers, &QAction::toggled, m_playlist, &PlaylistModel::setHourMarkersVisible);
    playlist->addAction(QStringLiteral("Clear &queue"), m_playlist, &PlaylistModel::clearQueue);
    playlist->addAction(QStringLiteral("Remove rows &played"), m_playlist,
                        [this] { m_playlist->removeTracksBefore(); });

    QMenu* tools = menuBar()->addMenu(QStringLiteral("&Tools"));
    tools->addAction(QStringLiteral("&Library…"), QKeySequence(Qt::CTRL | Qt::Key_L), this,
                     &StudioWindow::showLibrary);
    tools->addAction(QStringLiteral("S&chedule…"), this, &StudioWindow::showSchedule);
    tools->addAction(QStringLiteral("&As-run log…"), this, &StudioWindow::showAsRunLog);
    tools->addSeparator();
    tools->addAction(QStringLiteral("&Settings…"), this, &StudioWindow::showSettings);
}

void StudioWindow::start(const StudioCommandLine::Options& options)
{
    if (!MusicLibrary::database().isOpen())
        log(noDatabase);
    // Items given on the command line are this session's list; otherwise the last one comes back.
    if (options.items.isEmpty())
        restoreSession();
    m_session->watch();
    if (!options.items.isEmpty())
        appendItems(options.items);
    // Unattended start after a crash or a restart: on from the row where the list stood.
    if (options.play && m_playlist->rowCount() > 0)
        m_engine->playRow(std::max(0, m_playlist->currentRow()));
}

void StudioWindow::restoreSession()
{
    const PlaylistSession::Saved saved = m_session->readLastSession();
    if (!saved.found)
        return;
    if (!saved.error.isEmpty()) {
        log(notRestoredText.arg(saved.error));
        return;
    }
    QStringList problems;
    for (const QString& missing : saved.missingFiles)
        problems << PlaylistLoader::missingFileText(missing);
    log(restoredText.arg(saved.tracks.size()));
    reportProblems(problems);
    appendTracks(saved.tracks);
    m_session->restorePosition(saved);
    // The presenter sees where the list stood: that row is marked and selected.
    const int row = m_playlist->currentRow();
    if (row >= 0) {
        m_view->selectRow(row);
        m_view->scrollTo(m_playlist->index(row, PlaylistModel::TitleColumn),
                         QAbstractItemView::PositionAtCenter);
    }
}

void StudioWindow::log(const QString& text)
{
    const QDateTime now = QDateTime::currentDateTime();
    m_logPane->appendLine(now, text);
    m_logFile->append(now, text);
}

void StudioWindow::reportProblems(const QStringList& problems)
{
    for (qsizetype i = 0; i < problems.size() && i < maximumProblemLines; ++i)
        log(problems.at(i));
    if (problems.size() > maximumProblemLines)
        log(moreProblems.arg(problems.size() - maximumProblemLines));
}

void StudioWindow::appendTracks(const QList<Track>& tracks)
{
    if (tracks.isEmpty())
        return;
    m_playlist->appendTracks(tracks);
    analyse(tracks);
}

void StudioWindow::appendItems(const QStringList& items)
{
    const PlaylistLoader::Result loaded = PlaylistLoader::load(items);
    reportProblems(loaded.problems);
    appendTracks(loaded.tracks);
}

bool StudioWindow::openPlaylist(const QString& path)
{
    const PlaylistFile::ReadResult read = PlaylistFile::read(path);
    if (!read.ok) {
        log(QStringLiteral("Playlist not loaded: %1 (%2)").arg(QDir::toNativeSeparators(path), read.error));
        QMessageBox::warning(this, openTitle, cannotOpen.arg(QDir::toNativeSeparators(path), read.error));
        return false;
    }
    // Replacing the rows under a sounding track would leave the engine's row pointing at a
    // different track; while on air the file's rows go after the current list instead.
    const bool onAir = m_engine->isPlaying();
    if (!onAir) {
        const int oldCount = m_playlist->rowCount();
        m_playlist->clearQueue();
        m_playlist->setRowMixOverrides(0, QList<PlaylistModel::MixOverride>(oldCount, {-1, -1}));
        m_playlist->clear();
    }
    QStringList problems;
    for (const QString& missing : read.missingFiles)
        problems << PlaylistLoader::missingFileText(missing);
    for (const QString& skipped : read.skipped)
        problems << QStringLiteral("Not a file or stream, ignored: %1").arg(skipped);
    // A fixed time the file gets wrong is the presenter's to know before the hour runs: in the log.
    problems << PlaylistLoader::timingProblemTexts(path, read.timingProblems);
    log((onAir ? appendedText : loadedText).arg(read.tracks.size()).arg(QDir::toNativeSeparators(path)));
    reportProblems(problems);
    appendTracks(read.tracks);
    return true;
}

bool StudioWindow::savePlaylist(const QString& path)
{
    QString error;
    if (!PlaylistFile::write(path, m_playlist->tracks(), &error)) {
        log(error);
        QMessageBox::warning(this, saveTitle, cannotSave.arg(error));
        return false;
    }
    log(savedText.arg(m_playlist->rowCount()).arg(QDir::toNativeSeparators(path)));
    return true;
}

void StudioWindow::openPlaylistDialog()
{
    const QString path = QFileDialog::getOpenFileName(this, openTitle, QString(), playlistFilter);
    if (!path.isEmpty())
        openPlaylist(path);
}

void StudioWindow::savePlaylistDialog()
{
    QString path = QFileDialog::getSaveFileName(this, saveTitle, QString(), playlistFilter);
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".m3u");
    savePlaylist(path);
}

void StudioWindow::onTracksDropped(int firstRow, int count)
{
    // Dropped files arrive named from their file name only; read their tags and lengths so the
    // schedule and the display know how long they are.
    QList<Track> added;
    bool lengthsChanged = false;
    for (int row = firstRow; row < firstRow + count && row < m_playlist->rowCount(); ++row) {
        const Track& bare = m_playlist->tracks().at(row);
        const Track tagged = PlaylistLoader::withTags(bare);
        if (!bare.isStream && !QFileInfo(bare.filePath).isFile())
            log(PlaylistLoader::missingFileText(bare.filePath));
        if (tagged.durationMs != bare.durationMs || tagged.title != bare.title ||
            tagged.artist != bare.artist) {
            lengthsChanged = lengthsChanged || tagged.durationMs != bare.durationMs;
            m_playlist->replaceTrack(row, tagged);
        }
        added << tagged;
    }
    if (lengthsChanged)
        m_playlist->recalculateStartTimes();
    analyse(added);
}

void StudioWindow::analyse(const QList<Track>& tracks)
{
    // A long playlist repeats its files; the queue looks each one up in the store only once.
    QStringList paths;
    QSet<QString> seen;
    for (const Track& track : tracks)
        if (!track.isStream && !track.isCommand && !track.filePath.isEmpty() &&
            !seen.contains(track.filePath)) {
            seen.insert(track.filePath);
            paths << track.filePath;
        }
    if (!paths.isEmpty())
        m_analysis->enqueue(paths);
}

void StudioWindow::updateRowCount()
{
    m_rowCount->setText(QStringLiteral("Rows: %1").arg(m_playlist->rowCount()));
}

void StudioWindow::showLibrary()
{
    if (!m_library) {
        m_library = new MusicLibraryDialog(this);
        m_library->setWindowTitle(QStringLiteral("Ondaro — Library Manager"));
        m_library->setWindowFlag(Qt::Window, true);
        m_library->resize(960, 620);
        connect(m_library, &MusicLibraryDialog::sendToPlaylist, this,
                [this](const Track& track) { appendTracks({track}); });
    }
    m_library->show();
    m_library->raise();
    m_library->activateWindow();
}

void StudioWindow::showSchedule()
{
    if (!m_schedule) {
        auto* schedule = new ScheduleWindow(this);
        schedule->setWindowFlag(Qt::Window, true);
        connect(schedule, &ScheduleWindow::appendToPlaylist, this, &StudioWindow::appendTracks);
        m_schedule = schedule;
    }
    m_schedule->show();
    m_schedule->raise();
    m_schedule->activateWindow();
}

void StudioWindow::showAsRunLog()
{
    if (!m_asRunWindow) {
        auto* window = new AsRunWindow(this);
        window->setWindowFlag(Qt::Window, true);
        window->setRecorder(m_asRun);
        m_asRunWindow = window;
    }
    m_asRunWindow->show();
    m_asRunWindow->raise();
    m_asRunWindow->activateWindow();
}

void StudioWindow::showSettings()
{
    auto* dialog = new SettingsDialog(m_engine, this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    // The dialog has the engine re-read its settings on OK; show them, keep the presenter's volume.
    connect(dialog, &QDialog::accepted, m_transport, &TransportBar::syncCrossfade);
    dialog->open();
}

bool StudioWindow::isOnAir() const
{
    return m_engine->isPlaying() || m_engine->isRelaying();
}

bool StudioWindow::confirmQuitWhileOnAir()
{
    QMessageBox box(QMessageBox::Warning, quitTitle, quitQuestion, QMessageBox::NoButton, this);
    box.setObjectName(quitWhileOnAirName());
    QPushButton* quit = box.addButton(QStringLiteral("&Quit"), QMessageBox::DestructiveRole);
    QPushButton* stay = box.addButton(QMessageBox::Cancel);
    // Enter or Escape keeps the station on air.
    box.setDefaultButton(stay);
    box.setEscapeButton(stay);
    box.exec();
    return box.clickedButton() == quit;
}

void StudioWindow::closeEvent(QCloseEvent* event)
{
    if (isOnAir() && !confirmQuitWhileOnAir()) {
        event->ignore();
        return;
    }
    // Stopping first lets the as-run log record the end as a stop; finishAll closes what is left.
    m_engine->stopRelay();
    m_engine->stop();
    m_asRun->finishAll();
    if (m_library)
        m_library->close();
    m_session->saveNow();
    event->accept();
}
