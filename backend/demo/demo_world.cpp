#include "demo_world.h"

#include "demo_media.h"

#include <QJsonObject>

QJsonObject demo_reaction(const QString &emoji, int count, bool chosen)
{
    return {{QStringLiteral("emoji"), emoji},
            {QStringLiteral("count"), count},
            {QStringLiteral("chosen"), chosen}};
}

quint64 demo_mix(quint64 x)
{
    // splitmix64 finaliser: cheap and well spread, good enough for a demo.
    x += Q_UINT64_C(0x9E3779B97F4A7C15);
    x = (x ^ (x >> 30)) * Q_UINT64_C(0xBF58476D1CE4E5B9);
    x = (x ^ (x >> 27)) * Q_UINT64_C(0x94D049BB133111EB);
    return x ^ (x >> 31);
}

quint64 DemoRng::next()
{
    m_state += Q_UINT64_C(0x9E3779B97F4A7C15);
    return demo_mix(m_state);
}

int DemoRng::below(int n)
{
    if (n <= 1)
        return 0;
    return int(next() % quint64(n));
}

QString DemoUser::displayName() const
{
    return lastName.isEmpty() ? firstName : firstName + QLatin1Char(' ') + lastName;
}

namespace {

const char *const kLatinFirst[] = {"Alice",  "Bruno", "Chloé",  "Dmitri", "Emma", "Farid", "Greta",
                                   "Hiro",   "Inès",  "Jonas",  "Kofi",   "Lena", "Marta", "Noah",
                                   "Olga",   "Pablo", "Quinn",  "Rosa",   "Sven", "Tariq", "Uma",
                                   "Victor", "Wen",   "Ximena", "Yusuf",  "Zoë",  "Mateo", "Signe"};
const char *const kLatinLast[] = {"Novak",  "Silva",    "Okafor", "Lindqvist", "Moreau", "Kowalski",
                                  "Tanaka", "Rossi",    "Haddad", "Müller",    "García", "O'Brien",
                                  "Nguyen", "Ferreira", "Dubois", "Jensen"};
const char *const kOtherNames[] = {"Анна Петрова",
                                   "Борис Иванов",
                                   "Вера Соколова",
                                   "Дарья Морозова",
                                   "Νίκος Παπαδόπουλος",
                                   "Ελένη Γεωργίου",
                                   "ليلى حداد",
                                   "عمر خليل",
                                   "נועה כהן",
                                   "דוד לוי",
                                   "王芳",
                                   "李伟",
                                   "佐藤 花子",
                                   "김민준",
                                   "प्रिया शर्मा",
                                   "अर्जुन मेहता",
                                   "สมชาย ใจดี",
                                   "Ayşe Yılmaz",
                                   "Łukasz Wiśniewski",
                                   "Þórunn Jónsdóttir"};

const char *const kGroupTitles[] = {"Family 🏠",
                                    "Book club 📚",
                                    "Climbing crew 🧗",
                                    "Проект «Север»",
                                    "Οι φίλοι",
                                    "فريق العمل",
                                    "開発チーム",
                                    "Hackers' corner",
                                    "Berlin Expats",
                                    "Weekend hikes ⛰",
                                    "Garden share 🌱",
                                    "Cooking with friends",
                                    "Board games night 🎲",
                                    "Startup founders",
                                    "Photography walks",
                                    "חדשות השכונה",
                                    "Band practice 🎸",
                                    "Marathon 2026 🏃",
                                    "Vexa beta testers",
                                    "Qt developers",
                                    "Linux audio",
                                    "Open source Friday",
                                    "Кино по пятницам",
                                    "हिंदी साहित्य",
                                    "Travel buddies ✈",
                                    "Flat 4B",
                                    "Ski trip ❄",
                                    "한국어 스터디",
                                    "Parents of class 3",
                                    "Chess club ♟",
                                    "Bike repair",
                                    "Choir rehearsals 🎶",
                                    "Data science meetup",
                                    "Coffee lovers ☕",
                                    "Volunteers",
                                    "Astronomy nights 🔭",
                                    "Language exchange",
                                    "Retro games",
                                    "Pottery studio",
                                    "Fantasy league ⚽",
                                    "Lisbon 2026",
                                    "Jazz jam",
                                    "Knitting circle",
                                    "Dev ops war room"};
const char *const kChannelTitles[] = {
    "Vexa News",        "Tech Digest",       "Новости науки",
    "Daily Haiku 🌸",    "Space Pictures 🚀",  "Weather Alerts",
    "日本語の毎日",     "Music Picks 🎧",     "Recipes of the Day",
    "Cat Facts 🐈",      "History Bytes",     "Math Puzzles ∑",
    "Photo of the day", "Podcast drops",     "Retro Computing",
    "Open Street News", "Ελληνικά νέα",      "أخبار التقنية",
    "Word of the Day",  "Film Club Reviews", "Public Transit Updates",
    "Chess Problems"};

// What people write about themselves; one draw each, like a phrase.
const char *const kBios[] = {
    "Coffee first, questions later ☕",
    "Cyclist, baker, occasional poet.",
    "Away until Monday 🏖",
    "Ask me about board games 🎲",
    "Software by day, cello by night 🎻",
    "Plants, cats and too many books.",
};

// Descriptions of groups and channels; one draw of the generator each, like
// a phrase, so the rest of the world stays as it was.
const char *const kAbouts[] = {
    "News, links and the odd meme. Be kind.",
    "Weekly episodes every Tuesday 🎧",
    "Local events, lost and found, and who has a ladder to lend.",
    "Release notes and nightly builds. Bugs go to the tracker, please.",
    "Photos from our walks 📷 Post your own!",
    "Questions welcome, answers even more so.",
    "Recipes we actually cooked 🍲",
    "Only announcements here; chat in the group.",
};

const char *const kPhrases[] = {
    "Are we still on for tomorrow?",
    "Just pushed the fix, please take a look",
    "See https://example.org/vexa/notes for the agenda",
    "Ha, that's great 😂",
    "On my way 🚲",
    "Lunch?\nI'm starving",
    "Shopping list:\n- milk\n- bread\n- 🍓",
    "Привет! Как дела?",
    "Встречаемся в 7 у метро",
    "Καλημέρα! Τι κάνεις;",
    "مرحبا، كيف حالك؟",
    "שלום! מה שלומך?",
    "你好，明天见！",
    "ありがとうございます 🙏",
    "नमस्ते, आप कैसे हैं?",
    "안녕하세요! 좋은 하루 되세요",
    "สวัสดีครับ",
    "🎉🎉🎉",
    "👍",
    "Docs: https://doc.qt.io/qt-5/qimage.html",
    "The meeting moved to 15:30, room www.example.com/rooms/7",
    "Can you send me the slides?",
    "I'll be 10 minutes late, sorry 🙈",
    "Did anyone see my umbrella? ☔",
    "Happy birthday!! 🎂🥳",
    "Photos from Saturday are up",
    "Good night 🌙",
    "Let's ship it 🚀",
    "Who's bringing snacks?",
    "Working from home today 🏡",
    "Train delayed again…",
    "Thanks, that helped a lot!",
    "Can we move this to Thursday?\nFriday is packed.",
    "Neue Version ist draußen: https://example.net/release",
    "¿Quedamos a las ocho?",
    "Ça marche, à demain !",
    "Guten Morgen ☀",
    "Dziękuję bardzo!",
    "Tack så mycket 🙂",
    "Obrigado pela ajuda!",
};

const char *const kDocNames[] = {"report-%1.pdf", "notes-%1.txt", "budget-%1.csv",
                                 "slides-%1.pdf", "data-%1.json", "firmware-%1.bin"};

QString fromUtf8(const char *s)
{
    return QString::fromUtf8(s);
}

} // namespace

