#include "demo_events.h"

#include "command_args.h"

#include <QJsonDocument>

namespace {

QJsonObject typed(const char *type)
{
    QJsonObject o;
    o.insert(QStringLiteral("type"), QLatin1String(type));
    return o;
}

QJsonObject withChat(const char *type, qint64 chatId)
{
    QJsonObject o = typed(type);
    o.insert(QStringLiteral("chat_id"), chatId);
    return o;
}

} // namespace

QJsonObject demo_message_json(const DemoMessage &m)
{
    QJsonObject o;
    o.insert(QStringLiteral("chat_id"), m.chatId);
    o.insert(QStringLiteral("id"), m.id);
    o.insert(QStringLiteral("date"), m.date);
    o.insert(QStringLiteral("outgoing"), m.outgoing);
    if (!m.sendingState.isEmpty())
        o.insert(QStringLiteral("sending_state"), m.sendingState);
    o.insert(QStringLiteral("content_type"), m.contentType);
    o.insert(QStringLiteral("text"), m.text);
    o.insert(QStringLiteral("sender_user_id"), m.senderUserId);
    o.insert(QStringLiteral("sender_name"), m.senderName);
    o.insert(QStringLiteral("sender_photo_small_id"), m.senderPhotoId);
    if (m.replyTo > 0)
        o.insert(QStringLiteral("reply_to_message_id"), m.replyTo);
    if (!m.forwarded.isEmpty())
        o.insert(QStringLiteral("forwarded"), m.forwarded);
    if (!m.mediaType.isEmpty()) {
        o.insert(QStringLiteral("media_type"), m.mediaType);
        if (!m.mediaName.isEmpty())
            o.insert(QStringLiteral("media_name"), m.mediaName);
        o.insert(QStringLiteral("media_size"), m.mediaSize);
        if (m.mediaW > 0)
            o.insert(QStringLiteral("media_w"), m.mediaW);
        if (m.mediaH > 0)
            o.insert(QStringLiteral("media_h"), m.mediaH);
        if (m.mediaDuration > 0)
            o.insert(QStringLiteral("media_duration"), m.mediaDuration);
        o.insert(QStringLiteral("media_file_id"), m.mediaFileId);
        if (m.thumbFileId > 0)
            o.insert(QStringLiteral("media_thumb_file_id"), m.thumbFileId);
    }
    if (m.editDate > 0)
        o.insert(QStringLiteral("edit_date"), m.editDate);
    if (!m.reactions.isEmpty())
        o.insert(QStringLiteral("reactions"), m.reactions);
    return o;
}

DemoMessage demo_message_from_json(const QJsonObject &o)
{
    DemoMessage m;
    auto i64 = [&o](const char *k) { return qint64(o.value(QLatin1String(k)).toDouble()); };
    auto str = [&o](const char *k) { return o.value(QLatin1String(k)).toString(); };
    m.chatId = i64("chat_id");
    m.id = i64("id");
    m.date = i64("date");
    m.outgoing = o.value(QStringLiteral("outgoing")).toBool();
    m.sendingState = str("sending_state");
    m.contentType = str("content_type");
    m.text = str("text");
    m.senderUserId = i64("sender_user_id");
    m.senderName = str("sender_name");
    m.senderPhotoId = i64("sender_photo_small_id");
    m.replyTo = i64("reply_to_message_id");
    m.forwarded = str("forwarded");
    m.mediaType = str("media_type");
    m.mediaName = str("media_name");
    m.mediaSize = i64("media_size");
    m.mediaW = int(i64("media_w"));
    m.mediaH = int(i64("media_h"));
    m.mediaDuration = int(i64("media_duration"));
    m.mediaFileId = i64("media_file_id");
    m.thumbFileId = i64("media_thumb_file_id");
    m.editDate = i64("edit_date");
    m.reactions = o.value(QStringLiteral("reactions")).toArray();
    return m;
}

namespace demo_event {

QJsonObject backend_ready(bool pong)
{
    QJsonObject o = typed("backend_ready");
    o.insert(QStringLiteral("name"), QStringLiteral("demo"));
    if (pong)
        o.insert(QStringLiteral("pong"), true);
    return o;
}

QJsonObject td_closed()
{
    return typed("td_closed");
}

QJsonObject auth_state(const QString &state)
{
    QJsonObject o = typed("auth_state");
    o.insert(QStringLiteral("state"), state);
    return o;
}

QJsonObject need(const QString &what)
{
    QJsonObject o = typed("need");
    o.insert(QStringLiteral("what"), what);
    return o;
}

QJsonObject code_info(const QString &delivery, const QString &phone, int length)
{
    QJsonObject o = typed("code_info");
    o.insert(QStringLiteral("delivery"), delivery);
    o.insert(QStringLiteral("phone"), phone);
    o.insert(QStringLiteral("length"), length);
    return o;
}

QJsonObject me(qint64 id, const QString &first, const QString &last, const QString &username,
               const QString &phone, qint64 photoFileId)
{
    QJsonObject o = typed("me");
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("first_name"), first);
    o.insert(QStringLiteral("last_name"), last);
    o.insert(QStringLiteral("username"), username);
    o.insert(QStringLiteral("phone"), phone);
    o.insert(QStringLiteral("photo_small_id"), photoFileId);
    return o;
}

