// The Ogg Opus writer and reader against real libopus and the opus-tools and
// ffmpeg programs, plus malformed and hostile input.

#include "audio_test_util.h"
#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"
#include "media/ogg_opus_writer.h"
#include "media/voice_encoder.h"
#include "media/voice_file_encoder.h"

#include <QTemporaryDir>
#include <QtTest>

#include <dlfcn.h>

using namespace testaudio;

Q_DECLARE_METATYPE(QVector<int>)

class TstOggOpus : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;
    QString path(const QString &name) const { return m_dir.filePath(name); }
    static bool haveTool(const char *name)
    {
        return !QStandardPaths::findExecutable(QString::fromLatin1(name)).isEmpty();
    }
    // Encoded 20 ms packets of a tone, made with the system libopus.
    QList<QByteArray> encodePackets(int count, int bitrate, int channels = 1);

private Q_SLOTS:
    void initTestCase();

    void crc_data();
    void crc();
    void lacing_data();
    void lacing();
    void serialMixing();
    void headerPages();
    void writePageLayout_data();
    void writePageLayout();
    void pageFilling_data();
    void pageFilling();
    void lastPageOnlyWithPendingAudio();
    void fullDiskFailsThePage();

    void dlsymRequired();
    void opusLoading_data();
    void opusLoading();
    void failedLoadIsRemembered();
    void decodeWithDecoderOnlyLibrary();
    void encoderUnavailableWithDecoderOnlyLibrary();
    void openAlLoading();

    void toolRoundTrip_data();
    void toolRoundTrip();
    void opusdecPlaysToolOutput();
    void opusencFilesDecodeLikeOpusdec_data();
    void opusencFilesDecodeLikeOpusdec();
    void stereoDownMixRoundsTowardZero();

    void malformedFiles_data();
    void malformedFiles();
    void preSkipSpansPackets();
    void packetContinuedAcrossPages();
    void truncatedAtPageBoundaryStillPlays();
    void endlessContinuedPacketIsBounded();
    void mutatedFilesFailCleanly_data();
    void mutatedFilesFailCleanly();
    void toolReportsErrors_data();
    void toolReportsErrors();
};

QList<QByteArray> TstOggOpus::encodePackets(int count, int bitrate, int channels)
{
    QList<QByteArray> out;
    OpusLib lib;
    const OpusDynApi *api = lib.ensure_opus_dyn_api_loaded();
    if (!api || !api->hasEncoder())
        return out;
    int err = 0;
    OpusEncoder *enc = api->opus_encoder_create(48000, channels, OPUS_APPLICATION_AUDIO, &err);
    if (!enc)
        return out;
    api->opus_encoder_ctl(enc, OPUS_SET_BITRATE_REQUEST, bitrate);
    const QVector<qint16> pcm = tone(440.0, count * 0.02, 48000, channels);
    QByteArray buf(4000, '\0');
    for (int i = 0; i < count; ++i) {
        const int n = api->opus_encode(enc, pcm.constData() + i * 960 * channels, 960,
                                       reinterpret_cast<unsigned char *>(buf.data()), buf.size());
        if (n < 0)
            break;
        out.append(buf.left(n));
    }
    api->opus_encoder_destroy(enc);
    return out;
}

void TstOggOpus::initTestCase()
{
    QVERIFY(m_dir.isValid());
}

void TstOggOpus::crc_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<quint32>("expected");
    QTest::newRow("empty") << QByteArray() << 0u;
    // The published check value of this CRC (no reflection, init 0, no XOR).
    QTest::newRow("check string") << QByteArray("123456789") << 0x89A1897Fu;
    QTest::newRow("one zero byte") << QByteArray(1, '\0') << 0u;
    QTest::newRow("0x01") << QByteArray(1, '\x01') << 0x04C11DB7u;
}

void TstOggOpus::crc()
{
    QFETCH(QByteArray, data);
    QFETCH(quint32, expected);
    QCOMPARE(ogg_crc(data.constData(), data.size()), expected);
}

void TstOggOpus::lacing_data()
{
    QTest::addColumn<int>("length");
    QTest::addColumn<QVector<int>>("values");
    QTest::newRow("empty packet") << 0 << QVector<int>{0};
    QTest::newRow("short") << 100 << QVector<int>{100};
    QTest::newRow("254") << 254 << QVector<int>{254};
    QTest::newRow("255 is a single value") << 255 << QVector<int>{255};
    QTest::newRow("256") << 256 << QVector<int>{255, 1};
    QTest::newRow("510 has no terminating zero") << 510 << QVector<int>{255, 255};
    QTest::newRow("600") << 600 << QVector<int>{255, 255, 90};
}

void TstOggOpus::lacing()
{
    QFETCH(int, length);
    QFETCH(QVector<int>, values);
    QByteArray l;
    ogg_append_lacing(l, length);
    QVector<int> got;
    for (char c : l)
        got.append(quint8(c));
    QCOMPARE(got, values);
}

void TstOggOpus::serialMixing()
{
    // The XOR constant cancels these low bits, the mix of 0 is 0, and 0 is
    // never used as a serial.
    QCOMPARE(ogg_serial_from_ms(0x4F474730LL), 1u);
    QCOMPARE(ogg_serial_from_ms(0x1234F474730LL), 1u);
    // Different clocks give different serials.
    QVERIFY(ogg_serial_from_ms(1000) != ogg_serial_from_ms(1001));
    QVERIFY(ogg_serial_from_ms(1000) != 0u);
}