const QStringList &DemoWorld::allReactions()
{
    static const QStringList list = {
        QStringLiteral("👍"), QStringLiteral("❤"),   QStringLiteral("🔥"),    QStringLiteral("🥰"),
        QStringLiteral("👏"), QStringLiteral("😁"),   QStringLiteral("🤔"), QStringLiteral("😮"),
        QStringLiteral("😱"), QStringLiteral("😡"),   QStringLiteral("😢"),    QStringLiteral("🎉"),
        QStringLiteral("😂"), QStringLiteral("🤩")};
    return list;
}

DemoWorld::DemoWorld(quint64 seed) : m_seed(seed)
{
    buildUsers();
    buildChats();
}

void DemoWorld::buildUsers()
{
    DemoRng rng(demo_mix(m_seed ^ Q_UINT64_C(0x5553455253)));
    static const char *const kStatus[] = {"online",    "offline",    "recently",
                                          "last_week", "last_month", "empty"};
    const int latinFirst = int(sizeof(kLatinFirst) / sizeof(kLatinFirst[0]));
    const int latinLast = int(sizeof(kLatinLast) / sizeof(kLatinLast[0]));
    const int other = int(sizeof(kOtherNames) / sizeof(kOtherNames[0]));
    for (int i = 0; i < 90; ++i) {
        DemoUser u;
        u.index = i;
        u.id = 1001 + i;
        if (i % 3 == 2) {
            const QString full = fromUtf8(kOtherNames[(i / 3 + rng.below(other)) % other]);
            const int sp = full.indexOf(QLatin1Char(' '));
            u.firstName = sp < 0 ? full : full.left(sp);
            u.lastName = sp < 0 ? QString() : full.mid(sp + 1);
        } else {
            u.firstName = fromUtf8(kLatinFirst[(i + rng.below(latinFirst)) % latinFirst]);
            u.lastName = fromUtf8(kLatinLast[rng.below(latinLast)]);
        }
        if (i == 58) {
            u.firstName = QStringLiteral("Deleted Account");
            u.lastName.clear();
        }
        if (i % 4 == 0)
            u.username = QStringLiteral("user%1_%2").arg(i).arg(rng.below(900) + 100);
        u.phone = QStringLiteral("+4915%1").arg(10000000 + rng.below(89999999));
        u.photoFileId = (i % 5 == 4) ? 0 : 2000000 + i;
        u.statusType = QString::fromLatin1(kStatus[i % 6]);
        u.wasOnlineAgo = 60 + rng.below(3 * 86400);
        m_userIndex.insert(u.id, i);
        m_users.append(u);
    }
}

