#include "common/audio.h"
#include "media/audio_libs.h"
#include "media/voice_file_encoder.h"
#include "td_voice_waveform.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

// The waveform sent with a voice note, from a real Ogg Opus file made by
// the recording pipeline with libopus.
class TestTdVoiceWaveform : public QObject
{
    Q_OBJECT
private slots:
    void waveform_data()
    {
        QTest::addColumn<double>("silentSeconds");
        QTest::addColumn<double>("toneSeconds");
        QTest::addColumn<int>("quietValues"); // leading values that must be 0
        QTest::addColumn<int>("loudValues");  // trailing values that must be near 31
        QTest::newRow("silence, then a tone") << 1.0 << 1.0 << 45 << 45;
        QTest::newRow("a tone throughout") << 0.0 << 3.0 << 0 << 100;
        QTest::newRow("silence only") << 2.0 << 0.0 << 100 << 0;
    }

    void waveform()
    {
        QFETCH(double, silentSeconds);
        QFETCH(double, toneSeconds);
        QFETCH(int, quietValues);
        QFETCH(int, loudValues);
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const int rate = 48000;
        QVector<qint16> pcm(int(silentSeconds * rate), 0);
        pcm += tone(440, toneSeconds, rate, 1);
        const QString wav = dir.filePath(QStringLiteral("in.wav"));
        const QString ogg = dir.filePath(QStringLiteral("in.ogg"));
        QVERIFY(writeFile(wav, wav_bytes(pcm, rate, 1)));
        OpusLib opus;
        QString error;
        QVERIFY2(encode_wav_to_voice_ogg(opus, wav, ogg, &error), qPrintable(error));

        const QByteArray packed = td_voice_waveform(ogg);
        QCOMPARE(packed.size(), 63);
        const QList<int> values = td_unpack_waveform(packed);
        QCOMPARE(values.size(), kTdWaveformValues);
        for (int i = 0; i < quietValues; ++i)
            QVERIFY2(values.at(i) == 0, qPrintable(QString::number(i)));
        for (int i = kTdWaveformValues - loudValues; i < kTdWaveformValues; ++i)
            QVERIFY2(values.at(i) >= 24, qPrintable(QString::number(i)));
    }

    void notOggOpus()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("x.ogg"));
        QVERIFY(writeFile(path, QByteArray(4096, 'x')));
        QVERIFY(td_voice_waveform(path).isEmpty());
        QVERIFY(td_voice_waveform(dir.filePath(QStringLiteral("missing.ogg"))).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestTdVoiceWaveform)
#include "test_td_voice_waveform.moc"
