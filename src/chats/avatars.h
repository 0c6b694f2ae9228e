#pragma once

#include <QColor>
#include <QDateTime>
#include <QString>

class QImage;

// Design pixels shared by the drawn images and the chat row: the round photo
// and its tile, and the unread badge.
constexpr int kChatAvatarPx = 144;
constexpr int kChatAvatarRadiusPx = 24;
constexpr int kUnreadBadgePx = 56;

// Colour of the placeholder tile drawn until a chat's photo is there: picked
// from the chat id (or from the title when the id is 0) through an integer
// mixer, so equal inputs always give the same one of eight colours.
QColor placeholder_avatar_color(qint64 id, const QString &title);

// The letter on a placeholder tile: the first grapheme cluster of the trimmed title, its first
// code point in upper case; "?" for a blank title.
QString avatar_initial(const QString &title);

// "Jan" .. "Dec" for 1 .. 12, empty otherwise.
QString month_short_en(int month);

// Time label of a chat list row for a last-message date in unix seconds,
// relative to now (local time): a time of day for today, a weekday for the
// last seven days, "5 Mar" within a year, "5 Mar 2023" before that.
QString chat_list_time_text(qint64 lastDate, const QDateTime &now);

// Cuts a downloaded photo into a round-cornered 144 x 144 PNG cached under
// dataDir + "/avatar-cache", named by the SHA-1 of the source path. Returns
// the cached file, or path itself when no PNG can be made.
QString ensureRoundedAvatarPng(qint64 fileId, const QString &path, const QString &dataDir);

// File name the round avatar of a source path gets inside the cache folder.
QString rounded_avatar_cache_path(const QString &path, const QString &dataDir);

// A width x height rounded rectangle in one colour, saved once as
// cacheDir + "/bubble_bg_WxH_rR_cAARRGGBB.png". Empty for sizes outside
// 1..2048 or a radius below 1, or when the file cannot be written.
QString ensure_bubble_bg_png(int width, int height, int radius, const QColor &color,
                             const QString &cacheDir);

// Background of the unread counter, made once per process in cacheDir
// ("unread_badge_bg_rr_56_r10_a128.png").
QString ensure_unread_badge_png(const QString &cacheDir);
