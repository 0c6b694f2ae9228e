// vexa-opus: the voice note encoder and decoder of the client, on files.
//   vexa-opus encode [--voice-note-granules] IN.wav OUT.ogg
//   vexa-opus decode IN.ogg OUT.wav
//
// encode runs the recorder's pipeline on a WAV file. By default the page
// granules are the plain running sample count, so that every Ogg Opus player
// (opusdec included) accepts the file; --voice-note-granules writes them as
// the recorder does (running count minus the pre-skip), byte for byte the
// recorder's page layout.

#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"
#include "media/voice_file_encoder.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments();
    const bool voiceNoteGranules = args.removeAll(QStringLiteral("--voice-note-granules")) > 0;
    if (args.size() != 4 ||
        (args.at(1) != QLatin1String("encode") && args.at(1) != QLatin1String("decode"))) {
        std::fprintf(stderr, "usage: vexa-opus encode [--voice-note-granules] IN.wav OUT.ogg\n"
                             "       vexa-opus decode IN.ogg OUT.wav\n");
        return 2;
    }
    OpusLib opus;
    QString error;
    bool ok;
    if (args.at(1) == QLatin1String("encode")) {
        ok = encode_wav_to_voice_ogg(opus, args.at(2), args.at(3), &error, !voiceNoteGranules);
    } else {
        ok = decodeOgaOpusToWav(opus, args.at(2), args.at(3), &error);
    }
    if (!ok) {
        QFile::remove(args.at(3));
        std::fprintf(stderr, "%s\n", error.toLocal8Bit().constData());
        return 1;
    }
    return 0;
}
