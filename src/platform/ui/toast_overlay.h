#pragma once

#include "platform/toaster.h"

#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QWidget>

class QTimer;

// A toast as a short message floating over the lower part of a host widget
// (the phone screen). A new toast replaces the one showing.
class ToastOverlay : public QObject, public Toaster
{
    Q_OBJECT
public:
    static constexpr int DefaultDurationMs = 2500;

    explicit ToastOverlay(QWidget *host, QObject *parent = nullptr);
    ~ToastOverlay() override;

    void showToast(const QString &text) override;

    void setDuration(int ms);
    bool isShowing() const;
    QString currentText() const;
    // The label, for looks and tests; its object name is "toast".
    QLabel *label() const { return m_label; }

private:
    void place();
    bool eventFilter(QObject *watched, QEvent *event) override;

    QPointer<QWidget> m_host;
    QPointer<QLabel> m_label;
    QTimer *m_timer = nullptr;
};
