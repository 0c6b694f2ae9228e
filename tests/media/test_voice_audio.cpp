// Voice notes through a private PulseAudio with a null sink: a tone played
// into it is recorded from its monitor and decoded back; notes play into it.

#include "common/audio.h"
#include "media/audio_libs.h"
#include "media/media_downloads.h"
#include "media/ogg_opus_decoder.h"
#include "media/voice_file_encoder.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "pulse_fixture.h"

#include <QtTest>

using namespace testaudio;

class TstVoiceAudio : public QObject
{
    Q_OBJECT
    PulseFixture m_pulse;
    QTemporaryDir m_dir;
    OpusLib m_opus;
    OpenAlLib m_openal;
    Recorded m_rec;
    QString m_voiceOgg; // 2 s of 660 Hz

    QString path(const QString &name) const { return m_dir.filePath(name); }
    QString cacheDir() const { return path(QStringLiteral("media-cache")); }
    int state(const QObject &view) const { return view.property("voice_media_state").toInt(); }
    // Streams of the given sample format playing into the null sink.
    int sinkInputs(const QString &format)
    {
        QString out;
        return m_pulse.pactl({"list", "short", "sink-inputs"}, &out) ? out.count(format) : -1;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QString error;
        QVERIFY2(m_pulse.start(&error), qPrintable(error));
        QVERIFY(write_tone_wav(path("voice-in.wav"), 660, 2.0, 48000, 1));
        m_voiceOgg = path(QStringLiteral("voice.ogg"));
        QVERIFY2(encode_wav_to_voice_ogg(m_opus, path("voice-in.wav"), m_voiceOgg, &error),
                 qPrintable(error));
    }
    void init() { m_rec.clear(); }

    void recordsTone_data()
    {
        QTest::addColumn<double>("freq");
        QTest::addColumn<qint64>("replyTo");
        QTest::newRow("1 kHz, new message") << 1000.0 << qint64(0);
        QTest::newRow("440 Hz, answer") << 440.0 << qint64(777);
    }
    void recordsTone()
    {
        QFETCH(double, freq);
        QFETCH(qint64, replyTo);
        const QString toneFile = path(QStringLiteral("tone.wav"));
        QVERIFY(writeFile(toneFile, wav_bytes(tone(freq, 1.5, 48000, 2, 16000), 48000, 2)));
        VoiceRecorder rec(m_opus, m_openal, path("data"), m_rec.services());
        QSignalSpy replyDone(&rec, &VoiceRecorder::replyTargetConsumed);
        rec.setChatId(4242);
        rec.setReplyToMessageId(replyTo);
        rec.startVoiceRecording();
        QVERIFY2(rec.voiceRecording(), qPrintable(m_rec.log.join(QString())));
        const QString ogg = rec.recordingPath();
        // The device delivers before the tone starts; the event loop keeps running meanwhile.
        QTRY_VERIFY_WITH_TIMEOUT(rec.recordedSamples() >= 4800, 10000);
        QScopedPointer<QProcess> play(m_pulse.startPaplay(toneFile, nullptr));
        QTRY_VERIFY_WITH_TIMEOUT(play->state() == QProcess::NotRunning, 15000);
        QCOMPARE(play->exitCode(), 0);
        // The tail of the tone is still on its way through the server: take 400 ms more.
        const qint64 atEnd = rec.recordedSamples();
        QTRY_VERIFY_WITH_TIMEOUT(rec.recordedSamples() >= qMax<qint64>(72000, atEnd + 19200),
                                 10000);
        rec.stopVoiceRecording(true);
        const int seconds = VoiceRecorder::voiceDurationSeconds(rec.recordedSamples());
        QVERIFY(seconds >= 2);
        const QString reply = replyTo ? QStringLiteral(" %1").arg(replyTo) : QString();
        QCOMPARE(m_rec.lines, QStringList{QStringLiteral("sendvoice64 4242%1 %2 %3")
                                              .arg(reply, ogg.toUtf8().toBase64())
                                              .arg(seconds)});
        if (replyTo)
            QCOMPARE(replyDone.count(), 1);
        QString error;
        QVERIFY2(decodeOgaOpusToWav(m_opus, ogg, path("captured.wav"), &error), qPrintable(error));
        Wav out;
        QVERIFY(read_wav(path("captured.wav"), out));
        QCOMPARE(qint64(out.samples.size()), rec.recordedSamples() - 312);
        const double got = dominant_frequency(out.samples, 48000);
        QVERIFY2(qAbs(got - freq) < freq * 0.02, qPrintable(QString::number(got)));
    }

