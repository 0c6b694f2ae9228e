#include "shell/window_state.h"

#include <QSettings>

QString window_state_path(const QString &dataDir)
{
    return dataDir + QStringLiteral("/ui_window.ini");
}

bool read_window_state(const QString &path, WindowState *state)
{
    QSettings settings(path, QSettings::IniFormat);
    const QSize size = settings.value(QStringLiteral("window/size")).toSize();
    if (!state || !size.isValid() || size.width() < 100 || size.height() < 100 ||
        size.width() > 20000 || size.height() > 20000)
        return false;
    state->size = size;
    state->hasPos = settings.contains(QStringLiteral("window/pos"));
    state->pos = settings.value(QStringLiteral("window/pos")).toPoint();
    state->maximized = settings.value(QStringLiteral("window/maximized")).toBool();
    state->leftPane = qBound(0, settings.value(QStringLiteral("window/left_pane")).toInt(), 20000);
    return true;
}

bool write_window_state(const QString &path, const WindowState &state, QString *error)
{
    QSettings settings(path, QSettings::IniFormat);
    settings.setValue(QStringLiteral("window/size"), state.size);
    if (state.hasPos)
        settings.setValue(QStringLiteral("window/pos"), state.pos);
    else
        settings.remove(QStringLiteral("window/pos"));
    settings.setValue(QStringLiteral("window/maximized"), state.maximized);
    settings.setValue(QStringLiteral("window/left_pane"), state.leftPane);
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        if (error)
            *error = QStringLiteral("cannot write ") + path;
        return false;
    }
    return true;
}

QSize first_window_size(const QSize &phone, const QRect &available)
{
    if (available.isEmpty() || phone.isEmpty())
        return phone;
    const int width = qMin(available.width() * 9 / 10, qMax(phone.width(), phone.height() * 3 / 2));
    return QSize(qMax(phone.width(), width), phone.height());
}
