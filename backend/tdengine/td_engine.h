#pragma once

#include "td_translator.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QObject>
#include <QProcessEnvironment>
#include <QTimer>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

class BackendOutput;
class TdJsonLibrary;

struct TdEngineSettings
{
    TdConfig td;
    QString logPath;
    qint64 logMaxSize = 5 * 1024 * 1024;
    int verbosity = 2;
    // How long an orderly close waits for TDLib to report it closed.
    int closeTimeoutMs = 15000;
    // Objects received and not yet handled on the main thread; a full queue
    // holds the receiver back, and TDLib keeps the rest until there is room.
    int queueCapacity = 1024;
};

// TG_API_ID and TG_API_HASH from env; false with the reason when they are
// missing or the id is not a positive number.
bool td_credentials_from_env(const QProcessEnvironment &env, qint64 *apiId, QString *apiHash,
                             QString *why);
// The proxy and network settings of the environment (TG_PROXY_*, TDLIB_NETWORK_NONE).
void td_network_from_env(const QProcessEnvironment &env, TdConfig *config);

// Runs one TDLib client: commands go through the translator to td_send, and
// what td_receive returns (on a thread of its own) comes back to the main
// thread, through the translator, as events and status lines. A client that
// closes unasked (logged out, or its session ended elsewhere) is replaced by
// a fresh one; only a close asked for ends the engine.
class TdEngine : public QObject
{
    Q_OBJECT
public:
    TdEngine(const TdEngineSettings &settings, const TdJsonLibrary *library, BackendOutput *out,
             QObject *parent = nullptr);
    ~TdEngine() override;

    // Sets TDLib's log up, creates the client and starts receiving.
    void start();
    void handleLine(const QByteArray &line);
    // Closes TDLib and reports finished(exitCode) once it is closed or the
    // wait has run out.
    void shutdown(int exitCode = 0);
    // TDLib's id of the running client.
    int clientId() const { return m_clientId; }

Q_SIGNALS:
    void finished(int exitCode);

private:
    void createClient();
    void receiveLoop();
    void drain();
    void onReceived(const QByteArray &json);
    void apply(const TdOutput &output);
    void sendRequest(const QJsonObject &request);
    void configureLog();
    void finish();

    TdEngineSettings m_settings;
    const TdJsonLibrary *m_library;
    BackendOutput *m_out;
    TdTranslator m_translator;
    int m_clientId = 0;
    // Clients replaced in a row without one getting to the sign-in form.
    int m_restarts = 0;
    bool m_closing = false;
    bool m_finished = false;
    int m_exitCode = 0;
    QTimer m_closeTimer;
    QElapsedTimer m_closeClock;
    std::atomic<bool> m_stop{false};
    std::mutex m_queueMutex;
    std::condition_variable m_queueHasRoom;
    std::deque<QByteArray> m_queue;
    bool m_drainPosted = false;
    std::thread m_receiver;
};
