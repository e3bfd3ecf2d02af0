#pragma once

#include "track.h"
#include "trackparams.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>

#include <functional>
#include <optional>

class QTimer;

// What a playlist row's background needs from its file's parameters (whether it holds a voiceover),
// kept per file and read off the paint path: a file painted for the first time is read just after,
// and again when its parameters change (TrackParamsChanges) or refresh() is called. Asking while
// painting never reads.
class PlaylistColours : public QObject
{
    Q_OBJECT

public:
    using ParamsSource = std::function<TrackParams(const QString& filePath)>;

    explicit PlaylistColours(QObject* parent = nullptr);

    // Where the parameters come from (unset: the store). Forgets everything read so far.
    void setParamsSource(ParamsSource source);
    // Whether the file holds a voiceover; nothing while it is not read yet, in which case it is read
    // once the current repaint is over.
    std::optional<bool> hasVoiceover(const QString& filePath) const;
    // Forgets files no longer among rows and reads the others again.
    void refresh(const QList<Track>& rows);

signals:
    // The files whose colour differs from what was painted.
    void coloursChanged(const QSet<QString>& filePaths);

private:
    void readColours();
    void readColourAgain(const QString& filePath);
    bool readHasVoiceover(const QString& filePath) const;
    // Stores a file's colour input; returns whether it differs from what was painted.
    bool storeColour(const QString& filePath, bool hasVoiceover);

    ParamsSource m_paramsSource;
    // Whether a file's parameters hold a voiceover, by file path; files painted but not read yet.
    QHash<QString, bool> m_hasVoiceover;
    mutable QSet<QString> m_coloursToRead;
    QTimer* m_readTimer = nullptr;
};