    void discarded_data()
    {
        QTest::addColumn<QString>("data"); // the data folder
        QTest::addColumn<bool>("send");
        QTest::addColumn<QString>("lastToast");
        QTest::newRow("too short to send") << "data" << true << "Voice message: too short";
        QTest::newRow("cancelled") << "data" << false << "Recording voice…";
        QTest::newRow("no folder") << "plain-file" << true << "Error: failed to create folder";
    }
    void discarded()
    {
        QFETCH(QString, data);
        QFETCH(bool, send);
        QFETCH(QString, lastToast);
        QVERIFY(writeFile(path("plain-file"), "x"));
        VoiceRecorder rec(m_opus, m_openal, path(data), m_rec.services());
        rec.setChatId(5);
        rec.startVoiceRecording();
        const QString ogg = rec.recordingPath();
        if (!send) // cancelling throws away even a long enough recording
            QTRY_VERIFY_WITH_TIMEOUT(rec.recordedSamples() >= 2400, 5000);
        rec.stopVoiceRecording(send);
        QCOMPARE(m_rec.toaster.last(), lastToast);
        QVERIFY(!QFileInfo::exists(ogg));
        rec.stopVoiceRecording(true); // a second stop is harmless
        QVERIFY(m_rec.lines.isEmpty());
    }