void TstOggOpus::headerPages()
{
    OggOpusWriter w;
    QString error;
    w.inputSampleRate = 16000;
    QVERIFY(w.writeHeaders(1, error) == false);
    QCOMPARE(error, QStringLiteral("ogg: not opened"));
    QVERIFY2(w.openForWrite(path("hdr.ogg"), error), qPrintable(error));
    w.serial = 0xA1B2C3D4u;
    QVERIFY2(w.writeHeaders(1, error), qPrintable(error));
    w.close();

    QVector<OggPage> pages;
    QVERIFY(parse_pages(read_file(path("hdr.ogg")), pages));
    QCOMPARE(pages.size(), 2);
    QCOMPARE(pages[0].headerType, 2);
    QCOMPARE(pages[1].headerType, 0);
    QCOMPARE(pages[0].sequence, 0u);
    QCOMPARE(pages[1].sequence, 1u);
    QCOMPARE(pages[0].serial, 0xA1B2C3D4u);
    QByteArray head("OpusHead\x01\x01", 10);
    head.append("\x38\x01", 2);         // 312
    head.append("\x80\x3e\x00\x00", 4); // 16000
    head.append("\x00\x00\x00", 3);
    QCOMPARE(pages[0].body, head);
    QCOMPARE(pages[1].body, QByteArray("OpusTags\x06\x00\x00\x00quillo\x00\x00\x00\x00", 22));
    for (const OggPage &p : pages) {
        QCOMPARE(p.granule, 0);
        QCOMPARE(p.checksum, slow_ogg_crc(p.raw));
    }
}

void TstOggOpus::writePageLayout_data()
{
    QTest::addColumn<int>("headerType");
    QTest::addColumn<qint64>("granule");
    QTest::addColumn<int>("packetSize");
    QTest::addColumn<qint64>("writtenGranule");
    QTest::newRow("first page") << 2 << qint64(0) << 19 << qint64(0);
    QTest::newRow("negative granule written as 0") << 0 << qint64(-5) << 10 << qint64(0);
    QTest::newRow("large granule") << 4 << qint64(0x123456789ALL) << 300 << qint64(0x123456789ALL);
    QTest::newRow("510-byte packet") << 0 << qint64(960) << 510 << qint64(960);
}

void TstOggOpus::writePageLayout()
{
    QFETCH(int, headerType);
    QFETCH(qint64, granule);
    QFETCH(int, packetSize);
    QFETCH(qint64, writtenGranule);
    OggOpusWriter w;
    QString error;
    QVERIFY(w.openForWrite(path("page.ogg"), error));
    w.serial = 77;
    QByteArray packet(packetSize, '\0');
    for (int i = 0; i < packetSize; ++i)
        packet[i] = char(i * 7);
    QVERIFY(w.writePage(headerType, granule, packet, error));
    QVERIFY(w.writePage(0, 0, QByteArray("x"), error));
    QVERIFY(error.isEmpty());
    w.close();
    QVector<OggPage> pages;
    const QByteArray file = read_file(path("page.ogg"));
    QVERIFY(parse_pages(file, pages));
    QCOMPARE(pages.size(), 2);
    QCOMPARE(file.at(4), '\0');
    QCOMPARE(pages[0].headerType, headerType);
    QCOMPARE(pages[0].granule, writtenGranule);
    QCOMPARE(pages[0].serial, 77u);
    QCOMPARE(pages[0].sequence, 0u);
    QCOMPARE(pages[1].sequence, 1u);
    QCOMPARE(pages[0].body, packet);
    QByteArray lacing;
    ogg_append_lacing(lacing, packetSize);
    QCOMPARE(pages[0].lacing, lacing);
    QCOMPARE(pages[0].checksum, slow_ogg_crc(pages[0].raw));
}

void TstOggOpus::pageFilling_data()
{
    QTest::addColumn<int>("packetSize");
    QTest::addColumn<int>("packets");
    QTest::addColumn<QVector<int>>("packetsPerPage");
    // 40 x 100 bytes fill 4000; the 41st would pass 4096.
    QTest::newRow("body limit") << 100 << 100 << QVector<int>{40, 40, 20};
    // 4096 exactly still fits.
    QTest::newRow("exactly 4096") << 1024 << 9 << QVector<int>{4, 4, 1};
    // A page takes packets until it already holds more than 240 values.
    QTest::newRow("lacing limit") << 3 << 500 << QVector<int>{241, 241, 18};
    // 255-byte packets: one value each, bounded by the body size first.
    QTest::newRow("255-byte packets") << 255 << 20 << QVector<int>{16, 4};
    // 2 values per 510-byte packet.
    QTest::newRow("510-byte packets") << 510 << 10 << QVector<int>{8, 2};
}

void TstOggOpus::pageFilling()
{
    QFETCH(int, packetSize);
    QFETCH(int, packets);
    QFETCH(QVector<int>, packetsPerPage);
    OggOpusWriter w;
    QString error;
    QVERIFY(w.openForWrite(path("fill.ogg"), error));
    QVERIFY(w.writeHeaders(1, error));
    for (int i = 0; i < packets; ++i)
        QVERIFY2(w.appendAudioPacket(QByteArray(packetSize, char('a' + i % 26)), error),
                 qPrintable(error));
    QVERIFY(w.appendAudioPacket(QByteArray(), error)); // not stored
    QCOMPARE(w.granuleTotal, qint64(packets) * 960);
    QVERIFY(w.finish(error));
    QVERIFY(!w.isOpened());

    QVector<OggPage> pages;
    QVERIFY(parse_pages(read_file(path("fill.ogg")), pages));
    QCOMPARE(pages.size(), 2 + packetsPerPage.size());
    qint64 total = 0;
    for (int i = 0; i < packetsPerPage.size(); ++i) {
        const OggPage &p = pages[2 + i];
        total += qint64(packetsPerPage[i]) * 960;
        QCOMPARE(p.body.size(), packetsPerPage[i] * packetSize);
        QByteArray lacing;
        for (int k = 0; k < packetsPerPage[i]; ++k)
            ogg_append_lacing(lacing, packetSize);
        QCOMPARE(p.lacing, lacing);
        // Running count minus the pre-skip.
        QCOMPARE(p.granule, total - 312);
        QCOMPARE(p.headerType, i + 1 == packetsPerPage.size() ? 4 : 0);
        QCOMPARE(p.sequence, quint32(2 + i));
        QCOMPARE(p.checksum, slow_ogg_crc(p.raw));
    }
}

