#pragma once

#include "media/media_services.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QTimer>

// MIME type for opening a file, from the lower-cased suffix of its name;
// "application/octet-stream" for anything unknown.
QString mime_type_for_file_name(const QString &fileName);

// The media download queue (one "download" request per 400 ms tick), the
// file the user waits for, saving finished files into the shared downloads
// folder and opening files in other applications.
class MediaDownloads : public QObject
{
    Q_OBJECT
public:
    static constexpr int kDownloadIntervalMs = 400;

    // downloadsDir: the shared downloads folder ("downloads/quillo");
    // sharedPrefix: root of the shared area, whose files are opened in place.
    // listView receives the published file_pending_* properties (may be null).
    MediaDownloads(const MediaServices &services, const QString &downloadsDir,
                   const QString &sharedPrefix, QObject *listView, QObject *parent = nullptr);

    void setListView(QObject *listView) { m_listView = listView; }

    void enqueueMediaDownload(long long fileId, bool front);
    // Low memory: stops the pacing timer, empties the queue and its
    // once-only set and forgets the file the user waits for.
    void clear();
    void setFilePendingFileId(long long fileId);
    long long filePendingFileId() const { return m_filePendingFileId; }
    // "file_progress": publishes the byte counts when fileId is the file the
    // user waits for; other files are ignored.
    void onFileProgress(long long fileId, long long downloaded, long long total);
    // The waiting part of the "file" event: when fileId is the file the user
    // waits for, the wait ends and the file is saved into the shared
    // downloads folder (under displayName when given) with its toast.
    // Returns true when fileId was that file.
    bool onPendingFileDownloaded(long long fileId, const QString &path, const QString &displayName);

    QString copyFileToSharedDownloads(long long fileId, const QString &sourcePath,
                                      const QString &suggestedName);
    void postFileDownloadedNotification(const QString &path, const QString &displayName);
    void invokeOpenFile(const QString &path);

    // Tap handlers of the message list: path is the local file known for
    // the message (may be empty).
    void onVideoTapped(const QString &path, long long fileId);
    void onFileIconTapped(const QString &path, long long fileId);
    void onFileTapped(const QString &path, long long fileId);
    // A photo tapped: a local full picture opens the viewer at once; else
    // the viewer opens on what there is and the picture is fetched with
    // priority, reported by photoArrived (a photo is not saved on arrival).
    void onPhotoTapped(const QString &path, long long fileId);
    // A viewer's Save: a copy named "photo_<id>.<suffix>" (or "video_...")
    // in the shared downloads folder, with its toast. Returns its path.
    QString saveViewed(long long fileId, const QString &path, bool video);

    bool isQueued(long long fileId) const { return m_queued.contains(fileId); }
    QList<long long> queue() const { return m_queue; }
    bool timerActive() const { return m_timer.isActive(); }
    QString downloadsDir() const { return m_downloadsDir; }

public Q_SLOTS:
    void onMediaDownloadTimeout();

Q_SIGNALS:
    // The message rows showing this file must redraw.
    void mediaRowsNeedRefresh(long long fileId);
    // A saved copy of the file now exists at path.
    void fileSharedPathChanged(long long fileId, const QString &path);
    // A tapped video: the viewer opens on it; path is empty while it is
    // still to be downloaded.
    void videoViewerRequested(long long fileId, const QString &path);
    // The video the viewer waited for is downloaded (and saved).
    void videoArrived(long long fileId, const QString &path);
    // A tapped photo: the viewer opens on it; path is empty while the
    // picture is still to be downloaded.
    void photoViewerRequested(long long fileId, const QString &path);
    // The photo the viewer waited for is downloaded.
    void photoArrived(long long fileId, const QString &path);
    // Progress of the file the user waits for.
    void pendingProgress(long long fileId, long long downloaded, long long total);

private:
    // What happens when the awaited file arrives.
    enum class Waiter
    {
        Save,
        Photo,
        Video
    };
    void waitForDownload(long long fileId, Waiter waiter);
    QString saveCopy(long long fileId, const QString &path, const QString &name);
    bool isLocalFile(const QString &path) const;

    MediaServices m_services;
    QString m_downloadsDir;
    QString m_sharedPrefix;
    QPointer<QObject> m_listView;
    QList<long long> m_queue;
    QSet<long long> m_queued;
    QTimer m_timer;
    long long m_filePendingFileId = 0;
    Waiter m_waiter = Waiter::Save;
};
