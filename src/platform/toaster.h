#pragma once

#include <QString>
#include <QStringList>

// Shows one short message to the user.
class Toaster
{
public:
    virtual ~Toaster();
    virtual void showToast(const QString &text) = 0;
};

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
