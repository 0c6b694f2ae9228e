// The chat search over the chat list and the files cache screen.

#include "ui_main/ui/ui_tdlib_spike.h"

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"
#include "chats/chat_filter.h"
#include "chats/chat_list_model.h"
#include "conversation/message_row_model.h"
#include "conversation/message_text.h"
#include "events/event_dispatcher.h"
#include "media/media_downloads.h"
#include "media/voice_player.h"
#include "platform/array_data_model.h"
#include "platform/toaster.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "platform/ui/toast_overlay.h"
#include "shell/files_cache.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"

#include <QLocale>
#include <QPixmapCache>

namespace {

QString sizeText(qint64 bytes)
{
    return bytes > 0 ? format_file_size(bytes) : QStringLiteral("0 B");
}

QString filesText(int files)
{
    return files == 1 ? QStringLiteral("1 file")
                      : QStringLiteral("%1 files").arg(QLocale().toString(files));
}

} // namespace

void UiTdlibSpike::connectChatSearch()
{
    MainScreen *main = m_screens->mainScreen();
    m_chatFilter = new ChatFilterModel(this);

    // While the field is open the list shows the filtered rows; the full
    // model keeps taking every event meanwhile. Closed, the filter lets go of
    // the model, so that chat events cost it nothing.
    connect(main, &MainScreen::searchRequested, this, &UiTdlibSpike::openChatSearch);
    connect(main, &MainScreen::searchTextChanged, this, [this, main](const QString &text) {
        m_chatFilter->setQuery(text);
        if (text.trimmed().isEmpty())
            main->setSearchHint(QString());
        else if (m_chatFilter->rowCount() == 0)
            main->setSearchHint(
                QStringLiteral("No chats here. Press Enter to search on the server."));
        else
            main->setSearchHint(QStringLiteral("Press Enter to search on the server."));
        m_chatListView->scrollToPosition(ListView::Beginning, false);
        m_searchMark = -1;
        updateChatListMark();
    });
    connect(main, &MainScreen::searchClosed, this, [this] {
        m_searchMark = -1;
        updateChatListMark();
        m_chatListView->setDataModel(m_chatRows);
        m_chatFilter->setQuery(QString());
        m_chatFilter->setSourceModel(nullptr);
    });
    connect(main, &MainScreen::serverSearchRequested, this, &UiTdlibSpike::onServerSearch);
    connect(m_dispatcher, &EventDispatcher::chatSearchResultsReady, this,
            &UiTdlibSpike::showChatSearchResults);
    // The backend numbers the searches of each of its runs from 1; a run
    // announces itself with a "backend_ready" that answers no ping.
    connect(m_intake, &EventIntake::eventReceived, this, [this](const QVariantMap &e) {
        if (e.value(QStringLiteral("type")).toString() == QLatin1String("backend_ready") &&
            !e.value(QStringLiteral("pong")).toBool()) {
            m_searchRequests = 0;
            m_dispatcher->setChatSearchRequest(0);
        }
    });
}

void UiTdlibSpike::openChatSearch()
{
    MainScreen *main = m_screens->mainScreen();
    main->openSearch();
    if (!main->isSearchOpen() || m_chatListView->dataModel() == m_chatFilter)
        return;
    m_chatFilter->setSourceModel(m_chatRows);
    m_chatListView->setDataModel(m_chatFilter);
}

void UiTdlibSpike::onServerSearch(const QString &text)
{
    // A chat marked with the arrow keys is opened instead.
    if (m_searchMark >= 0 && m_searchMark < displayedChatCount()) {
        const int row = m_searchMark;
        m_searchMark = -1;
        openDisplayedChat(row);
        return;
    }
    const QString query = text.trimmed();
    if (query.isEmpty() || !m_dispatcher->isAuthorized())
        return;
    const qint64 req = ++m_searchRequests;
    m_dispatcher->setChatSearchRequest(req);
    appendLog(QStringLiteral("ui: search_server req=%1\n").arg(req));
    // Base64 keeps the typed text, line breaks included, inside one line.
    sendLine(QStringLiteral("search_server64 %1 %2 30")
                 .arg(0)
                 .arg(QString::fromLatin1(query.toUtf8().toBase64())));
}

