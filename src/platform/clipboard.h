#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

// Puts data on the system clipboard.
class Clipboard
{
public:
    virtual ~Clipboard();
    // Replaces the clipboard with data of the given MIME type. "text/plain"
    // data is UTF-8 text.
    virtual bool insert(const QString &mimeType, const QByteArray &data) = 0;
    virtual QString text() const = 0;
    void setText(const QString &text) { insert(QStringLiteral("text/plain"), text.toUtf8()); }
};

// The desktop clipboard (QGuiApplication::clipboard()); needs a
// QGuiApplication.
class SystemClipboard : public Clipboard
{
public:
    bool insert(const QString &mimeType, const QByteArray &data) override;
    QString text() const override;
};

// Records what was put on the clipboard, newest last.
class RecordingClipboard : public Clipboard
{
public:
    struct Entry
    {
        QString mimeType;
        QByteArray data;
    };
    bool insert(const QString &mimeType, const QByteArray &data) override;
    QString text() const override;
    const QList<Entry> &entries() const { return m_entries; }

private:
    QList<Entry> m_entries;
};
