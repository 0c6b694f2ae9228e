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

namespace {

void *open_first(const QStringList &names, QString *which)
{
    for (const QString &n : names) {
        // Mode 1: lazy binding.
        void *h = dlopen(n.toLocal8Bit().constData(), RTLD_LAZY);
        if (h) {
            if (which)
                *which = n;
            return h;
        }
    }
    return nullptr;
}

template<typename F>
void resolve(void *handle, F &fn, const char *name)
{
    fn = reinterpret_cast<F>(dlsym_required(handle, name));
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

OpusLib::OpusLib(const QStringList &names) : m_names(names) {}

OpusLib::~OpusLib()
{
    if (m_api.handle)
        dlclose(m_api.handle);
}

const OpusDynApi *OpusLib::ensure_opus_dyn_api_loaded()
{
    if (m_tried)
        return m_ok ? &m_api : nullptr;
    m_tried = true;
    void *h = open_first(m_names, &m_loadedName);
    if (!h)
        return nullptr;
    OpusDynApi api;
    api.handle = h;
    resolve(h, api.opus_decoder_create, "opus_decoder_create");
    resolve(h, api.opus_decoder_destroy, "opus_decoder_destroy");
    resolve(h, api.opus_decode, "opus_decode");
    resolve(h, api.opus_encoder_create, "opus_encoder_create");
    resolve(h, api.opus_encoder_destroy, "opus_encoder_destroy");
    resolve(h, api.opus_encode, "opus_encode");
    resolve(h, api.opus_encoder_ctl, "opus_encoder_ctl");
    resolve(h, api.opus_strerror, "opus_strerror");
    if (!api.opus_decoder_create || !api.opus_decoder_destroy || !api.opus_decode) {
        dlclose(h);
        m_loadedName.clear();
        return nullptr;
    }
    m_api = api;
    m_ok = true;
    return &m_api;
}

QStringList OpenAlLib::defaultNames()
{
    return {QStringLiteral("libOpenAL.so.1"), QStringLiteral("libOpenAL.so"),
            QStringLiteral("libopenal.so.1"), QStringLiteral("libopenal.so")};
}

OpenAlLib::OpenAlLib(const QStringList &names) : m_names(names) {}

OpenAlLib::~OpenAlLib()
{
    if (m_api.handle)
        dlclose(m_api.handle);
}

const OpenAlDynApi *OpenAlLib::ensure_openal_dyn_api_loaded()
{
    if (m_tried)
        return m_ok ? &m_api : nullptr;
    m_tried = true;
    void *h = open_first(m_names, nullptr);
    if (!h)
        return nullptr;
    OpenAlDynApi api;
    api.handle = h;
    resolve(h, api.alcCaptureOpenDevice, "alcCaptureOpenDevice");
    resolve(h, api.alcCaptureCloseDevice, "alcCaptureCloseDevice");
    resolve(h, api.alcCaptureStart, "alcCaptureStart");
    resolve(h, api.alcCaptureStop, "alcCaptureStop");
    resolve(h, api.alcCaptureSamples, "alcCaptureSamples");
    resolve(h, api.alcGetIntegerv, "alcGetIntegerv");
    resolve(h, api.alcGetError, "alcGetError");
    if (!api.alcCaptureOpenDevice || !api.alcCaptureCloseDevice || !api.alcCaptureStart ||
        !api.alcCaptureStop || !api.alcCaptureSamples || !api.alcGetIntegerv) {
        dlclose(h);
        return nullptr;
    }
    m_api = api;
    m_ok = true;
    return &m_api;
}
