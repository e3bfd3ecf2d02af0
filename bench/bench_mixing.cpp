// Mixing accuracy of the playout engine on the real sound path: ten consecutive automatic mixes
// with crossfade on (mix point 2500 ms), the intervals of the 40 ms fade steps and the cost of the
// level meter. Run it with a sound server (scripts/test.sh's null sink or a real card).
// Goals: median mix error < 60 ms, worst < 150 ms; fade ticks 40 +- 10 ms; meter < 20 us per
// 40 ms buffer.

#include "audioengine.h"
#include "benchtones.h"
#include "mixrules.h"
#include "playlistmodel.h"

#include <QApplication>
#include <QAudioBuffer>
#include <QAudioDevice>
#include <QAudioFormat>
#include <QAudioOutput>
#include <QElapsedTimer>
#include <QMediaDevices>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

constexpr int mixCount = 10;
constexpr int mixPointMs = 2500;
constexpr double trackSeconds = 5.0;

double median(std::vector<double> values)
{
    if (values.empty())
        return 0.0;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

double meterMicrosecondsPerBuffer()
{
    QAudioFormat format;
    format.setSampleRate(44100);
    format.setChannelCount(2);
    format.setSampleFormat(QAudioFormat::Int16);
    const int frames = 44100 * 40 / 1000; // 40 ms
    QByteArray data(frames * 4, Qt::Uninitialized);
    auto* samples = reinterpret_cast<qint16*>(data.data());
    for (int i = 0; i < frames * 2; ++i)
        samples[i] = qint16(16000 * std::sin(i * 0.01));
    const QAudioBuffer buffer(data, format);
    constexpr int rounds = 20000;
    double sink = 0.0;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < rounds; ++i)
        sink += peakLevels(buffer).left;
    const double us = timer.nsecsElapsed() / 1000.0 / rounds;
    if (sink < 0)
        std::printf("(impossible)\n");
    return us;
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir dir;
    QSettings::setPath(QSettings::IniFormat, QSettings::UserScope, dir.path());
    QSettings::setDefaultFormat(QSettings::IniFormat);
    QCoreApplication::setOrganizationName(QStringLiteral("OndaroBench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench_mixing"));

    const double meterUs = meterMicrosecondsPerBuffer();
    std::printf("meter: %.2f us per 40 ms stereo 16-bit buffer (goal < 20 us)\n", meterUs);

    if (QMediaDevices::audioOutputs().isEmpty()) {
        std::printf(
            "no audio output device: start a sound server (scripts/test.sh does) for the mix figures\n");
        return 1;
    }

    {
        QSettings settings;
        settings.setValue(QStringLiteral("playback/crossfadeEnabled"), true);
        settings.setValue(QStringLiteral("playback/mixPointMs"), mixPointMs);
        settings.setValue(QStringLiteral("playback/minCrossfadeMs"), 1000);
        settings.setValue(QStringLiteral("playback/fadeInMs"), 1500);
        settings.setValue(QStringLiteral("playback/fadeOutMs"), 2000);
    }

    PlaylistModel playlist;
    for (int i = 0; i <= mixCount; ++i) {
        const QString path =
            makeBenchTone(dir.path(), QStringLiteral("tone%1.wav").arg(i), 300 + 60 * i, trackSeconds);
        if (path.isEmpty()) {
            std::printf("sox failed to make the test tones\n");
            return 1;
        }
        Track track;
        track.title = QStringLiteral("Tone %1").arg(i);
        track.filePath = path;
        playlist.appendTrack(track);
    }

    AudioEngine engine;
    engine.setPlaylist(&playlist);

    std::vector<double> errors;
    bool first = true;
    QObject::connect(&engine, &AudioEngine::currentRowChanged, &app, [&](int row) {
        if (first) {
            first = false;
            return;
        }
        // Emitted before the deck switch: position and duration are still the outgoing track's.
        const double error = double(engine.position()) - double(engine.duration() - mixPointMs);
        errors.push_back(error);
        std::printf("mix %2d: outgoing at %lld of %lld ms, error %+.0f ms\n", row, engine.position(),
                    engine.duration(), error);
    });

    // Each volume handed to an output while a fade runs is one fade step.
    std::vector<double> tickIntervals;
    QElapsedTimer clock;
    clock.start();
    const QList<QAudioOutput*> outputs = engine.findChildren<QAudioOutput*>();
    std::vector<qint64> lastTick(size_t(outputs.size()), -1);
    for (int i = 0; i < outputs.size(); ++i) {
        QObject::connect(outputs[i], &QAudioOutput::volumeChanged, &app, [&, i] {
            const qint64 now = clock.nsecsElapsed();
            if (engine.deckFading(0) || engine.deckFading(1)) {
                if (lastTick[size_t(i)] >= 0 && now - lastTick[size_t(i)] < 100000000)
                    tickIntervals.push_back((now - lastTick[size_t(i)]) / 1e6);
                lastTick[size_t(i)] = now;
            } else {
                lastTick[size_t(i)] = -1;
            }
        });
    }

    QObject::connect(&engine, &AudioEngine::logMessage, &app, [&](const QString& text) {
        if (text == QLatin1String("Stop"))
            app.quit();
    });
    QTimer::singleShot(0, &engine, [&engine] { engine.playRow(0); });
    QTimer::singleShot(int((mixCount + 3) * trackSeconds * 1000), &app, &QCoreApplication::quit);
    app.exec();

    if (errors.empty()) {
        std::printf("no mix happened\n");
        return 1;
    }
    std::vector<double> absolute;
    for (double e : errors)
        absolute.push_back(std::fabs(e));
    std::printf("mix error over %zu mixes: median %.0f ms (goal < 60), worst %.0f ms (goal < 150)\n",
                errors.size(), median(absolute), *std::max_element(absolute.begin(), absolute.end()));
    if (!tickIntervals.empty())
        std::printf("fade ticks over %zu steps: min %.1f ms, median %.1f ms, max %.1f ms (goal 40 +- 10)\n",
                    tickIntervals.size(), *std::min_element(tickIntervals.begin(), tickIntervals.end()),
                    median(tickIntervals), *std::max_element(tickIntervals.begin(), tickIntervals.end()));
    return 0;
}