QJsonObject connection_state(const QString &state)
{
    QJsonObject o = typed("connection_state");
    o.insert(QStringLiteral("state"), state);
    return o;
}

QJsonObject td_error(const QString &extra, int code, const QString &message)
{
    return backend_td_error_event(extra, code, message);
}

QJsonObject error(const QString &type, int code, const QString &message, QJsonObject fields)
{
    fields.insert(QStringLiteral("type"), type);
    fields.insert(QStringLiteral("code"), code);
    fields.insert(QStringLiteral("message"), message);
    return fields;
}

QJsonObject chats_begin()
{
    return typed("chats_begin");
}

QJsonObject chats_end()
{
    return typed("chats_end");
}

QJsonObject user(const DemoUser &u, const QString &status, qint64 wasOnline, qint64 expires)
{
    QJsonObject o = typed("user");
    o.insert(QStringLiteral("id"), u.id);
    o.insert(QStringLiteral("name"), u.displayName());
    o.insert(QStringLiteral("first_name"), u.firstName);
    o.insert(QStringLiteral("last_name"), u.lastName);
    o.insert(QStringLiteral("username"), u.username);
    o.insert(QStringLiteral("photo_small_id"), u.photoFileId);
    o.insert(QStringLiteral("status_type"), status);
    o.insert(QStringLiteral("was_online"), wasOnline);
    o.insert(QStringLiteral("expires"), expires);
    return o;
}

QJsonObject chat(const DemoChatRow &row)
{
    QJsonObject o = typed("chat");
    o.insert(QStringLiteral("id"), row.id);
    o.insert(QStringLiteral("title"), row.title);
    o.insert(QStringLiteral("chat_type"), row.type);
    if (!row.username.isEmpty())
        o.insert(QStringLiteral("username"), row.username);
    o.insert(QStringLiteral("muted_known"), true);
    o.insert(QStringLiteral("muted"), row.muted);
    if (row.photoFileId > 0)
        o.insert(QStringLiteral("photo_small_id"), row.photoFileId);
    o.insert(QStringLiteral("order"), QString::number(row.order));
    o.insert(QStringLiteral("pinned"), row.pinned);
    o.insert(QStringLiteral("unread_count"), row.unread);
    if (row.hasLast) {
        o.insert(QStringLiteral("last_text"), row.last.text);
        o.insert(QStringLiteral("last_content_type"), row.last.contentType);
        o.insert(QStringLiteral("last_date"), row.last.date);
        o.insert(QStringLiteral("last_message_id"), row.last.id);
        o.insert(QStringLiteral("last_outgoing"), row.last.outgoing);
    }
    o.insert(QStringLiteral("last_read_outbox_message_id"), row.lastReadOutbox);
    return o;
}

QJsonObject chat_info(const DemoChatDetails &d)
{
    QJsonObject o = withChat("chat_info", d.chatId);
    o.insert(QStringLiteral("about"), d.about);
    o.insert(QStringLiteral("username"), d.username);
    o.insert(QStringLiteral("link"), d.link);
    o.insert(QStringLiteral("phone"), d.phone);
    o.insert(QStringLiteral("member_count"), d.memberCount);
    o.insert(QStringLiteral("user_id"), d.userId);
    o.insert(QStringLiteral("is_member"), d.member);
    o.insert(QStringLiteral("can_send"), d.canSend);
    o.insert(QStringLiteral("available_reactions_all"), d.reactionsAll);
    o.insert(QStringLiteral("available_reactions"), QJsonArray::fromStringList(d.reactions));
    return o;
}

QJsonObject chat_online_count(qint64 chatId, qint64 count)
{
    QJsonObject o = withChat("chat_online_count", chatId);
    o.insert(QStringLiteral("count"), count);
    return o;
}

