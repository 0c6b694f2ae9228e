#pragma once

#include <QString>

// Cutting user text to a length without breaking a character.
//
// Lengths count Unicode code points, so a limit bounds the text whatever it holds and no cut
// leaves half of a surrogate pair. Text that is drawn is cut between grapheme clusters (what a
// reader takes for one character: a flag of two regional indicators, a family emoji joined by
// zero-width joiners, a letter with its combining accents), so that no half-drawn box appears.

int code_point_count(const QString &text);

// The first, or the last, at most maxCodePoints code points of text.
QString left_code_points(const QString &text, int maxCodePoints);
QString right_code_points(const QString &text, int maxCodePoints);

// The longest start of text that ends between two grapheme clusters and has at most
// maxCodePoints code points; empty when the first cluster alone is longer than that.
QString left_graphemes(const QString &text, int maxCodePoints);

// The first grapheme cluster of text; empty for empty text.
QString first_grapheme(const QString &text);
