#include "chats/avatars.h"

#include "backend_link/text_cut.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QImage>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QRegularExpression>

#include <array>

namespace {

constexpr int kBadgeRadius = 10;
constexpr int kBadgeAlpha = 128;

// A filled, antialiased rounded rectangle on transparency.
bool save_rounded_rect_png(const QString &file, int width, int height, int radius,
                           const QColor &color)
{
    QImage img(width, height, QImage::Format_ARGB32_Premultiplied);
    img.fill(Qt::transparent);
    {
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing, true);
        p.setPen(Qt::NoPen);
        p.setBrush(color);
        p.drawRoundedRect(QRectF(0, 0, width, height), radius, radius, Qt::AbsoluteSize);
    }
    return img.save(file, "PNG");
}

} // namespace

QString avatar_initial(const QString &title)
{
    const QString first = first_grapheme(title.trimmed());
    if (first.isEmpty())
        return QStringLiteral("?");
    // Only the base character changes case; marks and joined parts of the cluster stay as they
    // are, and a letter whose capital is two letters keeps its one-letter form.
    const uint base = first.at(0).isHighSurrogate() && first.size() > 1
                          ? QChar::surrogateToUcs4(first.at(0), first.at(1))
                          : first.at(0).unicode();
    const uint upper = QChar::toUpper(base);
    return QString::fromUcs4(&upper, 1) + first.mid(QChar::requiresSurrogates(base) ? 2 : 1);
}

QColor placeholder_avatar_color(qint64 id, const QString &title)
{
    static const std::array<QColor, 8> palette = {
        QColor(43, 124, 255), QColor(0, 191, 165), QColor(67, 160, 71),  QColor(255, 112, 67),
        QColor(142, 36, 170), QColor(216, 27, 96), QColor(84, 110, 122), QColor(109, 76, 65),
    };
    quint32 x = 0;
    if (id != 0) {
        const quint64 u = static_cast<quint64>(id);
        x = static_cast<quint32>(u & 0xFFFFFFFFu) ^ static_cast<quint32>(u >> 32);
    } else {
        x = static_cast<quint32>(qHash(title));
    }
    x ^= x >> 16;
    x *= 0x7FEB352Du;
    x ^= x >> 15;
    x *= 0x846CA68Bu;
    x ^= x >> 16;
    return palette[x & 7u];
}

