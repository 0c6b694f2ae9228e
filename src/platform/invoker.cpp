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
    m_requests.append({Request::OpenUrl, url, mimeType, transferMode, QString(), QString()});
    return m_openResult;
}

bool RecordingInvoker::invokeService(const QString &target, const QString &action,
                                     const QString &mimeType)
{
    m_requests.append({Request::InvokeService, QUrl(), mimeType, QString(), target, action});
    return m_serviceResult;
}
