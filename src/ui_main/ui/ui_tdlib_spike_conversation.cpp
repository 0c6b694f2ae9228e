// The controller's wiring of the open chat: the message rows and their
// bubbles, history paging, the composer and the chat screen's header.

#include "ui_main/ui/ui_tdlib_spike.h"

#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "conversation/chat_actions.h"
#include "conversation/chat_session.h"
#include "conversation/composer.h"
#include "conversation/message_actions.h"
#include "conversation/message_row_model.h"
#include "conversation/message_search.h"
#include "conversation/pinned_messages.h"
#include "conversation/ui/chat_screen.h"
#include "conversation/ui/message_item_provider.h"
#include "conversation/ui/pinned_item_provider.h"
#include "conversation/voice_record_gesture.h"
#include "events/event_dispatcher.h"
#include "media/media_downloads.h"
#include "media/ui/video_note_widgets.h"
#include "media/ui/video_view.h"
#include "media/video_note_player.h"
#include "media/video_note_recorder.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "platform/array_data_model.h"
#include "platform/clipboard.h"
#include "platform/toaster.h"
#include "platform/ui/file_picker.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "platform/ui/toast_overlay.h"
#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"

#include <QFileInfo>
#include <QTimer>

void UiTdlibSpike::buildConversation()
{
    m_messageRows = new ArrayDataModel(this);
    m_messages = new MessageRowModel(m_messageRows, m_chats, m_avatars, this);
    m_session = new ChatSession(m_messages, m_chats, this);
    m_composer = new Composer(
        m_session, [this](qint64 chatId) { return m_dispatcher->chatInfo(chatId); }, this);

    m_messageListView = new ListView;
    m_messageListView->setObjectName(QStringLiteral("message_list_view"));
    m_messageListView->setFrameShape(QFrame::NoFrame);
    set_background_group(m_messageListView, ThemeGroup::B);
    // New messages keep the view at the end while the user reads there; an
    // older page goes in above without moving what is on screen.
    m_messageListView->setStickToEnd(true);
    m_messageListView->setProperty("ui_dark_theme", m_darkTheme);
    m_messageItems = new MessageItemProvider(m_folders.dataDir + QStringLiteral("/ui-cache"), this);
    m_messageListView->setDataModel(m_messageRows);
    m_messageListView->setListItemProvider(m_messageItems);
    m_chatScreen->setMessageListView(m_messageListView);
    m_downloads->setListView(m_messageListView);
    m_voicePlayer->setListView(m_messageListView);
    m_videoNotePlayer->setListView(m_messageListView);
    // The media framework starts once a voice or round note comes into a chat, shortly after
    // it is drawn, so that the first tap plays at once. It costs some 3 MB, which chats
    // without such notes do not pay; the players themselves are made on the first tap.
    const auto prepareMediaFor = [this](int first, int last) {
        for (int i = first; i <= last && !m_mediaFrameworkRequested; ++i) {
            const QString type =
                m_messageRows->value(i).value(QStringLiteral("media_type")).toString();
            if (type == QLatin1String("voice") || type == QLatin1String("video_note")) {
                m_mediaFrameworkRequested = true;
                QTimer::singleShot(500, m_voicePlayer, &VoicePlayer::prepare);
            }
        }
    };
    connect(m_messageRows, &QAbstractItemModel::rowsInserted, this,
            [prepareMediaFor](const QModelIndex &, int first, int last) {
                prepareMediaFor(first, last);
            });
    connect(m_messageRows, &QAbstractItemModel::modelReset, this,
            [this, prepareMediaFor] { prepareMediaFor(0, m_messageRows->size() - 1); });
    m_videoNotePreview = new VideoNoteRecordPreview(m_chatScreen);
    m_videoNotePreview->hide();
    m_videoNoteOverlayTimer = new QTimer(this);
    m_videoNoteOverlayTimer->setInterval(40);
    m_filePicker = new FilePicker(m_window->screenHost());
    m_clipboard = std::make_shared<SystemClipboard>();
    m_actions = new MessageActions(
        m_session, m_composer, m_clipboard.get(),
        [this](qint64 chatId) { return m_dispatcher->chatInfo(chatId); },
        [this](qint64 userId) { return m_dispatcher->userDisplayName(userId); }, this);
    m_chatActions = new ChatActions(
        m_session, m_chats, m_clipboard.get(),
        [this](qint64 chatId) { return m_dispatcher->chatInfo(chatId); }, this);

    m_pinnedRows = new ArrayDataModel(this);
    m_pinned = new PinnedMessages(m_pinnedRows, this);
    m_pinnedListView = new ListView;
    m_pinnedListView->setObjectName(QStringLiteral("pinned_list_view"));
    m_pinnedListView->setFrameShape(QFrame::NoFrame);
    m_pinnedListView->setProperty("ui_dark_theme", m_darkTheme);
    m_pinnedItems = new PinnedItemProvider(m_uiScale, this);
    m_pinnedListView->setDataModel(m_pinnedRows);
    m_pinnedListView->setListItemProvider(m_pinnedItems);
    m_chatScreen->setPinnedListView(m_pinnedListView);
    m_search = new MessageSearch(m_messageRows, this);
}

