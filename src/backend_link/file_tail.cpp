#include "backend_link/file_tail.h"

#include <QFile>

#include <sys/stat.h>

void FileTail::restart()
{
    m_offset = 0;
    m_partial.clear();
    m_discarding = false;
    m_inode = m_device = 0;
    ++m_generation;
}

bool FileTail::sameFileAsBefore(QFile &file)
{
    struct stat st = {};
    if (::fstat(file.handle(), &st) != 0)
        return true;
    if (m_offset > 0 && (quint64(st.st_ino) != m_inode || quint64(st.st_dev) != m_device))
        return false;
    m_inode = st.st_ino;
    m_device = st.st_dev;
    char byte = 0;
    return m_offset == 0 || (file.seek(m_offset - 1) && file.getChar(&byte) && byte == m_lastByte);
}

void FileTail::remember(QFile &file, const QByteArray &chunk)
{
    struct stat st = {};
    if (::fstat(file.handle(), &st) == 0) {
        m_inode = st.st_ino;
        m_device = st.st_dev;
    }
    if (!chunk.isEmpty())
        m_lastByte = chunk.back();
}

void FileTail::skipToEnd()
{
    restart();
    QFile file(m_path);
    if (m_path.isEmpty() || !file.open(QIODevice::ReadOnly))
        return;
    m_offset = file.size();
    remember(file, m_offset > 0 && file.seek(m_offset - 1) ? file.read(1) : QByteArray());
}

FileTail::ReadResult FileTail::readNew(const LineFn &onLine, const TooLongFn &onTooLong)
{
    if (m_path.isEmpty())
        return ReadResult::NotOpened;
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        return ReadResult::NotOpened;
    if (file.size() < m_offset || !sameFileAsBefore(file))
        restart();
    if (!file.seek(m_offset)) {
        restart();
        if (!file.seek(0))
            return ReadResult::SeekFailed;
    }

    const quint64 generation = m_generation;
    // Up to the end as it is now: a writer that never pauses must not keep this read going.
    const qint64 end = file.size();
    bool readAny = false;
    while (file.pos() < end) {
        const QByteArray chunk = file.read(qMin(kChunkBytes, end - file.pos()));
        if (chunk.isEmpty())
            break;
        readAny = true;
        m_offset = file.pos();
        remember(file, chunk);

        int start = 0;
        for (;;) {
            const int nl = chunk.indexOf('\n', start);
            if (nl < 0) {
                const int rest = chunk.size() - start;
                if (m_discarding || rest == 0) {
                    // keep skipping the overlong line
                } else if (m_partial.size() + rest > kMaxLineBytes) {
                    m_partial.clear();
                    m_discarding = true;
                    onTooLong();
                    if (generation != m_generation)
                        return ReadResult::NewBytes;
                } else {
                    m_partial.append(chunk.constData() + start, rest);
                }
                break;
            }
            const int len = nl - start;
            if (m_discarding) {
                m_discarding = false;
                start = nl + 1;
                continue;
            }
            if (m_partial.size() + len > kMaxLineBytes) {
                m_partial.clear();
                start = nl + 1;
                onTooLong();
                if (generation != m_generation)
                    return ReadResult::NewBytes;
                continue;
            }
            QByteArray line;
            if (m_partial.isEmpty()) {
                line = chunk.mid(start, len);
            } else {
                m_partial.append(chunk.constData() + start, len);
                line.swap(m_partial);
            }
            start = nl + 1;
            onLine(line);
            // The callback may have started a new backend attempt, which skips to the end.
            if (generation != m_generation)
                return ReadResult::NewBytes;
        }
    }
    return readAny ? ReadResult::NewBytes : ReadResult::NothingNew;
}
