#pragma once

// Shared pieces of the playback tests: generated sine-tone files, a recorder of the null sink's
// monitor, and a per-window tone detector, so a recording shows which track was audible when.

#include "testlocations.h"
#include "testmedia.h"

#include <QAudioDevice>
#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMediaDevices>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTest>
#include <QThread>

#include <cmath>
#include <vector>

// Runs a helper that holds checks (QVERIFY, QCOMPARE, QTRY_*) and leaves the test when one of
// them failed, as the check would have done in the test itself.
#define PLAYOUT_CHECKED(call)                                                                                \
    do {                                                                                                     \
        call;                                                                                                \
        if (QTest::currentTestFailed())                                                                      \
            return;                                                                                          \
    } while (false)

namespace playouttest {

constexpr int recordRate = 44100;

inline const char* noDeviceMessage()
{
    return "No audio output device. Run the playout tests through scripts/test.sh, which starts a "
           "private PulseAudio null sink.";
}

// Removes the track-parameter store of the current settings, so that the library starts empty.
inline void removeLibraryStore()
{
    QFile::remove(QStandardPaths::writableLocation(QStandardPaths::AppConfigLocation) +
                  QStringLiteral("/library.db"));
}

// Settings go to a private folder; every key is cleared so each test starts from the defaults.
using ondarotest::setSetting;
using ondarotest::useTemporarySettings;

inline bool runTool(const QString& program, const QStringList& arguments)
{
    return ondarotest::runTool(program, arguments);
}

// A stereo 44.1 kHz WAV file of one sine tone; amplitude is linear 0..1.
inline QString makeTone(const QString& dir, const QString& name, int frequency, double seconds,
                        double amplitude = 0.5)
{
    const QString path = QDir(dir).filePath(name);
    const bool ok =
        runTool(QStringLiteral("sox"),
                {QStringLiteral("-n"), QStringLiteral("-r"), QString::number(recordRate),
                 QStringLiteral("-c"), QStringLiteral("2"), QStringLiteral("-b"), QStringLiteral("16"), path,
                 QStringLiteral("synth"), QString::number(seconds), QStringLiteral("sine"),
                 QString::number(frequency), QStringLiteral("vol"), QString::number(amplitude)});
    return ok ? path : QString();
}

// What the local stream server sends in the relay tests: a 5 s, 1 kHz tone as a 128 kb/s MP3 with
// the ID3 tags artist "Night Owls" and title "Relay Hour". Empty when it could not be made.
inline QByteArray makeTaggedStreamMp3(const QString& dir)
{
    const QString wav = makeTone(dir, QStringLiteral("live.wav"), 1000, 5);
    const QString mp3 = QDir(dir).filePath(QStringLiteral("live.mp3"));
    if (wav.isEmpty() || !runTool(QStringLiteral("ffmpeg"),
                                  {QStringLiteral("-y"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                                   QStringLiteral("-i"), wav, QStringLiteral("-b:a"), QStringLiteral("128k"),
                                   QStringLiteral("-id3v2_version"), QStringLiteral("3"),
                                   QStringLiteral("-metadata"), QStringLiteral("artist=Night Owls"),
                                   QStringLiteral("-metadata"), QStringLiteral("title=Relay Hour"), mp3}))
        return QByteArray();
    QFile file(mp3);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Two tones of the same frequency one after the other: loud, then quiet.
inline QString makeLoudThenQuiet(const QString& dir, const QString& name, int frequency, double loudSeconds,
                                 double quietSeconds, double loud, double quiet)
{
    const QString a = makeTone(dir, name + QStringLiteral(".loud.wav"), frequency, loudSeconds, loud);
    const QString b = makeTone(dir, name + QStringLiteral(".quiet.wav"), frequency, quietSeconds, quiet);
    const QString path = QDir(dir).filePath(name);
    if (a.isEmpty() || b.isEmpty() || !runTool(QStringLiteral("sox"), {a, b, path}))
        return QString();
    return path;
}

// Records what the null sink plays, as raw signed 16-bit stereo at 44.1 kHz.
class SinkRecorder
{
public:
    explicit SinkRecorder(const QString& dir) : path(QDir(dir).filePath(QStringLiteral("recording.raw"))) {}
    ~SinkRecorder() { stop(); }

    bool start()
    {
        QFile::remove(path);
        process.start(QStringLiteral("parec"),
                      {QStringLiteral("-d"), QStringLiteral("null.monitor"), QStringLiteral("--raw"),
                       QStringLiteral("--format=s16le"), QStringLiteral("--rate=44100"),
                       QStringLiteral("--channels=2"), QStringLiteral("--latency-msec=20"), path});
        if (!process.waitForStarted(10000))
            return false;
        // Wait until the stream is connected and data flows, so that the start is not lost.
        for (int i = 0; i < 100 && QFile(path).size() < 4410; ++i)
            QTest::qWait(50);
        return QFile(path).size() > 0;
    }

    void stop()
    {
        if (process.state() == QProcess::NotRunning)
            return;
        process.terminate();
        if (!process.waitForFinished(5000)) {
            process.kill();
            process.waitForFinished(5000);
        }
    }

    // Left channel as floats -1..1.
    std::vector<float> samples() const
    {
        QFile file(path);
        std::vector<float> left;
        if (!file.open(QIODevice::ReadOnly))
            return left;
        const QByteArray bytes = file.readAll();
        const auto* data = reinterpret_cast<const qint16*>(bytes.constData());
        const qsizetype frames = bytes.size() / 4;
        left.reserve(size_t(frames));
        for (qsizetype i = 0; i < frames; ++i)
            left.push_back(data[2 * i] / 32768.0f);
        return left;
    }

private:
    QString path;
    QProcess process;
};

// Amplitude of one frequency in each 50 ms window (Goertzel), about the tone's linear amplitude.
inline std::vector<double> toneTrack(const std::vector<float>& samples, int frequency, int windowMs = 50)
{
    const size_t window = size_t(recordRate) * size_t(windowMs) / 1000;
    const double coefficient = 2.0 * std::cos(2.0 * M_PI * frequency / recordRate);
    std::vector<double> amplitudes;
    for (size_t start = 0; start + window <= samples.size(); start += window) {
        double s1 = 0.0;
        double s2 = 0.0;
        for (size_t i = 0; i < window; ++i) {
            const double s0 = samples[start + i] + coefficient * s1 - s2;
            s2 = s1;
            s1 = s0;
        }
        const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
        amplitudes.push_back(2.0 * std::sqrt(std::max(power, 0.0)) / double(window));
    }
    return amplitudes;
}

// Index of the first/last window where the tone is above the threshold, -1 when never.
inline int firstAbove(const std::vector<double>& track, double threshold)
{
    for (size_t i = 0; i < track.size(); ++i)
        if (track[i] > threshold)
            return int(i);
    return -1;
}

inline int lastAbove(const std::vector<double>& track, double threshold)
{
    for (size_t i = track.size(); i-- > 0;)
        if (track[i] > threshold)
            return int(i);
    return -1;
}

inline int windowsBothAbove(const std::vector<double>& a, const std::vector<double>& b, double threshold)
{
    int count = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        if (a[i] > threshold && b[i] > threshold)
            ++count;
    return count;
}

// What one run of the playout program left: its exit code (-1 when it did not end in time, -2 when
// it crashed), its log texts without their time stamps, and what it wrote to standard error.
struct RunnerResult {
    int exitCode = -1;
    QStringList out;
    QString err;
};

// Runs the playout program in `home`, which is also its home folder (settings under home/config,
// data under home/data), and waits up to 90 s for it to end. The event loop runs while waiting, so a
// stream server in the test's own process answers (or not) as it would for any player.
inline RunnerResult runPlayoutProgram(const QString& program, const QString& home, const QStringList& arguments)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("HOME"), home);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), QDir(home).filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), QDir(home).filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("QT_MEDIA_BACKEND"), QStringLiteral("gstreamer"));
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(home);
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(program, arguments);
    RunnerResult result;
    if (!process.waitForStarted(10000) || !finished.wait(90000)) {
        process.kill();
        process.waitForFinished(5000);
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -2;
    for (const QString& line :
         QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        result.out << line.mid(14); // "HH:mm:ss.zzz  "
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

// Writes a play list file into `dir`; its path, or an empty string when it could not be written.
inline QString writeListFile(const QString& dir, const QString& name, const QByteArray& content)
{
    const QString path = QDir(dir).filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(content) != content.size())
        return QString();
    return path;
}

// One entry of a play list file: the file's path on a line of its own.
inline QByteArray listEntry(const QString& path)
{
    return path.toUtf8() + '\n';
}

} // namespace playouttest
