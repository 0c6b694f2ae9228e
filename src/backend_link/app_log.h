#pragma once

#include <QObject>
#include <QString>

class QIODevice;

// The two diagnostic logs of the UI: the in-app log (a bounded text buffer shown in a log view
// that is hidden by default) and the timestamped file log "ui_debug.log".
//
// The log view widget itself lives in the UI layer: it shows what viewTextChanged() hands it and
// follows viewVisibleChanged(). While the view is hidden the buffer only marks itself stale, and
// nothing is copied to standard error.
class AppLog : public QObject
{
    Q_OBJECT
public:
    static constexpr int kMaxBufferChars = 12000;

    explicit AppLog(QObject *parent = nullptr);

    // Appends to the in-app log; callers include the "\n" themselves.
    void appendLog(const QString &text);
    // Appends one line, prefixed "yyyy-MM-ddTHH:mm:ss.zzzZ " (UTC), to the UI debug log file.
    void appendUiFileLog(const QString &text);

    void setUiDebugLogPath(const QString &path);
    QString uiDebugLogPath() const { return m_uiDebugLogPath; }
    // Empties the UI debug log file (each backend start attempt begins a fresh one).
    void truncateUiDebugLog();

    QString buffer() const { return m_buffer; }
    bool isStale() const { return m_stale; }
    // Empties the buffer (low memory); a visible view is emptied too.
    void clear();

    // Showing the view first hands it the buffer when it changed while hidden.
    void setViewVisible(bool visible);
    bool isViewVisible() const { return m_viewVisible; }

    // Where the console copy goes while the view is visible; null (the default) means the
    // process's standard error.
    void setConsoleDevice(QIODevice *device) { m_console = device; }

Q_SIGNALS:
    void viewTextChanged(const QString &wholeBuffer);
    void viewVisibleChanged(bool visible);

private:
    void writeConsole(const QString &text);

    QString m_buffer;
    QString m_uiDebugLogPath;
    bool m_viewVisible = false;
    bool m_stale = false;
    QIODevice *m_console = nullptr;
};
