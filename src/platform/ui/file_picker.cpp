#include "platform/ui/file_picker.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QUrl>

FilePicker::FilePicker(QWidget *parent) : QObject(parent), m_parent(parent) {}

FilePicker::~FilePicker()
{
    delete m_dialog;
}

void FilePicker::show()
{
    if (m_dialog) {
        m_dialog->raise();
        m_dialog->activateWindow();
        return;
    }
    QList<QUrl> side;
    for (const QString &f : m_folders) {
        if (QFileInfo(f).isDir())
            side << QUrl::fromLocalFile(f);
    }
    // Qt's own dialog: the same on every desktop, and it needs no portal.
    auto *dialog = new QFileDialog(m_parent, m_title);
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    if (!side.isEmpty()) {
        dialog->setSidebarUrls(side);
        dialog->setDirectory(side.first().toLocalFile());
    }
    connect(dialog, &QFileDialog::finished, this, [this, dialog](int result) {
        const QStringList chosen =
            result == QDialog::Accepted ? dialog->selectedFiles() : QStringList();
        if (m_dialog == dialog)
            m_dialog = nullptr;
        Q_EMIT finished(chosen);
    });
    m_dialog = dialog;
    dialog->open();
}

bool FilePicker::isOpen() const
{
    return m_dialog && m_dialog->isVisible();
}

void FilePicker::finishWith(const QStringList &paths)
{
    if (m_dialog) {
        QFileDialog *dialog = m_dialog;
        m_dialog = nullptr;
        dialog->disconnect(this);
        dialog->close();
    }
    Q_EMIT finished(paths);
}
