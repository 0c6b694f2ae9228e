// The Ogg Opus writer and reader against real libopus and opus-tools, and
// with malformed and hostile files; the recorder's refusals.

#include "common/audio.h"
#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"
#include "media/ogg_opus_writer.h"
#include "media/voice_encoder.h"
#include "media/voice_file_encoder.h"
#include "media/voice_recorder.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

class TstOggOpus : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    OpusLib m_opus{{"libnothere.so", "libopus.so.0"}}; // found past a missing name

    QString path(const QString &name) const { return m_dir.filePath(name); }
    // Peak resident memory in KiB, since the reset when asked for.
    static qint64 peakRssKib(bool reset)
    {
        if (reset && !writeFile(QStringLiteral("/proc/self/clear_refs"), "5", true))
            return -1;
        const QByteArray status = readAll(QStringLiteral("/proc/self/status"));
        const int at = status.indexOf("VmHWM:");
        return at < 0 ? -1 : status.mid(at + 6).trimmed().split(' ').value(0).toLongLong();
    }
    QString vexaOpus() const { return qEnvironmentVariable("VEXA_BIN_DIR") + "/vexa-opus"; }
    // Encoded 20 ms packets of a tone, made with the system libopus.
    QList<QByteArray> encodePackets(int count, int bitrate, int channels = 1)
    {
        QList<QByteArray> out;
        const OpusDynApi *api = m_opus.ensure_opus_dyn_api_loaded();
        int err = 0;
        OpusEncoder *enc = api->opus_encoder_create(48000, channels, OPUS_APPLICATION_AUDIO, &err);
        api->opus_encoder_ctl(enc, OPUS_SET_BITRATE_REQUEST, bitrate);
        const QVector<qint16> pcm = tone(440.0, count * 0.02, 48000, channels);
        QByteArray buf(4000, '\0');
        for (int i = 0; i < count; ++i) {
            const int n = api->opus_encode(enc, pcm.constData() + i * 960 * channels, 960,
                                           reinterpret_cast<unsigned char *>(buf.data()), 4000);
            out.append(buf.left(n));
        }
        api->opus_encoder_destroy(enc);
        return out;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // OpenAL Soft, once loaded, finds no sound server: no capture device
        // can open (the refusals below).
        QVERIFY(writeFile(path("client.conf"), "autospawn = no\n"));
        QVERIFY(QDir(m_dir.path()).mkpath(QStringLiteral("run")));
        qputenv("PULSE_CLIENTCONFIG", path("client.conf").toLocal8Bit());
        qputenv("PULSE_SERVER", ("unix:" + path("run/none")).toLocal8Bit());
        qputenv("XDG_RUNTIME_DIR", path("run").toLocal8Bit());
        qputenv("ALSOFT_DRIVERS", "pulse");
        QVERIFY(m_opus.ensure_opus_dyn_api_loaded() &&
                m_opus.ensure_opus_dyn_api_loaded()->hasEncoder());
    }

    // A packet that fills its last value to 255 gets no closing 0.
    void lacing()
    {
        QByteArray l;
        ogg_append_lacing(l, 510);
        ogg_append_lacing(l, 256);
        ogg_append_lacing(l, 0);
        QCOMPARE(l, QByteArray("\xff\xff\xff\x01\x00", 5));
    }

    void pageFilling_data()
    {
        QTest::addColumn<int>("packetSize");
        QTest::addColumn<int>("packets");
        QTest::addColumn<int>("preSkip");
        QTest::addColumn<QVector<int>>("packetsPerPage");
        // 40 x 100 bytes fill 4000; the 41st would pass 4096.
        QTest::newRow("body limit") << 100 << 100 << 312 << QVector<int>{40, 40, 20};
        QTest::newRow("exactly 4096 still fits") << 1024 << 9 << 312 << QVector<int>{4, 4, 1};
        // A page takes packets until it already holds more than 240 values.
        QTest::newRow("lacing limit") << 3 << 500 << 312 << QVector<int>{241, 241, 18};
        QTest::newRow("no audio: no end page") << 0 << 0 << 312 << QVector<int>{};
        // The granule is clamped at 0, never negative.
        QTest::newRow("shorter than the pre-skip") << 10 << 1 << 3000 << QVector<int>{1};
    }
    void pageFilling()
    {
        QFETCH(int, packetSize);
        QFETCH(int, packets);
        QFETCH(int, preSkip);
        QFETCH(QVector<int>, packetsPerPage);
        OggOpusWriter w;
        QString error;
        QVERIFY(w.openForWrite(path("fill.ogg"), &error));
        QVERIFY(w.writeHeaders(1, &error));
        w.preSkip = preSkip;
        for (int i = 0; i < packets; ++i)
            QVERIFY(w.appendAudioPacket(QByteArray(packetSize, char('a' + i % 26)), &error));
        QVERIFY(w.appendAudioPacket(QByteArray(), &error)); // not stored
        QVERIFY(w.finish(&error));
        QVector<OggPage> pages;
        QVERIFY(parse_pages(readAll(path("fill.ogg")), pages));
        QCOMPARE(pages.size(), 2 + packetsPerPage.size());
        qint64 total = 0;
        for (int i = 0; i < packetsPerPage.size(); ++i) {
            const OggPage &p = pages[2 + i];
            total += qint64(packetsPerPage[i]) * 960;
            QCOMPARE(p.body.size(), packetsPerPage[i] * packetSize);
            QCOMPARE(p.granule, qMax<qint64>(0, total - preSkip)); // running count minus pre-skip
            QVERIFY(p.headerType == (i + 1 == packetsPerPage.size() ? 4 : 0) &&
                    p.sequence == quint32(2 + i));
        }
    }

    void opusMissing()
    {
        QString error;
        OpusLib none({"libkelOpus.so.1", "libkelOpus.so"});
        QVERIFY(!decodeOgaOpusToWav(none, path("x.ogg"), path("x.wav"), &error));
        QCOMPARE(error, QStringLiteral("opus: libkelOpus is missing"));
    }

    // The recorder's refusals: no chat, no Opus encoder, no OpenAL, no device.
    void refusals_data()
    {
        QTest::addColumn<qint64>("chatId");
        QTest::addColumn<QStringList>("opusNames");
        QTest::addColumn<QStringList>("openAlNames");
        QTest::addColumn<QString>("toast");
        const QStringList opus = OpusLib::defaultNames();
        const QStringList al = OpenAlLib::defaultNames();
        auto row = [](const char *name, qint64 chat, const QStringList &opus, const QStringList &al,
                      const char *toast) { QTest::newRow(name) << chat << opus << al << toast; };
        row("no chat", 0, opus, al, "Select a chat first");
        row("decoder-only Opus", 1, {OPUS_DECODER_ONLY_LIB}, al, "Error: Opus encoder unavailable");
        row("no OpenAL", 1, opus, {"libnothere.so"}, "Microphone: OpenAL unavailable");
        row("no capture device", 1, opus, al, "Microphone: OpenAL capture not supported");
    }

    void refusals()
    {
        QFETCH(qint64, chatId);
        QFETCH(QStringList, opusNames);
        QFETCH(QStringList, openAlNames);
        QFETCH(QString, toast);
        OpusLib opus(opusNames);
        OpenAlLib openal(openAlNames);
        Recorded rec;
        VoiceRecorder recorder(opus, openal, path("data"), rec.services());
        recorder.setChatId(chatId);
        recorder.startVoiceRecording();
        recorder.startVoiceRecording(); // the same outcome again: nothing is retried
        recorder.stopVoiceRecording(true);
        QCOMPARE(rec.toaster.shown(), (QStringList{toast, toast}));
        QVERIFY(rec.lines.isEmpty());
    }

    void durationRoundsToTheNearestSecondAtLeastOne()
    {
        for (const auto &c : {qMakePair(0, 1), qMakePair(67200, 1), qMakePair(72000, 2)})
            QCOMPARE(VoiceRecorder::voiceDurationSeconds(c.first), c.second);
    }

    void toolRoundTrip_data()
    {
        QTest::addColumn<int>("rate");
        QTest::addColumn<int>("channels");
        QTest::addColumn<double>("freq");
        QTest::addColumn<bool>("voiceGranules"); // the recorder's: without the pre-skip
        QTest::newRow("48 kHz stereo, plain granules") << 48000 << 2 << 1000.0 << false;
        QTest::newRow("16 kHz mono") << 16000 << 1 << 600.0 << true;
    }
    void toolRoundTrip()
    {
        QFETCH(int, rate);
        QFETCH(int, channels);
        QFETCH(double, freq);
        QFETCH(bool, voiceGranules);
        const QString ogg = path("rt.ogg");
        QVERIFY(write_tone_wav(path("rt.wav"), freq, 2.0, rate, channels));
        QStringList args{"encode", path("rt.wav"), ogg};
        if (voiceGranules)
            args.insert(1, "--voice-note-granules");
        RunResult r = run(vexaOpus(), args);
        QVERIFY2(r.exitCode == 0, qPrintable(r.output));
        QVector<OggPage> pages;
        QVERIFY(parse_pages(readAll(ogg), pages));
        QCOMPARE(pages.last().granule, qint64(100 * 960 - (voiceGranules ? 312 : 0)));
        // Mono Opus at the input rate. Voice-note granules leave out the
        // pre-skip, which opusinfo reports as its one warning.
        const QString info = run("opusinfo", {ogg}).output;
        for (const QString &l : info.split('\n'))
            if (l.contains("WARNING") || l.contains("ERROR"))
                QVERIFY2(voiceGranules && l.contains("negative granpos"), qPrintable(l));
        for (const QString &want : {QStringLiteral("Pre-skip: 312"), QStringLiteral("Channels: 1"),
                                    QStringLiteral("Original sample rate: %1 Hz").arg(rate)})
            QVERIFY2(info.contains(want), qPrintable(info));
        const RunResult probe = run("ffprobe", {"-v", "error", "-show_entries", "stream=codec_name",
                                                "-of", "csv=p=0", ogg});
        QCOMPARE(probe.output.trimmed(), QStringLiteral("opus"));
        r = run(vexaOpus(), {"decode", ogg, path("rt-out.wav")});
        QVERIFY2(r.exitCode == 0, qPrintable(r.output));
        Wav out;
        QVERIFY(read_wav(path("rt-out.wav"), out));
        QVERIFY(out.rate == 48000 && out.channels == 1 && out.samples.size() == 100 * 960 - 312);
        QVERIFY(qAbs(dominant_frequency(out.samples, 48000) - freq) <= 2);
        if (!voiceGranules) { // a standard file plays elsewhere alike
            QCOMPARE(run("opusdec", {"--rate", "48000", ogg, path("rt-opusdec.wav")}).exitCode, 0);
            Wav theirs;
            QVERIFY(read_wav(path("rt-opusdec.wav"), theirs));
            QCOMPARE(theirs.samples.size(), out.samples.size());
            QVERIFY(qAbs(dominant_frequency(theirs.samples, 48000) - freq) <= 2);
            // And a file opusenc made decodes here to what opusdec makes of it.
            const QString made = path("opusenc.ogg");
            QCOMPARE(run("opusenc", {"--quiet", "--downmix-mono", path("rt.wav"), made}).exitCode,
                     0);
            QCOMPARE(run(vexaOpus(), {"decode", made, path("made-ours.wav")}).exitCode, 0);
            QCOMPARE(run("opusdec", {"--quiet", "--no-dither", "--rate", "48000", made,
                                     path("made-theirs.wav")})
                         .exitCode,
                     0);
            Wav ours, ref;
            QVERIFY(read_wav(path("made-ours.wav"), ours) &&
                    read_wav(path("made-theirs.wav"), ref));
            // opusdec trims the end to the last granule; this reader keeps the whole last packet.
            const int extra = ours.samples.size() - ref.samples.size();
            QVERIFY2(extra >= 0 && extra <= 2880, qPrintable(QString::number(extra)));
            int worst = 0;
            for (int i = 0; i < ref.samples.size(); ++i)
                worst = qMax(worst, qAbs(int(ours.samples[i]) - int(ref.samples[i])));
            QVERIFY2(worst <= 2, qPrintable(QString::number(worst)));
        }
    }

    // What the reader makes of a file: its samples after the pre-skip, or
    // its error.
    void readFiles_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<int>("samples");
        QTest::addColumn<QString>("error");
        const QByteArray head = head_page(1, 312);
        const QList<QByteArray> pk = encodePackets(5, 24000);
        const QByteArray audio = audio_page(pk, 2);
        const QByteArray good = head + tags_page() + audio;
        const int hdrs = head.size() + tags_page().size();
        QByteArray badSecond = good;
        badSecond[head.size() + 1] = 'x';
        const auto row = [](const char *name, const QByteArray &file, int samples,
                            const char *error) {
            QTest::newRow(name) << file << samples << QString::fromLatin1(error);
        };
        row("well formed", good, 5 * 960 - 312, "");
        row("audio without tags", head + audio_page(pk, 1), 5 * 960 - 312, "");
        row("stereo", head_page(2, 312) + audio_page(encodePackets(5, 64000, 2), 1),
            2 * (5 * 960 - 312), "");
        // 2500 samples: the first two packets and part of the third vanish.
        row("pre-skip spans packets", head_page(1, 2500) + tags_page() + audio_page(pk, 2),
            5 * 960 - 2500, "");
        // A packet that needs several lacing values continues on the next page.
        const QList<QByteArray> big = encodePackets(3, 256000);
        const QByteArray l1 = lacing_for(big[0].size()) + char(255);
        const QByteArray l2 = lacing_for(big[1].size() - 255) + lacing_for(big[2].size());
        row("packet continued on the next page",
            head_page(1, 0) + raw_page(0, l1, big[0] + big[1].left(255), 1) +
                raw_page(4, l2, big[1].mid(255) + big[2], 2),
            3 * 960, "");
        row("bad capture pattern on page 2", badSecond, -1, "invalid ogg capture pattern");
        row("missing OpusHead", tags_page() + audio, -1, "missing OpusHead");
        row("three channels", head_page(3, 312) + audio, -1, "unsupported channel count");
        row("truncated header", good.left(hdrs + 20), -1, "truncated ogg page header");
        row("truncated segment table", good.left(hdrs + 29), -1, "truncated ogg segment table");
        row("truncated payload", good.left(good.size() - 10), -1, "truncated ogg payload");
        row("headers only", head + tags_page(), -1, "no decoded audio");
    }
    void readFiles()
    {
        QFETCH(QByteArray, file);
        QFETCH(int, samples);
        QFETCH(QString, error);
        QString got;
        Wav wav;
        QVERIFY(writeFile(path("in.ogg"), file));
        const bool ok = decodeOgaOpusToWav(m_opus, path("in.ogg"), path("out.wav"), &got);
        QCOMPARE(ok && read_wav(path("out.wav"), wav) ? wav.samples.size() : -1, samples);
        QCOMPARE(got, error.isEmpty() ? error : QStringLiteral("opus: ") + error);
    }

    // 64 MiB of one packet that never ends fail at its bound, without the memory.
    void endlessContinuedPacketIsBounded()
    {
        const QString in = path("endless.ogg");
        const QByteArray page = raw_page(0, QByteArray(255, char(255)), QByteArray(255 * 255, 'q'));
        QVERIFY(writeFile(in, head_page(1, 0)));
        for (int i = 0; i < 1032; ++i)
            QVERIFY(writeFile(in, page, true));
        const qint64 before = peakRssKib(true);
        QString error;
        QVERIFY(!decodeOgaOpusToWav(m_opus, in, path("endless.wav"), &error));
        QCOMPARE(error, QStringLiteral("opus: packet too large"));
        if (before > 0) // the kernel lets the peak be reset
            QVERIFY(peakRssKib(false) - before < 16 * 1024);
    }

    // Two-byte packets of six empty 20 ms frames (120 ms each) and a last
    // granule claiming days: decoding and what is reserved for a player
    // reading along both stop at the limit.
    void tinyPacketsStopAtTheLimit()
    {
        QByteArray lacing;
        QByteArray body;
        for (int i = 0; i < 255; ++i) {
            lacing += lacing_for(2);
            body += QByteArray("\xfb\x06", 2);
        }
        const QString in = path("tiny.ogg");
        QVERIFY(writeFile(in, head_page(1, 0) + tags_page() +
                                  raw_page(0, lacing, body, 2, 255 * 5760) +
                                  raw_page(4, lacing, body, 3, qint64(1) << 39)));
        const qint64 limit = 3 * 1024 * 1024;
        OggOpusToWav decoder(m_opus);
        decoder.setMaxDataBytes(limit);
        QString error;
        QVERIFY(decoder.open(in, path("cut.wav"), oggOpusEstimatedPcmBytes(in), &error));
        QVERIFY(QFileInfo(path("cut.wav")).size() <= 44 + limit);
        while (decoder.step(1, &error))
            QVERIFY2(!decoder.atEnd(), "decoded past the limit");
        QCOMPARE(error, QStringLiteral("opus: too long for a WAV file"));
        QVERIFY(decoder.decodedBytes() <= limit);
    }

    void toolRefusesOtherRates()
    {
        QVERIFY(write_tone_wav(path("e44.wav"), 300, 0.5, 44100, 1));
        const RunResult r = run(vexaOpus(), {"encode", path("e44.wav"), path("e-out")});
        QVERIFY2(r.exitCode > 0 && r.output.contains("wav: unsupported sample rate 44100"),
                 qPrintable(r.output));
    }
};

QTEST_GUILESS_MAIN(TstOggOpus)
#include "test_ogg_opus.moc"
