#include "platform/osicons.h"

#include <QPainter>

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

QImage osicon_image(const QString &fileName, const QSize &size)
{
    QImage img(osicon_path(fileName));
    if (img.isNull() || !size.isValid() || img.size() == size)
        return img;
    return img.scaled(size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

QImage tinted_osicon(const QString &fileName, const QColor &color, const QSize &size)
{
    QImage img = osicon_image(fileName, size);
    if (img.isNull())
        return img;
    img = img.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    QPainter p(&img);
    p.setCompositionMode(QPainter::CompositionMode_SourceIn);
    p.fillRect(img.rect(), color);
    p.end();
    return img;
}

QString asset_resource_path(const QString &assetPath)
{
    if (assetPath.startsWith(QLatin1String(":/")))
        return assetPath;
    return QStringLiteral(":/") + assetPath;
}
