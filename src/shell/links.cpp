#include "shell/links.h"

#include "backend_link/env_file.h"
#include "chats/chat_list_model.h"
#include "platform/invoker.h"
#include "platform/toaster.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSaveFile>
#include <QUrlQuery>

namespace {

// The request file holds four short keys; anything longer is not one.
constexpr qint64 kMaxHubFileBytes = 16 * 1024;

// A public user name as a command word: no blank or control character may
// reach the command line.
bool isCommandWord(const QString &word)
{
    if (word.isEmpty() || word.size() > 256)
        return false;
    for (const QChar c : word) {
        if (c.isSpace() || c.category() == QChar::Other_Control)
            return false;
    }
    return true;
}

qint64 positiveId(const QString &text)
{
    bool ok = false;
    const qint64 id = text.trimmed().toLongLong(&ok);
    return ok && id >= 1 ? id : 0;
}

// Groups, channels and secret chats have negative ids; 0 is none.
qint64 chatIdFrom(const QString &text)
{
    bool ok = false;
    const qint64 id = text.trimmed().toLongLong(&ok);
    return ok ? id : 0;
}

} // namespace

QString hub_open_file_path(const QString &dataDir)
{
    return dataDir + QStringLiteral("/hub_open.env");
}

bool write_hub_open_request(const QString &dataDir, qint64 chatId, qint64 messageId,
                            const QString &reason, QString *error)
{
    QString cleanReason = reason;
    cleanReason.replace(QRegularExpression(QStringLiteral("[\\r\\n]")), QStringLiteral(" "));
    QString text = chatId != 0 ? QStringLiteral("HUB_OPEN=chat\nHUB_CHAT_ID=%1\n").arg(chatId)
                               : QStringLiteral("HUB_OPEN=chats\n");
    if (chatId != 0 && messageId > 0)
        text += QStringLiteral("HUB_MESSAGE_ID=%1\n").arg(messageId);
    text += QStringLiteral("HUB_REASON=") + cleanReason.left(200) + QLatin1Char('\n');
    QDir().mkpath(dataDir);
    // Flushed before commit(), which does not notice a flush at close that fails (a full disk).
    QSaveFile file(hub_open_file_path(dataDir));
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0 || !file.flush() ||
        !file.commit()) {
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}

Links::Links(const LinksDeps &deps, QObject *parent) : QObject(parent), m_deps(deps) {}

void Links::log(const QString &text)
{
    if (m_deps.log)
        m_deps.log(text);
}

void Links::toast(const QString &text)
{
    if (m_deps.toaster)
        m_deps.toaster->showToast(text);
}

void Links::onInvoked(const QString &text)
{
    const QUrl url(text.trimmed());
    log(QStringLiteral("ui: invoked action=open uri=%1\n").arg(text));
    if (url.isValid() && url.scheme().toLower() == QLatin1String("tg")) {
        // A link asked for now wins over an older request to open a chat.
        m_hubOpenMode.clear();
        handleTgUrl(url, QStringLiteral("invoke"));
    }
}

bool Links::handleTgUrl(const QUrl &url, const QString &reason)
{
    if (!url.isValid() || url.scheme().toLower() != QLatin1String("tg"))
        return false;
    const QString uri = url.toString();
    QString command = url.host().toLower();
    if (command.isEmpty())
        command = url.path().toLower().mid(url.path().startsWith(QLatin1Char('/')) ? 1 : 0);
    if (command != QLatin1String("resolve")) {
        log(QStringLiteral("ui: tg unsupported cmd=%1 uri=%2 reason=%3\n")
                .arg(command, uri, reason));
        toast(QStringLiteral("Unsupported tg link"));
        return true;
    }
    const QUrlQuery query(url);
    QString username = query.queryItemValue(QStringLiteral("domain"), QUrl::FullyDecoded);
    if (username.isEmpty())
        username = query.queryItemValue(QStringLiteral("username"), QUrl::FullyDecoded);
    username = username.trimmed();
    if (username.startsWith(QLatin1Char('@')))
        username.remove(0, 1);
    if (username.isEmpty() || !isCommandWord(username)) {
        log(QStringLiteral("ui: tg resolve missing domain uri=%1 reason=%2\n").arg(uri, reason));
        toast(QStringLiteral("Invalid tg link"));
        return true;
    }
    m_pendingUsername = username;
    m_resolveSent = false;
    m_pendingMessageId = 0;
    log(QStringLiteral("ui: tg resolve pending username=%1 reason=%2\n").arg(username, reason));
    if (!m_deps.isSignedIn())
        toast(QStringLiteral("Open @%1 after login").arg(username));
    tryResolvePendingTg();
    return true;
}

