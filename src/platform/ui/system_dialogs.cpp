#include "platform/ui/system_dialogs.h"

#include <QCheckBox>
#include <QEvent>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

// --- SystemUiDialog ---------------------------------------------------------

SystemUiDialog::SystemUiDialog(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("system_dialog"));
    if (!parent)
        setWindowFlags(Qt::Dialog);
    setFocusPolicy(Qt::StrongFocus);

    m_panel = new QFrame(this);
    m_panel->setObjectName(QStringLiteral("dialog_panel"));
    m_panel->setFrameShape(QFrame::StyledPanel);
    m_panel->setAutoFillBackground(true);
    auto *panelLayout = new QVBoxLayout(m_panel);
    panelLayout->setContentsMargins(32, 28, 32, 24);
    panelLayout->setSpacing(20);

    // Sizes are design pixels of the phone screen, not desktop points.
    m_panel->setStyleSheet(
        QStringLiteral("* { font-size: 30px; }"
                       " QLabel#dialog_title { font-size: 36px; font-weight: bold; }"
                       " QCheckBox::indicator { width: 36px; height: 36px; }"
                       " QListWidget::item { padding: 14px 8px; }"));

    m_titleLabel = new QLabel(m_panel);
    m_titleLabel->setObjectName(QStringLiteral("dialog_title"));
    m_titleLabel->setWordWrap(true);
    m_bodyLabel = new QLabel(m_panel);
    m_bodyLabel->setObjectName(QStringLiteral("dialog_body"));
    m_bodyLabel->setWordWrap(true);
    m_bodyLabel->setTextFormat(Qt::PlainText);
    m_titleLabel->setTextFormat(Qt::PlainText);
    panelLayout->addWidget(m_titleLabel);
    panelLayout->addWidget(m_bodyLabel);

    m_content = new QVBoxLayout;
    m_content->setContentsMargins(0, 0, 0, 0);
    panelLayout->addLayout(m_content, 1);

    auto *buttons = new QHBoxLayout;
    buttons->addStretch(1);
    m_customButton = new QPushButton(m_panel);
    m_customButton->setObjectName(QStringLiteral("dialog_custom"));
    m_cancelButton = new QPushButton(m_panel);
    m_cancelButton->setObjectName(QStringLiteral("dialog_cancel"));
    m_confirmButton = new QPushButton(m_panel);
    m_confirmButton->setObjectName(QStringLiteral("dialog_confirm"));
    m_confirmButton->setDefault(true);
    for (QPushButton *b : {m_customButton, m_cancelButton, m_confirmButton})
        b->setMinimumSize(160, 72);
    buttons->addWidget(m_customButton);
    buttons->addWidget(m_cancelButton);
    buttons->addWidget(m_confirmButton);
    panelLayout->addLayout(buttons);

    connect(m_confirmButton, &QPushButton::clicked, this,
            [this] { finishWith(SystemUiResult::ConfirmButtonSelection); });
    connect(m_cancelButton, &QPushButton::clicked, this,
            [this] { finishWith(SystemUiResult::CancelButtonSelection); });
    connect(m_customButton, &QPushButton::clicked, this,
            [this] { finishWith(SystemUiResult::CustomButtonSelection); });

    m_confirm = QStringLiteral("OK");
    m_cancel = QStringLiteral("Cancel");
    m_titleLabel->hide();
    m_bodyLabel->hide();
    refreshButtons();
    if (parent)
        parent->installEventFilter(this);
    QWidget::hide();
}

void SystemUiDialog::setTitle(const QString &text)
{
    m_title = text;
    m_titleLabel->setText(text);
    m_titleLabel->setVisible(!text.isEmpty());
    setWindowTitle(text);
}

void SystemUiDialog::setBody(const QString &text)
{
    m_body = text;
    m_bodyLabel->setText(text);
    m_bodyLabel->setVisible(!text.isEmpty());
}

void SystemUiDialog::setConfirmLabel(const QString &text)
{
    m_confirm = text;
    refreshButtons();
}

void SystemUiDialog::setCancelLabel(const QString &text)
{
    m_cancel = text;
    refreshButtons();
}

void SystemUiDialog::setCustomLabel(const QString &text)
{
    m_custom = text;
    refreshButtons();
}

