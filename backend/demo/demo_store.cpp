#include "demo_store.h"

#include <QJsonDocument>
#include <QVariant>
#include <QtSql/QSqlError>
#include <QtSql/QSqlQuery>

DemoStore::~DemoStore()
{
    close();
}

bool DemoStore::open(const QString &path, QString *error)
{
    m_connection = QStringLiteral("demo_store_%1").arg(quintptr(this));
    QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    db.setDatabaseName(path);
    if (!db.open()) {
        if (error)
            *error = db.lastError().text();
        return false;
    }
    const QStringList schema = {
        QStringLiteral("PRAGMA journal_mode=WAL"),
        QStringLiteral("PRAGMA synchronous=NORMAL"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY, value TEXT)"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS chat_state (chat_id INTEGER PRIMARY KEY, "
                       "muted INTEGER, last_read_inbox INTEGER, last_read_outbox INTEGER, "
                       "removed INTEGER, member INTEGER, cleared_up_to INTEGER, "
                       "order_date INTEGER)"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS messages (chat_id INTEGER, id INTEGER, "
                       "json TEXT NOT NULL, PRIMARY KEY (chat_id, id))"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS overrides (chat_id INTEGER, id INTEGER, "
                       "deleted INTEGER, has_text INTEGER, text TEXT, edit_date INTEGER, "
                       "has_reactions INTEGER, reactions TEXT, PRIMARY KEY (chat_id, id))"),
        QStringLiteral("CREATE TABLE IF NOT EXISTS files (id INTEGER PRIMARY KEY, path TEXT, "
                       "name TEXT, size INTEGER)"),
    };
    for (const QString &sql : schema) {
        if (!exec(sql)) {
            if (error)
                *error = m_lastError;
            return false;
        }
    }
    return true;
}

void DemoStore::close()
{
    if (m_connection.isEmpty())
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
    m_connection.clear();
}

bool DemoStore::exec(const QString &sql, const QVariantList &binds)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!q.prepare(sql)) {
        m_lastError = q.lastError().text();
        return false;
    }
    for (const QVariant &v : binds)
        q.addBindValue(v);
    if (!q.exec()) {
        m_lastError = q.lastError().text();
        return false;
    }
    return true;
}

QString DemoStore::meta(const QString &key, const QString &fallback) const
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    q.prepare(QStringLiteral("SELECT value FROM meta WHERE key = ?"));
    q.addBindValue(key);
    if (q.exec() && q.next())
        return q.value(0).toString();
    return fallback;
}

bool DemoStore::setMeta(const QString &key, const QString &value)
{
    return exec(QStringLiteral("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)"),
                {key, value});
}

QHash<QString, QString> DemoStore::metaWithPrefix(const QString &prefix) const
{
    QHash<QString, QString> out;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!q.exec(QStringLiteral("SELECT key, value FROM meta")))
        return out;
    while (q.next()) {
        const QString key = q.value(0).toString();
        if (key.startsWith(prefix))
            out.insert(key.mid(prefix.size()), q.value(1).toString());
    }
    return out;
}

QHash<qint64, DemoChatState> DemoStore::loadChatStates() const
{
    QHash<qint64, DemoChatState> out;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!q.exec(QStringLiteral("SELECT chat_id, muted, last_read_inbox, last_read_outbox, "
                               "removed, member, cleared_up_to, order_date FROM chat_state")))
        return out;
    while (q.next()) {
        DemoChatState s;
        s.muted = q.value(1).toInt() != 0;
        s.lastReadInbox = q.value(2).toLongLong();
        s.lastReadOutbox = q.value(3).toLongLong();
        s.removed = q.value(4).toInt() != 0;
        s.member = q.value(5).toInt() != 0;
        s.clearedUpTo = q.value(6).toLongLong();
        s.orderDate = q.value(7).toLongLong();
        out.insert(q.value(0).toLongLong(), s);
    }
    return out;
}

