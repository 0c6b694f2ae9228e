#include "platform/osicons.h"

static void registerOsiconsResource()
{
    Q_INIT_RESOURCE(osicons);
}

void init_osicons()
{
    registerOsiconsResource();
}

QString osicon_path(const QString &fileName)
{
    return QStringLiteral(":/assets/osicons/") + fileName;
}

QString asset_resource_path(const QString &assetPath)
{
    if (assetPath.startsWith(QLatin1String(":/")))
        return assetPath;
    return QStringLiteral(":/") + assetPath;
}