void Links::tryResolvePendingTg()
{
    const QString username = m_pendingUsername.trimmed();
    if (username.isEmpty() || m_resolveSent || !m_deps.isSignedIn())
        return;
    m_resolveSent = true;
    log(QStringLiteral("ui: tg resolve send username=%1\n").arg(username));
    m_deps.sendLine(QStringLiteral("resolve %1").arg(username));
}

void Links::onResolveAnswered(const QString &username)
{
    if (!m_pendingUsername.isEmpty() &&
        m_pendingUsername.compare(username, Qt::CaseInsensitive) == 0) {
        m_pendingUsername.clear();
        m_resolveSent = false;
    }
}

void Links::onResolvedChat(const QVariantMap &chatRow)
{
    const qint64 messageId = m_pendingMessageId;
    m_pendingMessageId = 0;
    Q_EMIT openChatRequested(chatRow, messageId);
}

void Links::onWebLinkActivated(const QString &rawText)
{
    const QString text = rawText.trimmed();
    if (text.startsWith(QLatin1String("tg:"), Qt::CaseInsensitive)) {
        handleTgUrl(QUrl(text), QStringLiteral("web"));
        return;
    }
    QString target = text;
    if (!text.contains(QLatin1String("://"))) {
        const QString domainPrefix = QLatin1String(kPublicLinkDomain) + QLatin1Char('/');
        if (text.startsWith(QLatin1String("www."), Qt::CaseInsensitive)) {
            target = QStringLiteral("http://") + text;
        } else if (text.startsWith(domainPrefix, Qt::CaseInsensitive)) {
            target = QStringLiteral("https://") + text;
        } else {
            log(QStringLiteral("ui: invoke url ignored (no scheme): %1\n").arg(text));
            return;
        }
    }
    const QUrl url(target);
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1String("http") && scheme != QLatin1String("https"))) {
        log(QStringLiteral("ui: invoke url invalid/blocked: %1\n").arg(target));
        return;
    }
    if (openPublicLink(url))
        return;
    if (!m_deps.invoker || !m_deps.invoker->openUrl(url, QString(), QString())) {
        log(QStringLiteral("ui: invoke failed (no reply) url=%1\n").arg(target));
        return;
    }
    log(QStringLiteral("ui: invoke open url=%1\n").arg(target));
}

bool Links::openPublicLink(const QUrl &url)
{
    if (url.host().compare(QLatin1String(kPublicLinkDomain), Qt::CaseInsensitive) != 0 ||
        url.hasQuery() || url.hasFragment())
        return false;
    // NAME and an optional message number; invitations, sticker sets and
    // the like stay with the browser.
    static const QRegularExpression path(
        QStringLiteral("^/([A-Za-z][A-Za-z0-9_]{2,63})(?:/([0-9]{1,18}))?/?$"));
    const QRegularExpressionMatch m = path.match(url.path());
    if (!m.hasMatch())
        return false;
    static const QStringList reserved = {QStringLiteral("joinchat"), QStringLiteral("addstickers"),
                                         QStringLiteral("addemoji"), QStringLiteral("share"),
                                         QStringLiteral("proxy"),    QStringLiteral("socks"),
                                         QStringLiteral("iv"),       QStringLiteral("login")};
    const QString name = m.captured(1);
    if (reserved.contains(name.toLower()))
        return false;
    QUrl tg;
    tg.setScheme(QStringLiteral("tg"));
    tg.setHost(QStringLiteral("resolve"));
    tg.setQuery(QStringLiteral("domain=") + name);
    handleTgUrl(tg, QStringLiteral("web"));
    m_pendingMessageId = positiveId(m.captured(2));
    return true;
}

