#include "media/media_downloads.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QUrl>
#include <QVariant>

QString mime_type_for_file_name(const QString &fileName)
{
    static const QHash<QString, QString> table = {
        {QStringLiteral("pdf"), QStringLiteral("application/pdf")},
        {QStringLiteral("png"), QStringLiteral("image/png")},
        {QStringLiteral("jpg"), QStringLiteral("image/jpeg")},
        {QStringLiteral("jpeg"), QStringLiteral("image/jpeg")},
        {QStringLiteral("gif"), QStringLiteral("image/gif")},
        {QStringLiteral("txt"), QStringLiteral("text/plain")},
        {QStringLiteral("log"), QStringLiteral("text/plain")},
        {QStringLiteral("html"), QStringLiteral("text/html")},
        {QStringLiteral("htm"), QStringLiteral("text/html")},
        {QStringLiteral("json"), QStringLiteral("application/json")},
        {QStringLiteral("xml"), QStringLiteral("application/xml")},
        {QStringLiteral("csv"), QStringLiteral("text/csv")},
        {QStringLiteral("mp3"), QStringLiteral("audio/mpeg")},
        {QStringLiteral("ogg"), QStringLiteral("audio/ogg")},
        {QStringLiteral("wav"), QStringLiteral("audio/wav")},
        {QStringLiteral("m4a"), QStringLiteral("audio/mp4")},
        {QStringLiteral("mp4"), QStringLiteral("video/mp4")},
        {QStringLiteral("mov"), QStringLiteral("video/quicktime")},
        {QStringLiteral("zip"), QStringLiteral("application/zip")},
        {QStringLiteral("gz"), QStringLiteral("application/gzip")},
        {QStringLiteral("7z"), QStringLiteral("application/x-7z-compressed")},
        {QStringLiteral("rar"), QStringLiteral("application/x-rar-compressed")},
        {QStringLiteral("doc"), QStringLiteral("application/msword")},
        {QStringLiteral("docx"),
         QStringLiteral("application/vnd.openxmlformats-officedocument.wordprocessingml.document")},
        {QStringLiteral("xls"), QStringLiteral("application/vnd.ms-excel")},
        {QStringLiteral("xlsx"),
         QStringLiteral("application/vnd.openxmlformats-officedocument.spreadsheetml.sheet")},
        {QStringLiteral("ppt"), QStringLiteral("application/vnd.ms-powerpoint")},
        {QStringLiteral("pptx"),
         QStringLiteral(
             "application/vnd.openxmlformats-officedocument.presentationml.presentation")},
    };
    const QString suffix = QFileInfo(fileName).suffix().toLower();
    return table.value(suffix, QStringLiteral("application/octet-stream"));
}

MediaDownloads::MediaDownloads(const MediaServices &services, const QString &downloadsDir,
                               const QString &sharedPrefix, QObject *listView, QObject *parent)
    : QObject(parent), m_services(services), m_downloadsDir(QDir::cleanPath(downloadsDir)),
      m_sharedPrefix(sharedPrefix), m_listView(listView)
{
    m_timer.setSingleShot(true);
    // Requests must stay at least 400 ms apart; a coarse timer may fire early.
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &MediaDownloads::onMediaDownloadTimeout);
}

bool MediaDownloads::isLocalFile(const QString &path) const
{
    if (path.isEmpty())
        return false;
    const QFileInfo fi(path);
    return fi.exists() && fi.isFile();
}

void MediaDownloads::enqueueMediaDownload(long long fileId, bool front)
{
    if (fileId < 1 || m_queued.contains(fileId))
        return;
    m_queued.insert(fileId);
    if (front)
        m_queue.prepend(fileId);
    else
        m_queue.append(fileId);
    if (!m_timer.isActive())
        m_timer.start(kDownloadIntervalMs);
}

void MediaDownloads::clear()
{
    m_timer.stop();
    m_queue.clear();
    m_queued.clear();
    setFilePendingFileId(0);
}

void MediaDownloads::onMediaDownloadTimeout()
{
    if (m_queue.isEmpty())
        return;
    const long long id = m_queue.takeFirst();
    m_services.log(QStringLiteral("ui: download media file_id=%1\n").arg(id));
    const QString word = (id >= 1 && id == m_filePendingFileId) ? QStringLiteral("downloadp")
                                                                : QStringLiteral("download");
    m_services.send(QStringLiteral("%1 %2").arg(word).arg(id));
    if (!m_queue.isEmpty())
        m_timer.start(kDownloadIntervalMs);
}

