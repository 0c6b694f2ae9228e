// vexa-opus: the voice note encoder and decoder of the client, on files.
//   vexa-opus encode [--standard-granules] IN.wav OUT.ogg
//   vexa-opus decode IN.ogg OUT.wav

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
    const bool standardGranules = args.removeAll(QStringLiteral("--standard-granules")) > 0;
    if (args.size() != 4 ||
        (args.at(1) != QLatin1String("encode") && args.at(1) != QLatin1String("decode"))) {
        std::fprintf(stderr, "usage: vexa-opus encode [--standard-granules] IN.wav OUT.ogg\n"
                             "       vexa-opus decode IN.ogg OUT.wav\n");
        return 2;
    }
    OpusLib opus;
    QString error;
    bool ok;
    if (args.at(1) == QLatin1String("encode")) {
        ok = encode_wav_to_voice_ogg(opus, args.at(2), args.at(3), error, standardGranules);
    } else {
        ok = decodeOgaOpusToWav(opus, args.at(2), args.at(3), error);
    }
    if (!ok) {
        QFile::remove(args.at(3));
        std::fprintf(stderr, "%s\n", error.toLocal8Bit().constData());
        return 1;
    }
    return 0;
}
