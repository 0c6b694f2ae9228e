#pragma once

#include <QRgb>
#include <QString>

// Colour groups of the two themes. Each screen control is painted with one
// of these; the table lives in theme.cpp so the whole palette is data.
enum class ThemeGroup
{
    A, // background of the main containers
    B, // background of one further content container
    C, // primary text
    D, // secondary text
    E, // panel backgrounds
    F, // muted text
    G, // dimming layer behind overlays
    H, // highlight fill inside a panel
    I, // second highlight (success)
};

// ARGB colour of a group in the dark or the bright theme.
QRgb theme_color(ThemeGroup group, bool dark);

// "#AARRGGBB" is not understood by every style sheet parser; this gives
// "rgba(r,g,b,a)" for use in Qt style sheets.
QString theme_color_css(ThemeGroup group, bool dark);

// The file that remembers the theme, inside the data folder.
QString theme_file_path(const QString &dataDir);

// Reads the theme file: missing or unreadable means dark; otherwise dark when
// the trimmed, lower-cased text is "dark", "1" or "true".
bool read_theme_file(const QString &path);

// Truncates the theme file and writes "dark\n" or "bright\n".
bool write_theme_file(const QString &path, bool dark, QString *error);

// "Theme: Dark" or "Theme: Bright".
QString theme_button_text(bool dark);
