#pragma once

#include <QString>

// What the chat information page shows.
struct ChatDetails
{
    qint64 id = 0;
    QString title;
    QString kind;
    QString members;
    QString link;
    QString notifications;
    bool canJoin = false;
    bool canLeave = false;
    // The chat has a public username.
    bool canCopyLink = false;
};
