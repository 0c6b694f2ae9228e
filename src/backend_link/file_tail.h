#pragma once

#include <QByteArray>
#include <QString>

class QFile;

#include <functional>

// Follows a file that another process appends to: each read returns the complete lines written
// since the previous read and keeps the unterminated rest for later. The kept rest is bounded:
// a line longer than kMaxLineBytes is dropped (reported once) and reading resumes after its line
// feed, so memory stays bounded whatever the file holds. A file that shrank, or was replaced or
// rewritten since the last read, is read again from its start.
class FileTail
{
public:
    static constexpr qint64 kMaxLineBytes = 16 * 1024 * 1024;
    static constexpr qint64 kChunkBytes = 1024 * 1024;

    enum class ReadResult
    {
        NotOpened,
        SeekFailed,
        NothingNew,
        NewBytes
    };

    using LineFn = std::function<void(const QByteArray &line)>;
    using TooLongFn = std::function<void()>;

    void setPath(const QString &path) { m_path = path; }
    QString path() const { return m_path; }

    // Forgets everything up to the current end of the file (offset 0 when it cannot be opened).
    // Lines still being handed out by a running readNew() are not delivered any more.
    void skipToEnd();

    // Reads what is new and calls onLine for each complete line (without its line feed), in file
    // order, and onTooLong for each line dropped for its length.
    ReadResult readNew(const LineFn &onLine, const TooLongFn &onTooLong);

    qint64 offset() const { return m_offset; }
    QByteArray partialLine() const { return m_partial; }

private:
    void restart();
    bool sameFileAsBefore(QFile &file);
    void remember(QFile &file, const QByteArray &chunk);

    QString m_path;
    qint64 m_offset = 0;
    QByteArray m_partial;
    bool m_discarding = false;
    quint64 m_generation = 0;
    // Which file the offset belongs to, and the byte just before the offset: a file replaced
    // (another inode) or truncated and written past the offset again between two reads would
    // otherwise be read from the middle of a line.
    quint64 m_device = 0;
    quint64 m_inode = 0;
    char m_lastByte = 0;
};