void TstOggOpus::lastPageOnlyWithPendingAudio()
{
    OggOpusWriter w;
    QString error;
    QVERIFY(w.openForWrite(path("noaudio.ogg"), error));
    QVERIFY(w.writeHeaders(1, error));
    QVERIFY(w.appendAudioPacket(QByteArray(), error));
    QVERIFY(w.finish(error));
    QVector<OggPage> pages;
    QVERIFY(parse_pages(read_file(path("noaudio.ogg")), pages));
    QCOMPARE(pages.size(), 2);
    QCOMPARE(pages.last().headerType, 0);

    // A single short packet: the granule is clamped at 0, never negative.
    QVERIFY(w.openForWrite(path("short.ogg"), error));
    QVERIFY(w.writeHeaders(1, error));
    w.preSkip = 3000;
    QVERIFY(w.appendAudioPacket(QByteArray(10, 'x'), error));
    QVERIFY(w.finish(error));
    pages.clear();
    QVERIFY(parse_pages(read_file(path("short.ogg")), pages));
    QCOMPARE(pages.size(), 3);
    QCOMPARE(pages.last().headerType, 4);
    QCOMPARE(pages.last().granule, 0);
}

void TstOggOpus::fullDiskFailsThePage()
{
    if (!QFileInfo::exists(QStringLiteral("/dev/full")))
        QSKIP("no /dev/full");
    OggOpusWriter w;
    QString error;
    QVERIFY(w.openForWrite(QStringLiteral("/dev/full"), error));
    QVERIFY(!w.writeHeaders(1, error));
    QCOMPARE(error, QStringLiteral("ogg: write failed"));
    // Audio pages fail the same way once the pending page is flushed.
    for (int i = 0; i < 40; ++i)
        QVERIFY(w.appendAudioPacket(QByteArray(100, 'a'), error));
    QVERIFY(!w.appendAudioPacket(QByteArray(100, 'a'), error));
    QCOMPARE(error, QStringLiteral("ogg: write failed"));
    QVERIFY(!w.finish(error));
    QCOMPARE(error, QStringLiteral("ogg: write failed"));
    QVERIFY(!w.isOpened());
}

void TstOggOpus::dlsymRequired()
{
    void *h = dlopen("libopus.so.0", RTLD_LAZY);
    QVERIFY(h);
    QVERIFY(dlsym_required(h, "opus_decode") != nullptr);
    QVERIFY(dlsym_required(h, "opus_no_such_function") == nullptr);
    QVERIFY(dlsym_required(h, "") == nullptr);
    QVERIFY(dlsym_required(h, nullptr) == nullptr);
    QVERIFY(dlsym_required(nullptr, "opus_decode") == nullptr);
    // A failed lookup does not poison the next one.
    QVERIFY(dlsym_required(h, "opus_encode") != nullptr);
    dlclose(h);
}

void TstOggOpus::opusLoading_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<bool>("decoder");
    QTest::addColumn<bool>("encoder");
    QTest::newRow("default names") << OpusLib::defaultNames() << true << true;
    QTest::newRow("nothing found")
        << QStringList{QStringLiteral("libkelOpus.so.1"), QStringLiteral("libkelOpus.so")} << false
        << false;
    QTest::newRow("decoder only") << QStringList{QStringLiteral(OPUS_DECODER_ONLY_LIB)} << true
                                  << false;
    QTest::newRow("fallback after missing")
        << QStringList{QStringLiteral("libnothere.so"), QStringLiteral("libopus.so.0")} << true
        << true;
    QTest::newRow("a library without Opus")
        << QStringList{QStringLiteral("libm.so.6")} << false << false;
}

void TstOggOpus::opusLoading()
{
    QFETCH(QStringList, names);
    QFETCH(bool, decoder);
    QFETCH(bool, encoder);
    OpusLib lib(names);
    const OpusDynApi *api = lib.ensure_opus_dyn_api_loaded();
    QCOMPARE(api != nullptr, decoder);
    if (api) {
        QVERIFY(api->opus_decode && api->opus_decoder_create && api->opus_decoder_destroy);
        QCOMPARE(api->hasEncoder(), encoder);
    }
    QCOMPARE(lib.ensure_opus_dyn_api_loaded(), api);
}

void TstOggOpus::failedLoadIsRemembered()
{
    const QString copy = path("libopus-late.so");
    OpusLib lib({copy});
    QVERIFY(lib.ensure_opus_dyn_api_loaded() == nullptr);
    QVERIFY(QFile::copy(QStringLiteral(OPUS_DECODER_ONLY_LIB), copy));
    // The library exists now, but the first outcome stands.
    QVERIFY(lib.ensure_opus_dyn_api_loaded() == nullptr);
    OpusLib fresh({copy});
    QVERIFY(fresh.ensure_opus_dyn_api_loaded() != nullptr);

    QString error;
    QVERIFY(!decodeOgaOpusToWav(lib, path("x.ogg"), path("x.wav"), error));
    QCOMPARE(error, QStringLiteral("opus: libkelOpus is missing"));
}

