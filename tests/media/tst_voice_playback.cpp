// Voice playback for real: Ogg Opus converted to the cached WAV and played by
// QtMultimedia into a private PulseAudio null sink, with the published list
// properties followed through Started, position updates and Stopped.

#include "audio_test_util.h"
#include "media/audio_libs.h"
#include "media/media_downloads.h"
#include "media/voice_file_encoder.h"
#include "media/voice_player.h"
#include "platform/media_player.h"
#include "pulse_fixture.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

class TstVoicePlayback : public QObject
{
    Q_OBJECT
private:
    PulseFixture m_pulse;
    QTemporaryDir m_dir;
    OpusLib m_opus;
    QStringList m_lines;
    QStringList m_log;
    RecordingToaster m_toaster;
    QString m_voiceOgg;

    MediaServices services()
    {
        MediaServices s;
        s.sendLine = [this](const QString &l) { m_lines.append(l); };
        s.appendLog = [this](const QString &l) { m_log.append(l); };
        s.toaster = &m_toaster;
        return s;
    }
    QString cacheDir() const { return m_dir.filePath(QStringLiteral("media-cache")); }
    // Streams of the given sample format playing into the null sink.
    int sinkInputs(const QString &format);

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void playsIntoTheSink();
    void tapTogglesPauseAndPlay();
    void wavCache_data();
    void wavCache();
    void undecodableFile();
    void tapOnMissingFileQueuesDownload();
    void playerErrorClearsState();
};

int TstVoicePlayback::sinkInputs(const QString &format)
{
    QString out;
    if (!m_pulse.pactl(
            {QStringLiteral("list"), QStringLiteral("short"), QStringLiteral("sink-inputs")}, &out))
        return -1;
    int n = 0;
    for (const QString &line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (line.contains(format))
            ++n;
    }
    return n;
}

void TstVoicePlayback::initTestCase()
{
    if (!PulseFixture::available())
        QSKIP("pulseaudio is not installed");
    QVERIFY(m_dir.isValid());
    QString error;
    QVERIFY2(m_pulse.start(&error), qPrintable(error));
    const QString wav = m_dir.filePath(QStringLiteral("voice-in.wav"));
    QVERIFY(write_file(wav, wav_bytes(tone(660, 2.0, 48000, 1), 48000, 1)));
    m_voiceOgg = m_dir.filePath(QStringLiteral("voice.ogg"));
    QVERIFY2(encode_wav_to_voice_ogg(m_opus, wav, m_voiceOgg, error), qPrintable(error));
}

void TstVoicePlayback::cleanupTestCase()
{
    m_pulse.stop();
}

void TstVoicePlayback::init()
{
    m_lines.clear();
    m_log.clear();
}

void TstVoicePlayback::playsIntoTheSink()
{
    QObject view;
    auto *playerObject = new VoicePlayer(m_opus, nullptr, cacheDir(), services(), &view);
    VoicePlayer &player = *playerObject;
    QSignalSpy rows(&player, &VoicePlayer::mediaRowsNeedRefresh);

    player.startVoicePlayback(11, m_voiceOgg);
    QVERIFY(m_log.contains(QStringLiteral("voice: decoding opus->wav file_id=11\n")));
    const QString wav = cacheDir() + QStringLiteral("/voice-wav/11.wav");
    QVERIFY(QFileInfo(wav).isFile());
    QVERIFY(!QFileInfo::exists(wav + QStringLiteral(".tmp")));
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 11LL);
    QVERIFY(rows.contains(QVariantList{11LL}));

    QTRY_COMPARE_WITH_TIMEOUT(view.property("voice_media_state").toInt(), 2, 10000);
    QVERIFY(m_log.contains(QStringLiteral("voice: state=2 (Started)\n")));
    // Audio really goes to the sound server: a stream of the WAV's format
    // (mono, 48 kHz) plays into the sink.
    const QString format = QStringLiteral("s16le 1ch 48000Hz");
    QTRY_VERIFY_WITH_TIMEOUT(sinkInputs(format) == 1, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(view.property("voice_play_pos_ms").toUInt() > 0, 5000);
    const uint duration = view.property("voice_play_dur_ms").toUInt();
    QVERIFY2(duration > 1800 && duration < 2200, qPrintable(QString::number(duration)));

    QTRY_COMPARE_WITH_TIMEOUT(view.property("voice_media_state").toInt(), 4, 10000);
    QVERIFY(m_log.contains(QStringLiteral("voice: state=4 (Stopped)\n")));
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 0LL);
    QCOMPARE(view.property("voice_play_pos_ms").toUInt(), 0u);
    QCOMPARE(view.property("voice_play_dur_ms").toUInt(), 0u);
    // The stream goes away with the player.
    delete playerObject;
    QTRY_COMPARE_WITH_TIMEOUT(sinkInputs(format), 0, 5000);
}

