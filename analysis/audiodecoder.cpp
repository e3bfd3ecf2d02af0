#include "audiodecoder.h"

#include "analysislogging.h"

#include <QFile>
#include <QFileInfo>

#include <cstdarg>
#include <cstdio>
#include <cstring>
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

// A damaged stream makes the decoder reject packet after packet; past this many in a row the rest is
// taken as unreadable and the audio ends there.
constexpr int kMaxConsecutiveErrors = 200;
// More channels than any real programme has; beyond it the file is taken as broken.
constexpr int kMaxChannels = 64;
constexpr unsigned kMaxIndexBytes = 4096;

QString averrorText(int averror)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(averror, text, sizeof text);
    return QString::fromUtf8(text);
}

// An unspecified order (some WAV files) becomes the usual layout for that many channels.
void copyLayout(AVChannelLayout* dst, const AVChannelLayout& src)
{
    if (src.order == AV_CHANNEL_ORDER_UNSPEC || src.order == AV_CHANNEL_ORDER_CUSTOM)
        av_channel_layout_default(dst, src.nb_channels);
    else
        av_channel_layout_copy(dst, &src);
}

AudioDecoder::ChannelKind kindOf(AVChannel channel)
{
    switch (channel) {
    case AV_CHAN_LOW_FREQUENCY:
    case AV_CHAN_LOW_FREQUENCY_2:
        return AudioDecoder::ChannelKind::LowFrequency;
    case AV_CHAN_BACK_LEFT:
    case AV_CHAN_BACK_RIGHT:
    case AV_CHAN_BACK_CENTER:
    case AV_CHAN_SIDE_LEFT:
    case AV_CHAN_SIDE_RIGHT:
    case AV_CHAN_TOP_BACK_LEFT:
    case AV_CHAN_TOP_BACK_CENTER:
    case AV_CHAN_TOP_BACK_RIGHT:
        return AudioDecoder::ChannelKind::Surround;
    default:
        return AudioDecoder::ChannelKind::Front;
    }
}

// FFmpeg's own messages about damaged input go to this program's log at debug level instead of the
// terminal: every failure the caller must know of is reported through errorString().
void forwardFfmpegLog(void* /*avcl*/, int level, const char* format, va_list args)
{
    if (level > AV_LOG_WARNING || !lcAnalysis().isDebugEnabled())
        return;
    char line[1024];
    std::vsnprintf(line, sizeof line, format, args);
    qCDebug(lcAnalysis).noquote() << "ffmpeg:" << QString::fromUtf8(line).trimmed();
}

} // namespace

struct AudioDecoder::Context {
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* swr = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    int streamIndex = -1;
    // What the converter was set up for; a frame in another format sets it up again.
    int inRate = 0;
    int inFormat = -1;
    AVChannelLayout inLayout{};
    AVChannelLayout outLayout{};
    std::function<bool()> interrupt;

    bool interrupted() const { return interrupt && interrupt(); }

    static int onInterrupt(void* opaque) { return static_cast<Context*>(opaque)->interrupted() ? 1 : 0; }