void TstOggOpus::decodeWithDecoderOnlyLibrary()
{
    const QString wav = path("dec-only-in.wav");
    QVERIFY(write_file(wav, wav_bytes(tone(500, 1.0, 48000, 1), 48000, 1)));
    OpusLib full;
    QString error;
    QVERIFY2(encode_wav_to_voice_ogg(full, wav, path("dec-only.ogg"), error), qPrintable(error));
    OpusLib decoderOnly({QStringLiteral(OPUS_DECODER_ONLY_LIB)});
    QVERIFY2(decodeOgaOpusToWav(decoderOnly, path("dec-only.ogg"), path("dec-only.wav"), error),
             qPrintable(error));
    Wav out;
    QVERIFY(read_wav(path("dec-only.wav"), out));
    QCOMPARE(out.samples.size(), 50 * 960 - 312);
}

void TstOggOpus::encoderUnavailableWithDecoderOnlyLibrary()
{
    OpusLib decoderOnly({QStringLiteral(OPUS_DECODER_ONLY_LIB)});
    VoiceEncoder enc(decoderOnly);
    QVERIFY(enc.encoderApi() == nullptr);
    int err = 0;
    QString line;
    QVERIFY(!enc.createEncoder(48000, err, line));
    QCOMPARE(line, QStringLiteral("voice_rec: opus encoder unavailable"));
    const QString wav = path("enc-only.wav");
    QVERIFY(write_file(wav, wav_bytes(tone(500, 0.5, 48000, 1), 48000, 1)));
    QString error;
    QVERIFY(!encode_wav_to_voice_ogg(decoderOnly, wav, path("enc-only.ogg"), error));
    QCOMPARE(error, QStringLiteral("voice_rec: opus encoder unavailable"));
}

void TstOggOpus::openAlLoading()
{
    OpenAlLib missing({QStringLiteral("libOpenAL.so.1"), QStringLiteral("libOpenAL.so")});
    QVERIFY(missing.ensure_openal_dyn_api_loaded() == nullptr);
    QVERIFY(missing.ensure_openal_dyn_api_loaded() == nullptr);
    OpenAlLib notOpenAl({QStringLiteral(OPUS_DECODER_ONLY_LIB)});
    QVERIFY(notOpenAl.ensure_openal_dyn_api_loaded() == nullptr);
    OpenAlLib lib;
    const OpenAlDynApi *al = lib.ensure_openal_dyn_api_loaded();
    QVERIFY(al);
    QVERIFY(al->alcCaptureOpenDevice && al->alcCaptureCloseDevice && al->alcCaptureStart &&
            al->alcCaptureStop && al->alcCaptureSamples && al->alcGetIntegerv);
}

void TstOggOpus::toolRoundTrip_data()
{
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("channels");
    QTest::addColumn<double>("freq");
    QTest::newRow("48 kHz mono") << 48000 << 1 << 440.0;
    QTest::newRow("48 kHz stereo") << 48000 << 2 << 1000.0;
    QTest::newRow("24 kHz stereo") << 24000 << 2 << 700.0;
    QTest::newRow("16 kHz mono") << 16000 << 1 << 600.0;
    QTest::newRow("12 kHz stereo") << 12000 << 2 << 500.0;
    QTest::newRow("8 kHz mono") << 8000 << 1 << 300.0;
}

void TstOggOpus::toolRoundTrip()
{
    QFETCH(int, rate);
    QFETCH(int, channels);
    QFETCH(double, freq);
    const QString tag = QStringLiteral("rt-%1-%2").arg(rate).arg(channels);
    const QString wavIn = path(tag + QStringLiteral("-in.wav"));
    const QString ogg = path(tag + QStringLiteral(".ogg"));
    const QString wavOut = path(tag + QStringLiteral("-out.wav"));
    QVERIFY(write_file(wavIn, wav_bytes(tone(freq, 2.0, rate, channels), rate, channels)));

    RunResult r = run(vexa_opus(), {QStringLiteral("encode"),
                                    QStringLiteral("--voice-note-granules"), wavIn, ogg});
    QVERIFY2(r.started, "vexa-opus did not start (VEXA_BIN_DIR?)");
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));

    // Mono Opus at the input rate, pages as the recorder writes them.
    QVector<OggPage> pages;
    QVERIFY(parse_pages(read_file(ogg), pages));
    QVERIFY(pages.size() >= 3);
    QCOMPARE(pages[0].body.at(9), '\x01');
    QCOMPARE(int(get_le32(pages[0].body, 12)), rate);
    QCOMPARE(pages.last().headerType, 4);
    QCOMPARE(pages.last().granule, qint64(100 * 960 - 312));
    for (const OggPage &p : pages)
        QCOMPARE(p.checksum, slow_ogg_crc(p.raw));

    if (haveTool("opusinfo")) {
        const RunResult info = run(QStringLiteral("opusinfo"), {ogg});
        // Page granules leave out the pre-skip, which opusinfo reports as its
        // one warning (and a non-zero exit); anything else is a defect.
        QVERIFY2(info.started && info.exitCode >= 0, qPrintable(info.output));
        for (const QString &l : info.output.split(QLatin1Char('\n'))) {
            if (l.contains(QStringLiteral("WARNING")) || l.contains(QStringLiteral("ERROR")))
                QVERIFY2(l.contains(QStringLiteral("negative granpos")), qPrintable(l));
        }
        QVERIFY2(info.output.contains(QStringLiteral("Pre-skip: 312")), qPrintable(info.output));
        QVERIFY2(info.output.contains(QStringLiteral("Channels: 1")), qPrintable(info.output));
        QVERIFY2(info.output.contains(QStringLiteral("Original sample rate: %1 Hz").arg(rate)),
                 qPrintable(info.output));
        QVERIFY2(!info.output.contains(QStringLiteral("checksum"), Qt::CaseInsensitive),
                 qPrintable(info.output));
    }
    if (haveTool("ffprobe")) {
        const RunResult probe =
            run(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"),
                                            QStringLiteral("-show_streams"), ogg});
        QVERIFY2(probe.exitCode == 0, qPrintable(probe.output));
        QVERIFY2(probe.output.contains(QStringLiteral("codec_name=opus")),
                 qPrintable(probe.output));
    }

    r = run(vexa_opus(), {QStringLiteral("decode"), ogg, wavOut});
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    Wav out;
    QVERIFY(read_wav(wavOut, out));
    QCOMPARE(out.rate, 48000);
    QCOMPARE(out.channels, 1);
    QCOMPARE(out.samples.size(), 100 * 960 - 312);
    const QVector<qint16> middle = out.samples.mid(9600, 48000);
    QVERIFY(rms(middle, 0, middle.size()) > 3000);
    QVERIFY2(qAbs(estimate_frequency(middle, 48000) - freq) < freq * 0.02,
             qPrintable(QString::number(estimate_frequency(middle, 48000))));
}

