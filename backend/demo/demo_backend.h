#pragma once

#include "backend_output.h"
#include "demo_activity.h"
#include "demo_events.h"
#include "demo_store.h"
#include "demo_world.h"

#include <QHash>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QVector>

#include <functional>

class DemoFiles;
class DemoScheduler;

struct DemoConfig
{
    QString dbDir;
    QString filesDir;
    QString eventsPath;
    QString logPath;
    qint64 logMaxSize = 5 * 1024 * 1024;
    int verbosity = 2;
    bool autoSendPhone = false;
    QString phone;
    quint64 seed = 1;
    double speed = 1.0;
    // Moments of the world's life run at once whenever the account becomes
    // ready, so what people do can be seen without waiting.
    int lifeBurst = 0;
};

// One command line: the verb, the text after it and its blank-separated words.
struct DemoCommand
{
    QString verb;
    QString rest;
    QStringList args;
};

// The last part of a name from a message, made safe to use inside a folder.
QString demo_safe_file_name(const QString &name);

// The demo service: reads command lines, answers with events appended to the
// events file and status lines on standard output, keeps the account in the
// store, and lets DemoActivity play the people in it.
class DemoBackend : public QObject, private DemoActivityHost
{
    Q_OBJECT
public:
    DemoBackend(const DemoConfig &config, DemoStore *store, QObject *parent = nullptr);
    ~DemoBackend() override;

    // Opens the events and log files, loads the saved state and announces
    // readiness. False with an error text when the files cannot be opened.
    bool start(QString *error);
    void handleLine(const QByteArray &line);
    // Runs every pending delayed answer at once (end of input).
    void drainPending();
    void announceClosed();
    // Every verb the dispatcher accepts.
    static QStringList verbs();

private:
    struct ChatRuntime
    {
        DemoChatState state;
        QMap<qint64, DemoMessage> stored;
        QHash<qint64, DemoOverride> overrides;
        int gen = 0;
    };
    using Handler = void (DemoBackend::*)(const DemoCommand &);
    struct Verb
    {
        const char *name;
        bool needsSignIn;
        Handler handler;
    };
    static const Verb kVerbs[];

    // DemoActivityHost.
    const DemoWorld &world() const override { return m_world; }
    bool signedIn() const override;
    QVector<int> mainList() const override;
    bool isInMainList(int ci) const override;
    void later(int ms, std::function<void()> fn) override;
    void emitEvent(const QJsonObject &event) override;
    void addIncoming(int ci, qint64 sender, const QString &text) override;
    void setOnline(qint64 userId, bool online) override;
    bool isOnline(qint64 userId) const override;
    void markReadOutbox(int ci, qint64 messageId) override;
    void addPeerReaction(int ci, qint64 messageId, const QString &emoji) override;
    QString titleOf(int ci) const override;
    void renameChat(int ci, const QString &title) override;
    int openChatIndex() const override { return m_openChat; }
    QList<qint64> pinsOf(int ci) const override;
    qint64 newestMessageId(int ci) const override { return nextMessageId(ci) - 1; }
    void setPinned(int ci, qint64 messageId, bool pinned) override;

    // Output.
    void tdError(const QString &extra, int code, const QString &message);
    void emitError(const QString &type, int code, const QString &message,
                   const QJsonObject &fields = QJsonObject());
    void refuseUnauthorized(const DemoCommand &c);

    // Authorisation.
    void announceAuthState();
    void setAuthState(const QString &state);
    void announceMe();
    void announceConnection();
    void becameReady();

    // Chats and messages.
    bool chatArg(const QString &text, int *index) const;
    const DemoChat &chat(int ci) const { return m_world.chats().at(ci); }
    bool canSend(int ci) const;
    qint64 orderOf(int ci) const;
    bool findMessage(int ci, qint64 id, DemoMessage *out) const;
    qint64 lastMessageId(int ci) const;
    // The newest visible message of the chat; false when it has none.
    bool lastMessage(int ci, DemoMessage *out) const;
    // Not deleted by the user (the generated history has no other gaps).
    static bool isAlive(const ChatRuntime &rt, qint64 id);
    QList<qint64> idsBefore(int ci, qint64 before, int limit) const;
    QList<qint64> idsAfter(int ci, qint64 after, int limit) const;
    qint64 nextMessageId(int ci) const;
    int unreadCount(int ci) const;
    void saveState(int ci);
    void storeMessage(int ci, const DemoMessage &m);
    void setOverride(int ci, qint64 id, const DemoOverride &o);
    bool setReactions(int ci, qint64 id, const QJsonArray &reactions);
    void setDeleted(int ci, qint64 id);
    DemoMessageCaps capsOf(int ci, const DemoMessage &m) const;
    QJsonObject userEvent(const DemoUser &u) const;
    QJsonObject chatEvent(int ci) const;
    void emitChatLastMessage(int ci);
    void emitChatPosition(int ci);
    void emitHistory(int ci, const QList<qint64> &ids, bool clear, qint64 from);
    void emitPinnedState(int ci);

    // Sending.
    void startSend(int ci, DemoMessage draft, const QString &tag);

    // Commands.
    void cmdPing(const DemoCommand &c);
    void cmdState(const DemoCommand &c);
    void cmdPhone(const DemoCommand &c);
    void cmdCode(const DemoCommand &c);
    void cmdPassword(const DemoCommand &c);
    void cmdResend(const DemoCommand &c);
    void cmdChats(const DemoCommand &c);
    void cmdOpen(const DemoCommand &c);
    void cmdChatInfo(const DemoCommand &c);
    void cmdClose(const DemoCommand &c);
    void cmdHistory(const DemoCommand &c);
    void cmdHistoryMore(const DemoCommand &c);
    void cmdHistoryJump(const DemoCommand &c);
    void cmdRead(const DemoCommand &c);
    void cmdSend(const DemoCommand &c);
    void cmdEdit(const DemoCommand &c);
    void cmdReact(const DemoCommand &c);
    void cmdForward(const DemoCommand &c);
    void cmdDelete(const DemoCommand &c);
    void cmdProps(const DemoCommand &c);
    void cmdPinnedList(const DemoCommand &c);
    void cmdSearch(const DemoCommand &c);
    void cmdChatAction(const DemoCommand &c);
    void cmdDownload(const DemoCommand &c);
    void cmdResolve(const DemoCommand &c);

    void phone(const QString &text);

    DemoConfig m_config;
    DemoStore *m_store;
    DemoWorld m_world;
    BackendOutput m_out;
    DemoScheduler *m_scheduler = nullptr;
    DemoActivity *m_activity = nullptr;
    DemoFiles *m_files = nullptr;
    qint64 m_epoch = 0;
    QString m_authState;
    QString m_phone;
    int m_codeSends = 0;
    QVector<ChatRuntime> m_rt;
    QHash<qint64, QString> m_titles;     // groups renamed while the account lived
    QHash<qint64, QList<qint64>> m_pins; // pins changed while the account lived
    qint64 m_nextPendingId = Q_INT64_C(1) << 40;
    qint64 m_searchReq = 0;
    int m_openChat = -1;
    QHash<qint64, QPair<QString, qint64>> m_presence; // user -> (status, was_online)
};