void UiTdlibSpike::connectConversation()
{
    const auto send = [this](const QString &line) { sendLine(line); };
    const auto log = [this](const QString &line) { appendLog(line); };

    // The session: opening, paging, jumps, read receipts, closing.
    connect(m_session, &ChatSession::sendLineRequested, this, send);
    connect(m_session, &ChatSession::logLine, this, log);
    connect(m_session, &ChatSession::chatOpened, this, &UiTdlibSpike::onChatOpened);
    connect(m_session, &ChatSession::chatClosed, this, &UiTdlibSpike::onChatClosed);
    connect(m_session, &ChatSession::lastReadOutboxChanged, this, [this](qint64 id) {
        m_messageListView->setProperty("chat_last_read_outbox_message_id", id);
        m_messageListView->updateVisibleItems();
    });
    connect(m_session, &ChatSession::scrollToEndRequested, this,
            [this](ChatSession::ScrollAnimation animation) {
                m_messageListView->scrollToPosition(
                    ListView::End, animation == ChatSession::ScrollAnimation::Smooth);
            });
    connect(m_session, &ChatSession::scrollToMessageRequested, this,
            [this](qint64, int row, ChatSession::ScrollAnimation animation) {
                m_messageListView->scrollToItem({row},
                                                animation == ChatSession::ScrollAnimation::Smooth);
            });
    connect(m_session, &ChatSession::jumpToBottomVisibleChanged, m_chatScreen,
            &ChatScreen::setToBottomVisible);
    // The list keeps the anchor row in place by itself; the page is logged.
    connect(m_session, &ChatSession::olderPageInserted, this, [this](int count, qint64 anchor) {
        m_log->appendUiFileLog(
            QStringLiteral("ui: older page rows=%1 anchor=%2\n").arg(count).arg(anchor));
    });
    connect(m_session, &ChatSession::historyCleared, this,
            [this] { m_downloads->setFilePendingFileId(0); });

    // The message list's state drives the paging.
    connect(m_messageListView, &ListView::atBeginningChanged, m_session,
            &ChatSession::onMessagesAtBeginningChanged);
    connect(m_messageListView, &ListView::atEndChanged, m_session,
            &ChatSession::onMessagesAtEndChanged);
    connect(m_messageListView, &ListView::firstVisibleItemChanged, m_session,
            &ChatSession::onMessagesFirstVisibleItemChanged);

    // The rows.
    connect(m_messages, &MessageRowModel::sendLineRequested, this, send);
    connect(m_messages, &MessageRowModel::logLine, this, log);
    // A message that arrives while the user reads the end is read.
    connect(m_messages, &MessageRowModel::messageAppended, m_session,
            [this] { m_session->maybeSendReadForCurrentChatAtEnd(); });
    connect(m_messages, &MessageRowModel::mediaDownloadRequested, this,
            [this](qint64 fileId) { m_downloads->enqueueMediaDownload(fileId, false); });
    connect(m_dispatcher, &EventDispatcher::messageEvent, m_session,
            &ChatSession::handleMessageEvent);
    connect(m_dispatcher, &EventDispatcher::currentChatReadOutboxChanged, this,
            [this](qint64 previousId, qint64 newId, bool redrawRows) {
                m_messageListView->setProperty("chat_last_read_outbox_message_id", newId);
                if (redrawRows)
                    m_messages->touchOutgoingRowsForReadOutbox(previousId, newId);
            });
    connect(m_dispatcher, &EventDispatcher::connectionStateChanged, m_messages,
            [this] { m_messages->touchPendingOutgoingRows(); });
    connect(m_dispatcher, &EventDispatcher::avatarReady, this,
            [this](qint64 fileId, const QString &path) {
                m_messages->setSenderAvatarPathForFile(fileId, path);
                const QVariantMap chat = m_session->chatRow();
                if (m_session->chatId() != 0 &&
                    chat.value(QStringLiteral("photo_small_id")).toString().toLongLong() == fileId)
                    m_chatScreen->setAvatar(m_session->chatId(),
                                            chat.value(QStringLiteral("title")).toString(), path);
            });
    connect(m_dispatcher, &EventDispatcher::chatInfoChanged, this, [this](qint64 chatId) {
        if (chatId == m_session->chatId())
            m_composer->updateComposerVisibilityForCurrentChat();
    });
    // Signed out: nothing of the chat stays on screen.
    connect(m_dispatcher, &EventDispatcher::signedInViewResetRequested, this, [this] {
        m_viewerPhotoId = 0;
        m_viewerVideoId = 0;
        m_viewerPhotoPath.clear();
        m_screens->photoViewer()->clearMedia();
        m_screens->videoViewer()->clearMedia();
        m_composer->clearEdit(false);
        m_composer->clearReply();
        if (m_session->chatId() != 0)
            m_session->onBackToChats();
    });
    m_dispatcher->setMessageRows(m_messageRows, m_messages->historyBatchRows());

    // Downloads: a finished file fills the rows that show it (as the photo,
    // the thumbnail or the document), ends the user's wait for it and starts
    // a voice note that waited for it; progress moves the waiting row.
    connect(m_dispatcher, &EventDispatcher::fileEvent, this, [this](const QVariantMap &e) {
        const qint64 fileId = e.value(QStringLiteral("id")).toLongLong();
        if (fileId < 1)
            return;
        if (e.value(QStringLiteral("type")).toString() == QLatin1String("file_progress")) {
            m_downloads->onFileProgress(fileId, e.value(QStringLiteral("downloaded")).toLongLong(),
                                        e.value(QStringLiteral("total")).toLongLong());
            m_messages->touchMessageRowsForMediaFileId(fileId);
            return;
        }
        const QString path = e.value(QStringLiteral("path")).toString();
        m_messages->setMediaPathForFile(fileId, path);
        m_messages->setMediaThumbPathForFile(fileId, path);
        m_downloads->onPendingFileDownloaded(fileId, path, QString());
        if (m_voicePlayer->pendingFileId() == fileId && QFileInfo(path).isFile())
            m_voicePlayer->startVoicePlayback(fileId, path);
        if (m_videoNotePlayer->pendingFileId() == fileId && QFileInfo(path).isFile())
            startVideoNotePlayback(fileId, path, m_videoNotePlayer->pendingMessageId());
    });

    // Media rows redraw when their download or playback state changes.
    connect(m_downloads, &MediaDownloads::mediaRowsNeedRefresh, m_messages,
            [this](long long fileId) { m_messages->touchMessageRowsForMediaFileId(fileId); });
    connect(m_voicePlayer, &VoicePlayer::mediaRowsNeedRefresh, m_messages,
            [this](long long fileId) { m_messages->touchMessageRowsForMediaFileId(fileId); });
    connect(m_downloads, &MediaDownloads::fileSharedPathChanged, m_messages,
            [this](long long fileId, const QString &path) {
                m_messages->setFileSharedPathForFile(fileId, path);
            });

    // The bubbles.
    connect(m_messageItems, &MessageItemProvider::replyPreviewTapped, m_session,
            &ChatSession::onReplyPreviewTapped);
    connect(m_messageItems, &MessageItemProvider::downloadRequested, this,
            [this](qint64 fileId) { m_downloads->enqueueMediaDownload(fileId, false); });
    connect(
        m_messageItems, &MessageItemProvider::videoTapped, this,
        [this](const QString &path, qint64 fileId) { m_downloads->onVideoTapped(path, fileId); });
    connect(m_messageItems, &MessageItemProvider::fileIconTapped, this,
            [this](const QString &path, qint64 fileId) {
                m_downloads->onFileIconTapped(path, fileId);
            });
    connect(
        m_messageItems, &MessageItemProvider::fileTapped, this,
        [this](const QString &path, qint64 fileId) { m_downloads->onFileTapped(path, fileId); });
    connect(
        m_messageItems, &MessageItemProvider::voiceTapped, this,
        [this](const QString &path, qint64 fileId) { m_voicePlayer->onVoiceTapped(path, fileId); });
    connectViewers();

    // The composer and the chat screen.
    connect(m_composer, &Composer::sendLineRequested, this, send);
    connect(m_composer, &Composer::logLine, this, log);
    connect(m_composer, &Composer::toastRequested, this,
            [this](const QString &text) { m_toaster->showToast(text); });
    connect(m_composer, &Composer::textReplaced, m_chatScreen, &ChatScreen::setComposerText);
    connect(m_composer, &Composer::replyBarChanged, m_chatScreen,
            [this](bool visible, const QString &text) {
                m_chatScreen->setReplyPreview(visible ? text : QString());
            });
    connect(m_composer, &Composer::editBarChanged, m_chatScreen,
            [this](bool visible, const QString &text) {
                m_chatScreen->setEditPreview(visible ? text : QString());
            });
    connect(m_composer, &Composer::actionIconChanged, m_chatScreen, &ChatScreen::setActionIcon);
    connect(m_composer, &Composer::composerVisibleChanged, m_chatScreen,
            &ChatScreen::setComposerVisible);
    connect(m_composer, &Composer::focusRequested, m_chatScreen, &ChatScreen::focusComposer);
    connect(m_composer, &Composer::filePickerRequested, this, [this](const QString &title) {
        m_filePicker->setTitle(title);
        m_filePicker->setDirectories(
            {QFileInfo(m_folders.downloadsDir).path(), m_folders.documentsDir, m_folders.photosDir,
             m_folders.musicDir, m_folders.videosDir, QFileInfo(m_folders.miscDir).path()});
        m_filePicker->show();
    });
    connect(m_filePicker, &FilePicker::finished, m_composer, &Composer::onAttachFileSelected);
    connect(m_chatScreen, &ChatScreen::composerTextChanged, m_composer, &Composer::setText);
    connect(m_chatScreen, &ChatScreen::sendRequested, m_composer, &Composer::onSendMessage);
    connect(m_chatScreen, &ChatScreen::attachRequested, m_composer, &Composer::onAttachTap);
    connect(m_chatScreen, &ChatScreen::editLastRequested, m_actions,
            &MessageActions::editNewestOwnMessage);
    connect(m_chatScreen, &ChatScreen::replyCancelled, m_composer, &Composer::clearReply);
    connect(m_chatScreen, &ChatScreen::editCancelled, m_composer,
            [this] { m_composer->clearEdit(true); });
    connect(m_chatScreen, &ChatScreen::toBottomRequested, m_session, &ChatSession::onJumpToBottom);
    connect(m_chatScreen, &ChatScreen::backRequested, this, &UiTdlibSpike::onBackToChats);
    connectMessageActions();
    connectChatActions();
    connectPinnedAndSearch();
    connectVoiceRecording();
    connectVideoNotes();
    // The chat list is complete (and sign-in done, or the app back in front):
    // the moment to open a chat asked for from outside.
    connect(m_dispatcher, &EventDispatcher::hubOpenRequestCheckRequested, this,
            &UiTdlibSpike::tryAutoOpenChat);
}