void DemoWorld::buildChats()
{
    DemoRng rng(demo_mix(m_seed ^ Q_UINT64_C(0x4348415453)));
    const QStringList &reacts = allReactions();
    const int groupTitles = int(sizeof(kGroupTitles) / sizeof(kGroupTitles[0]));
    const int channelTitles = int(sizeof(kChannelTitles) / sizeof(kChannelTitles[0]));
    int groupTitle = rng.below(groupTitles);
    int channelTitle = rng.below(channelTitles);
    int superK = 1;
    int basicK = 1;

    auto pickMembers = [&](DemoChat &c, int n) {
        for (int k = 0; k < n; ++k) {
            const qint64 uid = m_users.at(rng.below(m_users.size())).id;
            if (!c.members.contains(uid))
                c.members.append(uid);
        }
    };
    auto groupReactions = [&](DemoChat &c) {
        const int r = rng.below(10);
        if (r < 6) {
            c.reactionsAll = true;
            c.reactions = reacts;
        } else if (r < 9) {
            const int n = 3 + rng.below(4);
            for (int k = 0; k < n; ++k) {
                const QString e = reacts.at(rng.below(reacts.size()));
                if (!c.reactions.contains(e))
                    c.reactions.append(e);
            }
        }
    };

    // Layout of the account: one big archive group first, then a mix.
    QStringList layout;
    layout << QStringLiteral("big");
    for (int i = 0; i < 60; ++i)
        layout << QStringLiteral("private");
    for (int i = 0; i < 8; ++i)
        layout << QStringLiteral("secret");
    for (int i = 0; i < 20; ++i)
        layout << QStringLiteral("basic_group");
    for (int i = 0; i < 23; ++i)
        layout << QStringLiteral("supergroup");
    for (int i = 0; i < 18; ++i)
        layout << QStringLiteral("channel");
    // Public chats the account has not joined: found by search and links.
    for (int i = 0; i < 3; ++i)
        layout << QStringLiteral("public_supergroup");
    for (int i = 0; i < 3; ++i)
        layout << QStringLiteral("public_channel");

    int privateUser = 0;
    int secretUser = 60;
    for (int idx = 0; idx < layout.size(); ++idx) {
        const QString kind = layout.at(idx);
        DemoChat c;
        c.index = idx;
        c.photoFileId = 1000000 + idx;
        c.baseCount = 12 + rng.below(90);
        c.lagSeconds = 60 + qint64(rng.below(40)) * rng.below(20000);
        c.stepSeconds = 60 + rng.below(3 * 3600);
        c.mutedByDefault = rng.chance(22);
        c.initialUnread = rng.chance(45) ? 1 + rng.below(rng.chance(20) ? 140 : 12) : 0;
        c.initialOutboxUnread = rng.chance(25) ? 1 : 0;
        if (kind == QLatin1String("big")) {
            c.type = QStringLiteral("supergroup");
            c.id = -Q_INT64_C(1001000000000) - superK++;
            c.title = QStringLiteral("Vexa Archive ⚡");
            c.username = QStringLiteral("vexa_archive");
            c.link = QStringLiteral("https://t.me/vexa_archive");
            c.about = QStringLiteral("Twenty thousand messages of history. Scroll up! 📜");
            c.baseCount = 20000;
            c.stepSeconds = 1500;
            c.lagSeconds = 300;
            c.initialUnread = 120;
            c.memberCount = 3456;
            c.reactionsAll = true;
            c.reactions = reacts;
            pickMembers(c, 14);
            c.mutedByDefault = false;
        } else if (kind == QLatin1String("private") || kind == QLatin1String("secret")) {
            const bool secret = kind == QLatin1String("secret");
            const DemoUser &u = m_users.at(secret ? secretUser++ : privateUser++);
            c.type = kind;
            c.id = secret ? -Q_INT64_C(2000000000000) - idx : u.id;
            c.title = u.displayName();
            c.peerUserId = u.id;
            c.photoFileId = u.photoFileId;
            c.username = u.username;
            c.memberCount = 0;
            c.reactionsAll = !secret || rng.chance(50);
            if (c.reactionsAll)
                c.reactions = reacts;
            c.canSend = u.index != 58 && u.index != 59;
            if (!c.canSend)
                c.about = QStringLiteral("This account is no longer available.");
            else
                c.about = rng.chance(50) ? bio(rng) : QString();
        } else if (kind == QLatin1String("basic_group")) {
            c.type = kind;
            c.id = -1000 - basicK++;
            c.title = fromUtf8(kGroupTitles[groupTitle++ % groupTitles]);
            c.memberCount = 3 + rng.below(40);
            pickMembers(c, 3 + rng.below(6));
            groupReactions(c);
            c.link = QStringLiteral("https://t.me/+demo%1").arg(rng.next() % 1000000000ULL);
            c.about = rng.chance(60) ? about(rng) : QString();
        } else {
            const bool isPublic = kind.startsWith(QLatin1String("public_"));
            const bool channel = kind.endsWith(QLatin1String("channel"));
            c.type = channel ? QStringLiteral("channel") : QStringLiteral("supergroup");
            c.id = -Q_INT64_C(1001000000000) - superK++;
            c.title = channel ? fromUtf8(kChannelTitles[channelTitle++ % channelTitles])
                              : fromUtf8(kGroupTitles[groupTitle++ % groupTitles]);
            c.memberCount = channel ? 500 + rng.below(90000) : 40 + rng.below(5000);
            c.username = QStringLiteral("%1%2")
                             .arg(channel ? QStringLiteral("channel") : QStringLiteral("group"))
                             .arg(idx);
            if (isPublic)
                c.username = channel ? QStringLiteral("vexa_public_channel%1").arg(idx)
                                     : QStringLiteral("vexa_public_group%1").arg(idx);
            c.link = QStringLiteral("https://t.me/%1").arg(c.username);
            c.about = about(rng);
            if (channel) {
                c.isAdmin = rng.chance(12);
                c.canSend = c.isAdmin;
                c.mutedByDefault = rng.chance(50);
                if (rng.chance(70)) {
                    const int n = 3 + rng.below(3);
                    for (int k = 0; k < n; ++k) {
                        const QString e = reacts.at(rng.below(reacts.size()));
                        if (!c.reactions.contains(e))
                            c.reactions.append(e);
                    }
                }
            } else {
                pickMembers(c, 5 + rng.below(8));
                groupReactions(c);
                c.canSend = !rng.chance(15);
            }
            if (isPublic) {
                c.memberByDefault = false;
                c.canSend = false;
                c.initialUnread = 0;
            }
        }
        if (c.members.isEmpty() && c.type != QLatin1String("channel") && c.peerUserId == 0)
            pickMembers(c, 3);
        if (rng.chance(35) && c.baseCount > 5) {
            const int n = 1 + rng.below(3);
            for (int k = 0; k < n; ++k) {
                const qint64 mid = 1 + rng.below(c.baseCount);
                if (!c.pinnedMessageIds.contains(mid))
                    c.pinnedMessageIds.append(mid);
            }
        }
        if (c.initialUnread > c.baseCount)
            c.initialUnread = c.baseCount;
        m_chatIndex.insert(c.id, idx);
        m_chats.append(c);
    }
    // A few pinned chats at the top of the list.
    const int pinnedIdx[] = {3, 62, 75, 100};
    int rank = 4;
    for (int idx : pinnedIdx) {
        if (idx < m_chats.size())
            m_chats[idx].pinnedRank = rank--;
    }
}

