#pragma once

#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

// Decodes one audio file with FFmpeg to interleaved 32-bit float frames at the file's own sample rate
// and channel count, a few packets at a time: memory stays the same whatever the file's length.
// Not thread-safe; one decoder per file and thread.
class AudioDecoder
{
public:
    // How a channel counts towards loudness: front channels at 1.0, surround at 1.41, LFE not at all.
    enum class ChannelKind { Front, Surround, LowFrequency };

    AudioDecoder();
    ~AudioDecoder();
    AudioDecoder(const AudioDecoder&) = delete;
    AudioDecoder& operator=(const AudioDecoder&) = delete;

    // Polled while decoding and inside FFmpeg's own reads; returning true aborts the decoding.
    void setInterrupt(std::function<bool()> interrupt);

    // Opens the file and decodes up to its first audio frame, so that the format is known afterwards.
    // False with errorString() set when the file is not decodable audio.
    bool open(const QString& path);

    int sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    QList<ChannelKind> channelKinds() const { return m_kinds; }

    // Fills `out` with up to `maxFrames` interleaved frames (channels() floats each). Returns the
    // number of frames written; fewer than asked only at the end of the audio. 0 = the end; -1 = an
    // error (errorString() tells which) after which nothing more is read.
    qint64 read(float* out, qint64 maxFrames);

    // Empty while all is well; after a failure a short reason.
    QString errorString() const { return m_error; }
    // The decoder met damaged data and skipped it (the rest was decoded).
    int skippedPackets() const { return m_skippedPackets; }

    struct Context;

private:
    bool decodeMore();
    bool receiveFrames();
    bool convert(struct AVFrame* frame);
    bool setUpConverter(const struct AVFrame* frame);
    void fail(const QString& reason, int averror = 0);

    std::unique_ptr<Context> m_ctx;
    std::function<bool()> m_interrupt;
    std::vector<float> m_pending; // converted frames not yet read
    size_t m_pendingOffset = 0;   // in floats
    int m_sampleRate = 0;
    int m_channels = 0;
    QList<ChannelKind> m_kinds;
    int m_skippedPackets = 0;
    int m_consecutiveErrors = 0;
    bool m_inputEnded = false;
    bool m_decoderDrained = false;
    bool m_failed = false;
    QString m_error;
};
