#include "shell/update_checker.h"

#include "backend_link/app_log.h"
#include "backend_link/json_keys.h"
#include "platform/toaster.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslConfiguration>
#include <QVariantMap>

#include <climits>

namespace {

const int kConfirmResult = 2;

// Only web addresses: a manifest that may have come over plain HTTP must not
// make the client copy a local file or reach another scheme.
bool is_web_url(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && !url.host().isEmpty() &&
           (scheme == QLatin1String("https") || scheme == QLatin1String("http"));
}

// The version comes from the server: it must not lead the file out of the
// downloads folder or carry control characters into its name.
QString safe_file_name_part(const QString &text)
{
    QString out = text;
    for (QChar &c : out) {
        if (c == QLatin1Char('/') || c == QLatin1Char('\\') || c.category() == QChar::Other_Control)
            c = QLatin1Char('_');
    }
    return out;
}

// A whole number from the manifest, or 0 when it is missing, not a number or
// beyond max (a huge JSON number must not overflow the conversion).
qint64 manifest_number(const QVariant &value, qint64 max)
{
    bool ok = false;
    const double d = value.toDouble(&ok);
    return ok && d >= 0 && d <= double(max) ? qint64(d) : 0;
}

} // namespace

bool parse_update_manifest(const QByteArray &body, UpdateManifest *manifest)
{
    if (json_repeats_key(body))
        return false;
    QJsonParseError parseError{};
    const QJsonDocument doc = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return false;
    const QVariantMap map = doc.object().toVariantMap();
    UpdateManifest m;
    m.build = int(manifest_number(map.value(QStringLiteral("build_id")), INT_MAX));
    m.version = map.value(QStringLiteral("version_number")).toString();
    m.downloadUrl = map.value(QStringLiteral("download_url")).toString();
    m.downloadUrlHttp = map.value(QStringLiteral("download_url_http")).toString();
    m.checksum = map.value(QStringLiteral("sha256")).toString();
    m.expectedSize = manifest_number(map.value(QStringLiteral("size_bytes")), qint64(1) << 53);
    if (manifest)
        *manifest = m;
    return true;
}

QString update_package_file_name(const QString &version, int build)
{
    const QString v = version.trimmed();
    // One arg() call: a "%2" in the version must stay text.
    return QStringLiteral("Vexa_%1_build%2.bar")
        .arg(v.isEmpty() ? QStringLiteral("update") : safe_file_name_part(v),
             QString::number(build));
}

UpdateChecker::UpdateChecker(const UpdateCheckerConfig &config, Toaster *toaster, AppLog *log,
                             QObject *parent)
    : QObject(parent), m_config(config), m_toaster(toaster), m_log(log)
{
    qRegisterMetaType<UpdateQuestion>();
}

UpdateChecker::~UpdateChecker()
{
    if (m_manifestReply) {
        m_manifestReply->disconnect(this);
        m_manifestReply->abort();
    }
    if (m_downloadReply) {
        m_downloadReply->disconnect(this);
        m_downloadReply->abort();
    }
    // A package that did not finish is never left behind.
    discardPackageFile();
}

UpdateCheckerConfig UpdateChecker::configFromEnvironment(const QProcessEnvironment &env,
                                                         const QString &downloadsDir)
{
    UpdateCheckerConfig config;
    config.host = env.value(QStringLiteral("VEXA_UPDATE_HOST")).trimmed();
    config.downloadsDir = downloadsDir;
    return config;
}

QByteArray UpdateChecker::userAgent()
{
    // The version text between the two parts is empty.
    return QByteArrayLiteral("Vexa/") + QByteArrayLiteral(" (BB10)");
}

QUrl UpdateChecker::updateManifestUrlForTry(int attempt) const
{
    QString base = attempt == 0 ? m_config.httpsBaseUrl : m_config.httpBaseUrl;
    if (base.isEmpty()) {
        if (m_config.host.isEmpty())
            return QUrl();
        base =
            (attempt == 0 ? QStringLiteral("https://") : QStringLiteral("http://")) + m_config.host;
    }
    const QUrl url(base + QStringLiteral("/download/latest.json"), QUrl::StrictMode);
    return is_web_url(url) ? url : QUrl();
}

