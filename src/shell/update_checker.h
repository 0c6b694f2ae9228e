#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QList>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QProcessEnvironment>
#include <QSslCertificate>
#include <QString>
#include <QUrl>

class AppLog;
class QNetworkAccessManager;
class QNetworkRequest;
class Toaster;

struct UpdateCheckerConfig
{
    // The update server ("host" or "host:port"). Empty: every check fails.
    QString host;
    // Where the manifest is asked for; empty means "https://" + host and
    // "http://" + host. Tests point these at local servers.
    QString httpsBaseUrl;
    QString httpBaseUrl;
    // The shared downloads folder ("downloads/quillo"); created when missing.
    QString downloadsDir;
    // Trusted for HTTPS besides the system's certificate authorities.
    QList<QSslCertificate> caCertificates;
    // A request that receives no byte for this long is given up.
    int stallTimeoutMs = 30000;
};

// The offered update as the "Update available" question shows it.
struct UpdateQuestion
{
    QString title;
    QString body;
    QString confirmLabel;
    QString cancelLabel;
};

// What a manifest offers.
struct UpdateManifest
{
    // 0 when missing, not a whole number or out of range.
    int build = 0;
    QString version;
    QString downloadUrl;
    QString downloadUrlHttp;
    QString checksum;
    // 0 when unknown.
    qint64 expectedSize = 0;
};

// The manifest body as JSON; false when it is not JSON or repeats a key.
bool parse_update_manifest(const QByteArray &body, UpdateManifest *manifest);

// The package's name in the downloads folder: the server's version text can
// neither leave the folder nor carry control characters into the name.
QString update_package_file_name(const QString &version, int build);

// Checks the update server for a newer build on the user's request, asks
// whether to download it and saves the package into the shared downloads
// folder. Every request goes over HTTPS first and, when that fails, once
// more over plain HTTP; since the package may thus come unprotected, it is
// kept only when its size and, when the manifest gives one, its SHA-256
// checksum match.
//
// Toasts go to the toaster and diagnostic lines to the in-app log. The
// question is asked through updateQuestionAsked(); the answer comes back
// through onUpdateDialogFinished() with the dialog result (2 = confirm).
class UpdateChecker : public QObject
{
    Q_OBJECT
public:
    // This client's own build number.
    static constexpr int kOwnBuild = 3;
    // A manifest is a few hundred bytes; anything longer is not one.
    static constexpr qint64 kMaxManifestBytes = 64 * 1024;

    UpdateChecker(const UpdateCheckerConfig &config, Toaster *toaster, AppLog *log,
                  QObject *parent = nullptr);
    ~UpdateChecker() override;

    // The configuration from the process environment (VEXA_UPDATE_HOST).
    static UpdateCheckerConfig configFromEnvironment(const QProcessEnvironment &env,
                                                     const QString &downloadsDir);

    static QByteArray userAgent();
    // attempt 0 is HTTPS, 1 is HTTP; invalid when no server is known.
    QUrl updateManifestUrlForTry(int attempt) const;

    bool isManifestRunning() const { return m_manifestReply != nullptr; }
    bool isDownloadRunning() const { return m_downloadReply != nullptr; }
    // A manifest request or a package download is in flight.
    bool isBusy() const { return isManifestRunning() || isDownloadRunning(); }
    bool isQuestionOpen() const { return m_questionOpen; }

    QString offeredVersion() const { return m_offeredVersion; }
    int offeredBuild() const { return m_offeredBuild; }
    // Full path of the package being or last downloaded.
    // While it downloads, the package is written under a name of its own.
    QString packagePath() const
    {
        return m_downloadFile ? m_downloadFile->fileName() : m_packagePath;
    }

public Q_SLOTS:
    // The menu's "Check updates".
    void onCheckUpdates();
    // The answer to the last question asked; ignored when none is open.
    void onUpdateDialogFinished(int result);

Q_SIGNALS:
    // Show this question; answer with onUpdateDialogFinished().
    void updateQuestionAsked(const UpdateQuestion &question);
    // A newer manifest replaced the open question: close its dialog without
    // answering.
    void updateQuestionWithdrawn();
    // While the package downloads: bytes written so far, the expected total
    // (-1 when unknown) and the percentage (-1 when the total is unknown).
    void downloadProgress(qint64 received, qint64 total, int percent);
    // isBusy() changed.
    void busyChanged(bool busy);

private:
    void startUpdateManifestRequest();
    void onUpdateManifestReadyRead();
    void onUpdateManifestFinished(QNetworkReply *reply);
    void startUpdateDownloadRequest();
    void onUpdateDownloadReadyRead();
    void onUpdateDownloadFinished(QNetworkReply *reply);

    QNetworkRequest makeRequest(const QUrl &url) const;
    bool appendDownloadBytes();
    void publishProgress();
    void discardPackageFile();
    void releaseDownload();
    void updateBusy();
    void log(const QString &line) const;
    void toast(const QString &text) const;

    UpdateCheckerConfig m_config;
    Toaster *m_toaster = nullptr;
    QPointer<AppLog> m_log;
    QNetworkAccessManager *m_network = nullptr;
    bool m_busy = false;

    QPointer<QNetworkReply> m_manifestReply;
    int m_manifestTry = 0;
    QByteArray m_manifestBody;
    bool m_manifestTooLong = false;
    bool m_questionOpen = false;

    QPointer<QNetworkReply> m_downloadReply;
    QFile *m_downloadFile = nullptr;
    int m_downloadTry = 0;
    qint64 m_downloaded = 0;
    qint64 m_contentLength = -1;
    bool m_downloadTooLong = false;
    bool m_writeFailed = false;
    QCryptographicHash m_hash{QCryptographicHash::Sha256};

    QString m_offeredVersion;
    int m_offeredBuild = 0;
    QString m_downloadUrl;
    QString m_downloadUrlHttp;
    QString m_checksum;
    qint64 m_expectedSize = 0;
    QString m_packagePath;
};

Q_DECLARE_METATYPE(UpdateQuestion)
