#include "shell/ui_scale.h"

#include <QtGlobal>
#include <cmath>

float ui_scale_for_min_side(int m)
{
    if (m >= 1440)
        return 1.35f;
    if (m >= 1080)
        return 1.3f;
    if (m >= 900)
        return 1.25f;
    if (m >= 768)
        return 1.2f;
    if (m >= 720)
        return 1.15f;
    return 1.0f;
}

float detect_ui_scale(const QString &overrideValue, const QSize &displayPx, QString *log)
{
    if (!overrideValue.isNull()) {
        bool ok = false;
        const double v = overrideValue.trimmed().toDouble(&ok);
        if (ok && std::isfinite(v) && v > 0.1) {
            if (log)
                *log += QStringLiteral("ui: QUILLO_UI_SCALE=%1\n").arg(v, 0, 'f', 2);
            return float(qBound(0.6, v, 2.0));
        }
    }
    const int m = qMin(displayPx.width(), displayPx.height());
    const float scale = ui_scale_for_min_side(m);
    if (log) {
        *log += QStringLiteral("ui: display_px=%1x%2 ui_scale=%3\n")
                    .arg(displayPx.width())
                    .arg(displayPx.height())
                    .arg(double(scale), 0, 'f', 2);
    }
    return scale;
}

int scaled_px(int designPx, float scale)
{
    if (designPx <= 0)
        return 0;
    return qMax(1, int(std::lround(double(designPx) * double(scale))));
}
