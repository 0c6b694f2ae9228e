#include "platform/av_module.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <dlfcn.h>

void *av_module_function(const char *name, QString *error)
{
    // Beside the program first; then where the program's run path says (the
    // test programs find the module of their build that way: the search
    // follows the run path of the object that calls dlopen, this one). A
    // loaded module stays loaded, so a later call finds it at once.
    const QString beside =
        QCoreApplication::applicationDirPath() + QStringLiteral("/libvexa-av.so");
    const QByteArray file =
        QFileInfo::exists(beside) ? QFile::encodeName(beside) : QByteArray("libvexa-av.so");
    void *handle = dlopen(file.constData(), RTLD_NOW);
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