void Links::clearHubOpenRequest()
{
    m_hubOpenMode.clear();
    m_hubChatId = 0;
    m_hubMessageId = 0;
}

void Links::loadHubOpenRequest()
{
    clearHubOpenRequest();
    const QString path = hub_open_file_path(m_deps.dataDir);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QString text = QString::fromUtf8(file.read(kMaxHubFileBytes));
    file.close();
    QStringList env;
    apply_env_text(env, text);
    if (env.isEmpty())
        return;
    // Applied once: a later load does not see the same request again.
    QFile::remove(path);
    m_hubOpenMode = get_env_value(env, QStringLiteral("HUB_OPEN")).trimmed().toLower();
    m_hubChatId = chatIdFrom(get_env_value(env, QStringLiteral("HUB_CHAT_ID")));
    m_hubMessageId = positiveId(get_env_value(env, QStringLiteral("HUB_MESSAGE_ID")));
    const QString reason = get_env_value(env, QStringLiteral("HUB_REASON"));
    log(QStringLiteral("ui: hub_open loaded mode=%1 chat_id=%2 message_id=%3 reason=%4\n")
            .arg(m_hubOpenMode)
            .arg(m_hubChatId)
            .arg(m_hubMessageId)
            .arg(reason));
    if (m_deps.errorLine)
        m_deps.errorLine(QStringLiteral("ui: hub_open loaded mode=%1 chat_id=%2 message_id=%3\n")
                             .arg(m_hubOpenMode)
                             .arg(m_hubChatId)
                             .arg(m_hubMessageId));
}

void Links::requestOpenChat(qint64 chatId, qint64 messageId, const QString &reason)
{
    m_hubOpenMode = QStringLiteral("chat");
    m_hubChatId = chatId;
    m_hubMessageId = messageId >= 1 ? messageId : 0;
    log(QStringLiteral("ui: hub_open loaded mode=chat chat_id=%1 message_id=%2 reason=%3\n")
            .arg(m_hubChatId)
            .arg(m_hubMessageId)
            .arg(reason));
    tryApplyHubOpenRequest();
}

void Links::tryApplyHubOpenRequest()
{
    if (m_hubOpenMode.isEmpty() || !m_deps.isSignedIn())
        return;
    const auto both = [this](const QString &line) {
        log(line);
        if (m_deps.errorLine)
            m_deps.errorLine(line);
    };
    if (m_hubOpenMode == QLatin1String("chats")) {
        log(QStringLiteral("ui: hub_open apply mode=chats\n"));
        clearHubOpenRequest();
        Q_EMIT backToChatsRequested();
        return;
    }
    if (m_hubChatId == 0) {
        log(QStringLiteral("ui: hub_open missing chat_id (fallback to chats)\n"));
        clearHubOpenRequest();
        Q_EMIT backToChatsRequested();
        return;
    }
    const qint64 chatId = m_hubChatId;
    const qint64 messageId = m_hubMessageId;
    if (m_deps.visibleChatId && m_deps.visibleChatId() == chatId) {
        both(QStringLiteral("ui: hub_open already in chat %1\n").arg(chatId));
        clearHubOpenRequest();
        if (messageId >= 1)
            Q_EMIT jumpRequested(messageId);
        return;
    }
    const int row = m_deps.chats ? m_deps.chats->findChatIndexById(chatId) : -1;
    if (row < 0) {
        both(QStringLiteral("ui: hub_open waiting for chat row id=%1\n").arg(chatId));
        // Once; while the list that sign-in asked for is still on its way,
        // a second request would only load it twice.
        if (!m_chatsRequested) {
            m_chatsRequested = true;
            const bool listOnItsWay = m_deps.chatListRequested && m_deps.chatListRequested() &&
                                      m_deps.chats && m_deps.chats->size() == 0;
            if (!listOnItsWay)
                m_deps.sendLine(QStringLiteral("chats 60"));
        }
        return;
    }
    both(QStringLiteral("ui: hub_open open chat_id=%1 message_id=%2\n").arg(chatId).arg(messageId));
    clearHubOpenRequest();
    Q_EMIT openChatRequested(m_deps.chats->rowAt(row), messageId);
}
