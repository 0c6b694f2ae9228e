#include "demo_files.h"

#include "backend_output.h"
#include "demo_backend.h"
#include "demo_events.h"
#include "demo_media.h"
#include "demo_scheduler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

DemoFiles::DemoFiles(const QString &filesDir, DemoStore *store, DemoScheduler *scheduler,
                     BackendOutput *out, QObject *parent)
    : QObject(parent), m_filesDir(filesDir), m_store(store), m_scheduler(scheduler), m_out(out)
{
}

DemoFiles::~DemoFiles()
{
    for (QProcess *p : qAsConst(m_videoJobs)) {
        p->disconnect(this);
        p->kill();
        p->waitForFinished(1000);
    }
}

void DemoFiles::setWorld(const DemoWorld *world, qint64 epoch)
{
    m_world = world;
    m_epoch = epoch;
}

void DemoFiles::load(const QHash<qint64, DemoStoredFile> &stored)
{
    m_stored = stored;
    for (auto it = m_stored.cbegin(); it != m_stored.cend(); ++it)
        m_nextStoredId = qMax(m_nextStoredId, it.key() + 1);
}

bool DemoFiles::keepUpload(const QString &source, DemoStoredFile *out, QString *error)
{
    // A copy keeps the message downloadable when the original goes.
    const QFileInfo fi(source);
    DemoStoredFile sf;
    sf.id = m_nextStoredId;
    sf.name = demo_safe_file_name(fi.fileName());
    sf.size = fi.size();
    sf.path = QDir(m_filesDir).filePath(QStringLiteral("uploads/%1_%2").arg(sf.id).arg(sf.name));
    QDir().mkpath(QFileInfo(sf.path).absolutePath());
    QFile::remove(sf.path);
    if (!QFile::copy(source, sf.path)) {
        if (error)
            *error = QStringLiteral("Upload failed");
        return false;
    }
    ++m_nextStoredId;
    m_stored.insert(sf.id, sf);
    m_store->saveFile(sf);
    *out = sf;
    return true;
}

void DemoFiles::drain()
{
    // Their answers may schedule more work, so they go first.
    while (!m_videoJobs.isEmpty()) {
        QProcess *p = m_videoJobs.first();
        if (!p->waitForFinished(30000))
            p->kill();
        p->waitForFinished(1000);
        QCoreApplication::processEvents();
        m_videoJobs.removeAll(p);
    }
}

void DemoFiles::fail(qint64 fileId, int code, const QString &message)
{
    const QString extra = QStringLiteral("download:%1").arg(fileId);
    m_out->event(demo_event::td_error(extra, code, message));
    m_out->log(2, QStringLiteral("error %1 %2 %3").arg(extra).arg(code).arg(message));
}

bool DemoFiles::prepare(qint64 fileId, DemoPreparedFile *out, QString *error) const
{
    *out = DemoPreparedFile();
    QString *path = &out->path;
    auto notFound = [error] {
        if (error)
            *error = QStringLiteral("File not found");
        return false;
    };
    const DemoFileRef ref = m_world->resolveFileId(fileId);
    const QDir files(m_filesDir);
    quint64 seed = demo_mix(m_world->seed() ^ quint64(fileId));
    auto picture = [&](const QString &p, int w, int h) {
        *path = p;
        if (QFileInfo(p).size() > 0)
            return true;
        return demo_write_picture(p, w, h, seed, error);
    };
    switch (ref.kind) {
    case DemoFileRef::ChatPhoto:
        return picture(files.filePath(QStringLiteral("profile_photos/chat_%1.png").arg(fileId)),
                       160, 160);
    case DemoFileRef::UserPhoto:
        return picture(files.filePath(QStringLiteral("profile_photos/user_%1.png").arg(fileId)),
                       160, 160);
    case DemoFileRef::Stored: {
        const auto it = m_stored.constFind(fileId);
        if (it == m_stored.cend() || !QFileInfo(it->path).isFile()) {
            return notFound();
        }
        *path = it->path;
        return true;
    }
    case DemoFileRef::MessageMain:
    case DemoFileRef::MessageThumb: {
        const DemoChat &c = m_world->chats().at(ref.chatIndex);
        if (ref.messageId < 1 || ref.messageId > c.baseCount) {
            return notFound();
        }
        const DemoMessage m = m_world->generateMessage(c, ref.messageId, m_epoch);
        if (m.mediaFileId != fileId && m.thumbFileId != fileId) {
            return notFound();
        }
        if (ref.kind == DemoFileRef::MessageThumb) {
            // The thumbnail is the photo drawn small: the same seed.
            seed = demo_mix(m_world->seed() ^ quint64(m.mediaFileId));
            const int w = m.mediaW >= m.mediaH ? 160 : qMax(8, 160 * m.mediaW / qMax(1, m.mediaH));
            const int h = m.mediaW >= m.mediaH ? qMax(8, 160 * m.mediaH / qMax(1, m.mediaW)) : 160;
            return picture(files.filePath(QStringLiteral("thumbnails/%1.png").arg(fileId)), w, h);
        }
        if (m.mediaType == QLatin1String("photo")) {
            // Camera pictures come as JPEG, as real ones do.
            const bool camera = qint64(m.mediaW) * m.mediaH > 4000000;
            return picture(
                files.filePath(QStringLiteral("photos/%1.%2")
                                   .arg(fileId)
                                   .arg(camera ? QStringLiteral("jpg") : QStringLiteral("png"))),
                m.mediaW, m.mediaH);
        }
        if (m.mediaType == QLatin1String("file")) {
            *path = files.filePath(QStringLiteral("documents/%1_%2")
                                       .arg(fileId)
                                       .arg(demo_safe_file_name(m.mediaName)));
            if (QFileInfo(*path).size() == m.mediaSize)
                return true;
            return demo_write_document(*path, m.mediaName, m.mediaSize, seed, error);
        }
        if (m.mediaType == QLatin1String("voice")) {
            *path = files.filePath(QStringLiteral("voice/%1.oga").arg(fileId));
            if (QFileInfo(*path).size() == m.mediaSize)
                return true;
            return demo_write_voice_note(*path, m.mediaDuration, seed, error);
        }
        // VP8 and Opus in WebM: what the desktop's media stack plays.
        *path = files.filePath(QStringLiteral("videos/%1.webm").arg(fileId));
        if (QFileInfo(*path).size() > 0)
            return true;
        out->needsVideo = true;
        out->videoWidth = m.mediaW;
        out->videoHeight = m.mediaH;
        out->videoSeconds = m.mediaDuration;
        return true;
    }
    case DemoFileRef::None:
        break;
    }
    return notFound();
}