void MediaDownloads::setFilePendingFileId(long long fileId)
{
    if (fileId == m_filePendingFileId)
        return;
    const long long old = m_filePendingFileId;
    m_filePendingFileId = fileId;
    if (m_listView) {
        m_listView->setProperty("file_pending_file_id", fileId);
        m_listView->setProperty("file_pending_downloaded", 0LL);
        m_listView->setProperty("file_pending_total", 0LL);
    }
    if (old >= 1)
        Q_EMIT mediaRowsNeedRefresh(old);
    if (fileId >= 1)
        Q_EMIT mediaRowsNeedRefresh(fileId);
}

void MediaDownloads::onFileProgress(long long fileId, long long downloaded, long long total)
{
    if (fileId < 1 || fileId != m_filePendingFileId)
        return;
    if (m_listView) {
        m_listView->setProperty("file_pending_downloaded", downloaded);
        m_listView->setProperty("file_pending_total", total);
    }
    if (m_filePendingFileId >= 1)
        Q_EMIT mediaRowsNeedRefresh(m_filePendingFileId);
    Q_EMIT pendingProgress(fileId, downloaded, total);
}

bool MediaDownloads::onPendingFileDownloaded(long long fileId, const QString &path,
                                             const QString &displayName)
{
    if (fileId < 1 || fileId != m_filePendingFileId)
        return false;
    const Waiter waiter = m_waiter;
    setFilePendingFileId(0);
    if (waiter == Waiter::Photo) {
        Q_EMIT photoArrived(fileId, path);
        return true;
    }
    const QString copy = copyFileToSharedDownloads(fileId, path, displayName);
    if (copy.isEmpty()) {
        m_services.log(QStringLiteral("ui: file download save failed file_id=%1\n").arg(fileId));
    } else {
        Q_EMIT fileSharedPathChanged(fileId, copy);
        m_services.log(QStringLiteral("ui: file downloaded: %1\n").arg(copy));
        postFileDownloadedNotification(copy, displayName);
    }
    if (waiter == Waiter::Video && isLocalFile(path))
        Q_EMIT videoArrived(fileId, path);
    return true;
}

QString MediaDownloads::copyFileToSharedDownloads(long long fileId, const QString &sourcePath,
                                                  const QString &suggestedName)
{
    if (fileId < 1 || sourcePath.isEmpty() || !isLocalFile(sourcePath))
        return QString();
    const QString folder = m_downloadsDir;
    const QString prefix = folder + QLatin1Char('/');
    if (sourcePath.startsWith(prefix))
        return sourcePath;
    QDir dir(folder);
    if (!dir.exists() && !QDir().mkpath(folder))
        return QString();

    // Only the last path element of either name counts, so a name from a
    // message cannot leave the folder.
    QString name = QFileInfo(suggestedName).fileName().trimmed();
    if (name.isEmpty())
        name = QFileInfo(sourcePath).fileName().trimmed();
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        name = QStringLiteral("file_%1").arg(fileId);

    QString target = folder + QLatin1Char('/') + name;
    if (QFileInfo::exists(target)) {
        const QFileInfo fi(name);
        const QString base = fi.completeBaseName();
        const QString suffix = fi.suffix();
        for (int n = 1; n <= 999; ++n) {
            const QString candidate =
                suffix.isEmpty() ? QStringLiteral("%1 (%2)").arg(base).arg(n)
                                 : QStringLiteral("%1 (%2).%3").arg(base).arg(n).arg(suffix);
            target = folder + QLatin1Char('/') + candidate;
            if (!QFileInfo::exists(target))
                break;
        }
    }
    if (!QFile::copy(sourcePath, target))
        return QString();
    return target;
}

void MediaDownloads::postFileDownloadedNotification(const QString &path, const QString &displayName)
{
    if (!isLocalFile(path)) {
        m_services.log(QStringLiteral("ui: notify missing file: %1\n").arg(path));
        return;
    }
    QString name = QFileInfo(displayName.trimmed()).fileName();
    if (name.isEmpty())
        name = QFileInfo(path).fileName();
    // The folder that holds the client's own downloads folder.
    const QString downloadsRoot = QFileInfo(m_downloadsDir).path() + QLatin1Char('/');
    const QString label = path.startsWith(downloadsRoot) ? QStringLiteral("File saved")
                                                         : QStringLiteral("File downloaded");
    m_services.toast(QStringLiteral("%1: %2").arg(label, name));
}