void SystemUiDialog::refreshButtons()
{
    m_confirmButton->setText(m_confirm);
    m_confirmButton->setVisible(!m_confirm.isEmpty());
    m_cancelButton->setText(m_cancel);
    m_cancelButton->setVisible(!m_cancel.isEmpty());
    m_customButton->setText(m_custom);
    m_customButton->setVisible(!m_custom.isEmpty());
}

void SystemUiDialog::show()
{
    m_open = true;
    m_armed = true;
    m_result = SystemUiResult::None;
    fitToParent();
    QWidget::show();
    raise();
    initialFocus()->setFocus(Qt::OtherFocusReason);
}

void SystemUiDialog::cancel()
{
    m_open = false;
    m_armed = false;
    QWidget::hide();
}

void SystemUiDialog::finishWith(int result)
{
    if (!m_armed)
        return;
    m_armed = false;
    m_open = false;
    m_result = result;
    collect();
    QWidget::hide();
    Q_EMIT finished(result);
}

void SystemUiDialog::fitToParent()
{
    QWidget *p = parentWidget();
    if (p && !isWindow()) {
        setGeometry(p->rect());
        // As wide as on the phone at most, also over a wide window.
        const int w = qMin(qMin(p->width() - 48, qMax(p->width() * 85 / 100, 280)), 640);
        const int maxH = p->height() * 85 / 100;
        int h = m_panel->hasHeightForWidth() ? m_panel->heightForWidth(w)
                                             : m_panel->sizeHint().height();
        h = qMin(qMax(h, m_panel->minimumSizeHint().height()), maxH);
        m_panel->setGeometry((p->width() - w) / 2, (p->height() - h) / 2, w, h);
    } else {
        const QSize hint = m_panel->sizeHint().expandedTo(QSize(480, 0));
        resize(hint);
        m_panel->setGeometry(rect());
    }
}

bool SystemUiDialog::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && event->type() == QEvent::Resize && isVisible())
        fitToParent();
    return QWidget::eventFilter(watched, event);
}

void SystemUiDialog::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        finishWith(SystemUiResult::CancelButtonSelection);
        return;
    }
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && !m_confirm.isEmpty()) {
        finishWith(SystemUiResult::ConfirmButtonSelection);
        return;
    }
    QWidget::keyPressEvent(event);
}

void SystemUiDialog::paintEvent(QPaintEvent *)
{
    // The dimmed backdrop that keeps taps off the screen below.
    if (isWindow())
        return;
    QPainter p(this);
    p.fillRect(rect(), QColor(0, 0, 0, 120));
}

// --- SystemDialog -----------------------------------------------------------

SystemDialog::SystemDialog(QWidget *parent) : SystemUiDialog(parent)
{
    m_remember = new QCheckBox(this);
    m_remember->setObjectName(QStringLiteral("dialog_remember"));
    m_remember->hide();
    contentLayout()->addWidget(m_remember);
}

SystemDialog::SystemDialog(const QString &confirmLabel, const QString &cancelLabel, QWidget *parent)
    : SystemDialog(parent)
{
    setConfirmLabel(confirmLabel);
    setCancelLabel(cancelLabel);
}

void SystemDialog::setRememberMeText(const QString &text)
{
    m_remember->setText(text);
    m_remember->setVisible(!text.isEmpty());
}

QString SystemDialog::rememberMeText() const
{
    return m_remember->text();
}

void SystemDialog::setRememberMeChecked(bool checked)
{
    m_remember->setChecked(checked);
}

bool SystemDialog::rememberMeChecked() const
{
    return m_remember->isChecked();
}

// --- SystemListDialog -------------------------------------------------------

SystemListDialog::SystemListDialog(QWidget *parent) : SystemUiDialog(parent)
{
    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("dialog_list"));
    m_list->setUniformItemSizes(true);
    m_list->setWordWrap(true);
    contentLayout()->addWidget(m_list);
    // Single choice: a tap is the answer.
    connect(m_list, &QListWidget::itemClicked, this, [this](QListWidgetItem *item) {
        if (m_mode != Single || m_rebuilding)
            return;
        m_selected = {m_list->row(item)};
        finishWith(SystemUiResult::ConfirmButtonSelection);
    });
    connect(m_list, &QListWidget::itemChanged, this, [this] {
        if (!m_rebuilding && m_mode == Multiple)
            collect();
    });
    setConfirmLabel(QString());
}

