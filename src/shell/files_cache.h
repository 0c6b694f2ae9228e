#pragma once

#include <QList>
#include <QMetaType>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

#include <array>
#include <functional>
#include <memory>

class QDirIterator;

// What the files cache screen breaks the cache into.
enum class CacheKind
{
    VoiceNotes, // downloaded voice notes and their converted WAV files
    Photos,     // photos and thumbnails
    Videos,     // videos, video notes and animations
    Files,      // documents and music
    Images,     // avatars (downloaded and round) and drawn images
};
constexpr int kCacheKindCount = 5;

// "Voice notes", "Photos", "Videos", "Files", "Avatars and drawn images".
QString cache_kind_label(CacheKind kind);

struct CacheFolder
{
    QString path;
    CacheKind kind = CacheKind::Files;
};

// The folders under the data folder that hold what can be fetched or drawn
// again: the backend's downloads by kind, the converted voice notes, the round
// avatars and the drawn backgrounds. Other folders of the backend (uploads in
// progress, its database) are not the cache.
QList<CacheFolder> files_cache_folders(const QString &dataDir);

struct CacheUsage
{
    std::array<qint64, kCacheKindCount> bytes{};
    std::array<int, kCacheKindCount> files{};

    qint64 totalBytes() const;
    int totalFiles() const;
    qint64 bytesOf(CacheKind kind) const { return bytes[size_t(kind)]; }
    int filesOf(CacheKind kind) const { return files[size_t(kind)]; }
};
Q_DECLARE_METATYPE(CacheUsage)

// Measures and clears the cache folders on the user-interface thread, in
// slices: each slice looks at a bounded number of files, reports progress and
// lets the event loop turn before the next, so a cache of many thousands of
// files keeps the window answering.
class FilesCache : public QObject
{
    Q_OBJECT
public:
    enum class Job
    {
        None,
        Measuring,
        Clearing
    };
    Q_ENUM(Job)

    static constexpr int kSliceFiles = 500;
    static constexpr int kSliceMs = 8;

    explicit FilesCache(const QList<CacheFolder> &folders, QObject *parent = nullptr);
    ~FilesCache() override;

    // Files inside these folders are never deleted (the user's saved copies
    // in the shared folders, should a cache folder reach into them).
    void setSparedFolders(const QStringList &folders);
    // Files in use right now (a playing voice note); asked before each slice
    // of a clearing, and never deleted.
    void setInUseLookup(const std::function<QStringList()> &lookup) { m_inUse = lookup; }
    // At most this many files per slice (the time bound applies as well).
    void setSliceFiles(int files) { m_sliceFiles = qMax(1, files); }

    // Starts measuring; a measuring under way starts over, a clearing under
    // way is left to finish (it measures what remains).
    void measure();
    // Starts clearing unless a clearing is under way; a measuring gives way.
    void clear();

    Job job() const { return m_job; }
    bool isMeasured() const { return m_measured; }
    // The last measured usage (after a clearing: what was kept).
    CacheUsage usage() const { return m_usage; }
    QList<CacheFolder> folders() const { return m_folders; }

Q_SIGNALS:
    // After each slice: the files looked at so far and their bytes.
    void progress(FilesCache::Job job, int files, qint64 bytes);
    void measured(const CacheUsage &usage);
    // A clearing ended: freed holds what was deleted, kept the number of
    // files spared or that could not be deleted.
    void cleared(const CacheUsage &freed, int kept);

private:
    void start(Job job);
    void runSlice();
    void finish();
    bool isSpared(const QString &canonicalPath) const;

    QList<CacheFolder> m_folders;
    QStringList m_spared;
    std::function<QStringList()> m_inUse;
    int m_sliceFiles = kSliceFiles;

    Job m_job = Job::None;
    quint64 m_run = 0; // a new job's slices leave an old job's queued slice idle
    int m_folder = 0;
    std::unique_ptr<QDirIterator> m_it;
    CacheUsage m_seen;  // measured, or kept while clearing
    CacheUsage m_freed; // deleted while clearing
    int m_kept = 0;
    int m_filesDone = 0;
    qint64 m_bytesDone = 0;
    QSet<QString> m_inUseNow;

    bool m_measured = false;
    CacheUsage m_usage;
};
