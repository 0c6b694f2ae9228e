#include "demo_activity.h"

#include "demo_events.h"

#include <QTimer>

namespace {

quint64 lifeSeed(quint64 worldSeed)
{
    return demo_mix(worldSeed ^ 0x4c494645);
}

} // namespace

DemoActivity::DemoActivity(DemoActivityHost *host, quint64 seed, QObject *parent)
    : QObject(parent), m_host(host), m_rng(lifeSeed(seed))
{
    m_timer = new QTimer(this);
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, [this] {
        tick();
        scheduleNext();
    });
}

void DemoActivity::setSeed(quint64 seed)
{
    m_rng = DemoRng(lifeSeed(seed));
}

void DemoActivity::start(double speed)
{
    m_speed = speed;
    if (speed > 0)
        m_timer->start(int(6000 * speed));
    else
        m_timer->stop();
}

void DemoActivity::scheduleNext()
{
    m_timer->start(int((4000 + m_rng.below(8000)) * m_speed));
}

void DemoActivity::tick()
{
    if (!m_host->signedIn())
        return;
    const int r = m_rng.below(100);
    const QVector<int> list = m_host->mainList();
    if (r < 45)
        someoneWrites(list);
    else if (r < 76)
        someoneComesOrGoes(list);
    else if (r < 85)
        someoneRenamesAGroup(list);
    else if (r < 93)
        someoneCalls(list);
    else if (r < 97)
        someonePins(list);
    else
        connectionBlips();
}

void DemoActivity::someoneWrites(const QVector<int> &list)
{
    if (list.isEmpty())
        return;
    const int ci = list.at(m_rng.below(qMin(list.size(), 80)));
    const DemoChat &c = chat(ci);
    if (!c.canSend && c.type != QLatin1String("channel"))
        return;
    const QString text = m_host->world().phrase(m_rng);
    qint64 sender = c.peerUserId;
    if (sender == 0 && !c.members.isEmpty())
        sender = c.members.at(m_rng.below(c.members.size()));
    m_host->addIncoming(ci, sender, text);
}

void DemoActivity::someoneComesOrGoes(const QVector<int> &list)
{
    const QVector<DemoUser> &users = m_host->world().users();
    const DemoUser &u = users.at(m_rng.below(users.size()));
    m_host->setOnline(u.id, !m_host->isOnline(u.id));
    if (list.isEmpty())
        return;
    const DemoChat &c = chat(list.at(m_rng.below(list.size())));
    if (c.memberCount > 0)
        m_host->emitEvent(demo_event::chat_online_count(
            c.id, qMax<qint64>(1, c.memberCount / (10 + m_rng.below(20)))));
}

void DemoActivity::someoneRenamesAGroup(const QVector<int> &list)
{
    // Someone in a basic group decorates its name, or takes the decoration off.
    QVector<int> groups;
    for (int ci : list) {
        if (chat(ci).type == QLatin1String("basic_group") && !chat(ci).members.isEmpty())
            groups.append(ci);
    }
    if (groups.isEmpty())
        return;
    const int ci = groups.at(m_rng.below(groups.size()));
    static const QStringList marks = {QStringLiteral("✨"), QStringLiteral("🎈"), QStringLiteral("🌻"),
                                      QStringLiteral("🍕")};
    const QString base = chat(ci).title;
    const QString title = m_host->titleOf(ci) != base
                              ? base
                              : base + QLatin1Char(' ') + marks.at(m_rng.below(marks.size()));
    m_host->renameChat(ci, title);
}

void DemoActivity::someonePins(const QVector<int> &list)
{
    // Mostly in the chat the user looks at, so the pinned bar is seen to change.
    const int open = m_host->openChatIndex();
    const int ci = open >= 0 && m_rng.chance(60)
                       ? open
                       : (list.isEmpty() ? -1 : list.at(m_rng.below(qMin(list.size(), 80))));
    if (ci < 0)
        return;
    const QList<qint64> pins = m_host->pinsOf(ci);
    const qint64 newest = m_host->newestMessageId(ci);
    if (!pins.isEmpty() && (pins.size() >= 4 || m_rng.chance(40))) {
        m_host->setPinned(ci, pins.at(m_rng.below(pins.size())), false);
        return;
    }
    if (newest < 1)
        return;
    // A recent message, as people pin what was just said.
    const qint64 id = qMax<qint64>(1, newest - m_rng.below(int(qMin<qint64>(newest, 20))));
    if (!pins.contains(id))
        m_host->setPinned(ci, id, true);
}

void DemoActivity::someoneCalls(const QVector<int> &list)
{
    // Someone from a private chat rings; nobody answers, so the call ends
    // as missed after a while.
    QVector<qint64> callers;
    for (int ci : list) {
        if (chat(ci).type == QLatin1String("private") && chat(ci).peerUserId > 0)
            callers.append(chat(ci).peerUserId);
    }
    if (callers.isEmpty())
        return;
    const qint64 caller = callers.at(m_rng.below(callers.size()));
    const qint64 callId = m_nextCallId++;
    m_host->emitEvent(demo_event::call_update(callId, caller, false, QStringLiteral("pending")));
    // The caller's side offers its connection details once.
    m_host->emitEvent(demo_event::call_signaling(callId, 4 * (60 + m_rng.below(120))));
    DemoActivityHost *host = m_host;
    m_host->later(15000 + m_rng.below(15000), [host, callId, caller] {
        host->emitEvent(
            demo_event::call_update(callId, caller, false, QStringLiteral("discarded")));
    });
}

void DemoActivity::connectionBlips()
{
    m_host->emitEvent(demo_event::connection_state(QStringLiteral("Connecting")));
    DemoActivityHost *host = m_host;
    m_host->later(
        1500, [host] { host->emitEvent(demo_event::connection_state(QStringLiteral("Ready"))); });
}

void DemoActivity::afterSend(int ci, qint64 messageId)
{
    const DemoChat &c = chat(ci);
    if (!c.canSend || c.type == QLatin1String("channel") || m_replyPending.contains(ci))
        return;
    const bool isPrivate = c.peerUserId > 0;
    if (!isPrivate && !m_rng.chance(40))
        return;
    m_replyPending.insert(ci);
    const qint64 peer = isPrivate ? c.peerUserId : c.members.value(m_rng.below(c.members.size()));
    m_host->later(1200, [this, ci, messageId, peer] {
        m_host->setOnline(peer, true);
        m_host->markReadOutbox(ci, messageId);
    });
    const bool react = !c.reactions.isEmpty() && m_rng.chance(35);
    const QString emoji =
        react ? c.reactions.value(m_rng.below(qMin(3, c.reactions.size()))) : QString();
    if (react)
        m_host->later(
            800, [this, ci, messageId, emoji] { m_host->addPeerReaction(ci, messageId, emoji); });
    // Picked by the message answered, so a restarted backend does not answer
    // the first message of every run with the same words.
    DemoRng pick(demo_mix(quint64(messageId) ^ 0x5245504c59));
    const QString reply = m_host->world().phrase(pick);
    m_host->later(1800, [this, ci, reply, peer] {
        m_replyPending.remove(ci);
        if (!m_host->isInMainList(ci) && chat(ci).peerUserId == 0)
            return;
        m_host->addIncoming(ci, peer, reply);
    });
    m_host->later(3000, [this, peer] { m_host->setOnline(peer, false); });
}