void TstOggOpus::opusdecPlaysToolOutput()
{
    if (!haveTool("opusdec"))
        QSKIP("opusdec is not installed");
    const QString wavIn = path("std-in.wav");
    const QString ogg = path("std.ogg");
    QVERIFY(write_file(wavIn, wav_bytes(tone(440, 3.0, 48000, 1), 48000, 1)));
    RunResult r = run(vexa_opus(), {QStringLiteral("encode"), wavIn, ogg});
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    // The tool's default: the same pages with the plain running count.
    QVector<OggPage> pages;
    QVERIFY(parse_pages(read_file(ogg), pages));
    QCOMPARE(pages.last().granule, qint64(150 * 960));
    QCOMPARE(pages.last().headerType, 4);
    if (haveTool("opusinfo")) {
        const RunResult info = run(QStringLiteral("opusinfo"), {ogg});
        QVERIFY2(info.exitCode == 0, qPrintable(info.output));
        QVERIFY2(!info.output.contains(QStringLiteral("WARNING")), qPrintable(info.output));
    }
    r = run(QStringLiteral("opusdec"),
            {QStringLiteral("--rate"), QStringLiteral("48000"), ogg, path("std-opusdec.wav")});
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    r = run(vexa_opus(), {QStringLiteral("decode"), ogg, path("std-ours.wav")});
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    Wav theirs;
    Wav ours;
    QVERIFY(read_wav(path("std-opusdec.wav"), theirs));
    QVERIFY(read_wav(path("std-ours.wav"), ours));
    QCOMPARE(theirs.samples.size(), ours.samples.size());
    const QVector<qint16> mid = theirs.samples.mid(4800, 96000);
    QVERIFY(qAbs(estimate_frequency(mid, 48000) - 440.0) < 5.0);
}

void TstOggOpus::opusencFilesDecodeLikeOpusdec_data()
{
    QTest::addColumn<int>("channels");
    QTest::addColumn<QString>("bitrate");
    QTest::addColumn<QString>("framesize");
    QTest::newRow("mono 20 ms") << 1 << QStringLiteral("24") << QStringLiteral("20");
    QTest::newRow("stereo 20 ms") << 2 << QStringLiteral("64") << QStringLiteral("20");
    QTest::newRow("mono 60 ms frames") << 1 << QStringLiteral("32") << QStringLiteral("60");
    QTest::newRow("stereo 2.5 ms frames") << 2 << QStringLiteral("96") << QStringLiteral("2.5");
}

void TstOggOpus::opusencFilesDecodeLikeOpusdec()
{
    if (!haveTool("opusenc") || !haveTool("opusdec"))
        QSKIP("opus-tools are not installed");
    QFETCH(int, channels);
    QFETCH(QString, bitrate);
    QFETCH(QString, framesize);
    const QString tag = QStringLiteral("oe-%1-%2-%3").arg(channels).arg(bitrate, framesize);
    QVector<qint16> pcm = tone(523.25, 2.5, 48000, channels);
    if (channels == 2) {
        // A different tone on the right, so channel order matters.
        const QVector<qint16> right = tone(784.0, 2.5, 48000, 1);
        for (int i = 0; i < right.size(); ++i)
            pcm[2 * i + 1] = right[i];
    }
    QVERIFY(write_file(path(tag + ".wav"), wav_bytes(pcm, 48000, channels)));
    RunResult r =
        run(QStringLiteral("opusenc"),
            {QStringLiteral("--quiet"), QStringLiteral("--bitrate"), bitrate,
             QStringLiteral("--framesize"), framesize, path(tag + ".wav"), path(tag + ".opus")});
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    r = run(QStringLiteral("opusdec"),
            {QStringLiteral("--quiet"), QStringLiteral("--rate"), QStringLiteral("48000"),
             QStringLiteral("--no-dither"), path(tag + ".opus"), path(tag + "-opusdec.wav")});
    QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    OpusLib lib;
    QString error;
    QVERIFY2(decodeOgaOpusToWav(lib, path(tag + ".opus"), path(tag + "-ours.wav"), error),
             qPrintable(error));

    Wav theirs;
    Wav ours;
    QVERIFY(read_wav(path(tag + "-opusdec.wav"), theirs));
    QVERIFY(read_wav(path(tag + "-ours.wav"), ours));
    QCOMPARE(ours.channels, channels);
    QCOMPARE(theirs.channels, channels);
    // opusdec trims the end to the last granule; this reader keeps the
    // whole last packet.
    QVERIFY(ours.samples.size() >= theirs.samples.size());
    QVERIFY(ours.samples.size() - theirs.samples.size() <= 2880 * channels);
    int worst = 0;
    for (int i = 0; i < theirs.samples.size(); ++i)
        worst = qMax(worst, qAbs(int(ours.samples[i]) - int(theirs.samples[i])));
    // Float decoding then rounding versus fixed 16-bit output.
    QVERIFY2(worst <= 2, qPrintable(QString::number(worst)));
}

