// The open chat's message rows under a long history: 20,000 messages of a
// busy group loaded the way scrolling up loads them, 50 older rows at a time
// in front, then single events against the full list. Events are parsed from
// JSON lines as the event intake parses them; building the maps is not timed.
#include "../common/stats.h"
#include "conversation/chat_session.h"
#include "conversation/message_row_model.h"
#include "platform/array_data_model.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <malloc.h>
#include <vector>

namespace {

constexpr qint64 kChat = -100123;
constexpr int kRows = 20000;
constexpr int kPage = 50;
constexpr int kEvents = 1000;
constexpr double kPageGoalMs = 5.0;
constexpr double kBytesGoal = 1536.0;

const char *const kWords[] = {"the",    "meeting", "moved", "to",     "friday", "ok",
                              "thanks", "see",     "you",   "there",  "photo",  "of",
                              "build",  "is",      "green", "again",  "лол",    "🙂",
                              "links",  "release", "notes", "review", "please", "done"};

QVariantMap parse(const QJsonObject &o)
{
    // The intake hands on what QJsonDocument makes of a line.
    return QJsonDocument::fromJson(QJsonDocument(o).toJson(QJsonDocument::Compact))
        .object()
        .toVariantMap();
}

struct Maker
{
    QRandomGenerator rng{20261124};
    qint64 textChars = 0;

    QString text()
    {
        QStringList words;
        const int n = 1 + int(rng.bounded(30));
        for (int i = 0; i < n; ++i) {
            words.append(QString::fromUtf8(kWords[rng.bounded(int(std::size(kWords)))]));
        }
        return words.join(QLatin1Char(' '));
    }

    // One message as the backend sends it: a tenth answer an earlier one, a
    // tenth carry a photo, a fifth are our own.
    QVariantMap message(qint64 id, const char *type, int gen)
    {
        QJsonObject o;
        o.insert(QStringLiteral("type"), QString::fromLatin1(type));
        o.insert(QStringLiteral("chat_id"), kChat);
        o.insert(QStringLiteral("gen"), gen);
        o.insert(QStringLiteral("id"), id);
        o.insert(QStringLiteral("date"), 1700000000 + id * 37);
        const bool own = rng.bounded(5) == 0;
        o.insert(QStringLiteral("outgoing"), own);
        const bool photo = rng.bounded(10) == 0;
        o.insert(QStringLiteral("content_type"),
                 photo ? QStringLiteral("messagePhoto") : QStringLiteral("messageText"));
        const QString t = photo && rng.bounded(2) ? QString() : text();
        textChars += t.size();
        o.insert(QStringLiteral("text"), t);
        const int sender = own ? 1 : 2 + int(rng.bounded(20));
        o.insert(QStringLiteral("sender_user_id"), sender);
        o.insert(QStringLiteral("sender_name"), QStringLiteral("Member %1").arg(sender));
        o.insert(QStringLiteral("sender_photo_small_id"), 5000 + sender);
        if (rng.bounded(10) == 0) {
            o.insert(QStringLiteral("reply_to_message_id"), id - 1 - rng.bounded(40));
        }
        if (photo) {
            o.insert(QStringLiteral("media_type"), QStringLiteral("photo"));
            o.insert(QStringLiteral("media_size"), 20000 + int(rng.bounded(900000)));
            o.insert(QStringLiteral("media_w"), 1280);
            o.insert(QStringLiteral("media_h"), 960);
            o.insert(QStringLiteral("media_file_id"), 100000 + id * 2);
            o.insert(QStringLiteral("media_thumb_file_id"), 100001 + id * 2);
        }
        return parse(o);
    }
};

QVariantMap event(const QJsonObject &o)
{
    return parse(o);
}

QJsonObject obj(const char *type)
{
    QJsonObject o;
    o.insert(QStringLiteral("type"), QString::fromLatin1(type));
    o.insert(QStringLiteral("chat_id"), kChat);
    return o;
}

using bench::heapInUse;
using bench::median;
using bench::percentile;

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Maker maker;
    ArrayDataModel rows;
    MessageRowModel messages(&rows, nullptr, nullptr);
    ChatSession session(&messages, nullptr);
    // Avatars are known, as after the chat list's downloads.
    for (int s = 1; s <= 21; ++s) {
        messages.setSenderAvatarPathForFile(5000 + s,
                                            QStringLiteral("/cache/avatar-%1.png").arg(s));
    }
    session.openChatFromRow({{QStringLiteral("id"), QString::number(kChat)},
                             {QStringLiteral("chat_type"), QStringLiteral("supergroup")}});
    malloc_trim(0);
    const size_t heapBefore = heapInUse();

