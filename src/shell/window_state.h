#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>

// The main window as the user left it: its normal size and place, whether it
// was maximised, and the chat list's width in the wide layout (design pixels).
struct WindowState
{
    QSize size;
    QPoint pos;
    bool hasPos = false;
    bool maximized = false;
    int leftPane = 0;
};

// "ui_window.ini" in the data folder.
QString window_state_path(const QString &dataDir);

// False when nothing usable was saved (no file, or no valid size).
bool read_window_state(const QString &path, WindowState *state);
bool write_window_state(const QString &path, const WindowState &state, QString *error);

// The first window size when nothing was saved: the phone's height and room
// for the list beside the chat (one and a half times as wide as high), within
// nine tenths of the available width; the phone itself when available is
// empty or too narrow for more.
QSize first_window_size(const QSize &phone, const QRect &available);