void UiTdlibSpike::tryAutoOpenChat()
{
    if (m_autoOpenDone || m_chats->isBulkLoading() || m_chats->size() == 0)
        return;
    const qint64 id = m_link->autoOpenChatId();
    const int row =
        id != 0 ? m_chats->findChatIndexById(id) : (m_link->autoOpenFirstChat() ? 0 : -1);
    if (row < 0)
        return;
    m_autoOpenDone = true;
    appendLog(QStringLiteral("ui: auto-open chat %1\n")
                  .arg(m_chats->rowAt(row).value(QStringLiteral("id")).toString()));
    openChatFromRow(m_chats->rowAt(row));
}

void UiTdlibSpike::connectMessageActions()
{
    connect(m_actions, &MessageActions::sendLineRequested, this,
            [this](const QString &line) { sendLine(line); });
    connect(m_actions, &MessageActions::logLine, this,
            [this](const QString &line) { appendLog(line); });
    connect(m_actions, &MessageActions::toastRequested, this,
            [this](const QString &text) { m_toaster->showToast(text); });
    connect(m_actions, &MessageActions::selectionModeChanged, this, [this](bool on) {
        m_messageListView->setProperty("ui_selection_mode", on);
        m_chatScreen->setSelectionMode(on);
        m_messageListView->updateVisibleItems();
    });
    connect(m_actions, &MessageActions::selectionCountChanged, m_chatScreen,
            &ChatScreen::setSelectionCount);
    connect(m_actions, &MessageActions::selectionActionsChanged, m_chatScreen,
            &ChatScreen::setSelectionActions);
    connect(m_actions, &MessageActions::focusComposerRequested, m_chatScreen,
            &ChatScreen::focusComposer);
    connect(m_composer, &Composer::selectionModeExitRequested, m_actions,
            [this] { m_actions->setSelectionMode(false); });

    // Touches on the bubbles and the selection bar.
    connect(m_messageItems, &MessageItemProvider::messageLongPressed, m_actions,
            &MessageActions::onMessageLongPressed);
    connect(m_messageItems, &MessageItemProvider::messageMenuRequested, m_actions,
            &MessageActions::showMessageMenu);
    connect(m_messageItems, &MessageItemProvider::messageSelectionToggleRequested, m_actions,
            &MessageActions::onMessageSelectionToggleRequested);
    connect(m_messageItems, &MessageItemProvider::messageSelectClicked, m_actions,
            &MessageActions::onMessageSelectClicked);
    connect(m_messageItems, &MessageItemProvider::reactionChipTapped, m_actions,
            &MessageActions::onReactionChipTapped);
    connect(m_chatScreen, &ChatScreen::selectionClosed, m_actions,
            [this] { m_actions->setSelectionMode(false); });
    connect(m_chatScreen, &ChatScreen::selectionReplyRequested, m_composer,
            [this] { m_composer->onSelectionReplyTapped(m_actions->selectedIds()); });
    connect(m_chatScreen, &ChatScreen::selectionForwardRequested, m_actions,
            &MessageActions::onSelectionForwardTapped);
    connect(m_chatScreen, &ChatScreen::selectionDeleteRequested, m_actions,
            &MessageActions::onSelectionDeleteTapped);

    // One dialog at a time over the phone screen; it carries its own state
    // as dynamic properties and hands them back when it ends.
    connect(m_actions, &MessageActions::dialogRequested, this,
            [this](const MessageActions::DialogRequest &request) {
                if (m_actionDialog) {
                    m_actionDialog->cancel();
                    m_actionDialog->deleteLater();
                }
                using Request = MessageActions::DialogRequest;
                SystemUiDialog *dialog = nullptr;
                SystemListDialog *list = nullptr;
                SystemDialog *confirm = nullptr;
                if (request.kind == Request::Delete) {
                    confirm = new SystemDialog(request.confirmLabel, request.cancelLabel,
                                               m_window->screenHost());
                    confirm->setRememberMeText(request.optionText);
                    confirm->setRememberMeChecked(request.optionChecked);
                    dialog = confirm;
                } else {
                    list = new SystemListDialog(m_window->screenHost());
                    list->setConfirmLabel(request.confirmLabel);
                    list->setCancelLabel(request.cancelLabel);
                    list->setItems(request.items);
                    dialog = list;
                }
                static const char *const names[] = {"message_menu_dialog", "forward_dialog",
                                                    "delete_dialog", "reactions_dialog"};
                dialog->setObjectName(QLatin1String(names[request.kind]));
                dialog->setTitle(request.title);
                dialog->setBody(request.body);
                for (auto it = request.properties.cbegin(); it != request.properties.cend(); ++it)
                    dialog->setProperty(it.key().toUtf8().constData(), it.value());
                const QStringList keys = request.properties.keys();
                const Request::Kind kind = request.kind;
                connect(dialog, &SystemUiDialog::finished, this,
                        [this, dialog, list, confirm, keys, kind](int result) {
                            QVariantMap props;
                            for (const QString &key : keys)
                                props.insert(key, dialog->property(key.toUtf8().constData()));
                            props.insert(QStringLiteral("react_handled"),
                                         dialog->property("react_handled"));
                            const int index = list ? list->selectedIndices().value(0, -1) : -1;
                            switch (kind) {
                            case Request::MessageMenu:
                                m_actions->onMessageMenuDialogFinished(props, result, index);
                                break;
                            case Request::Forward:
                                m_actions->onForwardDialogFinished(props, result, index);
                                break;
                            case Request::Delete:
                                m_actions->onDeleteDialogFinished(props, result,
                                                                  confirm->rememberMeChecked());
                                break;
                            case Request::Reactions:
                                m_actions->handleReactionsDialogFinishedCommon(
                                    &props, QStringLiteral("finished"), result, index);
                                dialog->setProperty("react_handled",
                                                    props.value(QStringLiteral("react_handled")));
                                break;
                            }
                            dialog->deleteLater();
                        });
                m_actionDialog = dialog;
                dialog->show();
            });
}