void UpdateChecker::onCheckUpdates()
{
    log(QStringLiteral("ui: check updates\n"));
    if (isBusy()) {
        toast(QStringLiteral("Update check is already running"));
        return;
    }
    toast(QStringLiteral("Checking for updates…"));
    m_manifestTry = 0;
    startUpdateManifestRequest();
    updateBusy();
}

QNetworkRequest UpdateChecker::makeRequest(const QUrl &url) const
{
    QNetworkRequest request(url);
    request.setRawHeader(QByteArrayLiteral("User-Agent"), userAgent());
    // A server that stops sending ends the attempt (and the HTTPS one falls
    // back to HTTP) instead of leaving the check running for good.
    request.setTransferTimeout(m_config.stallTimeoutMs);
    if (!m_config.caCertificates.isEmpty()) {
        QSslConfiguration ssl = QSslConfiguration::defaultConfiguration();
        ssl.setCaCertificates(ssl.caCertificates() + m_config.caCertificates);
        request.setSslConfiguration(ssl);
    }
    return request;
}

void UpdateChecker::startUpdateManifestRequest()
{
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    const QUrl url = updateManifestUrlForTry(m_manifestTry);
    if (!url.isValid()) {
        toast(QStringLiteral("Update check failed"));
        return;
    }
    m_manifestBody.clear();
    m_manifestTooLong = false;
    QNetworkReply *reply = m_network->get(makeRequest(url));
    m_manifestReply = reply;
    connect(reply, &QNetworkReply::readyRead, this, &UpdateChecker::onUpdateManifestReadyRead);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply] { onUpdateManifestFinished(reply); });
}

void UpdateChecker::onUpdateManifestReadyRead()
{
    QNetworkReply *reply = m_manifestReply;
    // An aborted reply (too long, or stalled) has nothing left to read.
    if (!reply || m_manifestTooLong || !reply->isOpen())
        return;
    if (m_manifestBody.size() + reply->bytesAvailable() > kMaxManifestBytes) {
        // Not a manifest; abort() finishes the reply at once.
        m_manifestTooLong = true;
        reply->abort();
        return;
    }
    m_manifestBody += reply->readAll();
}

void UpdateChecker::onUpdateManifestFinished(QNetworkReply *reply)
{
    if (reply != m_manifestReply)
        return;
    onUpdateManifestReadyRead();
    const bool tooLong = m_manifestTooLong;
    const QNetworkReply::NetworkError error = tooLong ? QNetworkReply::NoError : reply->error();
    const QString errorText = reply->errorString();
    const QByteArray body = m_manifestBody;
    m_manifestBody.clear();
    reply->disconnect(this);
    reply->deleteLater();
    m_manifestReply = nullptr;

    if (error != QNetworkReply::NoError) {
        log(QStringLiteral("ui: update manifest error try=%1 err=%2\n")
                .arg(m_manifestTry)
                .arg(errorText));
        if (m_manifestTry == 0) {
            m_manifestTry = 1;
            toast(QStringLiteral("HTTPS failed, trying HTTP…"));
            startUpdateManifestRequest();
        } else {
            toast(QStringLiteral("Update check failed"));
        }
        updateBusy();
        return;
    }

    UpdateManifest manifest;
    if (tooLong || !parse_update_manifest(body, &manifest)) {
        log(QStringLiteral("ui: update manifest parse failed\n"));
        toast(QStringLiteral("Update check failed (invalid JSON)"));
        updateBusy();
        return;
    }
    const int build = manifest.build;
    if (build <= 0 || manifest.downloadUrl.trimmed().isEmpty()) {
        toast(QStringLiteral("Update check failed (invalid manifest)"));
    } else if (build <= kOwnBuild) {
        toast(QStringLiteral("You're up to date (build %1)").arg(kOwnBuild));
    } else {
        m_offeredVersion = manifest.version;
        m_offeredBuild = build;
        m_downloadUrl = manifest.downloadUrl;
        m_downloadUrlHttp = manifest.downloadUrlHttp;
        m_checksum = manifest.checksum;
        m_expectedSize = manifest.expectedSize;
        if (m_questionOpen) {
            m_questionOpen = false;
            emit updateQuestionWithdrawn();
        }
        const QString version = m_offeredVersion.trimmed();
        UpdateQuestion question;
        question.title = QStringLiteral("Update available");
        question.body = QStringLiteral("Version %1 (build %2) is available.\nDownload now?")
                            .arg(version.isEmpty() ? QStringLiteral("new") : version)
                            .arg(build);
        question.confirmLabel = QStringLiteral("Download");
        question.cancelLabel = QStringLiteral("Cancel");
        m_questionOpen = true;
        emit updateQuestionAsked(question);
    }
    updateBusy();
}

