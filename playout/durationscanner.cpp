#include "durationscanner.h"

#include <QAudioOutput>
#include <QMediaPlayer>
#include <QTimer>
#include <QUrl>

namespace {
constexpr int kTimeoutMs = 6000;
}

DurationScanner::DurationScanner(QObject* parent)
    : QObject(parent)
    , timeout(new QTimer(this))
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
        if ((busy && path == current) || queue.contains(path))
            continue;
        queue.append(path);
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
                finishWith(0);
            }
        });
    }
    player->setSource(QUrl::fromLocalFile(current));
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
