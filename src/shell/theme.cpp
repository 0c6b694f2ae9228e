#include "shell/theme.h"

#include <QColor>
#include <QFile>
#include <QSaveFile>

namespace {

struct ThemePair
{
    ThemeGroup group;
    QRgb dark;
    QRgb bright;
};

// In the bright theme A and H share the same blue on purpose.
const ThemePair kThemeTable[] = {
    {ThemeGroup::A, 0xFF1C1C1C, 0xFF2B7CFF}, {ThemeGroup::B, 0xFF2A2A2A, 0xFFFFF8E1},
    {ThemeGroup::C, 0xFFFFFFFF, 0xFF111111}, {ThemeGroup::D, 0xFFB0B0B0, 0xFF444444},
    {ThemeGroup::E, 0xFF2A2A2A, 0xFFF2F2F2}, {ThemeGroup::F, 0xFFCCCCCC, 0xFF444444},
    {ThemeGroup::G, 0xBB000000, 0x22000000}, {ThemeGroup::H, 0xFF7FBAFF, 0xFF2B7CFF},
    {ThemeGroup::I, 0xFF7BE39A, 0xFF2EAF4A},
};

} // namespace

QRgb theme_color(ThemeGroup group, bool dark)
{
    for (const ThemePair &p : kThemeTable) {
        if (p.group == group)
            return dark ? p.dark : p.bright;
    }
    return dark ? 0xFF000000 : 0xFFFFFFFF;
}

QString theme_color_css(ThemeGroup group, bool dark)
{
    const QRgb c = theme_color(group, dark);
    return QStringLiteral("rgba(%1,%2,%3,%4)")
        .arg(qRed(c))
        .arg(qGreen(c))
        .arg(qBlue(c))
        .arg(qAlpha(c));
}

QString theme_file_path(const QString &dataDir)
{
    return dataDir + QStringLiteral("/ui_theme.txt");
}

bool read_theme_file(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly | QIODevice::Text))
        return true;
    // The file holds one word; anything longer is not a valid setting.
    const QString word = QString::fromUtf8(f.read(256)).trimmed().toLower();
    return word == QLatin1String("dark") || word == QLatin1String("1") ||
           word == QLatin1String("true");
}

bool write_theme_file(const QString &path, bool dark, QString *error)
{
    // Written aside and renamed over: a full disk or a kill midway leaves the old setting.
    // Flushed first, as commit() misses a flush at close that fails.
    QSaveFile f(path);
    const QByteArray data = dark ? QByteArrayLiteral("dark\n") : QByteArrayLiteral("bright\n");
    if (!f.open(QIODevice::WriteOnly) || f.write(data) != data.size() || !f.flush() ||
        !f.commit()) {
        if (error)
            *error = f.errorString();
        return false;
    }
    return true;
}

QString theme_button_text(bool dark)
{
    return dark ? QStringLiteral("Theme: Dark") : QStringLiteral("Theme: Bright");
}