void MediaDownloads::invokeOpenFile(const QString &path)
{
    if (!isLocalFile(path)) {
        m_services.log(QStringLiteral("ui: invoke missing file: %1\n").arg(path));
        return;
    }
    const QString mime = mime_type_for_file_name(QFileInfo(path).fileName());
    QString shared = m_sharedPrefix;
    if (!shared.endsWith(QLatin1Char('/')))
        shared += QLatin1Char('/');
    // Files in the shared area are handed over in place, others as a
    // read-only copy.
    const int mode = path.startsWith(shared) ? 1 : 2;
    m_services.log(
        QStringLiteral("ui: invoke open mime=%1 mode=%2 path=%3\n").arg(mime).arg(mode).arg(path));
    const bool ok = m_services.invoker && m_services.invoker->openUrl(QUrl::fromLocalFile(path),
                                                                      mime, QString::number(mode));
    if (!ok)
        m_services.log(QStringLiteral("ui: invoke failed (no reply) path=%1\n").arg(path));
}

void MediaDownloads::waitForDownload(long long fileId, Waiter waiter)
{
    setFilePendingFileId(fileId);
    m_waiter = waiter;
    if (m_queued.contains(fileId))
        return;
    m_queued.insert(fileId);
    m_queue.append(fileId);
    if (!m_timer.isActive())
        m_timer.start(kDownloadIntervalMs);
}

void MediaDownloads::onVideoTapped(const QString &path, long long fileId)
{
    if (fileId < 1)
        return;
    if (isLocalFile(path)) {
        Q_EMIT videoViewerRequested(fileId, path);
        return;
    }
    m_services.log(QStringLiteral("ui: video download file_id=%1\n").arg(fileId));
    waitForDownload(fileId, Waiter::Video);
    Q_EMIT videoViewerRequested(fileId, QString());
}

void MediaDownloads::onFileIconTapped(const QString &path, long long fileId)
{
    if (fileId < 1)
        return;
    if (isLocalFile(path)) {
        invokeOpenFile(path);
        return;
    }
    m_services.log(QStringLiteral("ui: file download file_id=%1\n").arg(fileId));
    waitForDownload(fileId, Waiter::Save);
}

void MediaDownloads::onFileTapped(const QString &path, long long fileId)
{
    if (fileId < 1)
        return;
    if (isLocalFile(path)) {
        saveCopy(fileId, path, QString());
        return;
    }
    m_services.log(QStringLiteral("ui: file download file_id=%1\n").arg(fileId));
    waitForDownload(fileId, Waiter::Save);
}

QString MediaDownloads::saveCopy(long long fileId, const QString &path, const QString &name)
{
    const QString copy = copyFileToSharedDownloads(fileId, path, name);
    if (copy.isEmpty()) {
        m_services.log(QStringLiteral("ui: file save failed file_id=%1\n").arg(fileId));
        return QString();
    }
    Q_EMIT fileSharedPathChanged(fileId, copy);
    m_services.log(QStringLiteral("ui: file saved: %1\n").arg(copy));
    postFileDownloadedNotification(copy, QString());
    return copy;
}

void MediaDownloads::onPhotoTapped(const QString &path, long long fileId)
{
    if (fileId < 1)
        return;
    if (isLocalFile(path)) {
        Q_EMIT photoViewerRequested(fileId, path);
        return;
    }
    m_services.log(QStringLiteral("ui: photo download file_id=%1\n").arg(fileId));
    waitForDownload(fileId, Waiter::Photo);
    // Already requested without priority: ask again, now as the awaited file.
    if (!m_queue.contains(fileId))
        m_services.send(QStringLiteral("downloadp %1").arg(fileId));
    Q_EMIT photoViewerRequested(fileId, QString());
}

QString MediaDownloads::saveViewed(long long fileId, const QString &path, bool video)
{
    if (fileId < 1 || !isLocalFile(path))
        return QString();
    QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix.isEmpty())
        suffix = video ? QStringLiteral("mp4") : QStringLiteral("jpg");
    const QString name = QStringLiteral("%1_%2.%3")
                             .arg(video ? QStringLiteral("video") : QStringLiteral("photo"))
                             .arg(fileId)
                             .arg(suffix);
    return saveCopy(fileId, path, name);
}
