#include "common/test_util.h"
#include "platform/ui/file_picker.h"

#include <QFileDialog>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestFilePicker : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // The user picks a file (cancelling is Qt's reject: no file).
    void picksAFile()
    {
        QTemporaryDir dir;
        const QString docs = dir.filePath("documents");
        const QString photos = dir.filePath("photos");
        const QString file = docs + "/report.txt";
        QVERIFY(test_util::writeFile(file, "x") && QDir().mkpath(photos));

        QWidget host;
        FilePicker picker(&host);
        picker.setDirectories({docs, dir.filePath("missing"), photos});
        QSignalSpy done(&picker, &FilePicker::finished);
        picker.show();
        auto *dialog = host.findChild<QFileDialog *>();
        QVERIFY(dialog && picker.isOpen());
        // Only folders that exist are offered; the first is where it opens.
        QCOMPARE(dialog->sidebarUrls(),
                 (QList<QUrl>{QUrl::fromLocalFile(docs), QUrl::fromLocalFile(photos)}));
        QCOMPARE(QDir(dialog->directory()).canonicalPath(), QDir(docs).canonicalPath());
        picker.show(); // a second request brings the same dialog forward
        QCOMPARE(host.findChildren<QFileDialog *>().size(), 1);

        dialog->selectFile(file);
        QMetaObject::invokeMethod(dialog, "accept");
        QCOMPARE(done.size(), 1);
        const QStringList got = done.first().first().toStringList();
        QCOMPARE(QFileInfo(got.value(0)).canonicalFilePath(), QFileInfo(file).canonicalFilePath());
        QVERIFY(!picker.isOpen());
    }
};

QTEST_MAIN(TestFilePicker)
#include "test_file_picker.moc"