void SystemListDialog::setSelectionMode(SelectionMode mode)
{
    m_mode = mode;
    if (mode == Multiple && confirmLabel().isEmpty())
        setConfirmLabel(QStringLiteral("OK"));
    if (mode == Single && m_selected.size() > 1)
        m_selected = {m_selected.first()};
    rebuild();
}

void SystemListDialog::setItems(const QStringList &items)
{
    m_items = items;
    m_selected.clear();
    rebuild();
}

void SystemListDialog::appendItem(const QString &item)
{
    m_items.append(item);
    rebuild();
}

void SystemListDialog::clearList()
{
    m_items.clear();
    m_selected.clear();
    rebuild();
}

void SystemListDialog::setSelectedIndices(const QList<int> &indices)
{
    m_selected.clear();
    for (int i : indices) {
        if (i >= 0 && i < m_items.size() && !m_selected.contains(i))
            m_selected.append(i);
        if (m_mode == Single && !m_selected.isEmpty())
            break;
    }
    rebuild();
}

QList<int> SystemListDialog::selectedIndices() const
{
    return m_selected;
}

void SystemListDialog::rebuild()
{
    m_rebuilding = true;
    m_list->clear();
    for (int i = 0; i < m_items.size(); ++i) {
        auto *item = new QListWidgetItem(m_items.at(i), m_list);
        if (m_mode == Multiple) {
            item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
            item->setCheckState(m_selected.contains(i) ? Qt::Checked : Qt::Unchecked);
        } else if (m_selected.contains(i)) {
            item->setSelected(true);
        }
    }
    // Tall enough for every item, up to most of the screen; then it scrolls.
    m_list->ensurePolished();
    int h = 2 * m_list->frameWidth();
    for (int i = 0; i < m_list->count() && h < 800; ++i)
        h += m_list->sizeHintForRow(i);
    m_list->setMinimumHeight(qMin(h, 800));
    m_rebuilding = false;
}

void SystemListDialog::collect()
{
    if (m_mode != Multiple)
        return;
    QList<int> sel;
    for (int i = 0; i < m_list->count(); ++i) {
        if (m_list->item(i)->checkState() == Qt::Checked)
            sel.append(i);
    }
    m_selected = sel;
}

// --- SystemPrompt -----------------------------------------------------------

SystemPrompt::SystemPrompt(QWidget *parent) : SystemUiDialog(parent)
{
    m_input = new QLineEdit(this);
    m_input->setObjectName(QStringLiteral("dialog_input"));
    contentLayout()->addWidget(m_input);
    connect(m_input, &QLineEdit::returnPressed, this,
            [this] { finishWith(SystemUiResult::ConfirmButtonSelection); });
}

void SystemPrompt::setInputMode(InputMode mode)
{
    m_mode = mode;
    m_input->setEchoMode(mode == Password ? QLineEdit::Password : QLineEdit::Normal);
    Qt::InputMethodHints hints = Qt::ImhNone;
    switch (mode) {
    case Password:
        hints = Qt::ImhHiddenText | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText;
        break;
    case Url:
        hints = Qt::ImhUrlCharactersOnly;
        break;
    case Email:
        hints = Qt::ImhEmailCharactersOnly;
        break;
    case Phone:
        hints = Qt::ImhDialableCharactersOnly;
        break;
    case NumericPunctuation:
        hints = Qt::ImhFormattedNumbersOnly;
        break;
    case Default:
        break;
    }
    m_input->setInputMethodHints(hints);
}

void SystemPrompt::setInputText(const QString &text)
{
    m_input->setText(text);
}

QString SystemPrompt::inputText() const
{
    return m_input->text();
}

void SystemPrompt::setPlaceholderText(const QString &text)
{
    m_input->setPlaceholderText(text);
}

void SystemPrompt::setMaximumLength(int characters)
{
    m_input->setMaxLength(characters > 0 ? characters : 32767);
}

QWidget *SystemPrompt::initialFocus()
{
    return m_input;
}
