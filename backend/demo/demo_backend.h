#pragma once

#include "demo_store.h"
#include "demo_world.h"

#include <QHash>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QVector>

#include <functional>

class QProcess;
class QTimer;

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
};

// The demo service: reads command lines, answers with events appended to the
// events file and status lines on standard output, and simulates the life of
// an account (peers answering, presence, new messages in other chats).
class DemoBackend : public QObject
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

    static bool parseId(const QString &text, qint64 *out);
    static bool decodeBase64Strict(const QString &text, QByteArray *out);

private:
    struct ChatRuntime
    {
        DemoChatState state;
        QMap<qint64, DemoMessage> stored;
        QHash<qint64, DemoOverride> overrides;
        int gen = 0;
        bool replyPending = false;
    };
    // Due time and sequence number: equal due times run first in, first out.
    using TaskKey = QPair<qint64, quint64>;

    // Output.
    void emitEvent(const QJsonObject &event);
    // An error answer: its type, code and message beside the given fields.
    void emitError(const QString &type, int code, const QString &message,
                   QJsonObject fields = QJsonObject());
    void reopenEventsIfReplaced();
    void statusLine(const QString &line);
    void logLine(int level, const QString &text);
    void tdError(const QString &extra, int code, const QString &message);

    // Scheduling of delayed answers, scaled by DEMO_SPEED.
    void later(int ms, std::function<void()> fn);
    void onSchedulerTimeout();
    void armScheduler();
    void onLifeTick();
    void renameSomeGroup();
    QString titleOf(int ci) const;

    // Authorisation.
    void announceAuthState();
    void setAuthState(const QString &state);
    void announceMe();
    void announceConnection();

    // Chats and messages.
    bool chatArg(const QString &text, int *index) const;
    const DemoChat &chat(int ci) const { return m_world.chats().at(ci); }
    bool isInMainList(int ci) const;
    bool canSend(int ci) const;
    qint64 orderOf(int ci) const;
    QVector<int> mainList() const;
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
    bool setDeleted(int ci, qint64 id);

    QJsonObject chatJson(int ci) const;
    QJsonObject messageJson(const DemoMessage &m) const;
    static DemoMessage messageFromJson(const QJsonObject &o);
    QJsonObject userJson(const DemoUser &u) const;
    QJsonObject messagePropertiesJson(int ci, const DemoMessage &m) const;
    void emitChatLastMessage(int ci);
    void emitChatPosition(int ci);
    void emitHistory(int ci, const QList<qint64> &ids, bool clear, qint64 from);
    void emitPinnedState(int ci);

    // Sending.
    void startSend(int ci, DemoMessage draft, const QString &tag);
    void peerAfterSend(int ci, qint64 messageId);
    void addIncoming(int ci, const QString &text);
    void addIncomingFrom(int ci, qint64 sender, const QString &text);

    // Files.
    void startDownload(qint64 fileId, bool priority);
    void finishDownload(qint64 fileId, const QString &path, bool priority);
    bool prepareFile(qint64 fileId, QString *path, QString *error, bool *needsVideo, int *videoW,
                     int *videoH, int *videoSeconds);

    // Commands.
    void cmdPhone(const QString &text);
    void cmdCode(const QString &text);
    void cmdPassword(const QString &text);
    void cmdResend();
    void cmdChats(const QStringList &a);
    void cmdOpen(const QStringList &a);
    void cmdChatInfo(const QStringList &a);
    void cmdClose(const QStringList &a);
    void cmdHistory(const QStringList &a);
    void cmdHistoryMore(const QStringList &a);
    void cmdHistoryJump(const QStringList &a);
    void cmdRead(const QStringList &a);
    void cmdSend(const QString &verb, const QStringList &a);
    void cmdEdit(const QStringList &a);
    void cmdReact(const QStringList &a);
    void cmdForward(const QStringList &a);
    void cmdDelete(const QStringList &a);
    void cmdProps(const QStringList &a);
    void cmdPinnedList(const QStringList &a);
    void cmdSearch(const QStringList &a);
    void cmdChatAction(const QString &verb, const QStringList &a);
    void cmdDownload(const QStringList &a, bool priority);
    void cmdResolve(const QStringList &a);

    DemoConfig m_config;
    DemoStore *m_store;
    DemoWorld m_world;
    qint64 m_epoch = 0;
    QString m_authState;
    QString m_phone;
    int m_codeSends = 0;
    QVector<ChatRuntime> m_rt;
    QHash<qint64, DemoStoredFile> m_files;
    QHash<qint64, QString> m_titles; // groups renamed while the account lived
    qint64 m_nextStoredFileId = DemoWorld::kStoredFileBase;
    qint64 m_nextPendingId = Q_INT64_C(1) << 40;
    qint64 m_searchReq = 0;
    int m_openChat = -1;
    QHash<qint64, QPair<QString, qint64>> m_presence; // user -> (status, was_online)
    QSet<qint64> m_downloading;
    QList<QProcess *> m_videoJobs;
    int m_eventsFd = -1;
    int m_logFd = -1;
    qint64 m_logSize = 0;
    QTimer *m_scheduler = nullptr;
    QTimer *m_life = nullptr;
    QMap<TaskKey, std::function<void()>> m_tasks;
    quint64 m_taskSeq = 0;
    qint64 m_clockMs = 0;
    DemoRng m_lifeRng;
};
