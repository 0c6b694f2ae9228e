#include "platform/ui/app_font.h"

#include <QApplication>
#include <QFont>
#include <QFontDatabase>
#include <QFontInfo>

void prefer_colour_emoji()
{
    const QString emoji = QStringLiteral("Noto Color Emoji");
    if (!QFontDatabase().hasFamily(emoji))
        return;
    QFont f = QApplication::font();
    // The family the default resolves to: an alias such as "Sans Serif"
    // would not keep the text font ahead of the emoji font for spaces and
    // digits, which the emoji font has too.
    f.setFamilies({QFontInfo(f).family(), emoji});
    QApplication::setFont(f);
}