bool DemoStore::saveChatState(qint64 chatId, const DemoChatState &s)
{
    return exec(QStringLiteral("INSERT OR REPLACE INTO chat_state (chat_id, muted, "
                               "last_read_inbox, last_read_outbox, removed, member, "
                               "cleared_up_to, order_date) VALUES (?, ?, ?, ?, ?, ?, ?, ?)"),
                {chatId, int(s.muted), s.lastReadInbox, s.lastReadOutbox, int(s.removed),
                 int(s.member), s.clearedUpTo, s.orderDate});
}

QList<QJsonObject> DemoStore::loadMessages() const
{
    QList<QJsonObject> out;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!q.exec(QStringLiteral("SELECT json FROM messages ORDER BY chat_id, id")))
        return out;
    while (q.next()) {
        const QJsonDocument doc = QJsonDocument::fromJson(q.value(0).toString().toUtf8());
        if (doc.isObject())
            out.append(doc.object());
    }
    return out;
}

bool DemoStore::saveMessage(qint64 chatId, qint64 id, const QJsonObject &m)
{
    return exec(
        QStringLiteral("INSERT OR REPLACE INTO messages (chat_id, id, json) VALUES (?, ?, ?)"),
        {chatId, id, QString::fromUtf8(QJsonDocument(m).toJson(QJsonDocument::Compact))});
}

bool DemoStore::removeMessage(qint64 chatId, qint64 id)
{
    return exec(QStringLiteral("DELETE FROM messages WHERE chat_id = ? AND id = ?"), {chatId, id});
}

bool DemoStore::removeMessagesUpTo(qint64 chatId, qint64 id)
{
    return exec(QStringLiteral("DELETE FROM messages WHERE chat_id = ? AND id <= ?"), {chatId, id});
}

QHash<qint64, QHash<qint64, DemoOverride>> DemoStore::loadOverrides() const
{
    QHash<qint64, QHash<qint64, DemoOverride>> out;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!q.exec(QStringLiteral("SELECT chat_id, id, deleted, has_text, text, edit_date, "
                               "has_reactions, reactions FROM overrides")))
        return out;
    while (q.next()) {
        DemoOverride o;
        o.deleted = q.value(2).toInt() != 0;
        o.hasText = q.value(3).toInt() != 0;
        o.text = q.value(4).toString();
        o.editDate = q.value(5).toLongLong();
        o.hasReactions = q.value(6).toInt() != 0;
        o.reactions = QJsonDocument::fromJson(q.value(7).toString().toUtf8()).array();
        out[q.value(0).toLongLong()].insert(q.value(1).toLongLong(), o);
    }
    return out;
}

bool DemoStore::saveOverride(qint64 chatId, qint64 id, const DemoOverride &o)
{
    return exec(QStringLiteral("INSERT OR REPLACE INTO overrides (chat_id, id, deleted, "
                               "has_text, text, edit_date, has_reactions, reactions) VALUES "
                               "(?, ?, ?, ?, ?, ?, ?, ?)"),
                {chatId, id, int(o.deleted), int(o.hasText), o.text, o.editDate,
                 int(o.hasReactions),
                 QString::fromUtf8(QJsonDocument(o.reactions).toJson(QJsonDocument::Compact))});
}

QHash<qint64, DemoStoredFile> DemoStore::loadFiles() const
{
    QHash<qint64, DemoStoredFile> out;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!q.exec(QStringLiteral("SELECT id, path, name, size FROM files")))
        return out;
    while (q.next()) {
        DemoStoredFile f;
        f.id = q.value(0).toLongLong();
        f.path = q.value(1).toString();
        f.name = q.value(2).toString();
        f.size = q.value(3).toLongLong();
        out.insert(f.id, f);
    }
    return out;
}

bool DemoStore::saveFile(const DemoStoredFile &f)
{
    return exec(
        QStringLiteral("INSERT OR REPLACE INTO files (id, path, name, size) VALUES (?, ?, ?, ?)"),
        {f.id, f.path, f.name, f.size});
}