void UpdateChecker::onUpdateDialogFinished(int result)
{
    if (!m_questionOpen)
        return;
    m_questionOpen = false;
    if (result != kConfirmResult || isDownloadRunning())
        return;
    m_downloadTry = 0;
    startUpdateDownloadRequest();
    updateBusy();
}

void UpdateChecker::startUpdateDownloadRequest()
{
    discardPackageFile();
    QString urlText = m_downloadUrl.trimmed();
    if (m_downloadTry == 1) {
        const QString httpUrl = m_downloadUrlHttp.trimmed();
        urlText = !httpUrl.isEmpty() ? httpUrl
                                     : m_downloadUrl.trimmed().replace(QStringLiteral("https://"),
                                                                       QStringLiteral("http://"));
    }
    const QUrl url(urlText, QUrl::StrictMode);
    if (!is_web_url(url)) {
        toast(QStringLiteral("Update download failed"));
        return;
    }
    if (!QDir().mkpath(m_config.downloadsDir)) {
        toast(QStringLiteral("Update download failed (can't create downloads folder)"));
        return;
    }
    m_packagePath = QDir(m_config.downloadsDir)
                        .filePath(update_package_file_name(m_offeredVersion, m_offeredBuild));
    // Written under a name of its own and renamed when whole, so that a download cut short by a
    // full disk or a killed process never looks like a package.
    auto *file = new QFile(m_packagePath + QStringLiteral(".part"), this);
    if (QFileInfo(m_packagePath).isDir() ||
        !file->open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        delete file;
        toast(QStringLiteral("Update download failed (can't write file)"));
        return;
    }
    m_downloadFile = file;
    m_downloaded = 0;
    m_contentLength = -1;
    m_downloadTooLong = false;
    m_writeFailed = false;
    m_hash.reset();

    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    QNetworkReply *reply = m_network->get(makeRequest(url));
    m_downloadReply = reply;
    connect(reply, &QNetworkReply::readyRead, this, &UpdateChecker::onUpdateDownloadReadyRead);
    connect(reply, &QNetworkReply::finished, this,
            [this, reply] { onUpdateDownloadFinished(reply); });
    toast(QStringLiteral("Downloading update…"));
}

bool UpdateChecker::appendDownloadBytes()
{
    QNetworkReply *reply = m_downloadReply;
    if (!reply || !m_downloadFile || m_downloadTooLong || m_writeFailed)
        return false;
    if (m_contentLength < 0) {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid())
            m_contentLength = length.toLongLong();
    }
    const QByteArray chunk = reply->readAll();
    if (chunk.isEmpty())
        return true;
    if (m_downloadFile->write(chunk) != chunk.size()) {
        m_writeFailed = true;
        return false;
    }
    m_hash.addData(chunk);
    m_downloaded += chunk.size();
    publishProgress();
    // More than announced can only be a wrong package: stop taking it.
    if (m_expectedSize >= 1 && m_downloaded > m_expectedSize) {
        m_downloadTooLong = true;
        return false;
    }
    return true;
}

