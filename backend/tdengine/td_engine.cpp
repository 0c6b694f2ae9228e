#include "td_engine.h"

#include "backend_output.h"
#include "td_json_library.h"

#include <QJsonDocument>
#include <QMetaObject>

namespace {

QString typeOf(const QJsonObject &o)
{
    return o.value(QStringLiteral("@type")).toString();
}

QByteArray compact(const QJsonObject &o)
{
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

} // namespace

bool td_credentials_from_env(const QProcessEnvironment &env, qint64 *apiId, QString *apiHash,
                             QString *why)
{
    const QString id = env.value(QStringLiteral("TG_API_ID")).trimmed();
    const QString hash = env.value(QStringLiteral("TG_API_HASH")).trimmed();
    if (id.isEmpty() || hash.isEmpty()) {
        if (why)
            *why = QStringLiteral("TG_API_ID and TG_API_HASH are not both set");
        return false;
    }
    bool ok = false;
    const qint64 value = id.toLongLong(&ok);
    if (!ok || value <= 0 || value > 0x7fffffff) {
        if (why)
            *why = QStringLiteral("TG_API_ID is not a positive number");
        return false;
    }
    *apiId = value;
    *apiHash = hash;
    return true;
}

void td_network_from_env(const QProcessEnvironment &env, TdConfig *config)
{
    const QString type = env.value(QStringLiteral("TG_PROXY_TYPE")).trimmed().toLower();
    config->proxyType =
        type == QLatin1String("socks5") || type == QLatin1String("mtproto") ? type : QString();
    config->proxyHost = env.value(QStringLiteral("TG_PROXY_HOST")).trimmed();
    const int port = env.value(QStringLiteral("TG_PROXY_PORT")).toInt();
    config->proxyPort = port > 0 && port < 65536 ? port : 0;
    config->proxyUser = env.value(QStringLiteral("TG_PROXY_USER"));
    config->proxyPassword = env.value(QStringLiteral("TG_PROXY_PASSWORD"));
    config->proxySecret = env.value(QStringLiteral("TG_PROXY_SECRET")).trimmed();
    if (config->proxyHost.isEmpty() || config->proxyPort == 0)
        config->proxyType.clear();
    config->networkNone = env.value(QStringLiteral("TDLIB_NETWORK_NONE")) == QLatin1String("1");
}

TdEngine::TdEngine(const TdEngineSettings &settings, const TdJsonLibrary *library,
                   BackendOutput *out, QObject *parent)
    : QObject(parent), m_settings(settings), m_library(library), m_out(out),
      m_translator(settings.td)
{
    m_closeTimer.setSingleShot(true);
    connect(&m_closeTimer, &QTimer::timeout, this, [this] {
        m_out->log(1, QStringLiteral("close: TDLib did not report closed within %1 ms")
                          .arg(m_settings.closeTimeoutMs));
        finish();
    });
}

TdEngine::~TdEngine()
{
    m_stop = true;
    if (m_receiver.joinable()) {
        // A request TDLib answers at once wakes the receiver from its wait.
        m_library->send(m_clientId, R"({"@type":"getOption","name":"version"})");
        m_receiver.join();
    }
}

void TdEngine::configureLog()
{
    // Before the first client: TDLib writes its own lines into the log the
    // client tails, and turns it over at the size the client asked for.
    QJsonObject stream{{QStringLiteral("@type"), QStringLiteral("logStreamFile")},
                       {QStringLiteral("path"), m_settings.logPath},
                       {QStringLiteral("max_file_size"), double(m_settings.logMaxSize)},
                       {QStringLiteral("redirect_stderr"), false}};
    if (m_settings.logPath.isEmpty())
        stream = QJsonObject{{QStringLiteral("@type"), QStringLiteral("logStreamEmpty")}};
    const QJsonObject requests[] = {
        {{QStringLiteral("@type"), QStringLiteral("setLogStream")},
         {QStringLiteral("log_stream"), stream}},
        {{QStringLiteral("@type"), QStringLiteral("setLogVerbosityLevel")},
         {QStringLiteral("new_verbosity_level"), m_settings.verbosity}}};
    for (const QJsonObject &r : requests) {
        const QJsonObject answer = QJsonDocument::fromJson(m_library->execute(compact(r))).object();
        if (typeOf(answer) != QLatin1String("ok"))
            m_out->log(
                1,
                QStringLiteral("%1 failed: %2").arg(typeOf(r), QString::fromUtf8(compact(answer))));
    }
}

void TdEngine::start()
{
    configureLog();
    m_clientId = m_library->createClientId();
    m_out->log(1, QStringLiteral("tdlib client %1").arg(m_clientId));
    m_receiver = std::thread([this] { receiveLoop(); });
    apply(m_translator.onStart());
}

void TdEngine::receiveLoop()
{
    while (!m_stop) {
        const char *result = m_library->receive(1.0);
        if (!result)
            continue;
        const QByteArray json(result);
        QMetaObject::invokeMethod(
            this, [this, json] { onReceived(json); }, Qt::QueuedConnection);
    }
}

void TdEngine::handleLine(const QByteArray &line)
{
    const QString text = QString::fromUtf8(line).trimmed();
    if (text.isEmpty() || m_finished)
        return;
    if (m_settings.verbosity >= 3)
        m_out->log(3, QStringLiteral("command %1").arg(text.section(QLatin1Char(' '), 0, 0)));
    // The bare word ends the backend; "close <chat>" leaves a chat.
    if (text == QLatin1String("close")) {
        shutdown(0);
        return;
    }
    if (m_closing)
        return;
    apply(m_translator.onCommand(text));
}

void TdEngine::shutdown(int exitCode)
{
    if (m_closing)
        return;
    m_closing = true;
    m_exitCode = exitCode;
    m_out->log(1, QStringLiteral("closing"));
    sendRequest({{QStringLiteral("@type"), QStringLiteral("close")}});
    m_closeTimer.start(m_settings.closeTimeoutMs);
}

void TdEngine::onReceived(const QByteArray &json)
{
    if (m_finished)
        return;
    QJsonParseError err;
    const QJsonObject object = QJsonDocument::fromJson(json, &err).object();
    if (err.error != QJsonParseError::NoError) {
        m_out->log(1, QStringLiteral("unreadable object from TDLib"));
        return;
    }
    const QJsonValue client = object.value(QStringLiteral("@client_id"));
    if (!client.isUndefined() && client.toInt() != m_clientId)
        return;
    apply(m_translator.onTdObject(object));
    // Whether TDLib gets through is what a user looking at the log wants first.
    if (typeOf(object) == QLatin1String("updateConnectionState"))
        m_out->log(2, QStringLiteral("connection %1")
                          .arg(typeOf(object.value(QStringLiteral("state")).toObject())
                                   .mid(int(qstrlen("connectionState")))));
    if (typeOf(object) != QLatin1String("updateAuthorizationState"))
        return;
    // The client is gone once closed, whoever asked for it (a log-out too):
    // the translator has said how to exit.
    const QString state = typeOf(object.value(QStringLiteral("authorization_state")).toObject());
    if (state == QLatin1String("authorizationStateClosed"))
        finish();
}

void TdEngine::apply(const TdOutput &output)
{
    for (const QJsonObject &request : output.requests)
        sendRequest(request);
    for (const QJsonObject &event : output.events)
        m_out->event(event);
    for (const QString &line : output.statusLines)
        m_out->status(line);
    if (output.exitCode >= 0)
        shutdown(output.exitCode);
}

void TdEngine::sendRequest(const QJsonObject &request)
{
    if (m_settings.verbosity >= 4)
        m_out->log(4, QStringLiteral("request %1").arg(typeOf(request)));
    m_library->send(m_clientId, compact(request));
}

void TdEngine::finish()
{
    if (m_finished)
        return;
    m_finished = true;
    m_closeTimer.stop();
    m_out->log(1, QStringLiteral("closed"));
    Q_EMIT finished(m_exitCode);
}
