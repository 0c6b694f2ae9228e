#include "platform/av_module.h"

#include <QCoreApplication>
#include <QFile>

#include <dlfcn.h>

void *av_module_function(const char *name, QString *error)
{
    // Only the module beside the program: never another build's copy found
    // on the library path. A loaded module stays loaded, so a later call
    // finds it at once.
    const QString path = QCoreApplication::applicationDirPath() + QStringLiteral("/libvexa-av.so");
    void *handle = dlopen(QFile::encodeName(path).constData(), RTLD_NOW);
    if (!handle) {
        if (error)
            *error =
                QStringLiteral("media module not loaded: ") + QString::fromLocal8Bit(dlerror());
        return nullptr;
    }
    void *f = dlsym(handle, name);
    if (!f && error)
        *error = QStringLiteral("media module lacks %1").arg(QString::fromLatin1(name));
    return f;
}