    // Taps play, pause and resume; the sound reaches the server as a stream
    // of the WAV's format, and the published properties follow to the end.
    void playsIntoTheSink()
    {
        QObject view;
        auto *player = new VoicePlayer(m_opus, nullptr, cacheDir(), m_rec.services(), &view);
        QSignalSpy rows(player, &VoicePlayer::mediaRowsNeedRefresh);
        player->onVoiceTapped(m_voiceOgg, 11);
        QVERIFY(rows.contains(QVariantList{11LL}));
        QTRY_COMPARE_WITH_TIMEOUT(state(view), 2, 10000);
        const QString format = QStringLiteral("s16le 1ch 48000Hz");
        QTRY_COMPARE_WITH_TIMEOUT(sinkInputs(format), 1, 5000);
        QTRY_VERIFY_WITH_TIMEOUT(view.property("voice_play_pos_ms").toUInt() > 0, 5000);
        player->onVoiceTapped(m_voiceOgg, 11);
        QTRY_COMPARE_WITH_TIMEOUT(state(view), 3, 5000);
        // The player reports position and duration separately, in either order.
        const auto duration = [&view] { return view.property("voice_play_dur_ms").toUInt(); };
        QTRY_VERIFY2_WITH_TIMEOUT(duration() > 1800 && duration() < 2200,
                                  qPrintable(QString::number(duration())), 5000);
        player->onVoiceTapped(m_voiceOgg, 11);
        QTRY_COMPARE_WITH_TIMEOUT(state(view), 2, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(state(view), 4, 10000);
        for (const char *p : {"voice_playing_file_id", "voice_play_pos_ms", "voice_play_dur_ms"})
            QCOMPARE(view.property(p).toLongLong(), 0LL);
        delete player;
        QTRY_COMPARE_WITH_TIMEOUT(sinkInputs(format), 0, 5000);
    }

    // A long note starts from its first decoded seconds; the rest is decoded
    // while it plays and only the finished file becomes the cached one. A note
    // cut off midway plays what it has and is not cached.
    void longNotePlaysWhileItConverts_data()
    {
        QTest::addColumn<bool>("cut");
        QTest::newRow("whole") << false;
        QTest::newRow("cut off") << true;
    }
    void longNotePlaysWhileItConverts()
    {
        QFETCH(bool, cut);
        QString error;
        const QString wavIn = path("long-in.wav"), note = path(cut ? "cut.ogg" : "long.ogg");
        QVERIFY(write_tone_wav(wavIn, 440, 20.0, 48000, 1));
        QVERIFY2(encode_wav_to_voice_ogg(m_opus, wavIn, note, &error), qPrintable(error));
        if (cut) {
            QFile f(note);
            QVERIFY(f.resize(f.size() / 2 + 7));
        } else {
            QVERIFY(decodeOgaOpusToWav(m_opus, note, path("long-oneshot.wav"), &error));
        }
        const qint64 id = cut ? 22 : 21;
        const QString cached = cacheDir() + QStringLiteral("/voice-wav/%1.wav").arg(id);
        QObject view;
        VoicePlayer player(m_opus, nullptr, cacheDir(), m_rec.services(), &view);
        player.startVoicePlayback(id, note);
        QVERIFY(player.isConverting());
        QVERIFY(!QFileInfo::exists(cached));
        QTRY_COMPARE_WITH_TIMEOUT(state(view), 2, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!player.isConverting(), 10000);
        QVERIFY(!QFileInfo::exists(cached + QStringLiteral(".part")));
        QCOMPARE(QFileInfo::exists(cached), !cut);
        if (!cut)
            QCOMPARE(test_util::readAll(cached), test_util::readAll(path("long-oneshot.wav")));
    }

    void wavCache_data()
    {
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<int>("cachedBytes"); // -1: no cached file
        QTest::addColumn<bool>("decodes");
        QTest::newRow("no cache, upper-case suffix") << ".OGG" << -1 << true;
        QTest::newRow(".opus") << ".opus" << -1 << true;
        QTest::newRow("44-byte cache is rebuilt") << ".oga" << 44 << true;
        QTest::newRow("45-byte cache is used") << ".ogg" << 45 << false;
    }
    void wavCache()
    {
        QFETCH(QString, suffix);
        QFETCH(int, cachedBytes);
        QFETCH(bool, decodes);
        static long long id = 100;
        ++id;
        const QString voice = path(QStringLiteral("v%1%2").arg(id).arg(suffix));
        QVERIFY(QFile::copy(m_voiceOgg, voice));
        const QString wav = cacheDir() + QStringLiteral("/voice-wav/%1.wav").arg(id);
        if (cachedBytes >= 0)
            QVERIFY(writeFile(wav, QByteArray(cachedBytes, 'm')));
        QObject view;
        VoicePlayer player(m_opus, nullptr, cacheDir(), m_rec.services(), &view);
        QCOMPARE(player.ensureWavForVoiceFile(id, voice), wav);
        Wav out;
        QCOMPARE(read_wav(wav, out) ? out.samples.size() : -1, decodes ? 100 * 960 - 312 : -1);
        QVERIFY(!QFileInfo::exists(wav + QStringLiteral(".tmp")));
    }

    // Neither a file that does not decode nor a .wav that is not audio (it
    // goes to the player as it is) leaves a cached file or a published note.
    void unplayableFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("undecodable Ogg") << "bad.ogg";
        QTest::newRow("WAV that is not audio") << "junk.wav";
    }
    void unplayableFiles()
    {
        QFETCH(QString, name);
        QVERIFY(writeFile(path(name), QByteArray(4000, '\x5a')));
        QObject view;
        VoicePlayer player(m_opus, nullptr, cacheDir(), m_rec.services(), &view);
        player.setPendingFileId(31);
        player.startVoicePlayback(31, path(name));
        if (name.endsWith(QLatin1String(".wav"))) {
            QTRY_VERIFY_WITH_TIMEOUT(!m_rec.log.filter(QStringLiteral("voice: error=")).isEmpty(),
                                     10000);
            QCOMPARE(state(view), 4);
        }
        QVERIFY(QDir(cacheDir() + QStringLiteral("/voice-wav")).entryList({"31.*"}).isEmpty());
        for (const char *p :
             {"voice_pending_file_id", "voice_playing_file_id", "voice_play_dur_ms"})
            QCOMPARE(view.property(p).toLongLong(), 0LL);
    }

    void tapOnMissingFileQueuesDownload()
    {
        QObject view;
        MediaDownloads downloads(m_rec.services(), path("dl/quillo"), path("dl"), &view);
        VoicePlayer player(m_opus, &downloads, cacheDir(), m_rec.services(), &view);
        QHash<long long, QString> known;
        player.setLocalPathLookup([&known](long long id) { return known.value(id); });
        player.onVoiceTapped(QString(), 0);
        player.onVoiceTapped(path("not-here.ogg"), 41);
        player.onVoiceTapped(QString(), 41); // waiting already: nothing new
        QCOMPARE(view.property("voice_pending_file_id").toLongLong(), 41LL);
        QTRY_VERIFY_WITH_TIMEOUT(!downloads.timerActive(), 5000);
        QCOMPARE(m_rec.lines, QStringList{"download 41"});
        // A file known locally by id plays without a download.
        known.insert(42, m_voiceOgg);
        player.onVoiceTapped(QString(), 42);
        QCOMPARE(view.property("voice_playing_file_id").toLongLong(), 42LL);
        QVERIFY(!downloads.timerActive() && downloads.queue().isEmpty());
    }
};

QTEST_MAIN(TstVoiceAudio)
#include "test_voice_audio.moc"