void UiTdlibSpike::updateChatInfoFromModel()
{
    m_screens->chatInfoScreen()->setDetails(m_chatActions->updateChatInfoFromModel());
}

void UiTdlibSpike::connectChatActions()
{
    connect(m_chatActions, &ChatActions::sendLineRequested, this,
            [this](const QString &line) { sendLine(line); });
    connect(m_chatActions, &ChatActions::toastRequested, this,
            [this](const QString &text) { m_toaster->showToast(text); });

    ChatInfoScreen *info = m_screens->chatInfoScreen();
    // The page shows what is known at once and asks the backend for the
    // rest; its answer, membership and mute changes come as chatInfoChanged.
    connect(m_chatScreen, &ChatScreen::infoRequested, this, [this] {
        appendLog(QStringLiteral("ui: open chat info\n"));
        updateChatInfoFromModel();
        if (m_session->chatId() != 0)
            sendLine(QStringLiteral("chat_info %1").arg(m_session->chatId()));
    });
    connect(info, &ChatInfoScreen::backRequested, this,
            [this] { appendLog(QStringLiteral("ui: close chat info\n")); });
    connect(m_dispatcher, &EventDispatcher::chatInfoChanged, this, [this](qint64 chatId) {
        if (chatId == m_session->chatId() &&
            m_screens->currentScreen() == ShellScreens::Screen::ChatInfo)
            updateChatInfoFromModel();
    });
    connect(info, &ChatInfoScreen::clearHistoryRequested, m_chatActions,
            &ChatActions::onChatInfoClearHistory);
    connect(info, &ChatInfoScreen::joinRequested, m_chatActions, &ChatActions::onChatInfoJoin);
    connect(info, &ChatInfoScreen::leaveRequested, m_chatActions, &ChatActions::onChatInfoLeave);
    connect(info, &ChatInfoScreen::deleteChatRequested, m_chatActions,
            &ChatActions::onChatInfoDeleteChat);
    connect(info, &ChatInfoScreen::copyLinkRequested, m_chatActions,
            &ChatActions::onChatInfoCopyLink);
    connect(info, &ChatInfoScreen::copyIdRequested, m_chatActions, &ChatActions::onChatInfoCopyId);
    connect(info, &ChatInfoScreen::membersRequested, m_chatActions,
            &ChatActions::onChatInfoMembersTapped);
    connect(info, &ChatInfoScreen::notificationsToggleRequested, m_chatActions,
            &ChatActions::onChatInfoToggleNotifications);

    // At most one confirmation: a newer one cancels the older, which then
    // never answers.
    connect(m_chatActions, &ChatActions::dialogRequested, this,
            [this](const ChatActions::ConfirmRequest &request) {
                if (m_chatActionDialog) {
                    m_chatActionDialog->cancel();
                    m_chatActionDialog->deleteLater();
                }
                auto *dialog = new SystemDialog(request.confirmLabel, request.cancelLabel,
                                                m_window->screenHost());
                dialog->setObjectName(QStringLiteral("chat_action_dialog"));
                dialog->setTitle(request.title);
                dialog->setBody(request.body);
                for (auto it = request.properties.cbegin(); it != request.properties.cend(); ++it)
                    dialog->setProperty(it.key().toUtf8().constData(), it.value());
                const QStringList keys = request.properties.keys();
                connect(dialog, &SystemUiDialog::finished, this, [this, dialog, keys](int result) {
                    QVariantMap props;
                    for (const QString &key : keys)
                        props.insert(key, dialog->property(key.toUtf8().constData()));
                    m_chatActions->onChatActionDialogFinished(props, result);
                    dialog->deleteLater();
                });
                m_chatActionDialog = dialog;
                dialog->show();
            });
}

