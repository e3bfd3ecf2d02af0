#include "playoutrunner.h"

#include "trackinfocache.h"

#include "asrunrecorder.h"
#include "audioengine.h"
#include "playlistfile.h"
#include "playlistmodel.h"
#include "playoutlog.h"
#include "playoutlogging.h"
#include "playoutsequencer.h"
#include "timedrules.h"
#include "settingkeys.h"
#include "trackdetails.h"
#include "tracktext.h"

#include <QDir>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

namespace {

// How long a cold start waits for the first row's stored parameters, milliseconds.
constexpr int firstRowWaitMs = 2000;
const QString kPlaylistFailed = QStringLiteral("Playlist not loaded: %1 (%2)");
const QString kNotPlayable = QStringLiteral("Not a file or stream, ignored: %1");
// "<file>: Line 4: ..." - the entry after such a line plays untimed.
const QString kTimingIgnored = QStringLiteral("Start time ignored in %1: %2");
// A STOP row or the end of the list with a timed row still to come: the run stays for it.
const QString kWaitingForTimed = QStringLiteral("Waiting for timed row: %1 %2 %3");
const QString kAsRunOff = QStringLiteral("As-run log is off: %1");
const QString kNoDeviceHint = QStringLiteral(
    "No audio output device: check the sound server or \"audio/outputDevice\" (see --list-devices)");

bool isMissingFile(const Track& track)
{
    return !track.isCommand && !track.isStream && !QFileInfo(track.filePath).isFile();
}

} // namespace

PlayoutRunner::PlayoutRunner(const Options& options, QObject* parent)
    : QObject(parent), m_options(options), m_playlist(new PlaylistModel(this)),
      m_engine(new AudioEngine(this))
{
    m_engine->setPlaylist(m_playlist);
    connect(m_engine, &AudioEngine::logMessage, this, &PlayoutRunner::onEngineLog);
    connect(m_engine, &AudioEngine::currentRowChanged, this, &PlayoutRunner::onRowTaken);
    // Audio went out: a short track may end before its first position report.
    connect(m_engine, &AudioEngine::trackStarted, this, [this] {
        if (!m_ended)
            m_status = Played;
    });
    connect(m_engine, &AudioEngine::positionChanged, this, [this](qint64 position) {
        if (position > 0 && !m_ended)
            m_status = Played;
    });

    // The studio's rules for rows that cannot sound, with its texts.
    m_engine->setSkipUnplayableRows(true);

    if (m_options.recordAsRun) {
        m_asRun = new AsRunRecorder(m_engine, this);
        connect(m_asRun, &AsRunRecorder::disabled, this,
                [this](const QString& reason) { emit problem(kAsRunOff.arg(reason)); });
    }
}

PlayoutRunner::CommandAction PlayoutRunner::commandAction(const QString& word)
{
    return word.trimmed().compare(QLatin1String("stop"), Qt::CaseInsensitive) == 0 ? CommandAction::Halt
                                                                                   : CommandAction::StepOver;
}

int PlayoutRunner::firstRowToPlay(const QList<Track>& rows)
{
    for (int row = 0; row < rows.size(); ++row) {
        if (!isMissingFile(rows.at(row)))
            return row;
    }
    return -1;
}

QString PlayoutRunner::missingFileText(const QString& path)
{
    return QStringLiteral("Skipping missing file: ") + QDir::toNativeSeparators(path);
}

QString PlayoutRunner::steppedOverText(const QString& word)
{
    return QStringLiteral("Command row stepped over: ") + word.toUpper();
}

QString PlayoutRunner::nothingToPlayText()
{
    return QStringLiteral("Nothing to play: none of the items is an existing file or a stream URL");
}

