#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>

class QFileDialog;
class QWidget;

// The system file picker: a non-blocking Qt file dialog that offers the
// shared folders (downloads, documents, photos, music, videos, misc) in its
// side bar and starts in the first of them. finished() carries the chosen
// files, or nothing when the user cancelled. Tests answer it with
// finishWith(), as they answer the other system dialogs.
class FilePicker : public QObject
{
    Q_OBJECT
public:
    explicit FilePicker(QWidget *parent = nullptr);
    ~FilePicker() override;

    void setTitle(const QString &title) { m_title = title; }
    QString title() const { return m_title; }
    // Folders that do not exist are left out.
    void setDirectories(const QStringList &folders) { m_folders = folders; }
    QStringList directories() const { return m_folders; }

    // Opens the dialog; a picker already open is brought forward.
    void show();
    bool isOpen() const;
    // Ends the dialog as if the user had chosen paths (none: cancelled).
    void finishWith(const QStringList &paths);

Q_SIGNALS:
    void finished(const QStringList &paths);

private:
    QWidget *m_parent = nullptr;
    QString m_title;
    QStringList m_folders;
    QPointer<QFileDialog> m_dialog;
};