const DemoUser *DemoWorld::userById(qint64 id) const
{
    const int i = m_userIndex.value(id, -1);
    return i < 0 ? nullptr : &m_users.at(i);
}

const DemoChat *DemoWorld::chatById(qint64 id) const
{
    const int i = m_chatIndex.value(id, -1);
    return i < 0 ? nullptr : &m_chats.at(i);
}

QString DemoWorld::bio(DemoRng &rng) const
{
    const int n = int(sizeof(kBios) / sizeof(kBios[0]));
    return fromUtf8(kBios[rng.below(n)]);
}

QString DemoWorld::about(DemoRng &rng) const
{
    const int n = int(sizeof(kAbouts) / sizeof(kAbouts[0]));
    return fromUtf8(kAbouts[rng.below(n)]);
}

QString DemoWorld::phrase(DemoRng &rng) const
{
    const int n = int(sizeof(kPhrases) / sizeof(kPhrases[0]));
    return fromUtf8(kPhrases[rng.below(n)]);
}

qint64 DemoWorld::generatedDate(const DemoChat &chat, qint64 id, qint64 epoch) const
{
    return epoch - chat.lagSeconds - (chat.baseCount - id) * qint64(chat.stepSeconds);
}

qint64 DemoWorld::messageFileId(int chatIndex, qint64 messageId, bool thumb)
{
    return kMessageFileBase + ((qint64(chatIndex) << 22) + messageId) * 2 + (thumb ? 1 : 0);
}

