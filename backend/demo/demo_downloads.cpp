#include "demo_backend.h"

#include "demo_media.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

// ---------------------------------------------------------------- downloads

bool DemoBackend::prepareFile(qint64 fileId, DemoPreparedFile *out, QString *error)
{
    *out = DemoPreparedFile();
    QString *path = &out->path;
    auto notFound = [error] {
        if (error)
            *error = QStringLiteral("File not found");
        return false;
    };
    const DemoFileRef ref = m_world.resolveFileId(fileId);
    const QDir files(m_config.filesDir);
    const quint64 seed = demo_mix(m_world.seed() ^ quint64(fileId));
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
        const auto it = m_files.constFind(fileId);
        if (it == m_files.cend() || !QFileInfo(it->path).isFile()) {
            return notFound();
        }
        *path = it->path;
        return true;
    }
    case DemoFileRef::MessageMain:
    case DemoFileRef::MessageThumb: {
        const DemoChat &c = chat(ref.chatIndex);
        if (ref.messageId < 1 || ref.messageId > c.baseCount) {
            return notFound();
        }
        const DemoMessage m = m_world.generateMessage(c, ref.messageId, m_epoch);
        if (m.mediaFileId != fileId && m.thumbFileId != fileId) {
            return notFound();
        }
        if (ref.kind == DemoFileRef::MessageThumb) {
            const int w = m.mediaW >= m.mediaH ? 160 : qMax(8, 160 * m.mediaW / qMax(1, m.mediaH));
            const int h = m.mediaW >= m.mediaH ? qMax(8, 160 * m.mediaH / qMax(1, m.mediaW)) : 160;
            return picture(files.filePath(QStringLiteral("thumbnails/%1.png").arg(fileId)), w, h);
        }
        if (m.mediaType == QLatin1String("photo"))
            return picture(files.filePath(QStringLiteral("photos/%1.png").arg(fileId)), m.mediaW,
                           m.mediaH);
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
        *path = files.filePath(QStringLiteral("videos/%1.mp4").arg(fileId));
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

void DemoBackend::cmdDownload(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    const bool priority = cmd.verb == QLatin1String("downloadp");
    qint64 fileId = 0;
    if (a.size() != 1 || !demo_parse_id(a.first(), &fileId) || fileId < 1) {
        tdError(QStringLiteral("download:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid file id"));
        return;
    }
    startDownload(fileId, priority);
}

void DemoBackend::startDownload(qint64 fileId, bool priority)
{
    if (m_downloading.contains(fileId))
        return;
    DemoPreparedFile file;
    QString error;
    if (!prepareFile(fileId, &file, &error)) {
        tdError(QStringLiteral("download:%1").arg(fileId), 404, error);
        return;
    }
    m_downloading.insert(fileId);
    if (file.needsVideo)
        renderVideo(fileId, file, priority);
    else
        finishDownload(fileId, file.path, priority);
}

// Videos are rendered by ffmpeg in the background; the download finishes
// when the file is complete.
void DemoBackend::renderVideo(qint64 fileId, const DemoPreparedFile &file, bool priority)
{
    const QString &path = file.path;
    const int seconds = file.videoSeconds;
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        m_downloading.remove(fileId);
        tdError(QStringLiteral("download:%1").arg(fileId), 503,
                QStringLiteral("Video files are not available in this demo"));
        return;
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QString part = path + QStringLiteral(".part.mp4");
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
        QStringLiteral("-shortest"),
        part};
    connect(proc, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this, proc, fileId, path, part, priority](int code, QProcess::ExitStatus st) {
                m_videoJobs.removeAll(proc);
                proc->deleteLater();
                if (code != 0 || st != QProcess::NormalExit || !QFile::exists(part)) {
                    QFile::remove(part);
                    m_downloading.remove(fileId);
                    tdError(QStringLiteral("download:%1").arg(fileId), 500,
                            QStringLiteral("Video generation failed"));
                    return;
                }
                QFile::remove(path);
                QFile::rename(part, path);
                finishDownload(fileId, path, priority);
            });
    proc->setProcessChannelMode(QProcess::MergedChannels);
    proc->start(ffmpeg, args);
}

void DemoBackend::finishDownload(qint64 fileId, const QString &path, bool priority)
{
    const qint64 total = QFileInfo(path).size();
    const int step = priority ? 40 : 120;
    const int parts = total > 65536 ? 3 : 1;
    for (int i = 1; i <= parts; ++i) {
        const qint64 done = i == parts ? total : total * i / (parts + 1);
        later(step * i, [this, fileId, done, total] {
            emitEvent(demo_event::file_progress(fileId, done, total));
        });
    }
    later(step * parts + 1, [this, fileId, path, total] {
        m_downloading.remove(fileId);
        emitEvent(demo_event::file(fileId, path, total));
    });
}
