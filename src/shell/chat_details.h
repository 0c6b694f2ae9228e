#pragma once

#include <QString>

// What the chat information page shows. Empty texts hide their rows.
struct ChatDetails
{
    qint64 id = 0;
    QString title;
    QString kind;
    // The chat's round photo; empty: the first-letter tile.
    QString avatarPath;
    QString about;
    // "@name" when the chat is public.
    QString username;
    QString phone;
    // "Members" or "Subscribers" with its count; both empty for private chats.
    QString membersCaption;
    QString members;
    QString online;
    // The public link, or the words saying there is none.
    QString link;
    QString inviteLink;
    QString notifications;
    // Channel history belongs to the channel: nobody clears it for themselves.
    bool canClearHistory = true;
    bool canJoin = false;
    bool canLeave = false;
    // The chat has a public username.
    bool canCopyLink = false;
};
