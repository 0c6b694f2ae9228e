#include "platform/clipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>

Clipboard::~Clipboard() = default;

bool SystemClipboard::insert(const QString &mimeType, const QByteArray &data)
{
    QClipboard *cb = QGuiApplication::clipboard();
    if (!cb || mimeType.isEmpty())
        return false;
    if (mimeType == QLatin1String("text/plain")) {
        cb->setText(QString::fromUtf8(data));
        return true;
    }
    auto *mime = new QMimeData;
    mime->setData(mimeType, data);
    cb->setMimeData(mime); // the clipboard takes ownership
    return true;
}

QString SystemClipboard::text() const
{
    QClipboard *cb = QGuiApplication::clipboard();
    return cb ? cb->text() : QString();
}

bool RecordingClipboard::insert(const QString &mimeType, const QByteArray &data)
{
    if (mimeType.isEmpty())
        return false;
    m_entries.append({mimeType, data});
    return true;
}

QString RecordingClipboard::text() const
{
    for (int i = m_entries.size() - 1; i >= 0; --i) {
        if (m_entries.at(i).mimeType == QLatin1String("text/plain"))
            return QString::fromUtf8(m_entries.at(i).data);
    }
    return QString();
}
