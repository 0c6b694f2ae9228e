#include "platform/av_player.h"

#include "platform/av_module.h"

#include <dlfcn.h>

AvPlayer *AvPlayer::create(QObject *parent, QString *error)
{
    auto create = reinterpret_cast<Factory>(av_module_function("vexa_av_create_player", error));
    return create ? create(parent) : nullptr;
}

bool AvPlayer::startFramework(QString *error)
{
    // GStreamer itself, without the module: what makes the first play wait
    // is GStreamer's start, and a chat that shows voice notes should not pay
    // for QtMultimedia before something plays.
    void *gst = dlopen("libgstreamer-1.0.so.0", RTLD_NOW);
    using InitCheck = int (*)(int *argc, char ***argv, void **error);
    auto init = gst ? reinterpret_cast<InitCheck>(dlsym(gst, "gst_init_check")) : nullptr;
    if (!init) {
        if (error)
            *error = QStringLiteral("GStreamer not loaded: ") + QString::fromLocal8Bit(dlerror());
        return false;
    }
    if (init(nullptr, nullptr, nullptr))
        return true;
    if (error)
        *error = QStringLiteral("GStreamer did not start");
    return false;
}
