#include "backend_link/app_log.h"
#include "common/recording_toaster.h"
#include "common/test_util.h"
#include "shell/update_checker.h"

#include <QCryptographicHash>
#include <QDir>
#include <QHash>
#include <QPointer>
#include <QProcess>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QSslKey>
#include <QSslSocket>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

// A small HTTP/1.1 server: fixed bodies by path, one request per connection.
// Requests for the held path wait until release(); bodies longer than
// m_dropAfter are cut there and the connection closed.
class WebServer : public QTcpServer
{
    Q_OBJECT
public:
    WebServer(const QSslCertificate &cert = QSslCertificate(), const QSslKey &key = QSslKey())
        : m_cert(cert), m_key(key)
    {
    }

    bool start() { return listen(QHostAddress::LocalHost, 0); }
    QString baseUrl() const
    {
        return (m_cert.isNull() ? QStringLiteral("http") : QStringLiteral("https")) +
               QStringLiteral("://127.0.0.1:") + QString::number(serverPort());
    }
    void release()
    {
        m_holdPath.clear();
        for (const auto &h : qAsConst(m_held))
            if (h.first)
                respond(h.first, h.second);
        m_held.clear();
    }

    QHash<QByteArray, QByteArray> m_bodies;
    QByteArray m_holdPath;
    int m_dropAfter = INT_MAX;
    QList<QByteArray> m_userAgents;

Q_SIGNALS:
    void requestHeld();

protected:
    void incomingConnection(qintptr descriptor) override
    {
        QTcpSocket *socket = m_cert.isNull() ? new QTcpSocket(this) : new QSslSocket(this);
        socket->setSocketDescriptor(descriptor);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onData(socket); });
        if (auto *ssl = qobject_cast<QSslSocket *>(socket)) {
            ssl->setLocalCertificate(m_cert);
            ssl->setPrivateKey(m_key);
            ssl->startServerEncryption();
        }
    }

private:
    void onData(QTcpSocket *socket)
    {
        QByteArray &head = m_heads[socket];
        head += socket->readAll();
        const int end = head.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const QList<QByteArray> lines = head.left(end).split('\n');
        m_heads.remove(socket);
        const QByteArray path = lines.value(0).split(' ').value(1);
        for (const QByteArray &line : lines)
            if (line.toLower().startsWith("user-agent:"))
                m_userAgents.append(line.mid(11).trimmed());
        if (path == m_holdPath) {
            m_held.append({socket, path});
            emit requestHeld();
        } else {
            respond(socket, path);
        }
    }

    void respond(QTcpSocket *socket, const QByteArray &path)
    {
        const QByteArray body = m_bodies.value(path);
        socket->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) +
                      "\r\nConnection: close\r\n\r\n" + body.left(m_dropAfter));
        // Closes once everything written has gone out.
        socket->disconnectFromHost();
    }

    QSslCertificate m_cert;
    QSslKey m_key;
    QHash<QTcpSocket *, QByteArray> m_heads;
    QList<QPair<QPointer<QTcpSocket>, QByteArray>> m_held;
};

namespace {

const char kManifestPath[] = "/download/latest.json";
const char kPackagePath[] = "/pkg.bar";

QByteArray make_package()
{
    QByteArray bytes(300 * 1024, '\0');
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32 *>(bytes.data()), bytes.size() / 4);
    return bytes;
}

} // namespace

class TstUpdateChecker : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QSslCertificate m_cert;
    QSslKey m_key;
    const QByteArray m_package = make_package();
    const QString m_sha = QString::fromLatin1(
        QCryptographicHash::hash(m_package, QCryptographicHash::Sha256).toHex());

    QString downloads() const { return m_dir.filePath(QStringLiteral("shared/downloads/quillo")); }