void UiTdlibSpike::connectPinnedAndSearch()
{
    // Pinned messages: the bar and the list follow the events of the open
    // chat; a tap goes through the conversation's jump search.
    connect(m_dispatcher, &EventDispatcher::pinnedEvent, m_pinned, &PinnedMessages::handleEvent);
    connect(m_pinned, &PinnedMessages::sendLineRequested, this,
            [this](const QString &line) { sendLine(line); });
    connect(m_pinned, &PinnedMessages::jumpRequested, m_session, &ChatSession::jumpToMessage);
    connect(m_pinned, &PinnedMessages::layoutChanged, this, &UiTdlibSpike::updatePinnedPanelLayout);
    connect(m_chatScreen, &ChatScreen::pinnedBarTapped, m_pinned,
            &PinnedMessages::onPinnedBarTapped);
    connect(m_chatScreen, &ChatScreen::pinnedExpandToggled, m_pinned,
            &PinnedMessages::onTogglePinnedExpand);
    connect(m_pinnedListView, &ListView::triggered, m_pinned, [this](const QVariantList &path) {
        m_pinned->onPinnedItemTapped(path.value(0, -1).toInt());
    });
    connect(m_pinnedRows, &QAbstractItemModel::rowsInserted, this,
            &UiTdlibSpike::updatePinnedPanelLayout);

    // The overflow menu, and search in the loaded messages.
    connect(m_chatScreen, &ChatScreen::moreRequested, this, &UiTdlibSpike::showOverflowMenu);
    connect(m_chatActions, &ChatActions::searchRequested, m_search, &MessageSearch::open);
    connect(m_chatScreen, &ChatScreen::searchRequested, m_search, [this] {
        if (m_session->chatId() != 0)
            m_search->open();
    });
    connect(m_chatScreen, &ChatScreen::searchTextChanged, m_search, &MessageSearch::setQuery);
    connect(m_chatScreen, &ChatScreen::searchNextRequested, m_search, &MessageSearch::next);
    connect(m_chatScreen, &ChatScreen::searchPreviousRequested, m_search, &MessageSearch::previous);
    connect(m_chatScreen, &ChatScreen::searchOlderRequested, m_search, &MessageSearch::searchOlder);
    connect(m_chatScreen, &ChatScreen::searchClosed, m_search, &MessageSearch::close);
    connect(m_search, &MessageSearch::stateChanged, this, &UiTdlibSpike::onSearchStateChanged);
    connect(m_search, &MessageSearch::currentChanged, m_session, &ChatSession::jumpToMessage);
    connect(m_search, &MessageSearch::loadOlderRequested, this, [this] {
        if (m_session->loadOlderPage())
            return;
        if (m_session->noMoreHistory())
            m_search->setOlderAvailable(false);
        else
            m_search->onOlderPageLoaded();
    });
    connect(m_session, &ChatSession::olderPageInserted, m_search,
            [this] { m_search->onOlderPageLoaded(); });
    connect(m_session, &ChatSession::noMoreHistoryReached, m_search,
            [this] { m_search->setOlderAvailable(false); });
    // Another chat: no pins and no search carried over.
    connect(m_session, &ChatSession::chatOpened, this, [this](qint64 chatId) {
        m_pinned->setChatId(chatId);
        m_search->close();
        m_search->setOlderAvailable(true);
    });
    connect(m_session, &ChatSession::chatClosed, this, [this] {
        m_pinned->setChatId(0);
        m_search->close();
    });
}