void TstOggOpus::stereoDownMixRoundsTowardZero()
{
    // Left -3 and right 0 average to -1 (not -2); a silent mix stays silent,
    // so the encoded file decodes to near silence, while a rounding toward
    // minus infinity would add a DC offset the encoder keeps.
    QVector<qint16> pcm(48000 * 2);
    for (int i = 0; i < 48000; ++i) {
        pcm[2 * i] = qint16(i % 2 ? -3 : 3);
        pcm[2 * i + 1] = qint16(i % 2 ? 0 : -3);
    }
    // Mix: odd samples -3/2 = -1, even 0/2 = 0.
    OpusLib lib;
    VoiceEncoder enc(lib);
    int err = 0;
    QString line;
    QVERIFY(enc.createEncoder(48000, err, line));
    QString error;
    QVERIFY(enc.openOutput(path("mix.ogg"), 48000, 5, error));
    QVERIFY(enc.writeHeaders(error));
    enc.setCaptureFormat(48000, 2);
    enc.appendPcm(reinterpret_cast<const char *>(pcm.constData()), pcm.size() * 2);
    QString errLine;
    QVERIFY(enc.encodePcm(line, errLine));
    QCOMPARE(enc.recordedSamples(), qint64(50 * 960));
    QVERIFY(enc.finish(error));
    QVERIFY(decodeOgaOpusToWav(lib, path("mix.ogg"), path("mix.wav"), error));
    Wav out;
    QVERIFY(read_wav(path("mix.wav"), out));
    QVERIFY(rms(out.samples, 0, out.samples.size()) < 4.0);
}

void TstOggOpus::malformedFiles_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QString>("error");
    const QByteArray head = raw_page(2, lacing_for(19), opus_head(1, 312));
    const QByteArray tags = raw_page(0, lacing_for(opus_tags().size()), opus_tags(), 1);
    const QList<QByteArray> pk = encodePackets(5, 24000);
    QByteArray audioBody;
    QByteArray audioLacing;
    for (const QByteArray &p : pk) {
        audioBody += p;
        audioLacing += lacing_for(p.size());
    }
    const QByteArray audio = raw_page(4, audioLacing, audioBody, 2, 5 * 960);
    const QByteArray good = head + tags + audio;

    QByteArray badCapture = good;
    badCapture[3] = 'X';
    QTest::newRow("bad capture pattern") << badCapture << "opus: invalid ogg capture pattern";
    QByteArray badSecond = good;
    badSecond[head.size() + 1] = 'x';
    QTest::newRow("bad capture pattern on page 2")
        << badSecond << "opus: invalid ogg capture pattern";
    QTest::newRow("not ogg at all") << QByteArray(100, 'z') << "opus: invalid ogg capture pattern";
    QTest::newRow("missing OpusHead") << tags + audio << "opus: missing OpusHead";
    QTest::newRow("OpusHead too short")
        << raw_page(2, lacing_for(18), opus_head(1, 312).left(18)) + tags + audio
        << "opus: missing OpusHead";
    QTest::newRow("three channels") << raw_page(2, lacing_for(19), opus_head(3, 312)) + tags + audio
                                    << "opus: unsupported channel count";
    QTest::newRow("zero channels") << raw_page(2, lacing_for(19), opus_head(0, 312)) + tags + audio
                                   << "opus: unsupported channel count";
    QTest::newRow("truncated header")
        << good.left(head.size() + tags.size() + 20) << "opus: truncated ogg page header";
    QTest::newRow("truncated header, 1 byte") << good.left(1) << "opus: truncated ogg page header";
    QTest::newRow("truncated segment table")
        << good.left(head.size() + tags.size() + 27 + 2) << "opus: truncated ogg segment table";
    QTest::newRow("truncated payload")
        << good.left(good.size() - 10) << "opus: truncated ogg payload";
    QTest::newRow("headers only") << head + tags << "opus: no decoded audio";
    QTest::newRow("empty file") << QByteArray() << "opus: no decoded audio";
    QTest::newRow("audio without tags") << head + raw_page(4, audioLacing, audioBody, 1) << "";
    QTest::newRow("well formed") << good << "";
}

void TstOggOpus::malformedFiles()
{
    QFETCH(QByteArray, file);
    QFETCH(QString, error);
    const QString in = path("bad.ogg");
    QVERIFY(write_file(in, file));
    OpusLib lib;
    QString got;
    const bool ok = decodeOgaOpusToWav(lib, in, path("bad.wav"), got);
    QCOMPARE(got, error);
    QCOMPARE(ok, error.isEmpty());
    if (ok) {
        Wav out;
        QVERIFY(read_wav(path("bad.wav"), out));
        QCOMPARE(out.samples.size(), 5 * 960 - 312);
    }
}

