#pragma once

#include <QAudioBuffer>
#include <QObject>
#include <QString>
#include <QUrl>

#include <atomic>
#include <memory>

// Decodes a player's source with FFmpeg for the level meter, on the thread it lives on (never the
// GUI thread): 16-bit buffers of about 40 ms at the source's own rate, mono or stereo (more
// channels are mixed down to stereo), each stamped with its start in the track (microseconds).
// A run decodes from a start point up to a limit that the caller raises as the player goes on, so
// that memory stays bounded; each run has a number, and everything it sends carries that number so
// the caller can drop what belongs to an abandoned run. Everything FFmpeg allocates for a run is
// given back when the run ends.
class MeterDecoder : public QObject
{
    Q_OBJECT

public:
    // About this much audio per buffer (milliseconds).
    static constexpr int bufferMs = 40;

    explicit MeterDecoder(QObject* parent = nullptr);
    ~MeterDecoder() override;

    // Thread-safe, callable from any thread: runs numbered below `run` stop at once, even inside a
    // blocking read of a stream.
    void abandonBefore(quint64 run);

    // Queued from the owner's thread. A new run replaces the one before; fromUs > 0 seeks first.
    Q_INVOKABLE void start(quint64 run, const QUrl& source, qint64 fromUs, qint64 untilUs);
    // Lets the run decode on up to untilUs (microseconds into the track).
    Q_INVOKABLE void extend(quint64 run, qint64 untilUs);
    // Ends the run and frees what it holds.
    Q_INVOKABLE void stop(quint64 run);

signals:
    void decoded(quint64 run, const QAudioBuffer& buffer);
    // The source cannot be decoded (missing, not audio, damaged beyond use): nothing more comes.
    void failed(quint64 run, const QString& reason);
    // The audio ended; every buffer was sent.
    void ended(quint64 run);

private:
    struct Run;

    void decodeStep(quint64 run);
    void scheduleStep();
    void finishRun();
    bool abandoned(quint64 run) const;

    std::unique_ptr<Run> m_run;
    std::atomic<quint64> m_lowestWanted{0};
    bool m_stepScheduled = false;
};