void UiTdlibSpike::updatePinnedPanelLayout()
{
    m_chatScreen->setPinnedBar(m_pinned->isBarVisible(), m_pinned->barCaption(),
                               m_pinned->barText(), m_pinned->isExpanded());
    const bool listVisible = m_pinned->isBarVisible() && m_pinned->isExpanded();
    m_chatScreen->setPinnedListVisible(listVisible, m_pinnedRows->size(),
                                       listVisible ? m_pinnedItems->rowHeight(m_pinnedListView)
                                                   : 0);
}

void UiTdlibSpike::onSearchStateChanged()
{
    m_chatScreen->setSearchVisible(m_search->isActive());
    m_chatScreen->setSearchStatus(m_search->statusText(), m_search->isOlderOffered(),
                                  m_search->isWaitingForOlder());
    // The bubbles mark the matches; the current one stands out.
    const QString query = m_search->isActive() ? m_search->query() : QString();
    const qint64 current = m_search->currentMessageId();
    if (m_messageListView->property("ui_search_query").toString() != query ||
        m_messageListView->property("ui_search_current_id").toLongLong() != current) {
        m_messageListView->setProperty("ui_search_query", query);
        m_messageListView->setProperty("ui_search_current_id", current);
        m_messageListView->updateVisibleItems();
    }
}

void UiTdlibSpike::showOverflowMenu()
{
    const QStringList actions = m_chatActions->overflowActions();
    if (actions.isEmpty())
        return;
    QStringList items;
    for (const QString &action : actions)
        items << m_chatActions->overflowActionText(action);
    if (m_actionDialog) {
        m_actionDialog->cancel();
        m_actionDialog->deleteLater();
    }
    auto *list = new SystemListDialog(m_window->screenHost());
    list->setObjectName(QStringLiteral("chat_overflow_dialog"));
    list->setTitle(m_chatScreen->title());
    list->setItems(items);
    list->setCancelLabel(QStringLiteral("Cancel"));
    connect(list, &SystemUiDialog::finished, this, [this, list, actions](int result) {
        const int index = list->selectedIndices().value(0, -1);
        list->deleteLater();
        // A tapped row is the answer.
        if (result == 2 && index >= 0 && index < actions.size())
            m_chatActions->onOverflowActionChosen(actions.at(index));
    });
    m_actionDialog = list;
    list->show();
}

void UiTdlibSpike::connectVoiceRecording()
{
    VoiceRecordGesture::Hooks hooks;
    hooks.voiceRecording = [this] { return m_voiceRecorder->voiceRecording(); };
    hooks.videoRecording = [this] { return m_videoNoteRecorder->isRecording(); };
    hooks.videoCaptureStarted = [this] { return m_videoNoteRecorder->captureStarted(); };
    hooks.editing = [this] { return m_composer->editingMessageId() != 0; };
    hooks.composerEmpty = [this] { return m_composer->text().trimmed().isEmpty(); };
    hooks.videoNoteMode = [this] { return m_composer->isVideoNoteMode(); };
    hooks.startVoice = [this] {
        m_voiceRecorder->setChatId(m_session->chatId());
        m_voiceRecorder->setReplyToMessageId(m_composer->replyToMessageId());
        m_voiceRecorder->startVoiceRecording();
        return m_voiceRecorder->voiceRecording();
    };
    hooks.startVideo = [this] { return startVideoNoteCapture(); };
    hooks.stopVoice = [this](bool send) { m_voiceRecorder->stopVoiceRecording(send); };
    hooks.stopVideo = [this](bool send) { stopVideoNoteCapture(send); };
    hooks.toggleVideoNoteMode = [this] { m_composer->toggleComposerVideoNoteMode(); };
    hooks.sendMessage = [this] { m_composer->onSendMessage(); };
    m_voiceGesture = new VoiceRecordGesture(hooks, m_uiScale, this);

    connect(m_chatScreen, &ChatScreen::actionTouched, m_voiceGesture,
            &VoiceRecordGesture::onComposerActionTouch);
    connect(m_voiceGesture, &VoiceRecordGesture::panelUpdateRequested, this,
            &UiTdlibSpike::updateVoiceRecordPanel);
    connect(m_voiceRecorder, &VoiceRecorder::gestureResetRequested, m_voiceGesture,
            &VoiceRecordGesture::reset);
    connect(m_voiceRecorder, &VoiceRecorder::voiceRecordingChanged, this, [this](bool recording) {
        if (recording)
            m_chatScreen->setComposerText(QString());
        m_chatScreen->setComposerReadOnly(recording);
        m_composer->setVoiceRecording(recording);
        updateVoiceRecordPanel();
    });
    connect(m_voiceRecorder, &VoiceRecorder::replyTargetConsumed, m_composer,
            &Composer::clearReply);
    connect(m_voiceRecorder, &VoiceRecorder::inputLevelChanged, m_chatScreen, [this](qreal level) {
        m_chatScreen->setRecordProgress(int(m_voiceRecorder->recordingElapsedMs() / 1000), level);
    });
}

void UiTdlibSpike::updateVoiceRecordPanel()
{
    const bool recording = m_voiceRecorder->voiceRecording();
    const bool locked = m_voiceGesture->locked();
    const QString text = voice_record_panel_text(recording, m_videoNoteRecorder->isRecording(),
                                                 m_videoNoteRecorder->captureStarted(), locked);
    m_chatScreen->setRecordPanel(text, !text.isEmpty(), locked);
}

bool UiTdlibSpike::startVideoNoteCapture()
{
    // The camera's sound would be drowned by a note playing meanwhile.
    m_videoNotePlayer->stopVideoNotePlayback();
    m_voicePlayer->stopVoicePlayback();
    m_videoNoteRecorder->setChatId(m_session->chatId());
    m_videoNoteRecorder->setReplyToMessageId(m_composer->replyToMessageId());
    return m_videoNoteRecorder->startVideoNoteCapture();
}