void UpdateChecker::publishProgress()
{
    const qint64 total = m_expectedSize >= 1 ? m_expectedSize : m_contentLength;
    const int percent = total > 0 ? int(qMin<qint64>(100, m_downloaded * 100 / total)) : -1;
    emit downloadProgress(m_downloaded, total, percent);
}

void UpdateChecker::onUpdateDownloadReadyRead()
{
    if (!appendDownloadBytes() && m_downloadReply)
        m_downloadReply->abort(); // finishes the reply at once
}

void UpdateChecker::onUpdateDownloadFinished(QNetworkReply *reply)
{
    if (reply != m_downloadReply)
        return;
    appendDownloadBytes();
    const bool stopped = m_downloadTooLong || m_writeFailed;
    const QNetworkReply::NetworkError error = stopped ? QNetworkReply::NoError : reply->error();
    const QString errorText = reply->errorString();

    if (error != QNetworkReply::NoError) {
        log(QStringLiteral("ui: update download error try=%1 err=%2\n")
                .arg(m_downloadTry)
                .arg(errorText));
        releaseDownload();
        if (m_downloadTry == 0) {
            m_downloadTry = 1;
            toast(QStringLiteral("HTTPS download failed, trying HTTP…"));
            startUpdateDownloadRequest(); // discards the partial file
        } else {
            discardPackageFile();
            toast(QStringLiteral("Update download failed"));
        }
        updateBusy();
        return;
    }

    if (!m_downloadFile->flush())
        m_writeFailed = true;
    m_downloadFile->close();
    const qint64 got = m_downloadFile->size();
    const QString gotHash = QString::fromLatin1(m_hash.result().toHex());
    const QString wantHash = m_checksum.trimmed().toLower();
    releaseDownload();
    if (m_writeFailed) {
        discardPackageFile();
        toast(QStringLiteral("Update download failed (can't write file)"));
    } else if (m_expectedSize >= 1 && (m_downloadTooLong || got != m_expectedSize)) {
        log(QStringLiteral("ui: update size mismatch got=%1 want=%2\n")
                .arg(got)
                .arg(m_expectedSize));
        discardPackageFile();
        toast(QStringLiteral("Update download failed (corrupted file)"));
    } else if (!wantHash.isEmpty() && gotHash != wantHash) {
        log(QStringLiteral("ui: update checksum mismatch got=%1 want=%2\n").arg(gotHash, wantHash));
        discardPackageFile();
        toast(QStringLiteral("Update download failed (corrupted file)"));
    } else {
        QFile::remove(m_packagePath);
        if (!m_downloadFile->rename(m_packagePath)) {
            discardPackageFile();
            toast(QStringLiteral("Update download failed (can't write file)"));
        } else {
            delete m_downloadFile;
            m_downloadFile = nullptr;
            toast(QStringLiteral("Update downloaded: %1").arg(QFileInfo(m_packagePath).fileName()));
        }
    }
    updateBusy();
}

void UpdateChecker::releaseDownload()
{
    if (!m_downloadReply)
        return;
    QNetworkReply *reply = m_downloadReply;
    m_downloadReply = nullptr;
    reply->disconnect(this);
    reply->deleteLater();
}

void UpdateChecker::discardPackageFile()
{
    if (!m_downloadFile)
        return;
    if (m_downloadFile->isOpen()) {
        m_downloadFile->flush();
        m_downloadFile->close();
    }
    m_downloadFile->remove();
    delete m_downloadFile;
    m_downloadFile = nullptr;
}

void UpdateChecker::updateBusy()
{
    const bool busy = isBusy();
    if (busy == m_busy)
        return;
    m_busy = busy;
    emit busyChanged(busy);
}

void UpdateChecker::log(const QString &line) const
{
    if (m_log)
        m_log->appendLog(line);
}

void UpdateChecker::toast(const QString &text) const
{
    if (m_toaster)
        m_toaster->showToast(text);
}
