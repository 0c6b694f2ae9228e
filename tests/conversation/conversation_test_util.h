#pragma once

#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "conversation/chat_session.h"
#include "conversation/message_row_model.h"
#include "platform/array_data_model.h"

#include <QStringList>
#include <QVariantMap>

// "message_new chat_id=5 id=7 text=hi~there" -> an event map: the first word
// is the type, "~" stands for a blank inside a value, "ids=1,2,3" gives a
// list and "reactions=👍:2:1,🔥:1:0" reaction chips (emoji:count:chosen).
inline QVariantMap ev(const QString &text)
{
    const QStringList words = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    QVariantMap e;
    if (words.isEmpty()) {
        return e;
    }
    e.insert(QStringLiteral("type"), words.first());
    for (int i = 1; i < words.size(); ++i) {
        const int eq = words.at(i).indexOf(QLatin1Char('='));
        const QString key = words.at(i).left(eq);
        QString value = words.at(i).mid(eq + 1);
        value.replace(QLatin1Char('~'), QLatin1Char(' '));
        if (key == QLatin1String("message_ids")) {
            QVariantList ids;
            for (const QString &id : value.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
                ids.append(id.toLongLong());
            }
            e.insert(key, ids);
        } else if (key == QLatin1String("reactions")) {
            QVariantList chips;
            for (const QString &chip : value.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
                const QStringList p = chip.split(QLatin1Char(':'));
                chips.append(
                    QVariantMap{{QStringLiteral("emoji"), p.value(0)},
                                {QStringLiteral("count"), p.value(1).toInt()},
                                {QStringLiteral("chosen"), p.value(2) == QLatin1String("1")}});
            }
            e.insert(key, chips);
        } else {
            e.insert(key, value);
        }
    }
    return e;
}

// Events separated by ";".
inline QList<QVariantMap> evs(const QString &text)
{
    QList<QVariantMap> out;
    for (const QString &part : text.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        out.append(ev(part.trimmed()));
    }
    return out;
}

// The models of an open chat, as the controller builds them: the chat list,
// the message rows and the session over both.
struct OpenChatModels
{
    ArrayDataModel chatRows;
    ChatListModel chats{&chatRows};
    ArrayDataModel rows;
    MessageRowModel messages{&rows, &chats, nullptr};
    ChatSession session{&messages, &chats};

    // Adds a chat row ("id=5|title=Ann|order=30", as test_util::kv reads it) and returns it.
    QVariantMap addChat(const QString &fields)
    {
        const QVariantMap row = test_util::kv(fields);
        chats.upsertChatRow(row);
        return row;
    }
    // Message events as evs() reads them, to the open chat.
    void feed(const QString &events)
    {
        for (const QVariantMap &e : evs(events))
            session.handleMessageEvent(e);
    }
};