void UiTdlibSpike::stopVideoNoteCapture(bool send)
{
    m_videoNoteRecorder->stopVideoNoteCapture(send);
}

void UiTdlibSpike::connectVideoNotes()
{
    // Recording: the composer is blocked, the panel says what happens and
    // the round preview shows the camera over the chat.
    connect(m_videoNoteRecorder, &VideoNoteRecorder::recordingChanged, this,
            [this](bool recording) {
                if (recording)
                    m_chatScreen->setComposerText(QString());
                m_chatScreen->setComposerReadOnly(recording);
                m_composer->setVideoNoteRecording(recording);
                m_videoNotePreview->clear();
                m_videoNotePreview->setVisible(recording);
                if (recording) {
                    placeVideoNotePreview();
                    m_videoNotePreview->raise();
                }
                updateVoiceRecordPanel();
            });
    connect(m_videoNoteRecorder, &VideoNoteRecorder::captureStartedChanged, this,
            &UiTdlibSpike::updateVoiceRecordPanel);
    connect(m_videoNoteRecorder, &VideoNoteRecorder::previewFrame, this, [this](const QImage &f) {
        const qint64 ms = m_videoNoteRecorder->elapsedMs();
        // Placed again with each picture: the window may have changed size.
        placeVideoNotePreview();
        m_videoNotePreview->setFrame(f);
        m_videoNotePreview->setElapsed(ms, VideoNoteRecorder::kMaxSeconds * 1000);
        m_chatScreen->setRecordProgress(int(ms / 1000), m_videoNoteLevel);
    });
    connect(m_videoNoteRecorder, &VideoNoteRecorder::inputLevelChanged, this,
            [this](qreal level) { m_videoNoteLevel = level; });
    connect(m_videoNoteRecorder, &VideoNoteRecorder::gestureResetRequested, m_voiceGesture,
            &VoiceRecordGesture::reset);
    connect(m_videoNoteRecorder, &VideoNoteRecorder::replyTargetConsumed, m_composer,
            &Composer::clearReply);

    // Playback in the row: a tap plays or pauses; one note or voice note at
    // a time.
    connect(m_messageItems, &MessageItemProvider::videoNoteTapped, this,
            [this](QWidget *, const QString &path, qint64 fileId, qint64 messageId) {
                m_videoNotePlayer->onVideoNoteTapped(path, fileId, messageId);
            });
    connect(m_voicePlayer, &VoicePlayer::videoNotePlaybackStopRequested, m_videoNotePlayer,
            &VideoNotePlayer::stopVideoNotePlayback);
    connect(m_videoNotePlayer, &VideoNotePlayer::voicePlaybackStopRequested, m_voicePlayer,
            &VoicePlayer::stopVoicePlayback);
    connect(m_videoNotePlayer, &VideoNotePlayer::mediaRowsNeedRefresh, m_messages,
            [this](long long fileId) { m_messages->touchMessageRowsForMediaFileId(fileId); });
    connect(m_videoNotePlayer, &VideoNotePlayer::frameReady, this, [this](const QImage &frame) {
        m_messageItems->showVideoNoteFrame(videoNoteRowItem(),
                                           m_videoNotePlayer->playingMessageId(), frame,
                                           m_videoNotePlayer->progress());
    });
    connect(m_videoNotePlayer, &VideoNotePlayer::playingChanged, this, [this](bool playing) {
        if (playing)
            m_videoNoteOverlayTimer->start();
        else
            m_videoNoteOverlayTimer->stop();
    });
    connect(m_videoNoteOverlayTimer, &QTimer::timeout, this, &UiTdlibSpike::onVideoNoteOverlayTick);
}

void UiTdlibSpike::placeVideoNotePreview()
{
    if (!m_videoNotePreview || !m_videoNotePreview->isVisible())
        return;
    const int w = m_chatScreen->width();
    const int h = m_chatScreen->height();
    m_videoNotePreview->setDiameter(qMin(w * 3 / 5, h / 2));
    m_videoNotePreview->move((w - m_videoNotePreview->width()) / 2,
                             qMax(0, (h - m_videoNotePreview->height()) * 2 / 5));
}

void UiTdlibSpike::startVideoNotePlayback(qint64 fileId, const QString &path, qint64 messageId)
{
    m_videoNotePlayer->startVideoNotePlayback(fileId, path, messageId);
}

QWidget *UiTdlibSpike::videoNoteRowItem() const
{
    const qint64 id = m_videoNotePlayer->playingMessageId();
    const int row = id > 0 ? m_messages->findMessageIndexById(id) : -1;
    QWidget *item = row >= 0 ? m_messageListView->itemWidget(row) : nullptr;
    if (!item || !item->isVisible())
        return nullptr;
    // On screen means some of the circle is inside the viewport.
    auto *mask = item->findChild<QWidget *>(QStringLiteral("msg_video_note_mask"));
    if (!mask || !mask->isVisible())
        return nullptr;
    const QRect circle(mask->mapTo(m_messageListView->viewport(), QPoint(0, 0)), mask->size());
    return circle.intersects(m_messageListView->viewport()->rect()) ? item : nullptr;
}

void UiTdlibSpike::onVideoNoteOverlayTick()
{
    if (m_videoNotePlayer->playingMessageId() < 1) {
        m_videoNoteOverlayTimer->stop();
        return;
    }
    QWidget *item = videoNoteRowItem();
    if (!item || !m_screens || m_screens->currentScreen() != ShellScreens::Screen::Conversation) {
        appendLog(QStringLiteral("video_note: row left the screen\n"));
        m_videoNotePlayer->stopVideoNotePlayback();
        return;
    }
    m_messageItems->showVideoNoteFrame(item, m_videoNotePlayer->playingMessageId(), QImage(),
                                       m_videoNotePlayer->progress());
}

