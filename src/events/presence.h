#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QVariantMap>

class ArrayDataModel;

// Presence and chat header texts of the signed-in account's contacts.
class Presence
{
public:
    // One-line presence for a "user" event: "online", "last seen recently",
    // "last seen at 14:05", ... The expiry takes no part in the text.
    static QString formatUserStatusText(const QString &statusType, qint64 wasOnline,
                                        qint64 expires);
    static QString formatUserStatusText(const QString &statusType, qint64 wasOnline, qint64 expires,
                                        const QDateTime &now);

    // Subtitle under the title of an open chat: the peer's presence for
    // one-to-one chats, member and online counts for groups, subscribers for
    // channels; empty when nothing is known.
    QString chatHeaderSubtitle(const QString &chatType, const QVariantMap &chatInfo) const;

    void setStatusText(qint64 userId, const QString &text) { m_statusText.insert(userId, text); }
    QString statusText(qint64 userId) const { return m_statusText.value(userId); }
    bool hasStatusText(qint64 userId) const { return m_statusText.contains(userId); }

    void setAvatarPath(qint64 fileId, const QString &path) { m_avatarPath.insert(fileId, path); }
    QString avatarPath(qint64 fileId) const { return m_avatarPath.value(fileId); }
    // Drops the paths whose files went away (a cleared cache).
    void forgetMissingAvatarPaths();

    bool isKnownUser(qint64 userId) const { return m_knownUsers.contains(userId); }

    // Spreads a user's new name and photo into the message rows that user
    // sent: the list rows of the open chat (written back only when changed)
    // and the rows still buffered for a history batch (changed in place).
    // Either may be null. Returns the number of rows changed.
    int updateSenderInfoForUser(ArrayDataModel *messages, QList<QVariantMap> *buffered,
                                qint64 userId, const QString &name, qint64 photoSmallId);

private:
    bool applySender(QVariantMap *row, qint64 userId, const QString &name,
                     qint64 photoSmallId) const;

    QHash<qint64, QString> m_statusText;
    QHash<qint64, QString> m_avatarPath;
    QSet<qint64> m_knownUsers;
};
