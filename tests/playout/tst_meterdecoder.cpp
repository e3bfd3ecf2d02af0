#include "meterdecoder.h"
#include "mixrules.h"
#include "playouttestsupport.h"

#include <QFile>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace playouttest;

// The meters' own decoder: buffers in order and in time, within the limit it is given, and a
// defined end for sources it cannot read.
class TestMeterDecoder : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir dir;
    QString wavTone;
    QString mp3Tone;
    QString monoTone;

    struct Received {
        QList<qint64> starts;
        QList<qint64> ends;
        QList<double> peaks;
        QList<int> channels;
        QList<quint64> runs;
    };

    // Records what the decoder sends. The decoder runs on a thread of its own, as it does beside a
    // player; the connections are queued back to the test's thread.
    static void record(MeterDecoder* decoder, QObject* context, Received* into)
    {
        connect(decoder, &MeterDecoder::decoded, context, [into](quint64 run, const QAudioBuffer& buffer) {
            const PeakLevels p = peakLevels(buffer);
            into->starts << buffer.startTime();
            into->ends << buffer.startTime() + buffer.duration();
            into->peaks << (p.valid ? p.left : -1.0);
            into->channels << buffer.format().channelCount();
            into->runs << run;
        });
    }

    struct Worker {
        QThread thread;
        MeterDecoder* decoder = new MeterDecoder;
        Worker()
        {
            decoder->moveToThread(&thread);
            QObject::connect(&thread, &QThread::finished, decoder, &QObject::deleteLater);
            thread.start();
        }
        ~Worker()
        {
            decoder->abandonBefore(~quint64(0));
            thread.quit();
            thread.wait();
        }
        void start(quint64 run, const QString& path, qint64 fromUs, qint64 untilUs)
        {
            MeterDecoder* d = decoder;
            const QUrl url = QUrl::fromLocalFile(path);
            QMetaObject::invokeMethod(decoder, [=] { d->start(run, url, fromUs, untilUs); });
        }
        void extend(quint64 run, qint64 untilUs)
        {
            MeterDecoder* d = decoder;
            QMetaObject::invokeMethod(decoder, [=] { d->extend(run, untilUs); });
        }
    };

    QString copyWithDamage(const QString& from, const QString& name, qint64 offset, qint64 length)
    {
        QFile in(from);
        if (!in.open(QIODevice::ReadOnly))
            return QString();
        QByteArray data = in.readAll();
        for (qint64 i = offset; i < std::min<qint64>(offset + length, data.size()); ++i)
            data[i] = char(QRandomGenerator::global()->bounded(256));
        const QString path = QDir(dir.path()).filePath(name);
        QFile out(path);
        if (!out.open(QIODevice::WriteOnly) || out.write(data) != data.size())
            return QString();
        return path;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(dir.isValid());
        wavTone = makeTone(dir.path(), QStringLiteral("tone.wav"), 440, 3, 0.5);
        QVERIFY(!wavTone.isEmpty());
        mp3Tone = QDir(dir.path()).filePath(QStringLiteral("tone.mp3"));
        QVERIFY(runTool(QStringLiteral("ffmpeg"), {QStringLiteral("-y"), QStringLiteral("-loglevel"),
                                                   QStringLiteral("error"), QStringLiteral("-i"), wavTone,
                                                   QStringLiteral("-b:a"), QStringLiteral("128k"), mp3Tone}));
        monoTone = QDir(dir.path()).filePath(QStringLiteral("mono.wav"));
        QVERIFY(runTool(QStringLiteral("sox"), {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("48000"),
                                                QStringLiteral("-c"), QStringLiteral("1"), monoTone,
                                                QStringLiteral("synth"), QStringLiteral("1"),
                                                QStringLiteral("sine"), QStringLiteral("300"),
                                                QStringLiteral("vol"), QStringLiteral("0.25")}));
    }

    void aWavDecodesWholeAndInOrder()
    {
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        QSignalSpy failed(w.decoder, &MeterDecoder::failed);
        w.start(1, wavTone, 0, 60'000'000);
        QVERIFY(ended.wait(10000));
        QCOMPARE(ended.first().at(0).toULongLong(), quint64(1));
        QCOMPARE(failed.count(), 0);
        QCOMPARE(got.starts.first(), qint64(0));
        for (int i = 1; i < got.starts.size(); ++i)
            QCOMPARE(got.starts.at(i), got.ends.at(i - 1)); // contiguous, nothing lost or doubled
        // Three seconds in buffers of about 40 ms.
        QVERIFY2(std::abs(got.ends.last() - 3'000'000) < 1000, qPrintable(QString::number(got.ends.last())));
        QVERIFY2(got.starts.size() >= 70 && got.starts.size() <= 80, qPrintable(QString::number(got.starts.size())));
        const double middle = got.peaks.at(got.peaks.size() / 2);
        QVERIFY2(middle > 0.45 && middle < 0.55, qPrintable(QString::number(middle)));
        QCOMPARE(got.channels.first(), 2);
    }

    void aMonoFileStaysMonoAtItsOwnRate()
    {
        Worker w;
        QAudioFormat format;
        connect(w.decoder, &MeterDecoder::decoded, this,
                [&format](quint64, const QAudioBuffer& buffer) { format = buffer.format(); });
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        w.start(1, monoTone, 0, 60'000'000);
        QVERIFY(ended.wait(10000));
        QCOMPARE(format.channelCount(), 1);
        QCOMPARE(format.sampleRate(), 48000);
        // A mono tone reads at its own amplitude, not lowered by spreading it over two channels.
        const double middle = got.peaks.at(got.peaks.size() / 2);
        QVERIFY2(middle > 0.22 && middle < 0.28, qPrintable(QString::number(middle)));
    }

    void decodingStopsAtItsLimitAndGoesOnWhenExtended()
    {
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        w.start(1, mp3Tone, 0, 1'000'000);
        QTRY_VERIFY_WITH_TIMEOUT(!got.ends.isEmpty() && got.ends.last() >= 1'000'000, 10000);
        // Given time, it goes no further than one buffer past the limit.
        QTest::qWait(300);
        QVERIFY2(got.ends.last() < 1'000'000 + 2 * MeterDecoder::bufferMs * 1000,
                 qPrintable(QString::number(got.ends.last())));
        QCOMPARE(ended.count(), 0);
        const int before = got.starts.size();
        w.extend(1, 2'000'000);
        QTRY_VERIFY_WITH_TIMEOUT(got.ends.last() >= 2'000'000, 10000);
        QVERIFY(got.starts.size() > before);
        QCOMPARE(got.starts.at(before), got.ends.at(before - 1)); // resumes where it stopped
        w.extend(1, 60'000'000);
        QVERIFY(ended.wait(10000));
        QVERIFY2(got.ends.last() > 2'900'000, qPrintable(QString::number(got.ends.last())));
    }

    void startingInsideTheTrackSeeksThere()
    {
        for (const QString& path : {wavTone, mp3Tone}) {
            Worker w;
            Received got;
            record(w.decoder, this, &got);
            QSignalSpy ended(w.decoder, &MeterDecoder::ended);
            w.start(7, path, 2'000'000, 60'000'000);
            QVERIFY(ended.wait(10000));
            QVERIFY(!got.starts.isEmpty());
            // The demuxer lands on a packet at or before the point asked for.
            QVERIFY2(got.starts.first() <= 2'000'000 && got.starts.first() > 1'800'000,
                     qPrintable(path + QLatin1Char(' ') + QString::number(got.starts.first())));
            QVERIFY(got.runs.first() == 7);
        }
    }

    void aNewRunReplacesTheOneBefore()
    {
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        w.start(1, wavTone, 0, 60'000'000);
        w.decoder->abandonBefore(2);
        w.start(2, mp3Tone, 0, 60'000'000);
        QVERIFY(ended.wait(10000));
        QCOMPARE(ended.first().at(0).toULongLong(), quint64(2));
        QVERIFY(!got.runs.isEmpty());
        QVERIFY(!got.runs.contains(1));
        QTest::qWait(200);
        QCOMPARE(ended.count(), 1);
    }

    void aFileOfNoiseFailsWithoutBuffers()
    {
        const QString path = QDir(dir.path()).filePath(QStringLiteral("noise.mp3"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QByteArray noise(64 * 1024, Qt::Uninitialized);
        QRandomGenerator(42).fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);
        file.write(noise);
        file.close();
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy failed(w.decoder, &MeterDecoder::failed);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        w.start(3, path, 0, 60'000'000);
        QTRY_VERIFY_WITH_TIMEOUT(failed.count() + ended.count() > 0, 10000);
        QCOMPARE(failed.count(), 1);
        QCOMPARE(failed.first().at(0).toULongLong(), quint64(3));
        QVERIFY(!failed.first().at(1).toString().isEmpty());
        QCOMPARE(got.starts.size(), 0);
    }

    void aVanishedFileFailsWithoutBuffers()
    {
        const QString path = makeTone(dir.path(), QStringLiteral("gone.wav"), 500, 1);
        QVERIFY(QFile::remove(path));
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy failed(w.decoder, &MeterDecoder::failed);
        w.start(1, path, 0, 60'000'000);
        QVERIFY(failed.wait(10000));
        QCOMPARE(failed.first().at(1).toString(), QStringLiteral("file not found"));
        QCOMPARE(got.starts.size(), 0);
    }

    void anEmptyFileFailsWithoutBuffers()
    {
        const QString path = QDir(dir.path()).filePath(QStringLiteral("empty.wav"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        Worker w;
        QSignalSpy failed(w.decoder, &MeterDecoder::failed);
        QSignalSpy decoded(w.decoder, &MeterDecoder::decoded);
        w.start(1, path, 0, 60'000'000);
        QVERIFY(failed.wait(10000));
        QCOMPARE(decoded.count(), 0);
    }

    void aDamagedMp3IsDecodedAroundTheDamage()
    {
        // 8 KB of noise in the middle of about 48 KB of MP3.
        const QString path = copyWithDamage(mp3Tone, QStringLiteral("damaged.mp3"), 20000, 8000);
        QVERIFY(!path.isEmpty());
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        QSignalSpy failed(w.decoder, &MeterDecoder::failed);
        w.start(1, path, 0, 60'000'000);
        QTRY_VERIFY_WITH_TIMEOUT(ended.count() + failed.count() > 0, 10000);
        QCOMPARE(ended.count(), 1);
        QVERIFY(got.starts.size() > 20);
        for (int i = 1; i < got.starts.size(); ++i)
            QVERIFY(got.starts.at(i) > got.starts.at(i - 1));
        // The tone before the damage reads as it should.
        QVERIFY2(got.peaks.at(5) > 0.4 && got.peaks.at(5) < 0.6, qPrintable(QString::number(got.peaks.at(5))));
    }

    void aTruncatedWavEndsWhereItsDataEnds()
    {
        QFile in(wavTone);
        QVERIFY(in.open(QIODevice::ReadOnly));
        const QByteArray half = in.read(in.size() / 2);
        const QString path = QDir(dir.path()).filePath(QStringLiteral("half.wav"));
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(half);
        out.close();
        Worker w;
        Received got;
        record(w.decoder, this, &got);
        QSignalSpy ended(w.decoder, &MeterDecoder::ended);
        w.start(1, path, 0, 60'000'000);
        QVERIFY(ended.wait(10000));
        QVERIFY2(std::abs(got.ends.last() - 1'500'000) < 50'000, qPrintable(QString::number(got.ends.last())));
    }
};

QTEST_MAIN(TestMeterDecoder)
#include "tst_meterdecoder.moc"
