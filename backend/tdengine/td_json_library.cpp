#include "td_json_library.h"

#include <QFile>

#include <dlfcn.h>

#if defined(__SANITIZE_ADDRESS__)
#define VEXA_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VEXA_ASAN 1
#endif
#endif

QString TdJsonLibrary::defaultPath(const QString &appDir, const QProcessEnvironment &env)
{
    const QString chosen = env.value(QStringLiteral("VEXA_TDJSON"));
    return chosen.isEmpty() ? appDir + QStringLiteral("/libtdjson.so") : chosen;
}

bool TdJsonLibrary::load(const QString &path, QString *error)
{
    // TDLib carries its own OpenSSL and zlib; deep binding keeps it on those
    // even when the process has the system's copies loaded. The address
    // sanitizer's runtime refuses deep binding, so sanitized builds go without.
#ifdef VEXA_ASAN
    const int flags = RTLD_NOW | RTLD_LOCAL;
#else
    const int flags = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;
#endif
    void *handle = ::dlopen(QFile::encodeName(path).constData(), flags);
    if (!handle) {
        if (error)
            *error = QString::fromLocal8Bit(::dlerror());
        return false;
    }
    auto createClientId = reinterpret_cast<int (*)()>(::dlsym(handle, "td_create_client_id"));
    auto send = reinterpret_cast<void (*)(int, const char *)>(::dlsym(handle, "td_send"));
    auto receive = reinterpret_cast<const char *(*)(double)>(::dlsym(handle, "td_receive"));
    auto execute = reinterpret_cast<const char *(*)(const char *)>(::dlsym(handle, "td_execute"));
    if (!createClientId || !send || !receive || !execute) {
        if (error)
            *error =
                QStringLiteral("%1 lacks td_create_client_id, td_send, td_receive or td_execute")
                    .arg(path);
        ::dlclose(handle);
        return false;
    }
    m_path = path;
    m_createClientId = createClientId;
    m_send = send;
    m_receive = receive;
    m_execute = execute;
    return true;
}

int TdJsonLibrary::createClientId() const
{
    return m_createClientId();
}

void TdJsonLibrary::send(int clientId, const QByteArray &json) const
{
    m_send(clientId, json.constData());
}

const char *TdJsonLibrary::receive(double timeout) const
{
    return m_receive(timeout);
}

QByteArray TdJsonLibrary::execute(const QByteArray &json) const
{
    const char *result = m_execute(json.constData());
    return result ? QByteArray(result) : QByteArray();
}