void UiTdlibSpike::onChatOpened(qint64 chatId, const QString &title, const QVariantMap &chatRow)
{
    // Whatever played or downloaded for the chat being left stops with it.
    m_voicePlayer->stopVoicePlayback();
    m_videoNotePlayer->stopVideoNotePlayback();
    m_downloads->setFilePendingFileId(0);

    const QString avatarPath = chatRow.value(QStringLiteral("avatar_path")).toString();
    m_chatScreen->setTitle(title);
    m_chatScreen->setAvatar(chatId, title, avatarPath);
    m_chatScreen->setSubtitle(QString());
    const qint64 photo = chatRow.value(QStringLiteral("photo_small_id")).toString().toLongLong();
    if (avatarPath.isEmpty() && photo > 0)
        m_avatars->enqueueAvatarDownload(photo);
    m_dispatcher->setCurrentChat(chatId, chatRow.value(QStringLiteral("chat_type")).toString());
    m_dispatcher->updateChatHeaderSubtitleForCurrentChat();
    m_screens->showScreen(ShellScreens::Screen::Conversation);
    m_chatScreen->focusComposer();
    m_messageListView->viewport()->installEventFilter(this);
}

void UiTdlibSpike::onChatClosed()
{
    m_voicePlayer->stopVoicePlayback();
    m_videoNotePlayer->stopVideoNotePlayback();
    m_videoNoteRecorder->stopVideoNoteCapture(false);
    m_dispatcher->setCurrentChat(0, QString());
    if (m_screens)
        m_screens->showMainScreen();
}

void UiTdlibSpike::connectViewers()
{
    MediaViewerScreen *photo = m_screens->photoViewer();
    connect(m_messageItems, &MessageItemProvider::mediaTapped, this,
            [this](const QString &path, qint64 fileId, int width, int height) {
                m_viewerPhotoSize = QSize(width, height);
                m_downloads->onPhotoTapped(path, fileId);
            });
    connect(m_downloads, &MediaDownloads::photoViewerRequested, this,
            &UiTdlibSpike::openPhotoViewer);
    connect(m_downloads, &MediaDownloads::photoArrived, this,
            [this, photo](qint64 fileId, const QString &path) {
                if (fileId != m_viewerPhotoId || !QFileInfo(path).isFile())
                    return;
                m_viewerPhotoPath = path;
                photo->showPhoto(path);
                photo->setDownloadProgress(false, 0, 0);
                photo->setSaveEnabled(true);
            });
    MediaViewerScreen *video = m_screens->videoViewer();
    connect(m_downloads, &MediaDownloads::pendingProgress, this,
            [this, photo, video](qint64 fileId, qint64 done, qint64 total) {
                if (fileId == m_viewerPhotoId && m_viewerPhotoPath.isEmpty())
                    photo->setDownloadProgress(true, done, total);
                if (fileId == m_viewerVideoId && m_viewerVideoPath.isEmpty())
                    video->setDownloadProgress(true, done, total);
            });
    connect(photo, &MediaViewerScreen::saveRequested, this,
            [this] { m_downloads->saveViewed(m_viewerPhotoId, m_viewerPhotoPath, false); });

    connect(m_downloads, &MediaDownloads::videoViewerRequested, this,
            &UiTdlibSpike::openVideoViewer);
    // The awaited video plays when it arrives, unless the user has left it.
    connect(m_downloads, &MediaDownloads::videoArrived, this,
            [this, video](qint64 fileId, const QString &path) {
                if (fileId != m_viewerVideoId || !m_viewerVideoPath.isEmpty())
                    return;
                m_viewerVideoPath = path;
                video->playVideo(path);
            });
    connect(video, &MediaViewerScreen::backRequested, this, [this] {
        if (m_viewerVideoPath.isEmpty())
            m_viewerVideoId = 0;
    });
    connect(video, &MediaViewerScreen::saveRequested, this,
            [this] { m_downloads->saveViewed(m_viewerVideoId, m_viewerVideoPath, true); });
    connect(video->videoView(), &VideoView::failed, this, [this](const QString &message) {
        appendLog(QStringLiteral("ui: video failed: %1\n").arg(message.simplified()));
        m_toaster->showToast(QStringLiteral("Video cannot be played"));
    });
}

void UiTdlibSpike::openPhotoViewer(qint64 fileId, const QString &path)
{
    MediaViewerScreen *photo = m_screens->photoViewer();
    // On screen first, so the photo is decoded for the size it is shown at.
    m_screens->showScreen(ShellScreens::Screen::Photo);
    m_viewerPhotoId = fileId;
    m_viewerPhotoPath = path;
    photo->setSaveEnabled(!path.isEmpty());
    if (!path.isEmpty()) {
        photo->setDownloadProgress(false, 0, 0);
        photo->showPhoto(path);
    } else {
        // The thumbnail stands in, at the real picture's size, until the
        // picture itself arrives.
        QString thumb;
        const QString id = QString::number(fileId);
        for (int i = 0; i < m_messageRows->size() && thumb.isEmpty(); ++i) {
            const QVariantMap row = m_messageRows->value(i);
            if (row.value(QStringLiteral("media_file_id")).toString() == id)
                thumb = row.value(QStringLiteral("media_thumb_path")).toString();
        }
        if (thumb.isEmpty() || !photo->showPhoto(thumb, m_viewerPhotoSize))
            photo->clearMedia();
        photo->setDownloadProgress(true, 0, 0);
    }
}

void UiTdlibSpike::openVideoViewer(qint64 fileId, const QString &path)
{
    MediaViewerScreen *video = m_screens->videoViewer();
    m_viewerVideoId = fileId;
    m_viewerVideoPath = path;
    m_voicePlayer->stopVoicePlayback();
    m_screens->showScreen(ShellScreens::Screen::Video);
    if (path.isEmpty()) {
        video->clearMedia();
        video->setDownloadProgress(true, 0, 0);
        return;
    }
    video->playVideo(path);
}
