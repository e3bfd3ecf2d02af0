// How close to its time a hard timed row is heard: 20 hard rows, four seconds apart, each cutting a
// tone that plays in between, on the real sound path. The sink's monitor is recorded (parec) and
// tied to the wall clock; each timed row's onset is found by the level of its own frequency.
// Run it with a sound server (scripts/with-sound.sh's null sink).
// Goals: median error <= 20 ms, worst <= 100 ms.

#include "audioengine.h"
#include "benchtones.h"
#include "playlistmodel.h"
#include "playouttestsupport.h"
#include "recordingclock.h"
#include "timedstart.h"

#include <QApplication>
#include <QDateTime>
#include <QMediaDevices>
#include <QSettings>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int eventCount = 20;
constexpr int spacingSeconds = 4;
constexpr int betweenHz = 440;
constexpr int timedHz = 2000;
constexpr double timedSeconds = 1.5;
// The timed tone as heard is 0.5 x the default volume 0.8; a quarter of that counts as heard.
constexpr double heardThreshold = 0.1;

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2.0;
}

Track toneRow(const QString& artist, const QString& path)
{
    Track track;
    track.artist = artist;
    track.title = QStringLiteral("Tone");
    track.filePath = path;
    return track;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    QCoreApplication::setOrganizationName(QStringLiteral("OndaroBench"));
    QCoreApplication::setApplicationName(QStringLiteral("bench_timed"));
    QTemporaryDir dir;
    if (!dir.isValid() || QMediaDevices::audioOutputs().isEmpty()) {
        std::fprintf(stderr, "needs a temporary folder and a sound server (run under scripts/with-sound.sh)\n");
        return 1;
    }
    {
        QSettings settings;
        settings.clear();
        settings.setValue(QStringLiteral("audio/outputDevice"), QStringLiteral("NullOut"));
        settings.setValue(QStringLiteral("playback/crossfadeEnabled"), false);
        settings.setValue(QStringLiteral("playback/hardTimeFadeMs"), 500);
    }
    const QString between = makeBenchTone(dir.path(), QStringLiteral("between.wav"), betweenHz, 60);
    const QString timed = makeBenchTone(dir.path(), QStringLiteral("timed.wav"), timedHz, timedSeconds);
    if (between.isEmpty() || timed.isEmpty()) {
        std::fprintf(stderr, "sox could not make the tones\n");
        return 1;
    }

    playouttest::SinkRecorder recorder(dir.path());
    if (!recorder.start()) {
        std::fprintf(stderr, "parec could not record the null sink's monitor\n");
        return 1;
    }
    playouttest::RecordingClock clock(QDir(dir.path()).filePath(QStringLiteral("recording.raw")));

    // Whole seconds, as a list writes them; the first a few seconds ahead.
    QDateTime first = QDateTime::currentDateTime().addSecs(4);
    first.setTime(QTime(first.time().hour(), first.time().minute(), first.time().second()));
    QList<QDateTime> times;
    PlaylistModel playlist;
    playlist.appendTrack(toneRow(QStringLiteral("Between"), between));
    for (int i = 0; i < eventCount; ++i) {
        times << first.addSecs(qint64(i) * spacingSeconds);
        Track row = toneRow(QStringLiteral("Timed %1").arg(i + 1), timed);
        row.timed = {TimedStart::Mode::Hard, times.last(), false};
        playlist.appendTrack(row);
        playlist.appendTrack(toneRow(QStringLiteral("Between"), between));
    }

    AudioEngine engine;
    engine.setPlaylist(&playlist);
    int timedStarts = 0;
    QObject::connect(&engine, &AudioEngine::trackStarted, &app, [&](int, const Track& track, const QDateTime&) {
        if (track.timed.isTimed())
            ++timedStarts;
    });
    QObject::connect(&engine, &AudioEngine::logMessage, &app, [](const QString& text) {
        if (text.startsWith(QLatin1String("Timed:")))
            std::printf("  %s  %s\n", qPrintable(QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz"))),
                        qPrintable(text));
    });
    engine.playRow(0);
    const int runMs = (eventCount * spacingSeconds + 10) * 1000;
    if (!QTest::qWaitFor([&] { return timedStarts == eventCount; }, runMs)) {
        std::fprintf(stderr, "only %d of %d timed rows started\n", timedStarts, eventCount);
        return 1;
    }
    // Let the recording take in the last one.
    const QDateTime lastDue = times.last();
    if (!QTest::qWaitFor([&] { return QDateTime::currentDateTime() > lastDue.addMSecs(800); }, 5000))
        return 1;
    const qint64 lastFrame = clock.frameAt(lastDue.toMSecsSinceEpoch());
    engine.stop();
    recorder.stop();

    const std::vector<float> samples = recorder.samples();
    std::vector<double> errors;
    std::vector<double> magnitudes;
    std::printf("\nevent  due           error (ms, + = late)\n");
    for (int i = 0; i < eventCount; ++i) {
        const qint64 due = clock.frameAt(times.at(i).toMSecsSinceEpoch());
        // From half a second before its time: a start heard early counts as well.
        const qint64 onset = playouttest::toneOnsetFrame(samples, due - playouttest::recordRate / 2, timedHz,
                                                         heardThreshold);
        if (due < 0 || onset < 0) {
            std::printf("%5d  %s  not found in the recording\n", i + 1,
                        qPrintable(times.at(i).time().toString(QStringLiteral("HH:mm:ss"))));
            continue;
        }
        const double error = double(onset - due) * 1000.0 / playouttest::recordRate;
        errors.push_back(error);
        magnitudes.push_back(std::abs(error));
        std::printf("%5d  %s  %+7.1f\n", i + 1, qPrintable(times.at(i).time().toString(QStringLiteral("HH:mm:ss"))),
                    error);
        if (std::abs(error) > 100) {
            // What was heard around its time, in 100 ms steps from half a second before.
            const qint64 from = std::max<qint64>(due - playouttest::recordRate / 2, 0);
            const std::vector<float> around(samples.begin() + from,
                                            samples.begin() + std::min<qint64>(from + playouttest::recordRate * 3,
                                                                               qint64(samples.size())));
            const std::vector<double> timedLevel = playouttest::toneTrack(around, timedHz, 100);
            const std::vector<double> betweenLevel = playouttest::toneTrack(around, betweenHz, 100);
            std::printf("       %d Hz / %d Hz:", timedHz, betweenHz);
            for (size_t w = 0; w < timedLevel.size(); ++w)
                std::printf(" %.2f/%.2f", timedLevel[w], betweenLevel[w]);
            std::printf("\n");
        }
    }
    if (errors.size() != size_t(eventCount) || lastFrame < 0) {
        std::printf("\nonly %zu of %d onsets found\n", errors.size(), eventCount);
        return 1;
    }
    const double med = median(magnitudes);
    const double worst = *std::max_element(magnitudes.begin(), magnitudes.end());
    std::printf("\n%d hard rows, onset in the monitor recording against the wall clock (%zu clock readings)\n",
                eventCount, clock.readings());
    std::printf("median |error| %6.1f ms   goal <= 20 ms   %s\n", med, med <= 20 ? "met" : "MISSED");
    std::printf("worst  |error| %6.1f ms   goal <= 100 ms  %s\n", worst, worst <= 100 ? "met" : "MISSED");
    std::printf("median signed error %+.1f ms\n", median(errors));
    return 0;
}
