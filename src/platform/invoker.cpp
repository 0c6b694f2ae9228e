#include "platform/invoker.h"

#include <QDesktopServices>

Invoker::~Invoker() = default;

bool DesktopInvoker::openUrl(const QUrl &url, const QString &, const QString &)
{
    if (!url.isValid() || url.isEmpty())
        return false;
    return QDesktopServices::openUrl(url);
}

bool DesktopInvoker::invokeService(const QString &, const QString &, const QString &)
{
    return false;
}

bool RecordingInvoker::openUrl(const QUrl &url, const QString &mimeType,
                               const QString &transferMode)
{
    Request r;
    r.kind = Request::OpenUrl;
    r.url = url;
    r.mimeType = mimeType;
    r.transferMode = transferMode;
    m_requests.append(r);
    return m_openResult;
}

bool RecordingInvoker::invokeService(const QString &target, const QString &action,
                                     const QString &mimeType)
{
    Request r;
    r.kind = Request::InvokeService;
    r.target = target;
    r.action = action;
    r.mimeType = mimeType;
    m_requests.append(r);
    return m_serviceResult;
}
