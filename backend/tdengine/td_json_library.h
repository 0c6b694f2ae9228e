#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>

// TDLib's JSON interface, loaded at run time so td_backend runs (on the demo
// engine) where no TDLib is installed.
class TdJsonLibrary
{
public:
    // VEXA_TDJSON when set, else libtdjson.so beside the executable.
    static QString defaultPath(const QString &appDir, const QProcessEnvironment &env);

    // The library is never unloaded: TDLib's own threads live until exit.
    bool load(const QString &path, QString *error);
    bool isLoaded() const { return m_createClientId != nullptr; }
    QString path() const { return m_path; }

    int createClientId() const;
    void send(int clientId, const QByteArray &json) const;
    // Blocks up to timeout seconds; the result stays valid until the next call
    // and is null when nothing arrived. One thread only.
    const char *receive(double timeout) const;
    QByteArray execute(const QByteArray &json) const;

private:
    QString m_path;
    int (*m_createClientId)() = nullptr;
    void (*m_send)(int, const char *) = nullptr;
    const char *(*m_receive)(double) = nullptr;
    const char *(*m_execute)(const char *) = nullptr;
};