void TstVoicePlayback::tapTogglesPauseAndPlay()
{
    QObject view;
    VoicePlayer player(m_opus, nullptr, cacheDir(), services(), &view);
    player.onVoiceTapped(m_voiceOgg, 12);
    QTRY_COMPARE_WITH_TIMEOUT(view.property("voice_media_state").toInt(), 2, 10000);
    player.onVoiceTapped(m_voiceOgg, 12);
    QTRY_COMPARE_WITH_TIMEOUT(view.property("voice_media_state").toInt(), 3, 5000);
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 12LL);
    const uint pausedAt = view.property("voice_play_pos_ms").toUInt();
    QTest::qWait(400);
    QCOMPARE(view.property("voice_play_pos_ms").toUInt(), pausedAt);
    player.onVoiceTapped(m_voiceOgg, 12);
    QTRY_COMPARE_WITH_TIMEOUT(view.property("voice_media_state").toInt(), 2, 5000);
    player.stopVoicePlayback();
    // Stopped, or Unprepared once the player has been reset.
    const int state = view.property("voice_media_state").toInt();
    QVERIFY2(state == 4 || state == 0, qPrintable(QString::number(state)));
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 0LL);
    QCOMPARE(view.property("voice_pending_file_id").toLongLong(), 0LL);
    QCOMPARE(view.property("voice_play_pos_ms").toUInt(), 0u);
}

void TstVoicePlayback::wavCache_data()
{
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<int>("cachedBytes"); // -1: no cached file
    QTest::addColumn<bool>("decodes");
    QTest::newRow("no cache") << ".ogg" << -1 << true;
    QTest::newRow("upper-case suffix") << ".OGG" << -1 << true;
    QTest::newRow(".oga") << ".oga" << -1 << true;
    QTest::newRow(".opus") << ".opus" << -1 << true;
    QTest::newRow("44-byte cache is rebuilt") << ".ogg" << 44 << true;
    QTest::newRow("empty cache is rebuilt") << ".ogg" << 0 << true;
    QTest::newRow("45-byte cache is used") << ".ogg" << 45 << false;
}

void TstVoicePlayback::wavCache()
{
    QFETCH(QString, suffix);
    QFETCH(int, cachedBytes);
    QFETCH(bool, decodes);
    static long long id = 100;
    ++id;
    const QString voice = m_dir.filePath(QStringLiteral("v%1%2").arg(id).arg(suffix));
    QVERIFY(QFile::copy(m_voiceOgg, voice));
    QVERIFY(QDir().mkpath(cacheDir() + QStringLiteral("/voice-wav")));
    const QString wav = cacheDir() + QStringLiteral("/voice-wav/%1.wav").arg(id);
    const QByteArray marker(qMax(0, cachedBytes), 'm');
    if (cachedBytes >= 0)
        QVERIFY(write_file(wav, marker));

    QObject view;
    VoicePlayer player(m_opus, nullptr, cacheDir(), services(), &view);
    QCOMPARE(player.ensureWavForVoiceFile(id, voice), wav);
    QCOMPARE(m_log.contains(QStringLiteral("voice: decoding opus->wav file_id=%1\n").arg(id)),
             decodes);
    if (decodes) {
        Wav out;
        QVERIFY(read_wav(wav, out));
        QCOMPARE(out.samples.size(), 100 * 960 - 312);
    } else {
        QCOMPARE(read_file(wav), marker);
    }
    QVERIFY(!QFileInfo::exists(wav + QStringLiteral(".tmp")));
}