    // The newest page replaces the list; older pages go in front.
    const qint64 newest = 1000000 + kRows;
    std::vector<double> pageMs;
    QElapsedTimer t;
    int gen = 1;
    for (qint64 top = newest; top > newest - kRows; top -= kPage) {
        const bool first = top == newest;
        QList<QVariantMap> batch;
        QJsonObject begin = obj("history_begin");
        begin.insert(QStringLiteral("gen"), gen);
        begin.insert(QStringLiteral("clear"), first);
        batch.append(event(begin));
        for (qint64 id = top - kPage + 1; id <= top; ++id) {
            batch.append(maker.message(id, "message", gen));
        }
        QJsonObject end = obj("history_end");
        end.insert(QStringLiteral("gen"), gen);
        end.insert(QStringLiteral("clear"), first);
        batch.append(event(end));
        t.start();
        for (const QVariantMap &e : batch) {
            session.handleMessageEvent(e);
        }
        pageMs.push_back(double(t.nsecsElapsed()) / 1e6);
    }
    if (messages.size() != kRows) {
        std::fprintf(stderr, "expected %d rows, have %d\n", kRows, messages.size());
        return 1;
    }
    malloc_trim(0);
    const size_t heapAfter = heapInUse();
    const double bytesPerRow = double(heapAfter - heapBefore) / kRows;
    // The text's own share: its UTF-16 characters and a string header each.
    const double textPerRow = double(maker.textChars * 2 + qint64(kRows) * 24) / kRows;

    // Single events against the full list.
    auto timeEach = [&](const QList<QVariantMap> &events) {
        std::vector<double> us;
        for (const QVariantMap &e : events) {
            t.start();
            session.handleMessageEvent(e);
            QCoreApplication::sendPostedEvents();
            QCoreApplication::processEvents(); // the coalesced preview rebuild
            us.push_back(double(t.nsecsElapsed()) / 1e3);
        }
        return us;
    };
    QRandomGenerator rng(7);
    auto randomId = [&]() { return messages.messageIdAt(int(rng.bounded(messages.size()))); };

    QList<QVariantMap> updates;
    for (int i = 0; i < kEvents; ++i) {
        QJsonObject o = obj("message_update");
        o.insert(QStringLiteral("id"), randomId());
        o.insert(QStringLiteral("text"), maker.text());
        updates.append(event(o));
    }
    const std::vector<double> updateUs = timeEach(updates);

    QList<QVariantMap> sends;
    for (int i = 0; i < kEvents; ++i) {
        QJsonObject o = obj("message_new");
        o.insert(QStringLiteral("id"), 9000000 + i);
        o.insert(QStringLiteral("outgoing"), true);
        o.insert(QStringLiteral("sending_state"), QStringLiteral("pending"));
        o.insert(QStringLiteral("content_type"), QStringLiteral("messageText"));
        o.insert(QStringLiteral("text"), maker.text());
        sends.append(event(o));
    }
    const std::vector<double> newUs = timeEach(sends);
    QList<QVariantMap> succeeded;
    for (int i = 0; i < kEvents; ++i) {
        QJsonObject o = obj("message_send_succeeded");
        o.insert(QStringLiteral("old_id"), 9000000 + i);
        o.insert(QStringLiteral("new_id"), newest + 1 + i);
        o.insert(QStringLiteral("date"), 1800000000 + i);
        succeeded.append(event(o));
    }
    const std::vector<double> replaceUs = timeEach(succeeded);

    QList<QVariantMap> deletions;
    for (int i = 0; i < kEvents; ++i) {
        QJsonObject o = obj("messages_deleted");
        const qint64 id = newest - kRows + 1 + qint64(i) * (kRows / kEvents) + 7;
        o.insert(QStringLiteral("message_ids"), QJsonArray{id});
        deletions.append(event(o));
    }
    const std::vector<double> deleteUs = timeEach(deletions);

    const std::vector<double> last(pageMs.end() - 40, pageMs.end());
    std::printf("bench_message_rows: %d rows, loaded %d rows at a time in front\n", kRows, kPage);
    std::printf("  older page (50 rows): median %.3f ms, 95th %.3f ms, max %.3f ms; "
                "with 18,000+ rows loaded median %.3f ms (goal: under %.1f ms)\n",
                median(pageMs), percentile(pageMs, 0.95),
                *std::max_element(pageMs.begin(), pageMs.end()), median(last), kPageGoalMs);
    std::printf("  per event with %d rows (median / 99th, microseconds):\n", kRows);
    std::printf("    message_update          %.1f / %.1f\n", median(updateUs),
                percentile(updateUs, 0.99));
    std::printf("    message_new (append)    %.1f / %.1f\n", median(newUs),
                percentile(newUs, 0.99));
    std::printf("    message_send_succeeded  %.1f / %.1f\n", median(replaceUs),
                percentile(replaceUs, 0.99));
    std::printf("    messages_deleted (one)  %.1f / %.1f\n", median(deleteUs),
                percentile(deleteUs, 0.99));
    std::printf("  memory: %.0f bytes per row in all, of which text %.0f; beyond the text %.0f "
                "(goal: under %.0f)\n",
                bytesPerRow, textPerRow, bytesPerRow - textPerRow, kBytesGoal);
    const bool ok = median(pageMs) < kPageGoalMs && bytesPerRow - textPerRow < kBytesGoal;
    std::printf("  %s\n", ok ? "goals met" : "GOALS MISSED");
    return ok ? 0 : 1;
}
