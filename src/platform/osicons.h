#pragma once

#include <QString>

// The icons of assets/osicons are compiled into the program as Qt resources,
// so the executable runs from any folder. A static library's resources must
// be registered once before use; the controller does it at start-up.
void init_osicons();

// Resource path of an icon by its file name, e.g. osicon_path("send.png")
// gives ":/assets/osicons/send.png".
QString osicon_path(const QString &fileName);

// Resource path for an "assets/osicons/..." path as the screens name them.
QString asset_resource_path(const QString &assetPath);
