#pragma once

#include <QList>
#include <QString>
#include <QUrl>

// Hands files and links to other applications, and starts headless
// services by target name.
class Invoker
{
public:
    virtual ~Invoker();
    // Opens url with the application the desktop associates with it. The
    // MIME type and transfer mode are hints; false when nothing took it.
    virtual bool openUrl(const QUrl &url, const QString &mimeType, const QString &transferMode) = 0;
    // Starts a headless service. false means "no reply".
    virtual bool invokeService(const QString &target, const QString &action,
                               const QString &mimeType) = 0;
};

// The desktop: QDesktopServices, else xdg-open itself. Linux has no headless
// service invocation, so invokeService always answers "no reply".
class DesktopInvoker : public Invoker
{
public:
    bool openUrl(const QUrl &url, const QString &mimeType, const QString &transferMode) override;
    bool invokeService(const QString &target, const QString &action,
                       const QString &mimeType) override;
};

// Records every request and answers with a configurable result.
class RecordingInvoker : public Invoker
{
public:
    struct Request
    {
        enum Kind
        {
            OpenUrl,
            InvokeService
        };
        Kind kind = OpenUrl;
        QUrl url;
        QString mimeType;
        QString transferMode;
        QString target;
        QString action;
    };

    bool openUrl(const QUrl &url, const QString &mimeType, const QString &transferMode) override;
    bool invokeService(const QString &target, const QString &action,
                       const QString &mimeType) override;

    void setOpenResult(bool ok) { m_openResult = ok; }
    void setServiceResult(bool ok) { m_serviceResult = ok; }
    const QList<Request> &requests() const { return m_requests; }
    void clear() { m_requests.clear(); }

private:
    QList<Request> m_requests;
    bool m_openResult = true;
    bool m_serviceResult = false;
};
