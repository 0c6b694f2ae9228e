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

void *dyn_open_first(const QStringList &names, QString *which);
void dyn_close(void *handle);

// A library opened from the first name of a list that loads, with its
// function table; only the first load tries, later ones return the
// remembered outcome.
template<typename Api>
class DynLib
{
public:
    explicit DynLib(const QStringList &names) : m_names(names) {}
    ~DynLib() { dyn_close(m_api.handle); }
    DynLib(const DynLib &) = delete;
    DynLib &operator=(const DynLib &) = delete;

    QString loadedName() const { return m_loadedName; }

protected:
    // fill resolves the table and says whether the required functions are there.
    const Api *load(bool (*fill)(void *, Api &))
    {
        if (!m_tried) {
            m_tried = true;
            Api api;
            api.handle = dyn_open_first(m_names, &m_loadedName);
            if (api.handle && fill(api.handle, api)) {
                m_api = api;
                m_ok = true;
            } else {
                dyn_close(api.handle);
                m_loadedName.clear();
            }
        }
        return m_ok ? &m_api : nullptr;
    }

private:
    QStringList m_names;
    bool m_tried = false;
    bool m_ok = false;
    Api m_api;
    QString m_loadedName;
};

// One loader per library for the life of the process; the application creates
// one of each and hands it to the recorder, the player and the tools.
class OpusLib : public DynLib<OpusDynApi>
{
public:
    static QStringList defaultNames();
    explicit OpusLib(const QStringList &names = defaultNames()) : DynLib(names) {}

    // The table when at least the decoder resolved, else null.
    const OpusDynApi *ensure_opus_dyn_api_loaded();
};

class OpenAlLib : public DynLib<OpenAlDynApi>
{
public:
    static QStringList defaultNames();
    explicit OpenAlLib(const QStringList &names = defaultNames()) : DynLib(names) {}

    // The table when the six capture functions resolved (alcGetError is
    // optional), else null.
    const OpenAlDynApi *ensure_openal_dyn_api_loaded();
};