QString month_short_en(int month)
{
    static const char *const names[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (month < 1 || month > 12) {
        return QString();
    }
    return QString::fromLatin1(names[month - 1]);
}

QString chat_list_time_text(qint64 lastDate, const QDateTime &now)
{
    if (lastDate < 1) {
        return QString();
    }
    const QDateTime when = QDateTime::fromSecsSinceEpoch(lastDate).toLocalTime();
    const QDate today = now.toLocalTime().date();
    const QDate day = when.date();
    const qint64 d = day.daysTo(today);
    if (d == 0) {
        // Qt's C locale has seconds in its "short" format; a list row wants hours and minutes.
        QString format = QLocale::system().timeFormat(QLocale::ShortFormat);
        format.remove(QRegularExpression(QStringLiteral("[:.]ss")));
        return QLocale::system().toString(when.time(), format);
    }
    if (d >= 1 && d <= 7) {
        static const char *const weekdays[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
        return QString::fromLatin1(weekdays[day.dayOfWeek() - 1]);
    }
    const QString dayMonth =
        QString::number(day.day()) + QLatin1Char(' ') + month_short_en(day.month());
    if (day >= today.addYears(-1)) {
        return dayMonth;
    }
    return dayMonth + QLatin1Char(' ') + QString::number(day.year());
}

QString rounded_avatar_cache_path(const QString &path, const QString &dataDir)
{
    const QByteArray digest =
        QCryptographicHash::hash(path.toUtf8(), QCryptographicHash::Sha1).toHex();
    return dataDir + QStringLiteral("/avatar-cache/") + QString::fromLatin1(digest) +
           QStringLiteral("-") + QString::number(kChatAvatarPx) + QStringLiteral(".png");
}

QString ensureRoundedAvatarPng(qint64 fileId, const QString &path, const QString &dataDir)
{
    if (fileId < 1 || path.isEmpty()) {
        return path;
    }
    const QFileInfo source(path);
    if (!source.exists() || !source.isFile()) {
        return path;
    }
    const QString folder = dataDir + QStringLiteral("/avatar-cache");
    const QString cachePath = rounded_avatar_cache_path(path, dataDir);
    const QFileInfo cached(cachePath);
    if (cached.exists() && cached.lastModified() >= source.lastModified()) {
        return cachePath;
    }
    if (!QDir().mkpath(folder)) {
        return path;
    }
    QImage image;
    if (!image.load(path)) {
        return path;
    }
    const QImage scaled = image.scaled(kChatAvatarPx, kChatAvatarPx, Qt::KeepAspectRatioByExpanding,
                                       Qt::SmoothTransformation);
    const int left = qMax((scaled.width() - kChatAvatarPx) / 2, 0);
    const int top = qMax((scaled.height() - kChatAvatarPx) / 2, 0);
    const QImage centre = scaled.copy(left, top, kChatAvatarPx, kChatAvatarPx);

    QImage out(kChatAvatarPx, kChatAvatarPx, QImage::Format_ARGB32_Premultiplied);
    out.fill(Qt::transparent);
    {
        QPainter p(&out);
        p.setRenderHint(QPainter::Antialiasing, true);
        p.setRenderHint(QPainter::SmoothPixmapTransform, true);
        QPainterPath clip;
        clip.addRoundedRect(QRectF(0, 0, kChatAvatarPx, kChatAvatarPx), kChatAvatarRadiusPx,
                            kChatAvatarRadiusPx, Qt::AbsoluteSize);
        p.setClipPath(clip);
        p.drawImage(0, 0, centre);
    }
    if (!out.save(cachePath, "PNG")) {
        return path;
    }
    return cachePath;
}

QString ensure_bubble_bg_png(int width, int height, int radius, const QColor &color,
                             const QString &cacheDir)
{
    if (width < 1 || width > 2048 || height < 1 || height > 2048 || radius < 1) {
        return QString();
    }
    const QString argb = QStringLiteral("%1%2%3%4")
                             .arg(color.alpha(), 2, 16, QLatin1Char('0'))
                             .arg(color.red(), 2, 16, QLatin1Char('0'))
                             .arg(color.green(), 2, 16, QLatin1Char('0'))
                             .arg(color.blue(), 2, 16, QLatin1Char('0'));
    const QString file =
        cacheDir +
        QStringLiteral("/bubble_bg_%1x%2_r%3_c%4.png").arg(width).arg(height).arg(radius).arg(argb);
    const QFileInfo info(file);
    if (info.exists() && info.isFile()) {
        return file;
    }
    if (!QDir().mkpath(cacheDir)) {
        return QString();
    }
    return save_rounded_rect_png(file, width, height, radius, color) ? file : QString();
}

QString ensure_unread_badge_png(const QString &cacheDir)
{
    // Drawn once per process; the statics remember where it went.
    static QString s_path;
    static int s_size = 0;
    const QString file = cacheDir + QStringLiteral("/unread_badge_bg_rr_%1_r%2_a%3.png")
                                        .arg(kUnreadBadgePx)
                                        .arg(kBadgeRadius)
                                        .arg(kBadgeAlpha);
    // A cleared cache folder makes it draw the file again.
    if (s_size == kUnreadBadgePx && s_path == file && QFileInfo::exists(s_path)) {
        return s_path;
    }
    if (!QDir().mkpath(cacheDir)) {
        return QString();
    }
    if (!save_rounded_rect_png(file, kUnreadBadgePx, kUnreadBadgePx, kBadgeRadius,
                               QColor(43, 124, 255, kBadgeAlpha))) {
        return QString();
    }
    s_path = file;
    s_size = kUnreadBadgePx;
    return s_path;
}