PlayoutRunner::ExitStatus PlayoutRunner::load(const QStringList& items)
{
    QList<Track> rows;
    QList<int> withoutInfo; // files named on the command line carry no names of their own
    for (const QString& item : items) {
        if (isStreamUrl(item)) {
            rows << trackFromStreamUrl(item);
        } else if (PlaylistFile::isPlaylistPath(item)) {
            const PlaylistFile::ReadResult read = PlaylistFile::read(item);
            if (!read.ok) {
                emit problem(kPlaylistFailed.arg(QDir::toNativeSeparators(item), read.error));
                return PlaylistUnusable;
            }
            for (const QString& skipped : read.skipped)
                emit problem(kNotPlayable.arg(skipped));
            for (const QString& timing : read.timingProblems)
                emit problem(kTimingIgnored.arg(QDir::toNativeSeparators(item), timing));
            rows << read.tracks;
        } else {
            const QString path = item.startsWith(QLatin1String("file:"), Qt::CaseInsensitive)
                                     ? QUrl(item).toLocalFile()
                                     : item;
            withoutInfo << int(rows.size());
            rows << trackFromFileName(QFileInfo(path).absoluteFilePath());
        }
    }
    TrackDetails::fill(rows, withoutInfo);

    int playable = 0;
    for (Track& row : rows) {
        if (row.isStream && row.streamLimitMs < 1)
            row.streamLimitMs = m_options.streamLimitMs;
        if (isMissingFile(row))
            emit problem(missingFileText(row.filePath));
        else if (!row.isCommand)
            ++playable;
    }
    if (playable == 0) {
        emit problem(nothingToPlayText());
        return NothingPlayed;
    }
    m_playlist->appendTracks(rows);
    return Played;
}

void PlayoutRunner::start()
{
    const int row = firstRowToPlay(m_playlist->tracks());
    if (row < 0) {
        end(NothingPlayed);
        return;
    }
    // Nothing is on air yet: give the first row a moment to have its stored parameters read, so
    // that it starts with its cue points and gain. A server that does not answer costs at most
    // firstRowWaitMs before it plays with the defaults.
    const QString path = m_playlist->tracks().at(row).filePath;
    TrackInfoCache* info = m_engine->trackInfo();
    if (path.isEmpty() || m_playlist->tracks().at(row).isStream || info->forStart(path).known) {
        m_engine->playRow(row);
        return;
    }
    auto* wait = new QTimer(this);
    wait->setSingleShot(true);
    auto begin = [this, row, wait] {
        if (!wait->isActive())
            return; // already started
        wait->stop();
        wait->deleteLater();
        m_engine->playRow(row);
    };
    connect(info, &TrackInfoCache::infoReady, wait, [path, begin](const QString& ready) {
        if (ready == path)
            begin();
    });
    connect(wait, &QTimer::timeout, this, [this, row, wait] {
        wait->deleteLater();
        m_engine->playRow(row);
    });
    wait->start(firstRowWaitMs);
}

void PlayoutRunner::finish()
{
    if (m_asRun)
        m_asRun->finishAll();
}

void PlayoutRunner::onEngineLog(const QString& text)
{
    emit logLine(text);
    if (text == PlayoutLog::noDevice) {
        emit problem(kNoDeviceHint);
        end(NoDevice);
    } else if (text == PlayoutLog::stop) {
        // The end of the list, or nothing playable left (the guard stopped the engine).
        if (!waitForTimedRow())
            end(m_status);
    }
}

void PlayoutRunner::onRowTaken(int row)
{
    const QList<Track>& rows = m_playlist->tracks();
    if (row < 0 || row >= rows.size() || !rows.at(row).isCommand)
        return;
    const QString word = rows.at(row).command;
    // After the engine has finished taking the row and logged it, never from inside its signal.
    QTimer::singleShot(0, this, [this, row, word] {
        if (m_ended || m_engine->currentRow() != row)
            return;
        if (commandAction(word) == CommandAction::Halt) {
            if (!waitForTimedRow())
                end(Played);
            return;
        }
        emit logLine(steppedOverText(word));
        m_engine->next();
    });
}

void PlayoutRunner::end(ExitStatus status)
{
    if (m_ended)
        return;
    m_ended = true;
    m_status = status;
    qCInfo(lcPlayout) << "headless run ends with status" << status;
    emit finished(status);
}

bool PlayoutRunner::waitForTimedRow()
{
    const int row = m_engine->sequencer()->waitingTimedRow();
    if (m_ended || row < 0)
        return false;
    const Track& track = m_playlist->tracks().at(row);
    emit logLine(kWaitingForTimed.arg(TimedLog::modeText(track.timed),
                                      track.timed.at.time().toString(QStringLiteral("HH:mm:ss")),
                                      track.isCommand ? commandRowText(track) : trackDisplayText(track)));
    return true;
}
