#include "media/audio_libs.h"

#include <dlfcn.h>

void *dlsym_required(void *handle, const char *symbol)
{
    if (!handle || !symbol || !*symbol)
        return nullptr;
    dlerror();
    void *p = dlsym(handle, symbol);
    if (dlerror() != nullptr)
        return nullptr;
    return p;
}

void *dyn_open_first(const QStringList &names, QString *which)
{
    for (const QString &n : names) {
        // Mode 1: lazy binding.
        void *h = dlopen(n.toLocal8Bit().constData(), RTLD_LAZY);
        if (h) {
            *which = n;
            return h;
        }
    }
    return nullptr;
}

void dyn_close(void *handle)
{
    if (handle)
        dlclose(handle);
}

namespace {

template<typename F>
void resolve(void *handle, F &fn, const char *name)
{
    fn = reinterpret_cast<F>(dlsym_required(handle, name));
}

bool fill_opus(void *h, OpusDynApi &api)
{
    resolve(h, api.opus_decoder_create, "opus_decoder_create");
    resolve(h, api.opus_decoder_destroy, "opus_decoder_destroy");
    resolve(h, api.opus_decode, "opus_decode");
    resolve(h, api.opus_encoder_create, "opus_encoder_create");
    resolve(h, api.opus_encoder_destroy, "opus_encoder_destroy");
    resolve(h, api.opus_encode, "opus_encode");
    resolve(h, api.opus_encoder_ctl, "opus_encoder_ctl");
    resolve(h, api.opus_strerror, "opus_strerror");
    return api.opus_decoder_create && api.opus_decoder_destroy && api.opus_decode;
}

bool fill_openal(void *h, OpenAlDynApi &api)
{
    resolve(h, api.alcCaptureOpenDevice, "alcCaptureOpenDevice");
    resolve(h, api.alcCaptureCloseDevice, "alcCaptureCloseDevice");
    resolve(h, api.alcCaptureStart, "alcCaptureStart");
    resolve(h, api.alcCaptureStop, "alcCaptureStop");
    resolve(h, api.alcCaptureSamples, "alcCaptureSamples");
    resolve(h, api.alcGetIntegerv, "alcGetIntegerv");
    resolve(h, api.alcGetError, "alcGetError");
    return api.alcCaptureOpenDevice && api.alcCaptureCloseDevice && api.alcCaptureStart &&
           api.alcCaptureStop && api.alcCaptureSamples && api.alcGetIntegerv;
}

} // namespace

QString OpusDynApi::errorSuffix(int err) const
{
    if (!opus_strerror)
        return QString();
    return QStringLiteral(" (") + QString::fromUtf8(opus_strerror(err)) + QStringLiteral(")");
}

QStringList OpusLib::defaultNames()
{
    return {QStringLiteral("libkelOpus.so.1"), QStringLiteral("libkelOpus.so"),
            QStringLiteral("libopus.so.0"), QStringLiteral("libopus.so")};
}

const OpusDynApi *OpusLib::ensure_opus_dyn_api_loaded()
{
    return load(&fill_opus);
}

QStringList OpenAlLib::defaultNames()
{
    return {QStringLiteral("libOpenAL.so.1"), QStringLiteral("libOpenAL.so"),
            QStringLiteral("libopenal.so.1"), QStringLiteral("libopenal.so")};
}

const OpenAlDynApi *OpenAlLib::ensure_openal_dyn_api_loaded()
{
    return load(&fill_openal);
}
