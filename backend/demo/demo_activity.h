#pragma once

#include "demo_world.h"

#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QVector>

#include <functional>

class QTimer;

// What the simulated people may do to the account; the backend carries it
// out, stores it and reports it.
class DemoActivityHost
{
public:
    virtual ~DemoActivityHost() = default;
    virtual const DemoWorld &world() const = 0;
    virtual bool signedIn() const = 0;
    // Chats of the main list, first one first.
    virtual QVector<int> mainList() const = 0;
    virtual bool isInMainList(int ci) const = 0;
    virtual void later(int ms, std::function<void()> fn) = 0;
    virtual void emitEvent(const QJsonObject &event) = 0;
    virtual void addIncoming(int ci, qint64 sender, const QString &text) = 0;
    virtual void setOnline(qint64 userId, bool online) = 0;
    virtual bool isOnline(qint64 userId) const = 0;
    virtual void markReadOutbox(int ci, qint64 messageId) = 0;
    virtual void addPeerReaction(int ci, qint64 messageId, const QString &emoji) = 0;
    virtual QString titleOf(int ci) const = 0;
    virtual void renameChat(int ci, const QString &title) = 0;
    // The chat the user has open, or -1.
    virtual int openChatIndex() const = 0;
    // The chat's pinned messages, newest first, and a change of them.
    virtual QList<qint64> pinsOf(int ci) const = 0;
    virtual qint64 newestMessageId(int ci) const = 0;
    virtual void setPinned(int ci, qint64 messageId, bool pinned) = 0;
};

// The life of the simulated world: people answer what the user sends, write
// in other chats, come online and go, rename their groups and call. Every
// choice comes from one generator seeded by the world, so a run is repeatable.
class DemoActivity : public QObject
{
    Q_OBJECT
public:
    DemoActivity(DemoActivityHost *host, quint64 seed, QObject *parent = nullptr);

    void setSeed(quint64 seed);
    // Runs the background life with pauses scaled by speed; 0 stops it.
    void start(double speed);
    // One moment of life: someone writes, comes or goes, renames a group,
    // calls, pins or unpins a message, or the connection drops for a moment.
    void tick();
    // What happens in a chat after the user sent a message there.
    void afterSend(int ci, qint64 messageId);

private:
    void someoneWrites(const QVector<int> &list);
    void someoneComesOrGoes(const QVector<int> &list);
    void someoneRenamesAGroup(const QVector<int> &list);
    void someoneCalls(const QVector<int> &list);
    void someonePins(const QVector<int> &list);
    void connectionBlips();
    void scheduleNext();
    const DemoChat &chat(int ci) const { return m_host->world().chats().at(ci); }

    DemoActivityHost *m_host;
    DemoRng m_rng;
    QTimer *m_timer = nullptr;
    double m_speed = 0;
    QSet<int> m_replyPending;
    qint64 m_nextCallId = 1;
};
