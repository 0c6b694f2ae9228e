#include "platform/folders.h"
#include "platform/instance_channel.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include "platform/ui/list_view.h"

#include <QApplication>
#include <QEvent>
#include <QProcess>
#include <QProcessEnvironment>
#include <cstdio>

namespace {

// VEXA_LOG_FIRST_DRAW=1: one line on stderr when the chat list first paints
// rows, the moment start-up measurements wait for.
class FirstDrawLog : public QObject
{
public:
    explicit FirstDrawLog(ListView *list) : QObject(list), m_list(list)
    {
        list->viewport()->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && !m_list->visibleRows().isEmpty()) {
            watched->removeEventFilter(this);
            std::fputs("Vexa: chat list drawn\n", stderr);
            std::fflush(stderr);
        }
        return QObject::eventFilter(watched, event);
    }

private:
    ListView *m_list;
};

// A URL on the command line ("tg:..." from the desktop), or an empty request
// to come forward, goes to a vexa that already runs on the same data folder;
// true when that one answered.
bool handedToRunningInstance(const QString &url)
{
    const AppFolders folders = resolve_app_folders(QCoreApplication::applicationDirPath(),
                                                   QProcessEnvironment::systemEnvironment());
    InstanceChannel channel(InstanceChannel::server_name_for(folders.dataDir));
    QString error;
    return channel.sendToRunning(url, 2000, &error);
}

} // namespace

int main(int argc, char *argv[])
{
    std::fputs("Vexa: starting\n", stderr);
    std::fflush(stderr);

    auto *app = new QApplication(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vexa"));

    const QStringList args = QCoreApplication::arguments();
    const QString url = args.size() > 1 ? args.at(1) : QString();
    // One vexa per data folder: a later start hands over its link (or just
    // brings the running window forward) and ends.
    if (handedToRunningInstance(url)) {
        delete app;
        return 0;
    }

    auto *spike =
        new UiTdlibSpike(QCoreApplication::applicationDirPath(), QProcess::systemEnvironment());
    if (qEnvironmentVariable("VEXA_LOG_FIRST_DRAW") == QLatin1String("1"))
        new FirstDrawLog(spike->chatListView());
    if (!url.isEmpty())
        spike->onInvoked(url);
    const int rc = QApplication::exec();
    delete spike;
    delete app;
    return rc;
}
