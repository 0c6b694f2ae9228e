#include "backend_link/text_cut.h"

#include <QTextBoundaryFinder>

namespace {

// Code units taken by the first maxCodePoints code points of text.
int units_for_code_points(const QString &text, int maxCodePoints)
{
    int units = 0;
    for (int n = 0; n < maxCodePoints && units < text.size(); ++n) {
        const bool pair = text.at(units).isHighSurrogate() && units + 1 < text.size() &&
                          text.at(units + 1).isLowSurrogate();
        units += pair ? 2 : 1;
    }
    return units;
}

} // namespace

int code_point_count(const QString &text)
{
    int n = 0;
    for (int i = 0; i < text.size(); ++i) {
        if (!(text.at(i).isLowSurrogate() && i > 0 && text.at(i - 1).isHighSurrogate()))
            ++n;
    }
    return n;
}

QString left_code_points(const QString &text, int maxCodePoints)
{
    return text.left(units_for_code_points(text, qMax(maxCodePoints, 0)));
}

QString right_code_points(const QString &text, int maxCodePoints)
{
    int start = text.size();
    for (int n = 0; n < maxCodePoints && start > 0; ++n) {
        const bool pair = start >= 2 && text.at(start - 1).isLowSurrogate() &&
                          text.at(start - 2).isHighSurrogate();
        start -= pair ? 2 : 1;
    }
    return text.mid(start);
}

QString left_graphemes(const QString &text, int maxCodePoints)
{
    const int cut = units_for_code_points(text, qMax(maxCodePoints, 0));
    if (cut >= text.size() || cut == 0)
        return text.left(cut);
    // Whether a cluster ends at the cut depends on what precedes it and on the one code point
    // after it, so the finder needs no more of a long text than that.
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.left(cut + 2));
    finder.setPosition(cut);
    if (finder.isAtBoundary())
        return text.left(cut);
    return text.left(qMax(finder.toPreviousBoundary(), 0));
}

QString first_grapheme(const QString &text)
{
    if (text.isEmpty())
        return QString();
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    const int end = finder.toNextBoundary();
    return text.left(end > 0 ? end : text.size());
}
