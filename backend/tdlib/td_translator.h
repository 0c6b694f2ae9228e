#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

// What the engine knows before TDLib starts: credentials, folders, the phone
// to send by itself, and how to reach the network.
struct TdConfig
{
    qint64 apiId = 0;
    QString apiHash;
    QString databaseDir;
    QString filesDir;
    QString phone;
    bool autoSendPhone = false;
    QString proxyType; // "", "socks5", "mtproto"
    QString proxyHost;
    int proxyPort = 0;
    QString proxyUser;
    QString proxyPassword;
    QString proxySecret;
    // Tells TDLib there is no network at all, so nothing is tried.
    bool networkNone = false;
    // Waveform of a voice note (5 bits per value, packed), from its Ogg Opus
    // file; empty when unknown. td_voice_waveform() is the real one.
    std::function<QByteArray(const QString &path)> voiceWaveform;
};

// What one input turns into.
struct TdOutput
{
    QList<QJsonObject> requests; // to td_send, each with "@extra" when an answer is awaited
    QList<QJsonObject> events;   // lines for the events file
    QStringList statusLines;     // stdout lines without newline
    int exitCode = -1;           // >= 0: close TDLib and exit with it (9: database locked)

    void append(const TdOutput &other);
};

// Translates command lines into TDLib requests and TDLib updates and answers
// into events and status lines. Pure: no I/O, no threads, no TDLib; the
// engine carries the objects in and out.
class TdTranslator
{
public:
    explicit TdTranslator(TdConfig config);

    // First requests, before anything is received.
    TdOutput onStart();
    // One command line as received (with or without its line feed).
    TdOutput onCommand(const QString &line);
    // Every update and every answer that td_receive hands out. Requests made
    // here carry "@extra" "tr:<n>"; answers with other tags are ignored.
    TdOutput onTdObject(const QJsonObject &object);

    // The verbs onCommand understands.
    static QStringList verbs();
    // The authorization state as last reported ("" before the first one).
    QString authState() const { return m_authState; }
    bool ready() const { return m_authState == QLatin1String("Ready"); }

    // Bounds of the tables kept.
    static constexpr int kMaxChats = 20000;
    static constexpr int kMaxUsers = 50000;
    static constexpr int kMaxFiles = 50000;
    static constexpr int kMaxPending = 4096;

private:
    struct Chat
    {
        qint64 id = 0;
        QString title;
        QString type; // private, secret, basic_group, supergroup, channel
        qint64 peerUserId = 0;
        qint64 groupId = 0; // basic group or supergroup id
        qint64 photoSmallId = 0;
        qint64 order = 0; // in the main list; 0 when not in it
        bool pinned = false;
        int unread = 0;
        qint64 lastReadOutbox = 0;
        bool muted = false;
        QJsonObject lastMessage; // as TDLib sent it
        QJsonObject availableReactions;
        QJsonObject permissions;
    };
    struct User
    {
        qint64 id = 0;
        QString firstName, lastName, username, phone;
        qint64 photoSmallId = 0;
        QString statusType;
        qint64 wasOnline = 0;
        qint64 expires = 0;
    };
    struct Group
    {
        QString username;
        bool member = true;
        bool admin = false; // creator or administrator
        qint64 memberCount = 0;
    };
    struct FileState
    {
        QString path;
        bool done = false;
    };
    // What an awaited answer belongs to, by its "@extra".
    struct Pending
    {
        Pending(const QString &kind = QString(), qint64 chatId = 0, qint64 messageId = 0,
                qint64 number = 0, bool clear = false, qint64 from = 0,
                const QString &text = QString())
            : kind(kind), chatId(chatId), messageId(messageId), number(number), clear(clear),
              from(from), text(text)
        {
        }
        QString kind;
        qint64 chatId = 0;
        qint64 messageId = 0;
        qint64 number = 0; // gen, req, limit, count wanted
        bool clear = false;
        qint64 from = 0;
        QString text; // tag, mode, emoji, username, action
        QJsonArray collected;
        int rounds = 0;
        qint64 oldest = 0; // history: the oldest message received so far
    };

