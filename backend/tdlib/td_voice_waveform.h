#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// How many values a voice note's waveform has, each 0..31.
constexpr int kTdWaveformValues = 100;

// The waveform the service shows for a voice note: the loudest sample of
// each of 100 equal slices of the Ogg Opus file, scaled to 0..31 against the
// loudest slice (a near-silent note stays flat) and packed 5 bits each,
// lowest bits first. Empty when the file cannot be decoded (no libopus, not
// Ogg Opus, shorter than 100 samples).
QByteArray td_voice_waveform(const QString &oggPath);

// The values packed in a waveform, for reading one back.
QList<int> td_unpack_waveform(const QByteArray &packed);
