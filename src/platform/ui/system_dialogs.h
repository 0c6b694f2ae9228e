#pragma once

#include <QList>
#include <QStringList>
#include <QWidget>

class QCheckBox;
class QFrame;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QVBoxLayout;

// How a system dialog ended, as the numbers the phone uses: 2 is the
// confirm button.
struct SystemUiResult
{
    enum Type
    {
        None = 0,                   // closed by the program (see cancel()) or never finished
        Error = 1,                  // could not be shown
        ConfirmButtonSelection = 2, // confirm button, Enter, or a pick in a single-choice list
        CancelButtonSelection = 3,  // cancel button, Escape
        CustomButtonSelection = 4,  // the optional third button
    };
};

// The common part of the non-blocking system dialogs. Shown over its parent
// widget (the phone screen) as a dimmed overlay with a centred panel, or as
// a window of its own without a parent. Callers keep it in a QPointer,
// connect finished(), and may store state as dynamic properties on it.
class SystemUiDialog : public QWidget
{
    Q_OBJECT
public:
    explicit SystemUiDialog(QWidget *parent = nullptr);

    void setTitle(const QString &text);
    QString title() const { return m_title; }
    void setBody(const QString &text);
    QString body() const { return m_body; }
    void setConfirmLabel(const QString &text);
    QString confirmLabel() const { return m_confirm; }
    // An empty cancel label hides the cancel button.
    void setCancelLabel(const QString &text);
    QString cancelLabel() const { return m_cancel; }
    // A non-empty label adds a third button (result 4).
    void setCustomLabel(const QString &text);
    QString customLabel() const { return m_custom; }

    // Shows the dialog and arms finished() for one emission.
    void show();
    // Closes without a finished() signal; the caller has moved on.
    void cancel();
    // Ends the dialog as if the user had chosen result; emits finished()
    // once per show(). Tests use it to answer dialogs.
    void finishWith(int result);
    int result() const { return m_result; }
    bool isOpen() const { return m_open; }

Q_SIGNALS:
    void finished(int result);

protected:
    // Subclasses add their controls to this layout, between body and buttons.
    QVBoxLayout *contentLayout() const { return m_content; }
    // Called just before finished() so subclasses can read their controls.
    virtual void collect() {}
    // The control that takes the keyboard when the dialog opens.
    virtual QWidget *initialFocus() { return this; }
    void keyPressEvent(QKeyEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void refreshButtons();
    void fitToParent();

    QString m_title, m_body, m_confirm, m_cancel, m_custom;
    QFrame *m_panel = nullptr;
    QLabel *m_titleLabel = nullptr;
    QLabel *m_bodyLabel = nullptr;
    QVBoxLayout *m_content = nullptr;
    QPushButton *m_confirmButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
    QPushButton *m_customButton = nullptr;
    bool m_open = false;
    bool m_armed = true;
    int m_result = SystemUiResult::None;
};

// Title, body, confirm and cancel, and an optional check box (for choices
// such as "Delete for everyone").
class SystemDialog : public SystemUiDialog
{
    Q_OBJECT
public:
    explicit SystemDialog(QWidget *parent = nullptr);
    SystemDialog(const QString &confirmLabel, const QString &cancelLabel,
                 QWidget *parent = nullptr);

    // A non-empty text shows the check box.
    void setRememberMeText(const QString &text);
    QString rememberMeText() const;
    void setRememberMeChecked(bool checked);
    bool rememberMeChecked() const;

private:
    QCheckBox *m_remember = nullptr;
};

// A list to choose from. In single choice a tap on an item finishes the
// dialog with result 2; in multiple choice items are checked and the
// confirm button finishes it.
class SystemListDialog : public SystemUiDialog
{
    Q_OBJECT
public:
    enum SelectionMode
    {
        Single,
        Multiple
    };
    explicit SystemListDialog(QWidget *parent = nullptr);

    void setSelectionMode(SelectionMode mode);
    SelectionMode selectionMode() const { return m_mode; }
    void setItems(const QStringList &items);
    void appendItem(const QString &item);
    void clearList();
    QStringList items() const { return m_items; }
    // Indices out of range are dropped; in single choice only the first is kept.
    void setSelectedIndices(const QList<int> &indices);
    QList<int> selectedIndices() const;
    QListWidget *listWidget() const { return m_list; }

protected:
    void collect() override;

private:
    void rebuild();
    SelectionMode m_mode = Single;
    QStringList m_items;
    QList<int> m_selected;
    QListWidget *m_list = nullptr;
    bool m_rebuilding = false;
};

// A one-line text prompt.
class SystemPrompt : public SystemUiDialog
{
    Q_OBJECT
public:
    enum InputMode
    {
        Default,
        Password,
        Url,
        Email,
        Phone,
        NumericPunctuation
    };
    explicit SystemPrompt(QWidget *parent = nullptr);

    void setInputMode(InputMode mode);
    InputMode inputMode() const { return m_mode; }
    // The text in the field: set before show(), read in the finished handler.
    void setInputText(const QString &text);
    QString inputText() const;
    void setPlaceholderText(const QString &text);
    // 0: no limit.
    void setMaximumLength(int characters);
    QLineEdit *inputField() const { return m_input; }

protected:
    QWidget *initialFocus() override;

private:
    InputMode m_mode = Default;
    QLineEdit *m_input = nullptr;
};