void TstOggOpus::preSkipSpansPackets()
{
    const QList<QByteArray> pk = encodePackets(10, 24000);
    QCOMPARE(pk.size(), 10);
    QByteArray body;
    QByteArray lacing;
    for (const QByteArray &p : pk) {
        body += p;
        lacing += lacing_for(p.size());
    }
    // 2500 samples: the first two packets and part of the third vanish.
    const QByteArray file = raw_page(2, lacing_for(19), opus_head(1, 2500)) +
                            raw_page(0, lacing_for(opus_tags().size()), opus_tags(), 1) +
                            raw_page(4, lacing, body, 2);
    QVERIFY(write_file(path("skip.ogg"), file));
    QVERIFY(write_file(path("noskip.ogg"), raw_page(2, lacing_for(19), opus_head(1, 0)) +
                                               raw_page(4, lacing, body, 1)));
    OpusLib lib;
    QString error;
    QVERIFY(decodeOgaOpusToWav(lib, path("skip.ogg"), path("skip.wav"), error));
    QVERIFY(decodeOgaOpusToWav(lib, path("noskip.ogg"), path("noskip.wav"), error));
    Wav skip;
    Wav full;
    QVERIFY(read_wav(path("skip.wav"), skip));
    QVERIFY(read_wav(path("noskip.wav"), full));
    QCOMPARE(full.samples.size(), 9600);
    QCOMPARE(skip.samples.size(), 9600 - 2500);
    QCOMPARE(skip.samples, full.samples.mid(2500));
}

void TstOggOpus::packetContinuedAcrossPages()
{
    // Packets large enough to need several lacing values.
    const QList<QByteArray> pk = encodePackets(6, 256000);
    QCOMPARE(pk.size(), 6);
    QVERIFY(pk[2].size() > 300);
    const QByteArray headers = raw_page(2, lacing_for(19), opus_head(1, 0)) +
                               raw_page(0, lacing_for(opus_tags().size()), opus_tags(), 1);
    QByteArray whole;
    QByteArray wholeLacing;
    for (const QByteArray &p : pk) {
        whole += p;
        wholeLacing += lacing_for(p.size());
    }
    // Page 3 ends inside packet 2 with a 255 value; page 4 carries the rest.
    QByteArray l1;
    QByteArray b1 = pk[0] + pk[1] + pk[2].left(255);
    l1 += lacing_for(pk[0].size());
    l1 += lacing_for(pk[1].size());
    l1.append(char(255));
    QByteArray l2 = lacing_for(pk[2].size() - 255);
    QByteArray b2 = pk[2].mid(255);
    for (int i = 3; i < 6; ++i) {
        l2 += lacing_for(pk[i].size());
        b2 += pk[i];
    }
    QVERIFY(
        write_file(path("split.ogg"), headers + raw_page(0, l1, b1, 2) + raw_page(4, l2, b2, 3)));
    QVERIFY(write_file(path("whole.ogg"), headers + raw_page(4, wholeLacing, whole, 2)));
    OpusLib lib;
    QString error;
    QVERIFY2(decodeOgaOpusToWav(lib, path("split.ogg"), path("split.wav"), error),
             qPrintable(error));
    QVERIFY(decodeOgaOpusToWav(lib, path("whole.ogg"), path("whole.wav"), error));
    QCOMPARE(read_file(path("split.wav")), read_file(path("whole.wav")));
    QCOMPARE(read_file(path("whole.wav")).size(), 44 + 6 * 960 * 2);
}

void TstOggOpus::truncatedAtPageBoundaryStillPlays()
{
    const QString wavIn = path("cut-in.wav");
    QVERIFY(write_file(wavIn, wav_bytes(tone(440, 6.0, 48000, 1), 48000, 1)));
    OpusLib lib;
    QString error;
    QVERIFY(encode_wav_to_voice_ogg(lib, wavIn, path("cut-full.ogg"), error));
    QVector<OggPage> pages;
    QVERIFY(parse_pages(read_file(path("cut-full.ogg")), pages));
    QVERIFY(pages.size() >= 4);
    QVERIFY(write_file(path("cut.ogg"), pages[0].raw + pages[1].raw + pages[2].raw));
    QVERIFY2(decodeOgaOpusToWav(lib, path("cut.ogg"), path("cut.wav"), error), qPrintable(error));
    Wav out;
    QVERIFY(read_wav(path("cut.wav"), out));
    QCOMPARE(qint64(out.samples.size()), pages[2].granule);
}

void TstOggOpus::endlessContinuedPacketIsBounded()
{
    const QString in = path("endless.ogg");
    {
        QFile f(in);
        QVERIFY(f.open(QIODevice::WriteOnly));
        QVERIFY(f.write(raw_page(2, lacing_for(19), opus_head(1, 0))) > 0);
        // 64 MiB of one packet that never ends.
        const QByteArray page = raw_page(0, QByteArray(255, char(255)), QByteArray(255 * 255, 'q'));
        for (int i = 0; i < 1032; ++i)
            QVERIFY(f.write(page) == page.size());
    }
    const bool measured = reset_peak_rss();
    const qint64 before = peak_rss_kib();
    OpusLib lib;
    QString error;
    QVERIFY(!decodeOgaOpusToWav(lib, in, path("endless.wav"), error));
    QCOMPARE(error, QStringLiteral("opus: packet too large"));
    if (measured && before > 0) {
        const qint64 grown = peak_rss_kib() - before;
        QVERIFY2(grown < 16 * 1024, qPrintable(QStringLiteral("grew %1 KiB").arg(grown)));
    }
    QFile::remove(in);
}