void UiTdlibSpike::showChatSearchResults(const QList<QVariantMap> &rows)
{
    if (m_searchDialog) {
        m_searchDialog->cancel();
        m_searchDialog->deleteLater();
    }
    QStringList items;
    QVariantList stored;
    for (const QVariantMap &row : rows) {
        const QString title = row.value(QStringLiteral("title")).toString().trimmed();
        items << (title.isEmpty()
                      ? QStringLiteral("Chat %1").arg(row.value(QStringLiteral("id")).toString())
                      : title);
        stored << row;
    }
    auto *dialog = new SystemListDialog(m_window->screenHost());
    dialog->setObjectName(QStringLiteral("search_chats_dialog"));
    dialog->setTitle(QStringLiteral("Search chats"));
    dialog->setCancelLabel(QStringLiteral("Cancel"));
    dialog->setItems(items);
    dialog->setProperty("search_context", QStringLiteral("server_chats"));
    dialog->setProperty("search_rows", stored);
    connect(dialog, &SystemUiDialog::finished, this, &UiTdlibSpike::onSearchDialogFinished);
    connect(dialog, &SystemUiDialog::finished, dialog, &QObject::deleteLater);
    m_searchDialog = dialog;
    dialog->show();
}

void UiTdlibSpike::onSearchDialogFinished(int result)
{
    auto *dialog = qobject_cast<SystemListDialog *>(sender());
    if (!dialog || result != SystemUiResult::ConfirmButtonSelection ||
        dialog->property("search_context").toString() != QLatin1String("server_chats"))
        return;
    const QVariantList rows = dialog->property("search_rows").toList();
    const QList<int> picked = dialog->selectedIndices();
    if (picked.isEmpty() || picked.first() < 0 || picked.first() >= rows.size())
        return;
    const QVariantMap row = rows.at(picked.first()).toMap();
    appendLog(QStringLiteral("ui: search open chat_id=%1\n")
                  .arg(row.value(QStringLiteral("id")).toString()));
    openChatFromRow(row);
}

// ------------------------------------------------------------ files cache

void UiTdlibSpike::connectFilesCache()
{
    m_filesCache = new FilesCache(files_cache_folders(m_folders.dataDir), this);
    // The user's saved copies are never the cache's, wherever they lie.
    m_filesCache->setSparedFolders({m_folders.downloadsDir, m_folders.documentsDir,
                                    m_folders.photosDir, m_folders.musicDir, m_folders.videosDir});
    m_filesCache->setInUseLookup([this] { return m_voicePlayer->playingFiles(); });

    MenuScreen *menu = m_screens->menuScreen();
    FilesCacheScreen *screen = m_screens->filesCacheScreen();
    // Opening the screen measures once; later figures come on request.
    connect(menu, &MenuScreen::filesCacheRequested, this, [this] {
        if (!m_filesCache->isMeasured() && m_filesCache->job() == FilesCache::Job::None)
            onRecalculateCache();
    });
    connect(menu, &MenuScreen::recalculateCacheRequested, this, &UiTdlibSpike::onRecalculateCache);
    connect(screen, &FilesCacheScreen::recalculateCacheRequested, this,
            &UiTdlibSpike::onRecalculateCache);
    connect(menu, &MenuScreen::clearCacheRequested, this, &UiTdlibSpike::onClearCacheRequested);
    connect(screen, &FilesCacheScreen::clearCacheRequested, this,
            &UiTdlibSpike::onClearCacheRequested);

    connect(
        m_filesCache, &FilesCache::progress, this,
        [this, menu, screen](FilesCache::Job job, int files, qint64 bytes) {
            const QString text =
                job == FilesCache::Job::Clearing
                    ? QStringLiteral("Clearing… %1 looked at").arg(filesText(files))
                    : QStringLiteral("Measuring… %1, %2").arg(filesText(files), sizeText(bytes));
            screen->setProgress(true, text);
            menu->setCacheSizeText(text);
        });
    connect(m_filesCache, &FilesCache::measured, this, &UiTdlibSpike::showCacheUsage);
    connect(m_filesCache, &FilesCache::cleared, this, &UiTdlibSpike::onCacheCleared);
}

