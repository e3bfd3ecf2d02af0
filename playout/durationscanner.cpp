#include "durationscanner.h"

#include <QAudioOutput>
#include <QMediaPlayer>
#include <QTimer>
#include <QUrl>

namespace {
constexpr int kTimeoutMs = 6000;
}

DurationScanner::DurationScanner(QObject* parent) : QObject(parent), timeout(new QTimer(this))
{
    timeout->setSingleShot(true);
    timeout->setInterval(kTimeoutMs);
    connect(timeout, &QTimer::timeout, this, &DurationScanner::onTimeout);
}

void DurationScanner::enqueue(const QStringList& paths)
{
    for (const QString& path : paths) {
        if (path.isEmpty())
            continue;
        // The window hands over the same paths at every refresh: keep each one once.
        if ((busy && path == current) || waiting.contains(path))
            continue;
        queue.append(path);
        waiting.insert(path);
    }
    if (!busy)
        startNext();
}

void DurationScanner::startNext()
{
    if (queue.isEmpty()) {
        busy = false;
        current.clear();
        emit finished();
        return;
    }
    busy = true;
    current = queue.takeFirst();
    waiting.remove(current);
    if (player && replacePlayer) {
        player->disconnect(this);
        player->stop();
        player->deleteLater();
        output->deleteLater();
        player = nullptr;
        output = nullptr;
    }
    replacePlayer = false;
    if (!player) {
        player = new QMediaPlayer(this);
        output = new QAudioOutput(this);
        output->setVolume(0.0);
        player->setAudioOutput(output);
        connect(player, &QMediaPlayer::durationChanged, this, [this](qint64 d) {
            if (d > 0)
                finishWith(d);
        });
        connect(player, &QMediaPlayer::mediaStatusChanged, this, [this](QMediaPlayer::MediaStatus status) {
            if (!busy)
                return;
            if (status == QMediaPlayer::LoadedMedia || status == QMediaPlayer::BufferedMedia) {
                const qint64 d = player->duration();
                if (d > 0)
                    finishWith(d);
            } else if (status == QMediaPlayer::InvalidMedia) {
                // After a load error the player reports the error once more for the next source; a
                // fresh player for the next file keeps that stale report from ending it with 0.
                replacePlayer = true;
                finishWith(0);
            }
        });
    }
    const QUrl url = QUrl::fromLocalFile(current);
    // The player ignores a source equal to the one it holds, which would leave a re-scan of the
    // last file waiting for the time-out; clearing it first makes it load again.
    if (player->source() == url)
        player->setSource(QUrl());
    player->setSource(url);
    timeout->start();
}

void DurationScanner::finishWith(qint64 durationMs)
{
    if (!busy)
        return;
    busy = false;
    timeout->stop();
    if (!current.isEmpty())
        emit resolved(current, durationMs);
    scheduleNext();
}

void DurationScanner::onTimeout()
{
    if (!busy)
        return;
    finishWith(0);
}

void DurationScanner::scheduleNext()
{
    // Set the next source only after the player's signal handlers have returned.
    QTimer::singleShot(0, this, [this] {
        if (!busy)
            startNext();
    });
}
