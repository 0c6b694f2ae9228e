#include "shell/files_cache.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

QString cache_kind_label(CacheKind kind)
{
    switch (kind) {
    case CacheKind::VoiceNotes:
        return QStringLiteral("Voice notes");
    case CacheKind::Photos:
        return QStringLiteral("Photos");
    case CacheKind::Videos:
        return QStringLiteral("Videos");
    case CacheKind::Files:
        return QStringLiteral("Files");
    case CacheKind::Images:
        return QStringLiteral("Avatars and drawn images");
    }
    return QString();
}

QList<CacheFolder> files_cache_folders(const QString &dataDir)
{
    const QString cache = dataDir + QStringLiteral("/cache");
    const QString files = cache + QStringLiteral("/tdlib-files/");
    QList<CacheFolder> out;
    const auto add = [&](const QString &path, CacheKind kind) { out.append({path, kind}); };
    add(cache + QStringLiteral("/voice-wav"), CacheKind::VoiceNotes);
    add(files + QStringLiteral("voice"), CacheKind::VoiceNotes);
    for (const char *sub : {"photos", "thumbnails", "wallpapers"})
        add(files + QLatin1String(sub), CacheKind::Photos);
    for (const char *sub : {"videos", "video_notes", "animations"})
        add(files + QLatin1String(sub), CacheKind::Videos);
    for (const char *sub : {"documents", "music", "stickers"})
        add(files + QLatin1String(sub), CacheKind::Files);
    add(files + QStringLiteral("profile_photos"), CacheKind::Images);
    add(dataDir + QStringLiteral("/avatar-cache"), CacheKind::Images);
    add(dataDir + QStringLiteral("/ui-cache"), CacheKind::Images);
    return out;
}

qint64 CacheUsage::totalBytes() const
{
    qint64 sum = 0;
    for (qint64 b : bytes)
        sum += b;
    return sum;
}

int CacheUsage::totalFiles() const
{
    int sum = 0;
    for (int n : files)
        sum += n;
    return sum;
}

FilesCache::FilesCache(const QList<CacheFolder> &folders, QObject *parent)
    : QObject(parent), m_folders(folders)
{
    qRegisterMetaType<CacheUsage>();
    qRegisterMetaType<FilesCache::Job>();
}

FilesCache::~FilesCache() = default;

void FilesCache::setSparedFolders(const QStringList &folders)
{
    m_spared.clear();
    for (const QString &f : folders) {
        if (f.isEmpty())
            continue;
        const QString canonical = QFileInfo(f).canonicalFilePath();
        m_spared << (canonical.isEmpty() ? QDir::cleanPath(f) : canonical);
    }
}

void FilesCache::measure()
{
    if (m_job == Job::Clearing)
        return;
    start(Job::Measuring);
}

void FilesCache::clear()
{
    if (m_job == Job::Clearing)
        return;
    start(Job::Clearing);
}

void FilesCache::start(Job job)
{
    m_job = job;
    ++m_run;
    m_folder = 0;
    m_it.reset();
    m_seen = CacheUsage();
    m_freed = CacheUsage();
    m_kept = 0;
    m_filesDone = 0;
    m_bytesDone = 0;
    const quint64 run = m_run;
    QTimer::singleShot(0, this, [this, run] {
        if (run == m_run)
            runSlice();
    });
}

bool FilesCache::isSpared(const QString &canonicalPath) const
{
    for (const QString &root : m_spared) {
        if (canonicalPath == root || canonicalPath.startsWith(root + QLatin1Char('/')))
            return true;
    }
    return false;
}

void FilesCache::runSlice()
{
    if (m_job == Job::None)
        return;
    const bool clearing = m_job == Job::Clearing;
    if (clearing) {
        // Asked again each slice: playback may have started meanwhile.
        m_inUseNow.clear();
        if (m_inUse) {
            for (const QString &p : m_inUse()) {
                const QString canonical = QFileInfo(p).canonicalFilePath();
                if (!canonical.isEmpty())
                    m_inUseNow.insert(canonical);
            }
        }
    }
    QElapsedTimer clock;
    clock.start();
    int looked = 0;
    while (m_folder < m_folders.size()) {
        if (!m_it) {
            m_it = std::make_unique<QDirIterator>(m_folders.at(m_folder).path,
                                                  QDir::Files | QDir::Hidden | QDir::System |
                                                      QDir::NoDotAndDotDot,
                                                  QDirIterator::Subdirectories);
        }
        const size_t kind = size_t(m_folders.at(m_folder).kind);
        bool paused = false;
        while (m_it->hasNext()) {
            if (looked >= m_sliceFiles || clock.elapsed() >= kSliceMs) {
                paused = true;
                break;
            }
            const QString path = m_it->next();
            const QFileInfo info = m_it->fileInfo();
            // A link's target is not the cache's; the link itself costs nothing.
            const qint64 size = info.isSymLink() ? 0 : info.size();
            ++looked;
            ++m_filesDone;
            m_bytesDone += size;
            if (clearing) {
                const QString canonical = info.isSymLink() ? QString() : info.canonicalFilePath();
                const bool keep =
                    !canonical.isEmpty() && (isSpared(canonical) || m_inUseNow.contains(canonical));
                if (!keep && QFile::remove(path)) {
                    m_freed.bytes[kind] += size;
                    ++m_freed.files[kind];
                    continue;
                }
                ++m_kept;
            }
            m_seen.bytes[kind] += size;
            ++m_seen.files[kind];
        }
        if (paused)
            break;
        m_it.reset();
        ++m_folder;
    }
    Q_EMIT progress(m_job, m_filesDone, m_bytesDone);
    if (m_folder >= m_folders.size()) {
        finish();
        return;
    }
    const quint64 run = m_run;
    QTimer::singleShot(0, this, [this, run] {
        if (run == m_run)
            runSlice();
    });
}

void FilesCache::finish()
{
    const Job job = m_job;
    m_job = Job::None;
    m_it.reset();
    m_usage = m_seen;
    m_measured = true;
    if (job == Job::Clearing)
        Q_EMIT cleared(m_freed, m_kept);
    Q_EMIT measured(m_usage);
}