DemoFileRef DemoWorld::resolveFileId(qint64 fileId) const
{
    DemoFileRef ref;
    if (fileId >= 1000000 && fileId < 1000000 + m_chats.size()) {
        ref.kind = DemoFileRef::ChatPhoto;
        ref.chatIndex = int(fileId - 1000000);
    } else if (fileId >= 2000000 && fileId < 2000000 + m_users.size()) {
        ref.kind = DemoFileRef::UserPhoto;
        ref.userIndex = int(fileId - 2000000);
    } else if (fileId == kMePhotoFileId) {
        ref.kind = DemoFileRef::UserPhoto;
        ref.userIndex = -1;
    } else if (fileId >= kStoredFileBase && fileId < kMessageFileBase) {
        ref.kind = DemoFileRef::Stored;
    } else if (fileId >= kMessageFileBase) {
        const qint64 v = fileId - kMessageFileBase;
        const qint64 packed = v / 2;
        ref.chatIndex = int(packed >> 22);
        ref.messageId = packed & ((1 << 22) - 1);
        ref.kind = (v % 2) ? DemoFileRef::MessageThumb : DemoFileRef::MessageMain;
        if (ref.chatIndex >= m_chats.size())
            ref.kind = DemoFileRef::None;
    }
    return ref;
}