void UiTdlibSpike::onRecalculateCache()
{
    appendLog(QStringLiteral("ui: files cache measure\n"));
    m_filesCache->measure();
}

void UiTdlibSpike::onClearCacheRequested()
{
    if (m_filesCache->job() == FilesCache::Job::Clearing || m_clearCacheDialog)
        return;
    // The question says how much goes, so the size must be known (and fresh).
    m_askClearWhenMeasured = true;
    m_filesCache->measure();
}

void UiTdlibSpike::showCacheUsage(const CacheUsage &usage)
{
    QList<QPair<QString, QString>> lines;
    for (int k = 0; k < kCacheKindCount; ++k) {
        const auto kind = CacheKind(k);
        lines.append({cache_kind_label(kind),
                      usage.filesOf(kind) > 0
                          ? QStringLiteral("%1 · %2").arg(sizeText(usage.bytesOf(kind)),
                                                          filesText(usage.filesOf(kind)))
                          : QStringLiteral("Empty")});
    }
    FilesCacheScreen *screen = m_screens->filesCacheScreen();
    screen->setBreakdown(lines);
    screen->setSummary(usage.totalFiles() == 0
                           ? QStringLiteral("The cache is empty")
                           : QStringLiteral("%1 in %2")
                                 .arg(sizeText(usage.totalBytes()), filesText(usage.totalFiles())));
    screen->setProgress(false, QString());
    m_screens->menuScreen()->setCacheSizeText(
        QStringLiteral("Cache: %1").arg(sizeText(usage.totalBytes())));
    if (m_askClearWhenMeasured) {
        m_askClearWhenMeasured = false;
        askClearCache();
    }
}

void UiTdlibSpike::askClearCache()
{
    const CacheUsage usage = m_filesCache->usage();
    if (usage.totalFiles() == 0) {
        m_toaster->showToast(QStringLiteral("The cache is empty"));
        return;
    }
    auto *dialog =
        new SystemDialog(QStringLiteral("Clear"), QStringLiteral("Cancel"), m_window->screenHost());
    dialog->setObjectName(QStringLiteral("clear_cache_dialog"));
    dialog->setTitle(QStringLiteral("Clear cache"));
    dialog->setBody(QStringLiteral("This frees %1 (%2). Files you saved stay, and cleared media "
                                   "downloads again when you open it.")
                        .arg(sizeText(usage.totalBytes()), filesText(usage.totalFiles())));
    connect(dialog, &SystemUiDialog::finished, this, [this](int result) {
        if (result != SystemUiResult::ConfirmButtonSelection)
            return;
        appendLog(QStringLiteral("ui: files cache clear\n"));
        m_filesCache->clear();
    });
    connect(dialog, &SystemUiDialog::finished, dialog, &QObject::deleteLater);
    m_clearCacheDialog = dialog;
    dialog->show();
}

void UiTdlibSpike::onCacheCleared(const CacheUsage &freed, int kept)
{
    appendLog(QStringLiteral("ui: files cache cleared bytes=%1 files=%2 kept=%3\n")
                  .arg(freed.totalBytes())
                  .arg(freed.totalFiles())
                  .arg(kept));
    // Rows whose files went away offer the download again, and nothing is
    // drawn from memory that is no longer on disk.
    QPixmapCache::clear();
    m_downloads->clear();
    m_messages->forgetMissingFiles();
    m_dispatcher->refetchMissingAvatars();
    m_toaster->showToast(
        QStringLiteral("Cache cleared: %1 freed").arg(sizeText(freed.totalBytes())));
}
