#pragma once

#include "demo_world.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

// One builder per event type the backend writes, so every event of a type
// carries the same keys wherever it is produced.

// A message as the events carry it (and as the store keeps it).
QJsonObject demo_message_json(const DemoMessage &m);
DemoMessage demo_message_from_json(const QJsonObject &o);

// What the user may do with one message.
struct DemoMessageCaps
{
    bool deleteOnlyForSelf = false;
    bool deleteForAll = false;
    bool edit = false;
    bool forward = false;
    bool reply = false;
    bool copy = false;
};

// One row of the chat list.
struct DemoChatRow
{
    qint64 id = 0;
    QString title;
    QString type;
    QString username; // public name, empty when none
    bool muted = false;
    qint64 photoFileId = 0;
    qint64 order = 0;
    bool pinned = false;
    int unread = 0;
    bool hasLast = false;
    DemoMessage last;
    qint64 lastReadOutbox = 0;
};

// What "chat_info" tells about a chat.
struct DemoChatDetails
{
    qint64 chatId = 0;
    QString about;
    QString username;
    QString link;
    QString phone;
    qint64 memberCount = 0;
    qint64 userId = 0;
    bool member = false;
    bool canSend = false;
    bool reactionsAll = false;
    QStringList reactions;
};

namespace demo_event {

QJsonObject backend_ready(bool pong);
QJsonObject td_closed();
QJsonObject auth_state(const QString &state);
QJsonObject need(const QString &what);
QJsonObject code_info(const QString &delivery, const QString &phone, int length);
QJsonObject me(qint64 id, const QString &first, const QString &last, const QString &username,
               const QString &phone, qint64 photoFileId);
QJsonObject connection_state(const QString &state);
// A failed request of the service; extra is the request's tag ("@extra").
QJsonObject td_error(const QString &extra, int code, const QString &message);
// An error answer of its own type ("edit_error", "action_error", ...).
QJsonObject error(const QString &type, int code, const QString &message,
                  QJsonObject fields = QJsonObject());

QJsonObject chats_begin();
QJsonObject chats_end();
QJsonObject user(const DemoUser &u, const QString &status, qint64 wasOnline, qint64 expires);
QJsonObject chat(const DemoChatRow &row);
QJsonObject chat_info(const DemoChatDetails &d);
QJsonObject chat_online_count(qint64 chatId, qint64 count);
QJsonObject chat_last_message(qint64 chatId, const DemoMessage *last);
QJsonObject chat_position(qint64 chatId, qint64 order, bool pinned);
QJsonObject chat_unread(qint64 chatId, int count);
QJsonObject chat_read_outbox(qint64 chatId, qint64 messageId);
QJsonObject chat_title(qint64 chatId, const QString &title);
QJsonObject chat_notify(qint64 chatId, bool muted);
QJsonObject chat_mute_toggled(qint64 chatId, bool muted);
// The answers that carry only a chat id: "history_cleared", "chat_joined",
// "chat_left", "chat_deleted", "pinned_none", "pinned_list_begin",
// "pinned_list_end".
QJsonObject chat_event(const char *type, qint64 chatId);

QJsonObject history_begin(qint64 chatId, int gen, bool clear, qint64 from);
QJsonObject message(const DemoMessage &m, int gen);
QJsonObject history_end(qint64 chatId, int gen, bool clear, int count);
QJsonObject history_clear(qint64 chatId, int gen);
QJsonObject pinned_message(const DemoMessage &m);
QJsonObject pinned_list_item(const DemoMessage &m);

QJsonObject message_new(const DemoMessage &m);
QJsonObject send_ok();
QJsonObject message_send_acked(qint64 chatId, qint64 id);
QJsonObject message_send_failed(qint64 chatId, qint64 oldId, int code, const QString &message);
QJsonObject message_send_succeeded(qint64 chatId, qint64 oldId, qint64 newId, qint64 date);
QJsonObject message_update(qint64 chatId, qint64 id, const QString &text, qint64 editDate);
QJsonObject message_reactions(qint64 chatId, qint64 id, const QJsonArray &reactions);
QJsonObject reaction_ok(qint64 chatId, qint64 id, const QString &mode, const QString &emoji);
QJsonObject messages_deleted(qint64 chatId, const QJsonArray &ids);
QJsonObject message_properties(qint64 chatId, qint64 id, const DemoMessageCaps &caps);
QJsonObject hub_notify_message(qint64 chatId, qint64 id, const QString &title, const QString &text);

QJsonObject search_begin(qint64 req);
QJsonObject search_chat(qint64 req, int idx, const DemoChat &c, const QString &title);
QJsonObject search_end(qint64 req, int count);
QJsonObject tg_resolve(const QString &username, const DemoChat &c, const QString &title);

QJsonObject file_progress(qint64 fileId, qint64 downloaded, qint64 total);
QJsonObject file(qint64 fileId, const QString &path, qint64 size);

QJsonObject call_update(qint64 callId, qint64 userId, bool outgoing, const QString &state);
QJsonObject call_signaling(qint64 callId, int b64Length);

} // namespace demo_event
