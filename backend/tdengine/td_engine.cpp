#include "td_engine.h"

#include "backend_output.h"
#include "td_json_library.h"

#include <QJsonDocument>
#include <QMetaObject>

namespace {

// Clients replaced in a row before the engine stops trying.
constexpr int kMaxRestarts = 3;

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
    {
        const std::lock_guard<std::mutex> lock(m_queueMutex);
        m_stop = true;
    }
    m_queueHasRoom.notify_all();
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
    createClient();
    m_receiver = std::thread([this] { receiveLoop(); });
}

void TdEngine::createClient()
{
    m_translator = TdTranslator(m_settings.td);
    m_clientId = m_library->createClientId();
    m_out->log(1, QStringLiteral("tdlib client %1").arg(m_clientId));
    apply(m_translator.onStart());
}

void TdEngine::receiveLoop()
{
    const size_t capacity = size_t(qMax(1, m_settings.queueCapacity));
    while (!m_stop) {
        const char *result = m_library->receive(1.0);
        if (!result)
            continue;
        QByteArray json(result);
        std::unique_lock<std::mutex> lock(m_queueMutex);
        m_queueHasRoom.wait(lock, [&] { return m_stop || m_queue.size() < capacity; });
        if (m_stop)
            return;
        m_queue.push_back(std::move(json));
        if (!m_drainPosted) {
            m_drainPosted = true;
            QMetaObject::invokeMethod(this, &TdEngine::drain, Qt::QueuedConnection);
        }
    }
}

void TdEngine::drain()
{
    std::deque<QByteArray> batch;
    {
        const std::lock_guard<std::mutex> lock(m_queueMutex);
        batch.swap(m_queue);
        m_drainPosted = false;
    }
    m_queueHasRoom.notify_one();
    for (const QByteArray &json : batch)
        onReceived(json);
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
    m_closeClock.start();
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
    const QString type = typeOf(object);
    const QString state =
        type == QLatin1String("updateAuthorizationState")
            ? typeOf(object.value(QStringLiteral("authorization_state")).toObject())
            : QString();
    const bool closed = state == QLatin1String("authorizationStateClosed");
    TdOutput output = m_translator.onTdObject(object);
    // Closed unasked is no reason to exit: a fresh client follows.
    if (closed && !m_closing && output.exitCode == 0)
        output.exitCode = -1;
    apply(output);
    // Whether TDLib gets through is what a user looking at the log wants first.
    if (type == QLatin1String("updateConnectionState"))
        m_out->log(2, QStringLiteral("connection %1")
                          .arg(typeOf(object.value(QStringLiteral("state")).toObject())
                                   .mid(int(qstrlen("connectionState")))));
    if (state == QLatin1String("authorizationStateWaitPhoneNumber") ||
        state == QLatin1String("authorizationStateReady"))
        m_restarts = 0;
    if (!closed)
        return;
    if (m_closing) {
        finish();
        return;
    }
    // Logged out, here or elsewhere: the user signs in again on a fresh
    // client. One that closes before ever asking for a number would only
    // close again.
    if (++m_restarts > kMaxRestarts) {
        m_out->log(1, QStringLiteral("TDLib keeps closing; giving up"));
        m_exitCode = 1;
        finish();
        return;
    }
    m_out->log(1, QStringLiteral("TDLib closed unasked; starting a fresh client"));
    createClient();
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
    // The client waits only briefly for the backend on quit; how long the
    // close took tells whether it fits.
    m_out->log(1, m_closeClock.isValid()
                      ? QStringLiteral("closed after %1 ms").arg(m_closeClock.elapsed())
                      : QStringLiteral("closed"));
    Q_EMIT finished(m_exitCode);
}
