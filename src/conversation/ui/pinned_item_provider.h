#pragma once

#include "platform/ui/list_view.h"

#include <QObject>

// Draws one row of the open chat's pinned list: a pin and the message's
// preview, led by its kind for media ("Photo: …"). Reads the row's "text"
// and "content_type" and the view's "ui_dark_theme" property.
class PinnedItemProvider : public QObject, public ListItemProvider
{
    Q_OBJECT
public:
    explicit PinnedItemProvider(float scale, QObject *parent = nullptr);

    QWidget *createItem(ListView *listView, const QString &type) override;
    void updateItem(ListView *listView, QWidget *item, const QString &type,
                    const QVariantList &indexPath, const QVariantMap &data) override;

    // The height of one row in listView, measured as the list measures rows.
    int rowHeight(ListView *listView);

private:
    float m_scale;
};