void TstOggOpus::mutatedFilesFailCleanly_data()
{
    QTest::addColumn<int>("seed");
    for (int seed = 1; seed <= 8; ++seed)
        QTest::newRow(qPrintable(QStringLiteral("seed %1").arg(seed))) << seed;
}

void TstOggOpus::mutatedFilesFailCleanly()
{
    // Random byte changes, cuts and splices of a valid stereo file: every
    // result either decodes or fails with one of the reader's own texts.
    QFETCH(int, seed);
    const QList<QByteArray> pk = encodePackets(30, 64000, 2);
    QByteArray body;
    QByteArray lacing;
    for (const QByteArray &p : pk) {
        body += p;
        lacing += lacing_for(p.size());
    }
    const QByteArray good = raw_page(2, lacing_for(19), opus_head(2, 312)) +
                            raw_page(0, lacing_for(opus_tags().size()), opus_tags(), 1) +
                            raw_page(4, lacing, body, 2);
    const QStringList known = {QStringLiteral("opus: truncated ogg page header"),
                               QStringLiteral("opus: invalid ogg capture pattern"),
                               QStringLiteral("opus: truncated ogg segment table"),
                               QStringLiteral("opus: truncated ogg payload"),
                               QStringLiteral("opus: missing OpusHead"),
                               QStringLiteral("opus: unsupported channel count"),
                               QStringLiteral("opus: no decoded audio"),
                               QStringLiteral("opus: packet too large")};
    QRandomGenerator rng{quint32(seed)};
    OpusLib lib;
    for (int round = 0; round < 40; ++round) {
        QByteArray f = good;
        const int edits = 1 + int(rng.bounded(8));
        for (int e = 0; e < edits; ++e) {
            const int at = int(rng.bounded(f.size()));
            switch (rng.bounded(3)) {
            case 0:
                f[at] = char(rng.bounded(256));
                break;
            case 1:
                f.truncate(at);
                break;
            default:
                f.insert(at, f.mid(int(rng.bounded(f.size())), int(rng.bounded(300))));
                break;
            }
            if (f.isEmpty())
                f = good;
        }
        QVERIFY(write_file(path("mut.ogg"), f));
        QString error;
        const bool ok = decodeOgaOpusToWav(lib, path("mut.ogg"), path("mut.wav"), error);
        if (ok) {
            QVERIFY(error.isEmpty());
            Wav out;
            QVERIFY(read_wav(path("mut.wav"), out));
            QVERIFY(out.channels == 1 || out.channels == 2);
            QVERIFY(!out.samples.isEmpty());
        } else {
            QVERIFY2(known.contains(error) ||
                         error.startsWith(QStringLiteral("opus: decode failed")),
                     qPrintable(error));
        }
    }
}

void TstOggOpus::toolReportsErrors_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message");
    QTest::newRow("no arguments") << QStringList() << "usage: vexa-opus";
    QTest::newRow("unknown verb") << QStringList{"mix", "a", "b"} << "usage: vexa-opus";
    QTest::newRow("decode missing input")
        << QStringList{"decode", "no-such.ogg", "out.wav"} << "opus: cannot open input";
    QTest::newRow("decode a WAV") << QStringList{"decode", "@wav", "out.wav"}
                                  << "opus: invalid ogg capture pattern";
    QTest::newRow("decode into a folder")
        << QStringList{"decode", "@ogg", "@dir"} << "opus: cannot open output";
    QTest::newRow("encode missing input")
        << QStringList{"encode", "no-such.wav", "out.ogg"} << "wav: cannot open input";
    QTest::newRow("encode an Ogg file")
        << QStringList{"encode", "@ogg", "out.ogg"} << "wav: not a RIFF/WAVE file";
    QTest::newRow("encode 44.1 kHz")
        << QStringList{"encode", "@wav44", "out.ogg"} << "wav: unsupported sample rate 44100";
    QTest::newRow("encode into a folder")
        << QStringList{"encode", "@wav", "@dir"} << "ogg: cannot open output";
}

void TstOggOpus::toolReportsErrors()
{
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    QVERIFY(write_file(path("e.wav"), wav_bytes(tone(300, 0.5, 16000, 1), 16000, 1)));
    QVERIFY(write_file(path("e44.wav"), wav_bytes(tone(300, 0.5, 44100, 1), 44100, 1)));
    OpusLib lib;
    QString error;
    QVERIFY(encode_wav_to_voice_ogg(lib, path("e.wav"), path("e.ogg"), error));
    QDir(m_dir.path()).mkpath(QStringLiteral("edir"));
    for (QString &a : args) {
        if (a == QLatin1String("@wav"))
            a = path("e.wav");
        else if (a == QLatin1String("@wav44"))
            a = path("e44.wav");
        else if (a == QLatin1String("@ogg"))
            a = path("e.ogg");
        else if (a == QLatin1String("@dir"))
            a = path("edir");
        else if (a.contains(QLatin1Char('.')))
            a = path(a);
    }
    const RunResult r = run(vexa_opus(), args);
    QVERIFY(r.started);
    QVERIFY(r.exitCode != 0);
    QVERIFY2(r.output.contains(message), qPrintable(r.output));
}

QTEST_GUILESS_MAIN(TstOggOpus)
#include "tst_ogg_opus.moc"
