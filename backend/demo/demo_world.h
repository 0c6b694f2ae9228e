#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVector>

// The simulated account: every user, chat and generated message is a pure
// function of the seed, so a fresh database always shows the same world and
// tests can rely on it. Whatever the user changes lives in DemoStore.

quint64 demo_mix(quint64 x);

// One reaction under a message, as the events carry it.
QJsonObject demo_reaction(const QString &emoji, int count, bool chosen);

class DemoRng
{
public:
    explicit DemoRng(quint64 seed) : m_state(seed) {}
    quint64 next();
    // Uniform in [0, n); n must be positive.
    int below(int n);
    bool chance(int percent) { return below(100) < percent; }

private:
    quint64 m_state;
};

struct DemoUser
{
    int index = 0;
    qint64 id = 0;
    QString firstName;
    QString lastName;
    QString username;
    QString phone;
    qint64 photoFileId = 0;
    QString statusType; // online, offline, recently, last_week, last_month, empty
    qint64 wasOnlineAgo = 0;
    QString displayName() const;
};

struct DemoChat
{
    int index = 0;
    qint64 id = 0;
    QString type; // private, secret, basic_group, supergroup, channel
    QString title;
    qint64 photoFileId = 0;
    qint64 peerUserId = 0;
    QString username;
    QString about;
    QString link;
    qint64 memberCount = 0;
    bool canSend = true;
    bool memberByDefault = true;
    bool mutedByDefault = false;
    bool isAdmin = false;
    int pinnedRank = 0; // 0 = not pinned; higher ranks come first
    bool reactionsAll = false;
    QStringList reactions;
    int baseCount = 0;     // generated messages have ids 1..baseCount
    qint64 lagSeconds = 0; // age of the newest generated message
    int stepSeconds = 60;  // spacing of generated messages
    int initialUnread = 0;
    int initialOutboxUnread = 0;
    QVector<qint64> members; // users who write in a group
    QList<qint64> pinnedMessageIds;
};

struct DemoMessage
{
    qint64 chatId = 0;
    qint64 id = 0;
    qint64 date = 0;
    bool outgoing = false;
    QString sendingState;
    QString contentType;
    QString text;
    qint64 senderUserId = 0;
    QString senderName;
    qint64 senderPhotoId = 0;
    qint64 replyTo = 0;
    QString forwarded;
    QString mediaType;
    QString mediaName;
    qint64 mediaSize = 0;
    int mediaW = 0;
    int mediaH = 0;
    int mediaDuration = 0;
    qint64 mediaFileId = 0;
    qint64 thumbFileId = 0;
    qint64 editDate = 0;
    QJsonArray reactions; // [{emoji, count, chosen}]
};

// What a generated file id stands for.
struct DemoFileRef
{
    enum Kind
    {
        None,
        ChatPhoto,
        UserPhoto,
        MessageMain,
        MessageThumb,
        Stored
    };
    Kind kind = None;
    int chatIndex = -1;
    int userIndex = -1;
    qint64 messageId = 0;
};

class DemoWorld
{
public:
    static constexpr qint64 kMeUserId = 100;
    static constexpr qint64 kMePhotoFileId = 2999999;
    static constexpr qint64 kStoredFileBase = 3000000;
    static constexpr qint64 kMessageFileBase = Q_INT64_C(8589934592); // 2^33

    explicit DemoWorld(quint64 seed);

    quint64 seed() const { return m_seed; }
    const QVector<DemoUser> &users() const { return m_users; }
    const QVector<DemoChat> &chats() const { return m_chats; }
    const DemoUser *userById(qint64 id) const;
    const DemoChat *chatById(qint64 id) const;
    int chatIndexById(qint64 id) const { return m_chatIndex.value(id, -1); }

    // Generated message 1..baseCount of a chat; epoch anchors the dates.
    DemoMessage generateMessage(const DemoChat &chat, qint64 id, qint64 epoch) const;
    qint64 generatedDate(const DemoChat &chat, qint64 id, qint64 epoch) const;

    static qint64 messageFileId(int chatIndex, qint64 messageId, bool thumb);
    DemoFileRef resolveFileId(qint64 fileId) const;

    QString meFirstName() const { return QStringLiteral("Demo"); }
    QString meLastName() const { return QStringLiteral("User"); }
    QString meUsername() const { return QStringLiteral("vexa_demo"); }

    // A line of conversation text in one of several scripts.
    QString phrase(DemoRng &rng) const;
    QString about(DemoRng &rng) const;
    QString bio(DemoRng &rng) const;
    static const QStringList &allReactions();

private:
    void buildUsers();
    void buildChats();

    quint64 m_seed;
    QVector<DemoUser> m_users;
    QVector<DemoChat> m_chats;
    QHash<qint64, int> m_chatIndex;
    QHash<qint64, int> m_userIndex;
};