    ~Context()
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

AudioDecoder::AudioDecoder() : m_ctx(std::make_unique<Context>())
{
    static std::once_flag logOnce;
    std::call_once(logOnce, [] { av_log_set_callback(&forwardFfmpegLog); });
}

AudioDecoder::~AudioDecoder() = default;

void AudioDecoder::setInterrupt(std::function<bool()> interrupt)
{
    m_ctx->interrupt = std::move(interrupt);
}

void AudioDecoder::fail(const QString& reason, int averror)
{
    m_failed = true;
    m_error = averror != 0 ? reason + QStringLiteral(": ") + averrorText(averror) : reason;
}

bool AudioDecoder::open(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists()) {
        fail(QStringLiteral("file not found"));
        return false;
    }
    // A FIFO or device would block inside the demuxer where no interrupt reaches it.
    if (!info.isFile()) {
        fail(QStringLiteral("not a regular file"));
        return false;
    }
    if (info.size() == 0) {
        fail(QStringLiteral("empty file"));
        return false;
    }
    Context& c = *m_ctx;
    c.format = avformat_alloc_context();
    if (!c.format) {
        fail(QStringLiteral("out of memory"));
        return false;
    }
    // The demuxer's seek index grows with the file (up to 1 MiB by default); nothing here seeks.
    c.format->max_index_size = kMaxIndexBytes;
    c.format->interrupt_callback.callback = &Context::onInterrupt;
    c.format->interrupt_callback.opaque = &c;
    // The "file:" prefix keeps a colon in the name from being read as another protocol.
    const QByteArray url = QByteArrayLiteral("file:") + QFile::encodeName(info.absoluteFilePath());
    int r = avformat_open_input(&c.format, url.constData(), nullptr, nullptr);
    if (r < 0) {
        fail(c.interrupted() ? QStringLiteral("interrupted") : QStringLiteral("not a recognised audio file"),
             c.interrupted() ? 0 : r);
        return false;
    }
    r = avformat_find_stream_info(c.format, nullptr);
    if (r < 0)
        qCDebug(lcAnalysis) << "no stream information for" << path << averrorText(r);
    const AVCodec* codec = nullptr;
    r = av_find_best_stream(c.format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (r == AVERROR_DECODER_NOT_FOUND) {
        fail(QStringLiteral("unsupported audio format"));
        return false;
    }
    if (r < 0 || !codec) {
        fail(QStringLiteral("no audio stream"));
        return false;
    }
    c.streamIndex = r;
    // Cover pictures and other streams are never read into packets.
    for (unsigned i = 0; i < c.format->nb_streams; ++i)
        c.format->streams[i]->discard =
            static_cast<int>(i) == c.streamIndex ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    const AVStream* stream = c.format->streams[c.streamIndex];
    c.codec = avcodec_alloc_context3(codec);
    c.packet = av_packet_alloc();
    c.frame = av_frame_alloc();
    if (!c.codec || !c.packet || !c.frame) {
        fail(QStringLiteral("out of memory"));
        return false;
    }
    r = avcodec_parameters_to_context(c.codec, stream->codecpar);
    if (r < 0) {
        fail(QStringLiteral("unsupported audio format"), r);
        return false;
    }
    c.codec->pkt_timebase = stream->time_base;
    // Files are decoded in parallel one per thread; threads inside one decoder would only compete.
    c.codec->thread_count = 1;
    r = avcodec_open2(c.codec, codec, nullptr);
    if (r < 0) {
        fail(QStringLiteral("cannot open the decoder"), r);
        return false;
    }
    while (m_pending.empty() && decodeMore()) {
    }
    if (m_failed)
        return false;
    if (m_pending.empty()) {
        fail(m_skippedPackets > 0 ? QStringLiteral("cannot decode the audio")
                                  : QStringLiteral("no audio samples"));
        return false;
    }
    return true;
}

bool AudioDecoder::setUpConverter(const AVFrame* frame)
{
    Context& c = *m_ctx;
    if (frame->sample_rate <= 0 || frame->ch_layout.nb_channels <= 0 ||
        frame->ch_layout.nb_channels > kMaxChannels) {
        fail(QStringLiteral("unsupported audio format"));
        return false;
    }
    if (m_sampleRate == 0) {
        // The first frame fixes the output; later frames in another format are converted to it.
        m_sampleRate = frame->sample_rate;
        copyLayout(&c.outLayout, frame->ch_layout);
        m_channels = c.outLayout.nb_channels;
        m_kinds.clear();
        for (int i = 0; i < m_channels; ++i)
            m_kinds << kindOf(av_channel_layout_channel_from_index(&c.outLayout, static_cast<unsigned>(i)));
    }
    av_channel_layout_uninit(&c.inLayout);
    copyLayout(&c.inLayout, frame->ch_layout);
    c.inRate = frame->sample_rate;
    c.inFormat = frame->format;
    swr_free(&c.swr);
    int r = swr_alloc_set_opts2(&c.swr, &c.outLayout, AV_SAMPLE_FMT_FLT, m_sampleRate, &c.inLayout,
                                static_cast<AVSampleFormat>(frame->format), frame->sample_rate, 0, nullptr);
    if (r >= 0)
        r = swr_init(c.swr);
    if (r < 0) {
        fail(QStringLiteral("unsupported sample format"), r);
        return false;
    }
    return true;
}

bool AudioDecoder::convert(AVFrame* frame)
{
    Context& c = *m_ctx;
    if (frame->nb_samples <= 0)
        return true;
    if (!c.swr || frame->sample_rate != c.inRate || frame->format != c.inFormat ||
        av_channel_layout_compare(&frame->ch_layout, &c.inLayout) != 0) {
        // A layout of unspecified order compares unequal to the default built from it; only set up
        // again when something real changed.
        AVChannelLayout probe{};
        copyLayout(&probe, frame->ch_layout);
        const bool sameLayout = av_channel_layout_compare(&probe, &c.inLayout) == 0;
        av_channel_layout_uninit(&probe);
        if (!c.swr || frame->sample_rate != c.inRate || frame->format != c.inFormat || !sameLayout) {
            if (!setUpConverter(frame))
                return false;
        }
    }
    const int capacity = swr_get_out_samples(c.swr, frame->nb_samples);
    if (capacity <= 0)
        return true;
    const size_t old = m_pending.size();
    m_pending.resize(old + static_cast<size_t>(capacity) * static_cast<size_t>(m_channels));
    auto* out = reinterpret_cast<uint8_t*>(m_pending.data() + old);
    const int got = swr_convert(c.swr, &out, capacity, const_cast<const uint8_t**>(frame->extended_data),
                                frame->nb_samples);
    if (got < 0) {
        m_pending.resize(old);
        fail(QStringLiteral("cannot convert the samples"), got);
        return false;
    }
    m_pending.resize(old + static_cast<size_t>(got) * static_cast<size_t>(m_channels));
    return true;
}

bool AudioDecoder::receiveFrames()
{
    Context& c = *m_ctx;
    for (;;) {
        const int r = avcodec_receive_frame(c.codec, c.frame);
        if (r == AVERROR(EAGAIN))
            return true;
        if (r == AVERROR_EOF) {
            m_decoderDrained = true;
            return true;
        }
        if (r < 0) {
            // Damaged data inside a packet: skip it, the decoder resynchronises on the next one.
            ++m_skippedPackets;
            ++m_consecutiveErrors;
            return true;
        }
        m_consecutiveErrors = 0;
        const bool converted = convert(c.frame);
        av_frame_unref(c.frame);
        if (!converted)
            return false;
    }
}

bool AudioDecoder::decodeMore()
{
    Context& c = *m_ctx;
    if (m_failed || m_decoderDrained || !c.codec)
        return false;
    if (c.interrupted()) {
        fail(QStringLiteral("interrupted"));
        return false;
    }
    if (!m_inputEnded) {
        const int r = av_read_frame(c.format, c.packet);
        if (r < 0) {
            if (c.interrupted()) {
                fail(QStringLiteral("interrupted"));
                return false;
            }
            // A truncated or damaged end of file ends the audio where the readable part ends.
            if (r != AVERROR_EOF)
                qCDebug(lcAnalysis) << "reading stopped early:" << averrorText(r);
            m_inputEnded = true;
            avcodec_send_packet(c.codec, nullptr);
        } else if (c.packet->stream_index == c.streamIndex) {
            const int sent = avcodec_send_packet(c.codec, c.packet);
            av_packet_unref(c.packet);
            if (sent < 0 && sent != AVERROR(EAGAIN)) {
                ++m_skippedPackets;
                ++m_consecutiveErrors;
            }
        } else {
            av_packet_unref(c.packet);
        }
        if (!m_inputEnded && m_consecutiveErrors > kMaxConsecutiveErrors) {
            qCDebug(lcAnalysis) << "too many damaged packets in a row; the audio ends here";
            m_inputEnded = true;
            avcodec_send_packet(c.codec, nullptr);
        }
    }
    if (!receiveFrames())
        return false;
    if (m_decoderDrained && c.swr) {
        // What a resampler still holds after a change of rate mid-stream.
        const int capacity = swr_get_out_samples(c.swr, 0);
        if (capacity > 0) {
            const size_t old = m_pending.size();
            m_pending.resize(old + static_cast<size_t>(capacity) * static_cast<size_t>(m_channels));
            auto* out = reinterpret_cast<uint8_t*>(m_pending.data() + old);
            const int got = swr_convert(c.swr, &out, capacity, nullptr, 0);
            m_pending.resize(old + static_cast<size_t>(qMax(got, 0)) * static_cast<size_t>(m_channels));
        }
    }
    return !m_decoderDrained || m_pending.size() > m_pendingOffset;
}

qint64 AudioDecoder::read(float* out, qint64 maxFrames)
{
    if (m_failed && m_pending.size() <= m_pendingOffset)
        return -1;
    qint64 written = 0;
    const size_t channels = static_cast<size_t>(m_channels);
    while (written < maxFrames) {
        const size_t available = (m_pending.size() - m_pendingOffset) / qMax<size_t>(channels, 1);
        if (available > 0) {
            const size_t n = qMin<size_t>(available, static_cast<size_t>(maxFrames - written));
            std::memcpy(out + static_cast<size_t>(written) * channels, m_pending.data() + m_pendingOffset,
                        n * channels * sizeof(float));
            m_pendingOffset += n * channels;
            written += static_cast<qint64>(n);
            continue;
        }
        m_pending.clear();
        m_pendingOffset = 0;
        if (!decodeMore() && m_pending.empty())
            break;
    }
    if (written == 0 && m_failed)
        return -1;
    return written;
}