QJsonObject chat_last_message(qint64 chatId, const DemoMessage *last)
{
    QJsonObject o = withChat("chat_last_message", chatId);
    if (last) {
        o.insert(QStringLiteral("message_id"), last->id);
        o.insert(QStringLiteral("date"), last->date);
        o.insert(QStringLiteral("content_type"), last->contentType);
        o.insert(QStringLiteral("text"), last->text);
        o.insert(QStringLiteral("outgoing"), last->outgoing);
    } else {
        o.insert(QStringLiteral("message_id"), 0);
        o.insert(QStringLiteral("content_type"), QString());
        o.insert(QStringLiteral("text"), QString());
        o.insert(QStringLiteral("outgoing"), false);
    }
    return o;
}

QJsonObject chat_position(qint64 chatId, qint64 order, bool pinned)
{
    QJsonObject o = withChat("chat_position", chatId);
    o.insert(QStringLiteral("order"), QString::number(order));
    o.insert(QStringLiteral("pinned"), pinned);
    return o;
}

QJsonObject chat_unread(qint64 chatId, int count)
{
    QJsonObject o = withChat("chat_unread", chatId);
    o.insert(QStringLiteral("unread_count"), count);
    return o;
}

QJsonObject chat_read_outbox(qint64 chatId, qint64 messageId)
{
    QJsonObject o = withChat("chat_read_outbox", chatId);
    o.insert(QStringLiteral("last_read_outbox_message_id"), messageId);
    return o;
}

QJsonObject chat_title(qint64 chatId, const QString &title)
{
    QJsonObject o = withChat("chat_title", chatId);
    o.insert(QStringLiteral("title"), title);
    return o;
}

QJsonObject chat_notify(qint64 chatId, bool muted)
{
    QJsonObject o = withChat("chat_notify", chatId);
    o.insert(QStringLiteral("muted_known"), true);
    o.insert(QStringLiteral("muted"), muted);
    return o;
}

QJsonObject chat_mute_toggled(qint64 chatId, bool muted)
{
    QJsonObject o = withChat("chat_mute_toggled", chatId);
    o.insert(QStringLiteral("muted"), muted);
    return o;
}

QJsonObject chat_event(const char *type, qint64 chatId)
{
    return withChat(type, chatId);
}

QJsonObject history_begin(qint64 chatId, int gen, bool clear, qint64 from)
{
    QJsonObject o = withChat("history_begin", chatId);
    o.insert(QStringLiteral("gen"), gen);
    o.insert(QStringLiteral("clear"), clear);
    o.insert(QStringLiteral("from_message_id"), from);
    return o;
}

QJsonObject message(const DemoMessage &m, int gen)
{
    QJsonObject o = demo_message_json(m);
    o.insert(QStringLiteral("type"), QStringLiteral("message"));
    o.insert(QStringLiteral("gen"), gen);
    return o;
}

QJsonObject history_end(qint64 chatId, int gen, bool clear, int count)
{
    QJsonObject o = withChat("history_end", chatId);
    o.insert(QStringLiteral("gen"), gen);
    o.insert(QStringLiteral("clear"), clear);
    o.insert(QStringLiteral("count"), count);
    return o;
}

QJsonObject history_clear(qint64 chatId, int gen)
{
    QJsonObject o = withChat("history_clear", chatId);
    o.insert(QStringLiteral("gen"), gen);
    return o;
}

namespace {

// A pinned message as the bar and the list both take it.
QJsonObject pinned(const char *type, const DemoMessage &m)
{
    QJsonObject o = withChat(type, m.chatId);
    o.insert(QStringLiteral("id"), m.id);
    o.insert(QStringLiteral("text"), m.text);
    o.insert(QStringLiteral("content_type"), m.contentType);
    return o;
}

} // namespace

QJsonObject pinned_message(const DemoMessage &m)
{
    return pinned("pinned_message", m);
}

QJsonObject pinned_list_item(const DemoMessage &m)
{
    return pinned("pinned_list_item", m);
}

QJsonObject message_new(const DemoMessage &m)
{
    QJsonObject o = demo_message_json(m);
    o.insert(QStringLiteral("type"), QStringLiteral("message_new"));
    return o;
}

QJsonObject send_ok()
{
    return typed("send_ok");
}

QJsonObject message_send_acked(qint64 chatId, qint64 id)
{
    QJsonObject o = withChat("message_send_acked", chatId);
    o.insert(QStringLiteral("id"), id);
    return o;
}

QJsonObject message_send_failed(qint64 chatId, qint64 oldId, int code, const QString &message)
{
    QJsonObject o = withChat("message_send_failed", chatId);
    o.insert(QStringLiteral("old_id"), oldId);
    o.insert(QStringLiteral("error_code"), code);
    o.insert(QStringLiteral("error_message"), message);
    return o;
}

QJsonObject message_send_succeeded(qint64 chatId, qint64 oldId, qint64 newId, qint64 date)
{
    QJsonObject o = withChat("message_send_succeeded", chatId);
    o.insert(QStringLiteral("old_id"), oldId);
    o.insert(QStringLiteral("new_id"), newId);
    o.insert(QStringLiteral("date"), date);
    return o;
}

