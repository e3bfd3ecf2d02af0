#pragma once

#include <QObject>
#include <QString>

class AudioEngine;
class PlaylistModel;

// Keeps unattended playout going past files that vanished after they were put in the playlist:
// when the engine takes a file row whose file is gone, says so and moves on to the next row. A
// playlist in which nothing is playable stops instead of skipping round for ever.
class MissingFileGuard : public QObject
{
    Q_OBJECT

public:
    MissingFileGuard(AudioEngine* engine, PlaylistModel* playlist, QObject* parent = nullptr);

    static QString skippedText(const QString& path);
    static QString nothingPlayableText();

signals:
    void message(const QString& text);

private:
    void onRowTaken(int row);

    AudioEngine* m_engine;
    PlaylistModel* m_playlist;
    int m_skipsInARow = 0;
};