void DemoFiles::download(qint64 fileId, bool priority)
{
    if (m_downloading.contains(fileId))
        return;
    DemoPreparedFile file;
    QString error;
    if (!prepare(fileId, &file, &error)) {
        fail(fileId, 404, error);
        return;
    }
    m_downloading.insert(fileId);
    if (file.needsVideo)
        renderVideo(fileId, file, priority);
    else
        finish(fileId, file.path, priority);
}

// Videos are rendered by ffmpeg in the background; the download finishes
// when the file is complete.
void DemoFiles::renderVideo(qint64 fileId, const DemoPreparedFile &file, bool priority)
{
    const QString &path = file.path;
    const int seconds = file.videoSeconds;
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        m_downloading.remove(fileId);
        fail(fileId, 503, QStringLiteral("Video files are not available in this demo"));
        return;
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QString part = path + QStringLiteral(".part.webm");
    auto *proc = new QProcess(this);
    m_videoJobs.append(proc);
    const int hue = int(demo_mix(quint64(fileId)) % 360);
    const QString size = QStringLiteral("%1x%2")
                             .arg(qMax(16, file.videoWidth & ~1))
                             .arg(qMax(16, file.videoHeight & ~1));
    const QStringList args = {
        QStringLiteral("-v"),
        QStringLiteral("error"),
        QStringLiteral("-y"),
        QStringLiteral("-f"),
        QStringLiteral("lavfi"),
        QStringLiteral("-i"),
        QStringLiteral("testsrc2=size=%1:rate=25:duration=%2,hue=h=%3")
            .arg(size)
            .arg(qMax(1, seconds))
            .arg(hue),
        QStringLiteral("-f"),
        QStringLiteral("lavfi"),
        QStringLiteral("-i"),
        QStringLiteral("sine=frequency=%1:duration=%2").arg(300 + hue).arg(qMax(1, seconds)),
        QStringLiteral("-pix_fmt"),
        QStringLiteral("yuv420p"),
        QStringLiteral("-c:v"),
        QStringLiteral("libvpx"),
        QStringLiteral("-deadline"),
        QStringLiteral("realtime"),
        QStringLiteral("-cpu-used"),
        QStringLiteral("8"),
        QStringLiteral("-b:v"),
        QStringLiteral("600k"),
        QStringLiteral("-c:a"),
        QStringLiteral("libopus"),
        QStringLiteral("-b:a"),
        QStringLiteral("48k"),
        QStringLiteral("-shortest"),
        part};
    connect(proc, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this, proc, fileId, path, part, priority](int code, QProcess::ExitStatus st) {
                m_videoJobs.removeAll(proc);
                proc->deleteLater();
                if (code != 0 || st != QProcess::NormalExit || !QFile::exists(part)) {
                    QFile::remove(part);
                    m_downloading.remove(fileId);
                    fail(fileId, 500, QStringLiteral("Video generation failed"));
                    return;
                }
                QFile::remove(path);
                QFile::rename(part, path);
                finish(fileId, path, priority);
            });
    proc->setProcessChannelMode(QProcess::MergedChannels);
    proc->start(ffmpeg, args);
}

void DemoFiles::finish(qint64 fileId, const QString &path, bool priority)
{
    const qint64 total = QFileInfo(path).size();
    const int step = priority ? 40 : 120;
    const int parts = total > 65536 ? 3 : 1;
    for (int i = 1; i <= parts; ++i) {
        const qint64 done = i == parts ? total : total * i / (parts + 1);
        m_scheduler->later(step * i, [this, fileId, done, total] {
            m_out->event(demo_event::file_progress(fileId, done, total));
        });
    }
    m_scheduler->later(step * parts + 1, [this, fileId, path, total] {
        m_downloading.remove(fileId);
        m_out->event(demo_event::file(fileId, path, total));
    });
}
