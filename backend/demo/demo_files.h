#pragma once

#include "demo_store.h"
#include "demo_world.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>

class BackendOutput;
class DemoScheduler;
class QProcess;

// A file made ready for download; a video still has to be rendered.
struct DemoPreparedFile
{
    QString path;
    bool needsVideo = false;
    int videoWidth = 0;
    int videoHeight = 0;
    int videoSeconds = 0;
};

// The account's files: pictures, documents and voice notes are made on the
// first request, videos are rendered by ffmpeg in the background, and
// uploads are kept as copies. Downloads answer with "file_progress" and
// "file", or a "td_error" tagged "download:<id>".
class DemoFiles : public QObject
{
    Q_OBJECT
public:
    DemoFiles(const QString &filesDir, DemoStore *store, DemoScheduler *scheduler,
              BackendOutput *out, QObject *parent = nullptr);
    ~DemoFiles() override;

    void setWorld(const DemoWorld *world, qint64 epoch);
    void load(const QHash<qint64, DemoStoredFile> &stored);
    // Copies an uploaded file into the files folder and records it.
    bool keepUpload(const QString &source, DemoStoredFile *out, QString *error);
    void download(qint64 fileId, bool priority);
    // Waits for the running video jobs (end of input).
    void drain();

    bool prepare(qint64 fileId, DemoPreparedFile *out, QString *error) const;

private:
    void renderVideo(qint64 fileId, const DemoPreparedFile &file, bool priority);
    void finish(qint64 fileId, const QString &path, bool priority);
    void fail(qint64 fileId, int code, const QString &message);

    QString m_filesDir;
    DemoStore *m_store;
    DemoScheduler *m_scheduler;
    BackendOutput *m_out;
    const DemoWorld *m_world = nullptr;
    qint64 m_epoch = 0;
    QHash<qint64, DemoStoredFile> m_stored;
    qint64 m_nextStoredId = DemoWorld::kStoredFileBase;
    QSet<qint64> m_downloading;
    QList<QProcess *> m_videoJobs;
};
