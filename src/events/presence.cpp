#include "events/presence.h"

#include "platform/array_data_model.h"

#include <QFileInfo>

QString Presence::formatUserStatusText(const QString &statusType, qint64 wasOnline, qint64 expires)
{
    return formatUserStatusText(statusType, wasOnline, expires, QDateTime::currentDateTime());
}

QString Presence::formatUserStatusText(const QString &statusType, qint64 wasOnline, qint64 expires,
                                       const QDateTime &now)
{
    Q_UNUSED(expires)
    const QString type = statusType.trimmed().toLower();
    if (type == QLatin1String("online")) {
        return QStringLiteral("online");
    }
    if (type == QLatin1String("recently")) {
        return QStringLiteral("last seen recently");
    }
    if (type == QLatin1String("last_week")) {
        return QStringLiteral("last seen within a week");
    }
    if (type == QLatin1String("last_month")) {
        return QStringLiteral("last seen within a month");
    }
    if (type == QLatin1String("empty")) {
        return QStringLiteral("last seen long ago");
    }
    if (type != QLatin1String("offline")) {
        return QString();
    }
    if (wasOnline >= 1) {
        const QDateTime seen = QDateTime::fromSecsSinceEpoch(wasOnline).toLocalTime();
        if (seen.isValid()) {
            if (seen.date() == now.toLocalTime().date()) {
                return QStringLiteral("last seen at %1")
                    .arg(seen.toString(QStringLiteral("HH:mm")));
            }
            return QStringLiteral("last seen %1")
                .arg(seen.toString(QStringLiteral("yyyy-MM-dd HH:mm")));
        }
    }
    return QStringLiteral("offline");
}

QString Presence::chatHeaderSubtitle(const QString &chatType, const QVariantMap &chatInfo) const
{
    QString text;
    if (chatType == QLatin1String("private") || chatType == QLatin1String("secret")) {
        const qint64 peer = chatInfo.value(QStringLiteral("peer_user_id")).toLongLong();
        if (peer >= 1 && m_statusText.contains(peer)) {
            text = m_statusText.value(peer);
        }
    } else if (chatType == QLatin1String("basic_group") ||
               chatType == QLatin1String("supergroup")) {
        const qint64 members = chatInfo.value(QStringLiteral("member_count")).toLongLong();
        if (members >= 1) {
            text = QStringLiteral("%1 members").arg(members);
            const qint64 online = chatInfo.value(QStringLiteral("online_count")).toLongLong();
            if (online >= 1) {
                text += QStringLiteral(", %1 online").arg(online);
            }
        }
    } else if (chatType == QLatin1String("channel")) {
        const qint64 members = chatInfo.value(QStringLiteral("member_count")).toLongLong();
        if (members >= 1) {
            text = QStringLiteral("%1 subscribers").arg(members);
        }
    }
    return text.trimmed();
}

bool Presence::applySender(QVariantMap *row, qint64 userId, const QString &name,
                           qint64 photoSmallId) const
{
    if (row->value(QStringLiteral("sender_user_id")).toLongLong() != userId) {
        return false;
    }
    bool changed = false;
    if (photoSmallId >= 1 &&
        row->value(QStringLiteral("sender_photo_small_id")).toLongLong() != photoSmallId) {
        row->insert(QStringLiteral("sender_photo_small_id"), QString::number(photoSmallId));
        const QString path = m_avatarPath.value(photoSmallId);
        if (!path.isEmpty()) {
            row->insert(QStringLiteral("sender_avatar_path"), path);
        }
        changed = true;
    }
    if (!name.isEmpty() && row->value(QStringLiteral("sender_name")).toString() != name) {
        row->insert(QStringLiteral("sender_name"), name);
        changed = true;
    }
    return changed;
}

int Presence::updateSenderInfoForUser(ArrayDataModel *messages, QList<QVariantMap> *buffered,
                                      qint64 userId, const QString &name, qint64 photoSmallId)
{
    if (userId == 0) {
        return 0;
    }
    m_knownUsers.insert(userId);
    int changed = 0;
    if (messages) {
        for (int i = 0; i < messages->size(); ++i) {
            QVariantMap row = messages->value(i);
            if (applySender(&row, userId, name, photoSmallId)) {
                messages->replace(i, row);
                ++changed;
            }
        }
    }
    if (buffered) {
        for (QVariantMap &row : *buffered) {
            if (applySender(&row, userId, name, photoSmallId)) {
                ++changed;
            }
        }
    }
    return changed;
}

void Presence::forgetMissingAvatarPaths()
{
    for (auto it = m_avatarPath.begin(); it != m_avatarPath.end();) {
        if (QFileInfo::exists(it.value()))
            ++it;
        else
            it = m_avatarPath.erase(it);
    }
}
