#pragma once

#include <QString>

class OpusLib;

// Largest packet the reader assembles from continued lacing values; a file
// that keeps a packet going beyond this is rejected instead of filling memory.
constexpr int kMaxOggOpusPacketBytes = 1024 * 1024;

// Converts an Ogg Opus file (one or two channels) into a 16-bit PCM WAV file
// at 48 kHz, dropping the pre-skip. True when at least one sample was written;
// otherwise error holds the reason. The output is not removed on failure.
bool decodeOgaOpusToWav(OpusLib &opus, const QString &inputPath, const QString &outputPath,
                        QString *error);
