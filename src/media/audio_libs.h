#pragma once

// Opus and OpenAL are optional at run time: they are opened with dlopen on
// first use, so a machine without them still runs the client (only voice
// notes are refused). Each loader remembers its first outcome.

#include <AL/al.h>
#include <AL/alc.h>
#include <opus/opus.h>

#include <QString>
#include <QStringList>

void *dlsym_required(void *handle, const char *symbol);

struct OpusDynApi
{
    void *handle = nullptr;
    OpusDecoder *(*opus_decoder_create)(opus_int32, int, int *) = nullptr;
    void (*opus_decoder_destroy)(OpusDecoder *) = nullptr;
    int (*opus_decode)(OpusDecoder *, const unsigned char *, opus_int32, opus_int16 *, int,
                       int) = nullptr;
    OpusEncoder *(*opus_encoder_create)(opus_int32, int, int, int *) = nullptr;
    void (*opus_encoder_destroy)(OpusEncoder *) = nullptr;
    opus_int32 (*opus_encode)(OpusEncoder *, const opus_int16 *, int, unsigned char *,
                              opus_int32) = nullptr;
    int (*opus_encoder_ctl)(OpusEncoder *, int, ...) = nullptr;
    const char *(*opus_strerror)(int) = nullptr;

    bool hasEncoder() const { return opus_encoder_create && opus_encoder_destroy && opus_encode; }
    // " (text)" for an Opus error code when opus_strerror is available.
    QString errorSuffix(int err) const;
};

struct OpenAlDynApi
{
    void *handle = nullptr;
    ALCdevice *(*alcCaptureOpenDevice)(const ALCchar *, ALCuint, ALCenum, ALCsizei) = nullptr;
    ALCboolean (*alcCaptureCloseDevice)(ALCdevice *) = nullptr;
    void (*alcCaptureStart)(ALCdevice *) = nullptr;
    void (*alcCaptureStop)(ALCdevice *) = nullptr;
    void (*alcCaptureSamples)(ALCdevice *, ALCvoid *, ALCsizei) = nullptr;
    void (*alcGetIntegerv)(ALCdevice *, ALCenum, ALCsizei, ALCint *) = nullptr;
    ALCenum (*alcGetError)(ALCdevice *) = nullptr;
};

// One loader per library for the life of the process; the application creates
// one of each and hands it to the recorder, the player and the tools.
class OpusLib
{
public:
    static QStringList defaultNames();
    explicit OpusLib(const QStringList &names = defaultNames());
    ~OpusLib();
    OpusLib(const OpusLib &) = delete;
    OpusLib &operator=(const OpusLib &) = delete;

    // The table when at least the decoder resolved, else null. Only the first
    // call tries; later calls return the remembered outcome.
    const OpusDynApi *ensure_opus_dyn_api_loaded();
    QString loadedName() const { return m_loadedName; }

private:
    QStringList m_names;
    bool m_tried = false;
    bool m_ok = false;
    OpusDynApi m_api;
    QString m_loadedName;
};

class OpenAlLib
{
public:
    static QStringList defaultNames();
    explicit OpenAlLib(const QStringList &names = defaultNames());
    ~OpenAlLib();
    OpenAlLib(const OpenAlLib &) = delete;
    OpenAlLib &operator=(const OpenAlLib &) = delete;

    // The table when the six capture functions resolved (alcGetError is
    // optional), else null; the first outcome is remembered.
    const OpenAlDynApi *ensure_openal_dyn_api_loaded();

private:
    QStringList m_names;
    bool m_tried = false;
    bool m_ok = false;
    OpenAlDynApi m_api;
};
