#include "platform/folders.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class TestFolders : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void layout_data();
    void layout();
    void userDirsFileIsRead();
    void userDirsParsing_data();
    void userDirsParsing();
    void ensureCreatesFolders();
};

// Every case runs with HOME set to a scratch folder; "@" in an expected path
// stands for that folder.
void TestFolders::layout_data()
{
    QTest::addColumn<QString>("dataDirEnv");
    QTest::addColumn<QString>("sharedDirEnv");
    QTest::addColumn<QString>("xdgDataHome");
    QTest::addColumn<QStringList>("expected"); // data, downloads, misc, documents, photos,
                                               // music, videos, sharedPrefix

    QTest::newRow("xdg defaults") << ""
                                  << ""
                                  << ""
                                  << QStringList{"@/.local/share/vexa",
                                                 "@/Downloads/quillo",
                                                 "@/.config/marlinde",
                                                 "@/Documents",
                                                 "@/Pictures",
                                                 "@/Music",
                                                 "@/Videos",
                                                 "@"};
    QTest::newRow("xdg data home")
        << ""
        << ""
        << "@/xdgdata" << QStringList{"@/xdgdata/vexa",     "@/Downloads/quillo",
                                      "@/.config/marlinde", "@/Documents",
                                      "@/Pictures",         "@/Music",
                                      "@/Videos",           "@"};
    QTest::newRow("relative xdg data home ignored") << ""
                                                    << ""
                                                    << "relative/data"
                                                    << QStringList{"@/.local/share/vexa",
                                                                   "@/Downloads/quillo",
                                                                   "@/.config/marlinde",
                                                                   "@/Documents",
                                                                   "@/Pictures",
                                                                   "@/Music",
                                                                   "@/Videos",
                                                                   "@"};
    QTest::newRow("data dir override")
        << "@/mydata"
        << ""
        << "@/xdgdata" << QStringList{"@/mydata",           "@/Downloads/quillo",
                                      "@/.config/marlinde", "@/Documents",
                                      "@/Pictures",         "@/Music",
                                      "@/Videos",           "@"};
    QTest::newRow("shared dir layout")
        << ""
        << "@/shared"
        << "" << QStringList{"@/.local/share/vexa",    "@/shared/downloads/quillo",
                             "@/shared/misc/marlinde", "@/shared/documents",
                             "@/shared/photos",        "@/shared/music",
                             "@/shared/videos",        "@/shared"};
    QTest::newRow("both overrides, trailing slash cleaned") << "@/d/"
                                                            << "@/s/"
                                                            << ""
                                                            << QStringList{"@/d",
                                                                           "@/s/downloads/quillo",
                                                                           "@/s/misc/marlinde",
                                                                           "@/s/documents",
                                                                           "@/s/photos",
                                                                           "@/s/music",
                                                                           "@/s/videos",
                                                                           "@/s"};
}

void TestFolders::layout()
{
    QFETCH(QString, dataDirEnv);
    QFETCH(QString, sharedDirEnv);
    QFETCH(QString, xdgDataHome);
    QFETCH(QStringList, expected);

    QTemporaryDir home;
    QVERIFY(home.isValid());
    const QString h = home.path();
    auto sub = [&](QString s) { return s.replace(QLatin1Char('@'), h); };

    QProcessEnvironment env;
    env.insert("HOME", h);
    if (!dataDirEnv.isEmpty())
        env.insert("VEXA_DATA_DIR", sub(dataDirEnv));
    if (!sharedDirEnv.isEmpty())
        env.insert("VEXA_SHARED_DIR", sub(sharedDirEnv));
    if (!xdgDataHome.isEmpty())
        env.insert("XDG_DATA_HOME", sub(xdgDataHome));

    const AppFolders f = resolve_app_folders(h + "/app/", env);
    QCOMPARE(f.appDir, h + "/app");
    const QStringList got = {f.dataDir,   f.downloadsDir, f.miscDir,   f.documentsDir,
                             f.photosDir, f.musicDir,     f.videosDir, f.sharedPrefix};
    QStringList want;
    for (const QString &e : expected)
        want << sub(e);
    QCOMPARE(got, want);
}

void TestFolders::userDirsFileIsRead()
{
    QTemporaryDir home;
    QVERIFY(home.isValid());
    const QString h = home.path();
    QVERIFY(QDir().mkpath(h + "/cfg"));
    QFile f(h + "/cfg/user-dirs.dirs");
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("# written by xdg-user-dirs-update\n"
            "XDG_DOWNLOAD_DIR=\"$HOME/Herunterladen\"\n"
            "XDG_PICTURES_DIR=\"$HOME/Bilder\"\n"
            "XDG_MUSIC_DIR=\"/srv/music\"\n");
    f.close();

    QProcessEnvironment env;
    env.insert("HOME", h);
    env.insert("XDG_CONFIG_HOME", h + "/cfg");
    const AppFolders a = resolve_app_folders(QString(), env);
    QCOMPARE(a.downloadsDir, h + "/Herunterladen/quillo");
    QCOMPARE(a.photosDir, h + "/Bilder");
    QCOMPARE(a.musicDir, QStringLiteral("/srv/music"));
    QCOMPARE(a.documentsDir, h + "/Documents");
    QCOMPARE(a.miscDir, h + "/cfg/marlinde");
}

void TestFolders::userDirsParsing_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("home relative") << "XDG_DOWNLOAD_DIR=\"$HOME/Dl\""
                                   << "/h/Dl";
    QTest::newRow("absolute") << "XDG_DOWNLOAD_DIR=\"/data/dl\""
                              << "/data/dl";
    QTest::newRow("blanks around") << "  XDG_DOWNLOAD_DIR = \"/data/dl\"  "
                                   << "/data/dl";
    QTest::newRow("later wins") << "XDG_DOWNLOAD_DIR=\"/a\"\nXDG_DOWNLOAD_DIR=\"/b\""
                                << "/b";
    QTest::newRow("commented") << "#XDG_DOWNLOAD_DIR=\"/a\""
                               << "";
    QTest::newRow("unquoted") << "XDG_DOWNLOAD_DIR=/a"
                              << "";
    QTest::newRow("relative") << "XDG_DOWNLOAD_DIR=\"dl\""
                              << "";
    QTest::newRow("other key") << "XDG_DOWNLOAD_DIRX=\"/a\""
                               << "";
    QTest::newRow("empty") << ""
                           << "";
}

void TestFolders::userDirsParsing()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(xdg_user_dir_from_text(text, "XDG_DOWNLOAD_DIR", "/h"), expected);
}

void TestFolders::ensureCreatesFolders()
{
    QTemporaryDir root;
    QVERIFY(root.isValid());
    QProcessEnvironment env;
    env.insert("HOME", root.path());
    env.insert("VEXA_DATA_DIR", root.path() + "/data");
    env.insert("VEXA_SHARED_DIR", root.path() + "/shared");
    const AppFolders f = resolve_app_folders(QString(), env);
    QString error;
    QVERIFY2(ensure_app_folders(f, &error), qPrintable(error));
    for (const QString &d : {f.dataDir, f.downloadsDir, f.miscDir, f.videosDir})
        QVERIFY2(QFileInfo(d).isDir(), qPrintable(d));

    // A file where a folder should be makes it fail with a message.
    QFile blocker(root.path() + "/blocked");
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    AppFolders bad = f;
    bad.dataDir = root.path() + "/blocked/data";
    QVERIFY(!ensure_app_folders(bad, &error));
    QVERIFY(error.contains("blocked"));
}

QTEST_GUILESS_MAIN(TestFolders)
#include "tst_folders.moc"
