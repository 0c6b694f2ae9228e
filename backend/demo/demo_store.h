#pragma once

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QtSql/QSqlDatabase>

// What the user changed in the simulated account, kept in SQLite so that it
// survives restarts. Every change is one autocommitted statement, so a kill
// at any moment leaves a consistent database.

struct DemoChatState
{
    bool muted = false;
    qint64 lastReadInbox = 0;
    qint64 lastReadOutbox = 0;
    bool removed = false; // left or deleted: not in the main list
    bool member = true;
    qint64 clearedUpTo = 0; // messages up to this id are gone
    qint64 orderDate = 0;   // activity date used when the chat has no messages
};

struct DemoOverride
{
    bool deleted = false;
    bool hasText = false;
    QString text;
    qint64 editDate = 0;
    bool hasReactions = false;
    QJsonArray reactions;
};

struct DemoStoredFile
{
    qint64 id = 0;
    QString path;
    QString name;
    qint64 size = 0;
};

class DemoStore
{
public:
    DemoStore() = default;
    ~DemoStore();
    DemoStore(const DemoStore &) = delete;
    DemoStore &operator=(const DemoStore &) = delete;

    bool open(const QString &path, QString *error);
    void close();

    QString meta(const QString &key, const QString &fallback = QString()) const;
    bool setMeta(const QString &key, const QString &value);
    // Meta entries whose key starts with prefix, keyed by the rest of the key.
    QHash<QString, QString> metaWithPrefix(const QString &prefix) const;

    QHash<qint64, DemoChatState> loadChatStates() const;
    bool saveChatState(qint64 chatId, const DemoChatState &s);

    // Messages created in this account (sent, received, forwarded) as JSON.
    QList<QJsonObject> loadMessages() const;
    bool saveMessage(qint64 chatId, qint64 id, const QJsonObject &m);
    bool removeMessage(qint64 chatId, qint64 id);
    bool removeMessagesUpTo(qint64 chatId, qint64 id);

    // Changes to generated messages: keyed by chat id and message id.
    QHash<qint64, QHash<qint64, DemoOverride>> loadOverrides() const;
    bool saveOverride(qint64 chatId, qint64 id, const DemoOverride &o);

    QHash<qint64, DemoStoredFile> loadFiles() const;
    bool saveFile(const DemoStoredFile &f);

    QString lastError() const { return m_lastError; }

private:
    bool exec(const QString &sql, const QVariantList &binds = {});

    QString m_connection;
    QString m_lastError;
};
