#pragma once

#include "platform/toaster.h"

#include <QStringList>

// Keeps every toast text, oldest first, for tests.
class RecordingToaster : public Toaster
{
public:
    void showToast(const QString &text) override { m_shown.append(text); }
    const QStringList &shown() const { return m_shown; }
    QString last() const { return m_shown.isEmpty() ? QString() : m_shown.last(); }
    void clear() { m_shown.clear(); }

private:
    QStringList m_shown;
};
