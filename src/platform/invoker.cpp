#include "platform/invoker.h"

#include <QDesktopServices>
#include <QProcess>

Invoker::~Invoker() = default;

bool DesktopInvoker::openUrl(const QUrl &url, const QString &, const QString &)
{
    if (!url.isValid() || url.isEmpty())
        return false;
    if (QDesktopServices::openUrl(url))
        return true;
    // Window systems without desktop services (offscreen, some Wayland
    // sessions) still have the desktop's opener.
    return QProcess::startDetached(QStringLiteral("xdg-open"), {url.toString(QUrl::FullyEncoded)});
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
