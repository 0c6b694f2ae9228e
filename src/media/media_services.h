#pragma once

#include "platform/invoker.h"
#include "platform/toaster.h"

#include <QString>

#include <functional>

// What the media classes need from the rest of the client. The command line
// and the log come in as callbacks so that media does not depend on the
// link's classes.
struct MediaServices
{
    // One command line to the backend (no line break).
    std::function<void(const QString &)> sendLine;
    // The in-app log; lines end with "\n".
    std::function<void(const QString &)> appendLog;
    Toaster *toaster = nullptr;
    Invoker *invoker = nullptr;

    void log(const QString &line) const
    {
        if (appendLog)
            appendLog(line);
    }
    void toast(const QString &text) const
    {
        if (toaster)
            toaster->showToast(text);
    }
    void send(const QString &line) const
    {
        if (sendLine)
            sendLine(line);
    }
};