private Q_SLOTS:
    void initTestCase()
    {
        // A self-signed certificate for 127.0.0.1, made fresh for this run.
        QProcess openssl;
        openssl.setWorkingDirectory(m_dir.path());
        openssl.start(QStringLiteral("openssl"),
                      {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
                       "-nodes", "-keyout", "key.pem", "-out", "cert.pem", "-days", "2", "-subj",
                       "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1"});
        QVERIFY2(openssl.waitForFinished(60000), "openssl did not finish");
        m_cert = QSslCertificate::fromPath(m_dir.filePath(QStringLiteral("cert.pem"))).value(0);
        m_key = QSslKey(test_util::readAll(m_dir.filePath(QStringLiteral("key.pem"))), QSsl::Ec);
        QVERIFY(!m_cert.isNull() && !m_key.isNull());
    }

    void init() { QDir(m_dir.filePath(QStringLiteral("shared"))).removeRecursively(); }

    void check_data()
    {
        // The manifest's {HTTPS}, {HTTP}, {SIZE} and {SHA} become the servers'
        // addresses and the package's size and checksum. Setup: "untrusted"
        // (certificate not trusted), "stall-https", "drop-both" (package cut
        // short over both), "hold-package" (the answer waits while the user
        // asks again), "quit-mid-download" (the checker goes away meanwhile).
        QTest::addColumn<QByteArray>("manifest");
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("question"); // its body; empty when none is asked
        QTest::addColumn<QStringList>("toasts");
        QTest::addColumn<QString>("saved");      // package file name; empty when none is left
        QTest::addColumn<QStringList>("logged"); // values the log names

        const QByteArray offer = R"({"build_id": 4, "version_number": " 1.2 ",
            "download_url": "{HTTPS}/pkg.bar", "download_url_http": "{HTTP}/pkg.bar",
            "size_bytes": {SIZE}, "sha256": "{SHA}"})";
        // Toasts "|"-separated, with short names for the common ones.
        const QHash<QString, QString> toast = {{"C", "Checking for updates…"},
                                               {"D", "Downloading update…"},
                                               {"OK", "Update downloaded: Vexa_1.2_build4.bar"},
                                               {"X", "Update download failed (corrupted file)"},
                                               {"H", "HTTPS failed, trying HTTP…"},
                                               {"HD", "HTTPS download failed, trying HTTP…"},
                                               {"J", "Update check failed (invalid JSON)"}};
        const QString asked = QStringLiteral("Version 1.2 (build 4) is available.\nDownload now?");
        const QString pkg = QStringLiteral("Vexa_1.2_build4.bar");
        auto row = [&](const char *name, const QByteArray &manifest, const char *setup,
                       const QString &question, const char *toasts, const QString &saved,
                       const QStringList &logged = {}) {
            QStringList t;
            for (const QString &k : QString::fromUtf8(toasts).split(QLatin1Char('|')))
                t << toast.value(k, k);
            QTest::newRow(name) << manifest << setup << question << t << saved << logged;
        };
        row("up to date", R"({"build_id": 3, "download_url": "{HTTPS}/pkg.bar"})", "", "",
            "C|You're up to date (build 3)", "");
        row("newer build", offer, "", asked, "C|D|OK", pkg);
        row("version with a slash, any size",
            R"({"build_id": 4, "version_number": "../1", "download_url": "{HTTPS}/pkg.bar", "size_bytes": 0})",
            "", "Version ../1 (build 4) is available.\nDownload now?",
            "C|D|Update downloaded: Vexa_.._1_build4.bar", "Vexa_.._1_build4.bar");
        row("invalid JSON", R"({"build_id": 4, "download_url": )", "", "", "C|J", "");
        // Qt's reader leaked on a key repeated over an object; such a manifest is refused first.
        row("repeated key", R"({"build_id": 4, "build_id": {"a": [1]}, "download_url": "x"})", "",
            "", "C|J", "");
        row("manifest too long",
            QByteArray(R"({"build_id": 4, "download_url": "{HTTPS}/pkg.bar", "pad": "{PAD}"})")
                .replace("{PAD}", QByteArray(UpdateChecker::kMaxManifestBytes, 'x')),
            "", "", "C|J", "");
        row("missing download_url", R"({"build_id": 4, "download_url_http": "{HTTP}/pkg.bar"})", "",
            "", "C|Update check failed (invalid manifest)", "");
        row("untrusted certificate, HTTP serves", offer, "untrusted", asked, "C|H|D|HD|D|OK", pkg,
            {"try=0"});
        row("HTTPS stalls, HTTP serves", offer, "stall-https", asked, "C|H|D|OK", pkg, {"try=0"});
        row("longer than announced", QByteArray(offer).replace("{SIZE}", "1000"), "", asked,
            "C|D|X", "", {"want=1000"});
        row("checksum mismatch", QByteArray(offer).replace("{SHA}", QByteArray(64, 'a')), "", asked,
            "C|D|X", "", {"{SHA}", QString(64, 'a')});
        row("dropped over both", offer, "drop-both", asked, "C|D|HD|D|Update download failed", "",
            {"try=0", "try=1"});
        row("slow package, asked again", offer, "hold-package", asked,
            "C|D|Update check is already running|OK", pkg);
        row("quit mid-download", offer, "quit-mid-download", asked, "C|D", "");
    }

    void check()
    {
        QFETCH(QByteArray, manifest);
        QFETCH(QString, setup);
        QFETCH(QString, question);
        QFETCH(QStringList, toasts);
        QFETCH(QString, saved);
        QFETCH(QStringList, logged);
        WebServer secure(m_cert, m_key);
        WebServer plain;
        QVERIFY(secure.start() && plain.start());
        const auto expand = [&](QString text) -> QString {
            return text.replace(QLatin1String("{HTTPS}"), secure.baseUrl())
                .replace(QLatin1String("{HTTP}"), plain.baseUrl())
                .replace(QLatin1String("{SIZE}"), QString::number(m_package.size()))
                .replace(QLatin1String("{SHA}"), m_sha);
        };
        const QByteArray body = expand(QString::fromUtf8(manifest)).toUtf8();
        for (WebServer *server : {&secure, &plain}) {
            server->m_bodies = {{kManifestPath, body}, {kPackagePath, m_package}};
            if (setup == "drop-both")
                server->m_dropAfter = m_package.size() / 2;
        }
        const bool holdPackage = setup == "hold-package" || setup == "quit-mid-download";
        if (holdPackage)
            secure.m_holdPath = kPackagePath;
        if (setup == "stall-https")
            secure.m_holdPath = kManifestPath; // and never released

        UpdateCheckerConfig config;
        config.httpsBaseUrl = secure.baseUrl();
        config.httpBaseUrl = plain.baseUrl();
        config.downloadsDir = downloads();
        if (setup != "untrusted")
            config.caCertificates = {m_cert};
        if (setup == "stall-https")
            config.stallTimeoutMs = 300;
        RecordingToaster toaster;
        AppLog log;
        auto checker = std::make_unique<UpdateChecker>(config, &toaster, &log);
        QSignalSpy asked(checker.get(), &UpdateChecker::updateQuestionAsked);
        QSignalSpy progress(checker.get(), &UpdateChecker::downloadProgress);
        QSignalSpy busy(checker.get(), &UpdateChecker::busyChanged);
        checker->onCheckUpdates();
        QTRY_VERIFY_WITH_TIMEOUT(!checker->isBusy(), 30000);
        QCOMPARE(asked.size(), question.isEmpty() ? 0 : 1);
        if (!question.isEmpty()) {
            QCOMPARE(asked.first().first().value<UpdateQuestion>().body, question);
            checker->onUpdateDialogFinished(2); // "Download"
            if (holdPackage) {
                QSignalSpy held(&secure, &WebServer::requestHeld);
                QVERIFY(held.wait(30000));
                if (setup == "quit-mid-download") { // no partial package is left
                    const QString path = checker->packagePath();
                    QVERIFY(QFileInfo::exists(path));
                    checker.reset();
                    QVERIFY(!QFileInfo::exists(path));
                    return;
                }
                checker->onCheckUpdates(); // asked again while the server holds the package
                secure.release();
            }
            QTRY_VERIFY_WITH_TIMEOUT(!checker->isBusy(), 30000);
        }

        QCOMPARE(toaster.shown(), toasts);
        for (const QString &value : logged)
            QVERIFY2(log.buffer().contains(expand(value)), qPrintable(log.buffer()));
        QVERIFY(!busy.isEmpty() && !busy.last().first().toBool());
        // Only the package asked for is left, complete.
        const QStringList left = QDir(downloads()).entryList(QDir::Files);
        QCOMPARE(left, saved.isEmpty() ? QStringList() : QStringList{saved});
        if (!saved.isEmpty()) {
            QVERIFY(test_util::readAll(QDir(downloads()).filePath(saved)) == m_package);
            const qint64 size = m_package.size();
            QCOMPARE(progress.value(progress.size() - 1), (QVariantList{size, size, 100}));
        }
        // Every request named the client.
        const QList<QByteArray> agents = secure.m_userAgents + plain.m_userAgents;
        QCOMPARE(agents.count(agents.value(0)), agents.size());
        QVERIFY(agents.value(0).startsWith("Vexa/"));
    }

    // A configured host is tried over HTTPS, then HTTP.
    void serverFromEnvironment()
    {
        QProcessEnvironment env;
        env.insert(QStringLiteral("VEXA_UPDATE_HOST"), QStringLiteral(" updates.example:8443 "));
        UpdateChecker checker(UpdateChecker::configFromEnvironment(env, downloads()), nullptr,
                              nullptr);
        QCOMPARE(checker.updateManifestUrlForTry(0),
                 QUrl("https://updates.example:8443/download/latest.json"));
        QCOMPARE(checker.updateManifestUrlForTry(1),
                 QUrl("http://updates.example:8443/download/latest.json"));
    }
};

QTEST_MAIN(TstUpdateChecker)
#include "test_update_checker.moc"
