#pragma once

#include <QColor>
#include <QImage>
#include <QString>

// The icons of assets/osicons are compiled into the program as Qt resources,
// so the executable runs from any folder. A static library's resources must
// be registered once before use; the controller does it at start-up.
void init_osicons();

// Resource path of an icon by its file name, e.g. osicon_path("send.png")
// gives ":/assets/osicons/send.png".
QString osicon_path(const QString &fileName);

// An icon decoded at size (in device pixels) when size is valid, else at the
// size of its file. The files are drawn large for dense screens; a button
// keeps only the pixels it shows. Null when the icon does not load.
QImage osicon_image(const QString &fileName, const QSize &size = QSize());

// The icons are white glyphs; this one in another colour, scaled to size
// when size is valid. Null when the icon does not load.
QImage tinted_osicon(const QString &fileName, const QColor &color, const QSize &size = QSize());

// Resource path for an "assets/osicons/..." path as the screens name them.
QString asset_resource_path(const QString &assetPath);