    using CommandHandler = void (TdTranslator::*)(const QStringList &args, const QString &rest,
                                                  TdOutput *out);
    struct Verb
    {
        const char *name;
        bool needsSignIn;
        CommandHandler handler;
    };
    static const Verb kVerbs[];

    // Requests and correlation.
    void request(TdOutput *out, QJsonObject req, const Pending &pending);
    void onAnswer(const Pending &pending, const QJsonObject &object, TdOutput *out);
    void onError(const Pending &pending, int code, const QString &message, TdOutput *out);
    void tdError(TdOutput *out, const QString &extra, int code, const QString &message) const;

    // Authorization.
    void onAuthorizationState(const QJsonObject &state, TdOutput *out);
    void announceAuthState(TdOutput *out) const;
    QJsonObject tdlibParameters() const;
    QJsonObject proxyRequest() const;
    void setNetwork(TdOutput *out, const char *type);

    // Updates.
    void onUpdate(const QString &type, const QJsonObject &o, TdOutput *out);
    void storeChat(const QJsonObject &chat);
    void storeUser(const QJsonObject &user);
    void setPositions(Chat *chat, const QJsonArray &positions);
    bool setPosition(Chat *chat, const QJsonObject &position);
    // told: the file was asked for, so a finished one is told again.
    void onFile(const QJsonObject &file, bool asked, TdOutput *out);

    // Event builders.
    QJsonObject chatEvent(const Chat &c) const;
    QJsonObject userEvent(const User &u) const;
    QJsonObject messageJson(const QJsonObject &message) const;
    QJsonObject chatLastMessageEvent(const Chat &c) const;
    QJsonObject chatInfoEvent(const Chat &c, const QJsonObject &fullInfo) const;
    QJsonObject meEvent(const User &u) const;
    QString chatUsername(const Chat &c) const;
    void setStatus(User *u, const QJsonObject &status);
    void storeGroup(QHash<qint64, Group> *table, const QJsonObject &group);
    void emitHistory(const Pending &p, const QJsonArray &messages, TdOutput *out);
    QString senderName(const QJsonObject &sender) const;
    qint64 senderPhoto(const QJsonObject &sender) const;
    bool safeLocalPath(const QString &path) const;
    QList<qint64> mainList() const;

    // Commands.
    void cmdPing(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdState(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdPhone(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdCode(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdPassword(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdResend(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdChats(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdOpen(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdChatInfo(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdClose(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdHistory(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdHistoryMore(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdHistoryJump(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdRead(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdSend(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdEdit(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdReact(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdForward(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdDelete(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdProps(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdPinnedList(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdSearch(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdChatAction(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdDownload(const QStringList &a, const QString &rest, TdOutput *out);
    void cmdResolve(const QStringList &a, const QString &rest, TdOutput *out);

    void historyRequest(TdOutput *out, qint64 chatId, qint64 from, int offset, int limit,
                        bool clear, qint64 anchor);

    TdConfig m_config;
    QString m_verb; // of the command being handled
    QString m_authState;
    qint64 m_myId = 0;
    QHash<qint64, Chat> m_chats;
    QHash<qint64, User> m_users;
    QHash<qint64, Group> m_basicGroups;
    QHash<qint64, Group> m_supergroups;
    QHash<qint64, FileState> m_files;
    QSet<QString> m_uploads;           // local paths the user sent
    QMap<qint64, Pending> m_pending;   // by the number in "@extra", oldest first
    QHash<qint64, QString> m_sendTags; // pending message id -> correlation tag
    QHash<qint64, int> m_gen;          // chat -> history generation
    qint64 m_nextExtra = 0;
    qint64 m_searchReq = 0;
    qint64 m_openChat = 0;
    bool m_chatsListed = false; // the list was sent once: chats entering it are told
    QString m_connectionState;
};

// A text with every line break and other control character replaced by a
// blank, for status lines.
QString td_one_line(const QString &text);