DemoMessage DemoWorld::generateMessage(const DemoChat &chat, qint64 id, qint64 epoch) const
{
    DemoRng rng(demo_mix(m_seed ^ demo_mix(quint64(chat.id)) ^ (quint64(id) << 1)));
    DemoMessage m;
    m.chatId = chat.id;
    m.id = id;
    m.date = generatedDate(chat, id, epoch);

    if (chat.type == QLatin1String("channel")) {
        m.outgoing = chat.isAdmin;
        m.senderUserId = 0;
        m.senderName = chat.title;
        m.senderPhotoId = chat.photoFileId;
    } else if (chat.peerUserId != 0) {
        m.outgoing = rng.chance(45);
        m.senderUserId = m.outgoing ? kMeUserId : chat.peerUserId;
    } else {
        m.outgoing = rng.chance(15);
        m.senderUserId = m.outgoing ? kMeUserId : chat.members.at(rng.below(chat.members.size()));
    }
    if (m.senderUserId == kMeUserId) {
        m.senderName = meFirstName() + QLatin1Char(' ') + meLastName();
        m.senderPhotoId = kMePhotoFileId;
    } else if (const DemoUser *u = userById(m.senderUserId)) {
        m.senderName = u->displayName();
        m.senderPhotoId = u->photoFileId;
    }

    const int kind = rng.below(100);
    m.text = phrase(rng);
    if (rng.chance(20))
        m.text += (rng.chance(50) ? QStringLiteral("\n") : QStringLiteral(" ")) + phrase(rng);
    if (kind < 70) {
        m.contentType = QStringLiteral("messageText");
    } else if (kind < 79) {
        static const int dims[][2] = {{960, 720}, {720, 960}, {960, 540}, {720, 720}};
        const int d = rng.below(4);
        m.contentType = QStringLiteral("messagePhoto");
        m.mediaType = QStringLiteral("photo");
        m.mediaW = dims[d][0];
        m.mediaH = dims[d][1];
        // Every third landscape photo is a full camera picture, for the
        // viewer's zoom (the draw above stays, so the world is unchanged).
        if (d == 0 && id % 3 == 0) {
            m.mediaW = 4000;
            m.mediaH = 3000;
        }
        m.mediaSize = qint64(m.mediaW) * m.mediaH / 12;
        if (!rng.chance(40))
            m.text.clear();
    } else if (kind < 86) {
        const int n = int(sizeof(kDocNames) / sizeof(kDocNames[0]));
        const int d = rng.below(n);
        m.contentType = QStringLiteral("messageDocument");
        m.mediaType = QStringLiteral("file");
        m.mediaName = QString::fromLatin1(kDocNames[d]).arg(id);
        static const qint64 base[] = {30000, 1000, 5000, 40000, 2000, 100000};
        static const int spread[] = {2000000, 20000, 200000, 1500000, 50000, 4000000};
        m.mediaSize = base[d] + rng.below(spread[d]);
        if (!rng.chance(30))
            m.text.clear();
    } else if (kind < 92) {
        m.contentType = QStringLiteral("messageVoiceNote");
        m.mediaType = QStringLiteral("voice");
        m.mediaDuration = 1 + rng.below(40);
        m.mediaSize = demo_voice_file_size(m.mediaDuration);
        m.text.clear();
    } else if (kind < 96) {
        m.contentType = QStringLiteral("messageVideoNote");
        m.mediaType = QStringLiteral("video_note");
        m.mediaDuration = 2 + rng.below(9);
        m.mediaW = m.mediaH = 240;
        m.mediaSize = 60000 * m.mediaDuration;
        m.text.clear();
    } else {
        m.contentType = QStringLiteral("messageVideo");
        m.mediaType = QStringLiteral("video");
        m.mediaDuration = 3 + rng.below(10);
        m.mediaW = 640;
        m.mediaH = 360;
        m.mediaSize = 150000 * m.mediaDuration;
        if (!rng.chance(40))
            m.text.clear();
    }
    if (!m.mediaType.isEmpty()) {
        m.mediaFileId = messageFileId(chat.index, id, false);
        if (m.mediaType != QLatin1String("voice") && m.mediaType != QLatin1String("file"))
            m.thumbFileId = messageFileId(chat.index, id, true);
    }
    if (id > 3 && rng.chance(10))
        m.replyTo = id - 1 - rng.below(int(qMin<qint64>(id - 2, 20)));
    if (rng.chance(5)) {
        const DemoUser &u = m_users.at(rng.below(m_users.size()));
        m.forwarded = u.displayName();
    }
    if (m.contentType == QLatin1String("messageText") && rng.chance(6))
        m.editDate = m.date + 60 + rng.below(3600);
    if (!chat.reactions.isEmpty() && rng.chance(15)) {
        const int n = 1 + rng.below(3);
        QStringList used;
        for (int k = 0; k < n; ++k) {
            const QString e = chat.reactions.at(rng.below(chat.reactions.size()));
            if (used.contains(e))
                continue;
            used << e;
            const bool chosen = rng.chance(30);
            const int others = chat.peerUserId != 0 ? (chosen ? 0 : 1) : rng.below(12);
            m.reactions.append(
                demo_reaction(e, others + (chosen ? 1 : 0) + (others == 0 && !chosen), chosen));
        }
    }
    return m;
}