void TstVoicePlayback::undecodableFile()
{
    const QString bad = m_dir.filePath(QStringLiteral("bad.ogg"));
    QVERIFY(write_file(bad, QByteArray(200, 'z')));
    QObject view;
    VoicePlayer player(m_opus, nullptr, cacheDir(), services(), &view);
    player.setPendingFileId(31);
    player.startVoicePlayback(31, bad);
    QVERIFY(m_log.contains(
        QStringLiteral("voice: decode failed: opus: invalid ogg capture pattern\n")));
    QVERIFY(
        m_log.contains(QStringLiteral("voice: opus decode unavailable; cannot play this file\n")));
    QVERIFY(!QFileInfo::exists(cacheDir() + QStringLiteral("/voice-wav/31.wav.tmp")));
    QVERIFY(!QFileInfo::exists(cacheDir() + QStringLiteral("/voice-wav/31.wav")));
    QCOMPARE(view.property("voice_pending_file_id").toLongLong(), 0LL);
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 0LL);
}

void TstVoicePlayback::tapOnMissingFileQueuesDownload()
{
    QObject view;
    MediaDownloads downloads(services(), m_dir.filePath(QStringLiteral("dl/quillo")),
                             m_dir.filePath(QStringLiteral("dl")), &view);
    VoicePlayer player(m_opus, &downloads, cacheDir(), services(), &view);
    QHash<long long, QString> known;
    player.setLocalPathLookup([&known](long long id) { return known.value(id); });

    player.onVoiceTapped(QString(), 0);
    QVERIFY(m_log.isEmpty());
    player.onVoiceTapped(m_dir.filePath(QStringLiteral("not-here.ogg")), 41);
    QVERIFY(m_log.contains(QStringLiteral("ui: voice download file_id=41\n")));
    QCOMPARE(view.property("voice_pending_file_id").toLongLong(), 41LL);
    QVERIFY(downloads.isQueued(41));
    QTRY_COMPARE_WITH_TIMEOUT(m_lines, QStringList{QStringLiteral("download 41")}, 2000);
    // A second tap while waiting requests nothing new.
    player.onVoiceTapped(QString(), 41);
    QTest::qWait(500);
    QCOMPARE(m_lines.size(), 1);

    // The download arrived: the event handler plays the pending id.
    known.insert(41, m_voiceOgg);
    player.startVoicePlayback(player.pendingFileId(), known.value(41));
    QCOMPARE(view.property("voice_pending_file_id").toLongLong(), 0LL);
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 41LL);
    QTRY_COMPARE_WITH_TIMEOUT(view.property("voice_media_state").toInt(), 2, 10000);
    player.stopVoicePlayback();

    // A file known locally by id plays without a download.
    m_lines.clear();
    known.insert(42, m_voiceOgg);
    player.onVoiceTapped(QString(), 42);
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 42LL);
    QTest::qWait(500);
    QVERIFY(m_lines.isEmpty());
    player.stopVoicePlayback();
}

void TstVoicePlayback::playerErrorClearsState()
{
    // A .wav that is not audio is handed to the player as it is and fails.
    const QString junk = m_dir.filePath(QStringLiteral("junk.wav"));
    QVERIFY(write_file(junk, QByteArray(4000, '\x5a')));
    QObject view;
    VoicePlayer player(m_opus, nullptr, cacheDir(), services(), &view);
    player.startVoicePlayback(51, junk);
    QTRY_VERIFY_WITH_TIMEOUT(!m_log.filter(QStringLiteral("voice: error=")).isEmpty(), 10000);
    QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 0LL);
    QCOMPARE(view.property("voice_media_state").toInt(), 4);
    QCOMPARE(view.property("voice_play_dur_ms").toUInt(), 0u);
}

QTEST_MAIN(TstVoicePlayback)
#include "tst_voice_playback.moc"