QJsonObject message_update(qint64 chatId, qint64 id, const QString &text, qint64 editDate)
{
    QJsonObject o = withChat("message_update", chatId);
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("text"), text);
    o.insert(QStringLiteral("edit_date"), editDate);
    return o;
}

QJsonObject message_reactions(qint64 chatId, qint64 id, const QJsonArray &reactions)
{
    QJsonObject o = withChat("message_reactions", chatId);
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("reactions"), reactions);
    return o;
}

QJsonObject reaction_ok(qint64 chatId, qint64 id, const QString &mode, const QString &emoji)
{
    QJsonObject o = withChat("reaction_ok", chatId);
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("mode"), mode);
    o.insert(QStringLiteral("emoji"), emoji);
    return o;
}

QJsonObject messages_deleted(qint64 chatId, const QJsonArray &ids)
{
    QJsonObject o = withChat("messages_deleted", chatId);
    o.insert(QStringLiteral("message_ids"), ids);
    return o;
}

QJsonObject message_properties(qint64 chatId, qint64 id, const DemoMessageCaps &caps)
{
    QJsonObject o = withChat("message_properties", chatId);
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("can_be_deleted_only_for_self"), caps.deleteOnlyForSelf);
    o.insert(QStringLiteral("can_be_deleted_for_all_users"), caps.deleteForAll);
    o.insert(QStringLiteral("can_be_edited"), caps.edit);
    o.insert(QStringLiteral("can_be_forwarded"), caps.forward);
    o.insert(QStringLiteral("can_be_replied"), caps.reply);
    o.insert(QStringLiteral("can_be_copied"), caps.copy);
    return o;
}

QJsonObject hub_notify_message(qint64 chatId, qint64 id, const QString &title, const QString &text)
{
    QJsonObject o = withChat("hub_notify_message", chatId);
    o.insert(QStringLiteral("id"), id);
    o.insert(QStringLiteral("title"), title);
    o.insert(QStringLiteral("text"), text);
    return o;
}

QJsonObject search_begin(qint64 req)
{
    QJsonObject o = typed("search_begin");
    o.insert(QStringLiteral("req"), req);
    return o;
}

QJsonObject search_chat(qint64 req, int idx, const DemoChat &c, const QString &title)
{
    QJsonObject o = typed("search_chat");
    o.insert(QStringLiteral("req"), req);
    o.insert(QStringLiteral("idx"), idx);
    o.insert(QStringLiteral("id"), c.id);
    o.insert(QStringLiteral("title"), title);
    o.insert(QStringLiteral("chat_type"), c.type);
    o.insert(QStringLiteral("photo_small_id"), c.photoFileId);
    return o;
}

QJsonObject search_end(qint64 req, int count)
{
    QJsonObject o = typed("search_end");
    o.insert(QStringLiteral("req"), req);
    o.insert(QStringLiteral("count"), count);
    return o;
}

QJsonObject tg_resolve(const QString &username, const DemoChat &c, const QString &title)
{
    QJsonObject o = withChat("tg_resolve", c.id);
    o.insert(QStringLiteral("username"), username);
    o.insert(QStringLiteral("title"), title);
    o.insert(QStringLiteral("chat_type"), c.type);
    o.insert(QStringLiteral("photo_small_id"), c.photoFileId);
    return o;
}

QJsonObject file_progress(qint64 fileId, qint64 downloaded, qint64 total)
{
    QJsonObject o = typed("file_progress");
    o.insert(QStringLiteral("id"), fileId);
    o.insert(QStringLiteral("downloaded"), downloaded);
    o.insert(QStringLiteral("total"), total);
    return o;
}

QJsonObject file(qint64 fileId, const QString &path, qint64 size)
{
    QJsonObject o = typed("file");
    o.insert(QStringLiteral("id"), fileId);
    o.insert(QStringLiteral("path"), path);
    o.insert(QStringLiteral("size"), size);
    return o;
}

QJsonObject call_update(qint64 callId, qint64 userId, bool outgoing, const QString &state)
{
    QJsonObject o = typed("call_update");
    o.insert(QStringLiteral("call_id"), callId);
    o.insert(QStringLiteral("user_id"), userId);
    o.insert(QStringLiteral("outgoing"), outgoing);
    o.insert(QStringLiteral("state"), state);
    return o;
}

QJsonObject call_signaling(qint64 callId, int b64Length)
{
    QJsonObject o = typed("call_signaling");
    o.insert(QStringLiteral("call_id"), callId);
    o.insert(QStringLiteral("b64_len"), b64Length);
    return o;
}

} // namespace demo_event
