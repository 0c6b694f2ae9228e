#pragma once

#include <QString>

class OpusLib;

// Runs the voice recording pipeline (encoder settings, 20 ms frames, stereo
// down-mix, Ogg page rules) on a 16-bit PCM WAV file instead of the
// microphone. The rate must be one a capture device could have been opened
// with: 48000, 24000, 16000, 12000 or 8000 Hz; one or two channels.
bool encode_wav_to_voice_ogg(OpusLib &opus, const QString &wavPath, const QString &oggPath,
                             QString *error, bool standardGranules = false,
                             qint64 *recordedSamples = nullptr);
