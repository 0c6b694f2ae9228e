// Voice notes whose decoding would outgrow a WAV file: tiny packets of 120 ms
// each, and a last granule that claims days.

#include "common/audio.h"
#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

class TstOggOpusLimits : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    OpusLib m_opus;

    QString path(const QString &name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void tinyPacketsStopAtTheLimit_data()
    {
        QTest::addColumn<qint64>("lastGranule");
        // Two-byte packets of six empty 20 ms frames: 120 ms each.
        QTest::newRow("honest granule") << qint64(510 * 5760);
        QTest::newRow("granule claiming days") << (qint64(1) << 39);
    }
    void tinyPacketsStopAtTheLimit()
    {
        QFETCH(qint64, lastGranule);
        QByteArray lacing;
        QByteArray body;
        for (int i = 0; i < 255; ++i) {
            lacing += lacing_for(2);
            body += QByteArray("\xfb\x06", 2);
        }
        const QByteArray file = head_page(1, 0) + tags_page() +
                                raw_page(0, lacing, body, 2, 255 * 5760) +
                                raw_page(4, lacing, body, 3, lastGranule);
        QFile in(path("tiny.ogg"));
        QVERIFY(in.open(QIODevice::WriteOnly) && in.write(file) == file.size());
        in.close();

        // Unbounded, the two pages decode to 510 packets of 5760 samples.
        QString error;
        QVERIFY2(decodeOgaOpusToWav(m_opus, in.fileName(), path("full.wav"), &error),
                 qPrintable(error));
        QCOMPARE(QFileInfo(path("full.wav")).size(), 44 + 510 * 5760 * 2);

        const qint64 limit = 3 * 1024 * 1024;
        OggOpusToWav decoder(m_opus);
        decoder.setMaxDataBytes(limit);
        QVERIFY(decoder.open(in.fileName(), path("cut.wav"),
                             oggOpusEstimatedPcmBytes(in.fileName()), &error));
        // What is reserved for a player reading along is bounded too.
        QVERIFY(QFileInfo(path("cut.wav")).size() <= 44 + limit);
        while (decoder.step(1, &error)) {
            if (decoder.atEnd())
                QFAIL("decoded past the limit");
        }
        QCOMPARE(error, QStringLiteral("opus: too long for a WAV file"));
        QVERIFY(decoder.decodedBytes() <= limit);
    }
};

QTEST_GUILESS_MAIN(TstOggOpusLimits)
#include "test_ogg_opus_limits.moc"
