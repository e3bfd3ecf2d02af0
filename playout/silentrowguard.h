#pragma once

#include <QObject>
#include <QString>

class AudioEngine;
class PlaylistModel;
class QTimer;

// Keeps unattended playout going past a row that is taken but never sounds: a stream whose server
// never answers, or a file that cannot be decoded. When the row has not begun to sound within its
// limit, says so and moves on to the next row. A presenter's Stop or Pause cancels the wait.
class SilentRowGuard : public QObject
{
    Q_OBJECT

public:
    static constexpr int defaultFileLimitMs = 10000;
    static constexpr int defaultStreamLimitMs = 20000;

    SilentRowGuard(AudioEngine* engine, PlaylistModel* playlist, QObject* parent = nullptr);

    void setLimits(int fileMs, int streamMs);
    bool isWaiting() const;

    static QString streamSkippedText(const QString& url, int seconds);
    static QString fileSkippedText(const QString& path, int seconds);

public slots:
    void cancel();

signals:
    void message(const QString& text);

private:
    void onRowTaken(int row);
    void onTimeout();

    AudioEngine* m_engine;
    PlaylistModel* m_playlist;
    QTimer* m_timer = nullptr;
    int m_row = -1;
    QString m_path;
    bool m_stream = false;
    int m_fileLimitMs = defaultFileLimitMs;
    int m_streamLimitMs = defaultStreamLimitMs;
};
