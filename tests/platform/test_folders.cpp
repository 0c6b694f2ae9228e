#include "common/test_util.h"
#include "platform/folders.h"

#include <QTemporaryDir>
#include <QtTest>

class TestFolders : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // Every case runs with HOME set to a scratch folder; "@" in a path stands
    // for it. An empty shared root means the desktop's own folders.
    void layout_data()
    {
        QTest::addColumn<QString>("environment"); // NAME=value pairs
        QTest::addColumn<bool>("userDirs");       // renamed desktop folders in user-dirs.dirs
        QTest::addColumn<QString>("data");
        QTest::addColumn<QString>("shared");
        const char *xdg = "@/.local/share/vexa";
        const auto row = [](const char *name, const char *env, bool dirs, const char *data,
                            const char *shared) {
            QTest::newRow(name) << env << dirs << data << QString::fromLatin1(shared);
        };
        row("xdg defaults", "", false, xdg, nullptr);
        row("xdg data home", "XDG_DATA_HOME=@/xdg", false, "@/xdg/vexa", nullptr);
        row("relative xdg data home ignored", "XDG_DATA_HOME=rel", false, xdg, nullptr);
        row("user dirs", "", true, xdg, nullptr);
        row("data dir", "VEXA_DATA_DIR=@/mine XDG_DATA_HOME=@/xdg", true, "@/mine", nullptr);
        row("shared dir", "VEXA_SHARED_DIR=@/s", true, xdg, "@/s");
        row("slashes cleaned", "VEXA_DATA_DIR=@/d/ VEXA_SHARED_DIR=@/s/", false, "@/d", "@/s");
    }

    void layout()
    {
        QFETCH(QString, environment);
        QFETCH(bool, userDirs);
        QFETCH(QString, data);
        QFETCH(QString, shared);
        QTemporaryDir home;
        const QString h = home.path();
        auto sub = [&](QString s) { return s.replace(QLatin1Char('@'), h); };
        QProcessEnvironment env;
        env.insert("HOME", h);
        for (const QString &pair : environment.split(' ', Qt::SkipEmptyParts))
            env.insert(pair.section('=', 0, 0), sub(pair.section('=', 1)));
        if (userDirs) {
            env.insert("XDG_CONFIG_HOME", h + "/cfg");
            QVERIFY(test_util::writeFile(h + "/cfg/user-dirs.dirs",
                                         "# xdg-user-dirs-update\nXDG_DOWNLOAD_DIR=\"$HOME/Dl\"\n"
                                         "XDG_MUSIC_DIR=\"/srv/m\"\n"));
        }

        const AppFolders f = resolve_app_folders(h + "/app/", env);
        QCOMPARE(f.appDir, h + "/app");
        const QStringList got = {f.dataDir,   f.downloadsDir, f.miscDir,   f.documentsDir,
                                 f.photosDir, f.musicDir,     f.videosDir, f.sharedPrefix};
        QStringList want{data};
        if (shared.isEmpty())
            want << QString(userDirs ? "@/Dl/quillo @/cfg/marlinde @/Documents @/Pictures /srv/m"
                                     : "@/Downloads/quillo @/.config/marlinde @/Documents "
                                       "@/Pictures @/Music")
                        .split(' ')
                 << "@/Videos"
                 << "@";
        else
            for (const char *d : {"/downloads/quillo", "/misc/marlinde", "/documents", "/photos",
                                  "/music", "/videos", ""})
                want << shared + d;
        for (QString &w : want)
            w = sub(w);
        QCOMPARE(got, want);
    }
};

QTEST_GUILESS_MAIN(TestFolders)
#include "test_folders.moc"
