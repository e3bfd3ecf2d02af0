#include "meterdecoder.h"

#include "playoutlogging.h"

#include <QAudioFormat>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/log.h>
#include <libswresample/swresample.h>
}

namespace {

// Damaged packets in a row after which the rest of the source is taken as unreadable.
constexpr int maxConsecutiveErrors = 200;
constexpr int maxChannels = 64;
// Nothing seeks far: the demuxer's index need not grow with the file (1 MiB by default).
constexpr unsigned maxIndexBytes = 4096;
// Buffers made per step before other requests (a new run, a stop) get their turn.
constexpr int buffersPerStep = 4;

QString averrorText(int averror)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    return QString::fromUtf8(text);
}

// FFmpeg's own complaints about damaged input go to the debug log, not the terminal; what the
// caller must know arrives as failed().
void forwardFfmpegLog(void*, int level, const char* format, va_list args)
{
    if (level > AV_LOG_WARNING || !lcPlayout().isDebugEnabled())
        return;
    char line[1024];
    std::vsnprintf(line, sizeof line, format, args);
    qCDebug(lcPlayout).noquote() << "ffmpeg:" << QString::fromUtf8(line).trimmed();
}

// An unspecified order (some WAV files) becomes the usual layout for that many channels.
void copyLayout(AVChannelLayout* dst, const AVChannelLayout& src)
{
    if (src.order == AV_CHANNEL_ORDER_UNSPEC || src.order == AV_CHANNEL_ORDER_CUSTOM)
        av_channel_layout_default(dst, src.nb_channels);
    else
        av_channel_layout_copy(dst, &src);
}

} // namespace

struct MeterDecoder::Run {
    quint64 number = 0;
    const std::atomic<quint64>* lowestWanted = nullptr;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* swr = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    int streamIndex = -1;
    AVRational timeBase{1, 1};
    qint64 streamStart = 0; // in timeBase units
    // The converter's input, as set up; a frame in another format sets it up again.
    int inRate = 0;
    int inFormat = -1;
    AVChannelLayout inLayout{};
    AVChannelLayout outLayout{};
    QAudioFormat outFormat;
    qint64 untilUs = 0;
    qint64 fromUs = 0;
    // Time of the first converted sample (microseconds), once known; then counted in samples.
    qint64 firstSampleUs = -1;
    qint64 samplesSent = 0;
    QByteArray chunk;
    int chunkFrames = 0;
    int consecutiveErrors = 0;
    bool inputEnded = false;
    bool drained = false;

    bool abandoned() const { return lowestWanted->load() > number; }
    static int onInterrupt(void* opaque) { return static_cast<Run*>(opaque)->abandoned() ? 1 : 0; }

    qint64 sentUntilUs() const
    {
        const int rate = outFormat.sampleRate();
        return firstSampleUs < 0 || rate <= 0 ? fromUs : firstSampleUs + samplesSent * 1000000 / rate;
    }

    ~Run()
    {
        av_frame_free(&frame);
        av_packet_free(&packet);
        swr_free(&swr);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
        av_channel_layout_uninit(&inLayout);
        av_channel_layout_uninit(&outLayout);
    }
};

MeterDecoder::MeterDecoder(QObject* parent) : QObject(parent)
{
    static std::once_flag logOnce;
    std::call_once(logOnce, [] {
        av_log_set_callback(&forwardFfmpegLog);
        // For a relayed stream, metered from its own connection.
        avformat_network_init();
    });
}

MeterDecoder::~MeterDecoder() = default;

void MeterDecoder::abandonBefore(quint64 run)
{
    quint64 current = m_lowestWanted.load();
    while (current < run && !m_lowestWanted.compare_exchange_weak(current, run)) {
    }
}

bool MeterDecoder::abandoned(quint64 run) const
{
    return m_lowestWanted.load() > run;
}

void MeterDecoder::start(quint64 run, const QUrl& source, qint64 fromUs, qint64 untilUs)
{
    m_run.reset();
    if (abandoned(run))
        return;
    auto fresh = std::make_unique<Run>();
    Run& r = *fresh;
    r.number = run;
    r.lowestWanted = &m_lowestWanted;
    r.fromUs = std::max<qint64>(0, fromUs);
    r.untilUs = untilUs;

    QByteArray url;
    if (source.isLocalFile()) {
        const QFileInfo info(source.toLocalFile());
        if (!info.exists()) {
            emit failed(run, QStringLiteral("file not found"));
            return;
        }
        // A FIFO or device would block inside the demuxer where nothing can stop it.
        if (!info.isFile() || info.size() == 0) {
            emit failed(run, QStringLiteral("not a regular audio file"));
            return;
        }
        // The "file:" prefix keeps a colon in the name from being read as another protocol.
        url = QByteArrayLiteral("file:") + QFile::encodeName(info.absoluteFilePath());
    } else {
        url = source.toEncoded();
    }
    r.format = avformat_alloc_context();
    if (!r.format) {
        emit failed(run, QStringLiteral("out of memory"));
        return;
    }
    r.format->max_index_size = maxIndexBytes;
    r.format->interrupt_callback.callback = &Run::onInterrupt;
    r.format->interrupt_callback.opaque = &r;
    int rc = avformat_open_input(&r.format, url.constData(), nullptr, nullptr);
    if (rc < 0) {
        if (!r.abandoned())
            emit failed(run, QStringLiteral("not a readable audio source: ") + averrorText(rc));
        return;
    }
    rc = avformat_find_stream_info(r.format, nullptr);
    if (rc < 0)
        qCDebug(lcPlayout) << "meter: no stream information for" << source << averrorText(rc);
    const AVCodec* codec = nullptr;
    rc = av_find_best_stream(r.format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (rc < 0 || !codec) {
        if (!r.abandoned())
            emit failed(run, rc == AVERROR_DECODER_NOT_FOUND ? QStringLiteral("unsupported audio format")
                                                             : QStringLiteral("no audio stream"));
        return;
    }
    r.streamIndex = rc;
    for (unsigned i = 0; i < r.format->nb_streams; ++i)
        r.format->streams[i]->discard = int(i) == r.streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    const AVStream* stream = r.format->streams[r.streamIndex];
    r.timeBase = stream->time_base;
    r.streamStart = stream->start_time == AV_NOPTS_VALUE ? 0 : stream->start_time;
    r.codec = avcodec_alloc_context3(codec);
    r.packet = av_packet_alloc();
    r.frame = av_frame_alloc();
    if (!r.codec || !r.packet || !r.frame) {
        emit failed(run, QStringLiteral("out of memory"));
        return;
    }
    rc = avcodec_parameters_to_context(r.codec, stream->codecpar);
    if (rc >= 0) {
        r.codec->pkt_timebase = stream->time_base;
        // One meter among several players: threads inside the decoder would only compete.
        r.codec->thread_count = 1;
        rc = avcodec_open2(r.codec, codec, nullptr);
    }
    if (rc < 0) {
        emit failed(run, QStringLiteral("cannot open the decoder: ") + averrorText(rc));
        return;
    }
    if (r.fromUs > 0) {
        const qint64 target = r.streamStart + av_rescale_q(r.fromUs, AVRational{1, 1000000}, r.timeBase);
        // A source that cannot seek is decoded from its start; what lies before is dropped later.
        if (av_seek_frame(r.format, r.streamIndex, target, AVSEEK_FLAG_BACKWARD) >= 0)
            avcodec_flush_buffers(r.codec);
    }
    m_run = std::move(fresh);
    scheduleStep();
}

void MeterDecoder::extend(quint64 run, qint64 untilUs)
{
    if (!m_run || m_run->number != run || untilUs <= m_run->untilUs)
        return;
    m_run->untilUs = untilUs;
    scheduleStep();
}

void MeterDecoder::stop(quint64 run)
{
    if (m_run && m_run->number <= run)
        m_run.reset();
}

void MeterDecoder::scheduleStep()
{
    if (m_stepScheduled || !m_run)
        return;
    m_stepScheduled = true;
    const quint64 run = m_run->number;
    // One step per event, so that a new run or a stop waits for one step at most.
    QMetaObject::invokeMethod(this, [this, run] { decodeStep(run); }, Qt::QueuedConnection);
}

void MeterDecoder::finishRun()
{
    const quint64 run = m_run->number;
    m_run.reset();
    emit ended(run);
}

void MeterDecoder::decodeStep(quint64 run)
{
    m_stepScheduled = false;
    if (!m_run || m_run->number != run)
        return;
    Run& r = *m_run;
    if (r.abandoned()) {
        m_run.reset();
        return;
    }
    int made = 0;
    while (made < buffersPerStep && r.sentUntilUs() < r.untilUs) {
        // Frames first: a packet may hold several.
        int rc = r.drained ? AVERROR_EOF : avcodec_receive_frame(r.codec, r.frame);
        if (rc == 0) {
            r.consecutiveErrors = 0;
            const AVFrame* f = r.frame;
            if (f->nb_samples > 0 && f->sample_rate > 0 && f->ch_layout.nb_channels > 0 &&
                f->ch_layout.nb_channels <= maxChannels) {
                if (r.outFormat.sampleRate() <= 0) {
                    // The first frame fixes the output; later frames in another format are converted.
                    const int outChannels = std::min(f->ch_layout.nb_channels, 2);
                    av_channel_layout_default(&r.outLayout, outChannels);
                    r.outFormat.setSampleRate(f->sample_rate);
                    r.outFormat.setChannelCount(outChannels);
                    r.outFormat.setSampleFormat(QAudioFormat::Int16);
                    const qint64 pts = f->best_effort_timestamp;
                    r.firstSampleUs =
                        pts == AV_NOPTS_VALUE
                            ? r.fromUs
                            : std::max<qint64>(0, av_rescale_q(pts - r.streamStart, r.timeBase,
                                                               AVRational{1, 1000000}));
                    r.chunkFrames = std::max(1, f->sample_rate * bufferMs / 1000);
                }
                AVChannelLayout probe{};
                copyLayout(&probe, f->ch_layout);
                const bool sameInput = r.swr && f->sample_rate == r.inRate && f->format == r.inFormat &&
                                       av_channel_layout_compare(&probe, &r.inLayout) == 0;
                if (!sameInput) {
                    av_channel_layout_uninit(&r.inLayout);
                    av_channel_layout_copy(&r.inLayout, &probe);
                    r.inRate = f->sample_rate;
                    r.inFormat = f->format;
                    swr_free(&r.swr);
                    int set = swr_alloc_set_opts2(&r.swr, &r.outLayout, AV_SAMPLE_FMT_S16,
                                                  r.outFormat.sampleRate(), &r.inLayout,
                                                  AVSampleFormat(f->format), f->sample_rate, 0, nullptr);
                    if (set >= 0)
                        set = swr_init(r.swr);
                    if (set < 0) {
                        av_channel_layout_uninit(&probe);
                        av_frame_unref(r.frame);
                        const QString reason = QStringLiteral("unsupported sample format: ") + averrorText(set);
                        m_run.reset();
                        emit failed(run, reason);
                        return;
                    }
                }
                av_channel_layout_uninit(&probe);
                const int bytesPerFrame = r.outFormat.bytesPerFrame();
                const int capacity = swr_get_out_samples(r.swr, f->nb_samples);
                if (capacity > 0) {
                    const qsizetype old = r.chunk.size();
                    r.chunk.resize(old + qsizetype(capacity) * bytesPerFrame);
                    auto* out = reinterpret_cast<uint8_t*>(r.chunk.data() + old);
                    const int got = swr_convert(r.swr, &out, capacity,
                                                const_cast<const uint8_t**>(f->extended_data), f->nb_samples);
                    r.chunk.resize(old + qsizetype(std::max(got, 0)) * bytesPerFrame);
                }
            }
            av_frame_unref(r.frame);
        } else if (rc == AVERROR_EOF) {
            r.drained = true;
        } else if (rc != AVERROR(EAGAIN)) {
            // Damaged data: the decoder picks up again at the next packet.
            ++r.consecutiveErrors;
        } else if (r.inputEnded) {
            r.drained = true; // flushed, and nothing more comes
        } else {
            rc = av_read_frame(r.format, r.packet);
            if (rc < 0) {
                if (r.abandoned()) {
                    m_run.reset();
                    return;
                }
                // A truncated or damaged end: the audio ends where the readable part ends.
                if (rc != AVERROR_EOF)
                    qCDebug(lcPlayout) << "meter: reading stopped early:" << averrorText(rc);
                r.inputEnded = true;
                avcodec_send_packet(r.codec, nullptr);
            } else {
                if (r.packet->stream_index == r.streamIndex) {
                    const int sent = avcodec_send_packet(r.codec, r.packet);
                    if (sent < 0 && sent != AVERROR(EAGAIN))
                        ++r.consecutiveErrors;
                }
                av_packet_unref(r.packet);
            }
        }
        if (r.consecutiveErrors > maxConsecutiveErrors) {
            if (r.inputEnded) {
                r.drained = true;
            } else {
                qCDebug(lcPlayout) << "meter: too many damaged packets in a row; the audio ends here";
                r.inputEnded = true;
                avcodec_send_packet(r.codec, nullptr);
            }
            r.consecutiveErrors = 0;
        }

        // Whole buffers go out as they fill; the last, shorter one at the end.
        const int bytesPerFrame = r.outFormat.sampleRate() > 0 ? r.outFormat.bytesPerFrame() : 0;
        const qsizetype chunkBytes = qsizetype(r.chunkFrames) * bytesPerFrame;
        while (bytesPerFrame > 0 && (r.chunk.size() >= chunkBytes || (r.drained && !r.chunk.isEmpty()))) {
            const qsizetype take = std::min(chunkBytes, r.chunk.size());
            const qint64 startUs = r.sentUntilUs();
            QAudioBuffer buffer(r.chunk.left(take), r.outFormat, startUs);
            r.chunk.remove(0, take);
            r.samplesSent += take / bytesPerFrame;
            ++made;
            emit decoded(run, buffer);
        }
        if (r.drained && r.chunk.isEmpty()) {
            if (r.samplesSent == 0 && r.firstSampleUs < 0) {
                m_run.reset();
                emit failed(run, QStringLiteral("no decodable audio"));
            } else {
                finishRun();
            }
            return;
        }
    }
    if (r.sentUntilUs() < r.untilUs)
        scheduleStep();
}
