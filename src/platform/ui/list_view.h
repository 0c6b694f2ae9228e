#pragma once

#include "platform/height_index.h"

#include <QAbstractItemModel>
#include <QAbstractScrollArea>
#include <QElapsedTimer>
#include <QHash>
#include <QPointer>
#include <QVariantList>
#include <QVariantMap>
#include <QVector>

class QVariantAnimation;
class ListView;

// Builds and refreshes the widget of one list row. A widget's children
// carry object names so that updateItem can find them again. updateItem runs
// when a row gets a widget and when its data changes, not when rows inserted
// or removed above merely move it: indexPath is where the row stood then, and
// ListView::indexPathForWidget tells where it stands now.
class ListItemProvider
{
public:
    virtual ~ListItemProvider();
    virtual QWidget *createItem(ListView *listView, const QString &type) = 0;
    virtual void updateItem(ListView *listView, QWidget *item, const QString &type,
                            const QVariantList &indexPath, const QVariantMap &data) = 0;
    // Widgets are recycled only among rows of the same type.
    virtual QString itemType(const QVariantMap &data, const QVariantList &indexPath);
};

// A virtualized vertical list over a model whose rows are QVariantMap under
// Qt::UserRole (ArrayDataModel). Only rows in view have widgets; widgets
// that scroll out are kept per type and reused. Rows have their own heights,
// measured after updateItem (heightForWidth, else sizeHint) and estimated
// until then. The view holds on to the first visible row (the anchor), so
// inserts above it and late height changes above it do not move what the
// user sees. Dynamic properties set on the view are there for providers.
class ListView : public QAbstractScrollArea
{
    Q_OBJECT
public:
    enum ScrollPosition
    {
        Beginning,
        End
    };
    Q_ENUM(ScrollPosition)

    explicit ListView(QWidget *parent = nullptr);
    ~ListView() override;

    // Neither is owned. Changing either rebuilds all widgets.
    void setDataModel(QAbstractItemModel *model);
    QAbstractItemModel *dataModel() const { return m_model; }
    void setListItemProvider(ListItemProvider *provider);
    ListItemProvider *listItemProvider() const { return m_provider; }

    void scrollToItem(const QVariantList &indexPath, bool animated = false);
    void scrollToPosition(ScrollPosition position, bool animated = false);

    bool isAtBeginning() const { return m_atBeginning; }
    bool isAtEnd() const { return m_atEnd; }
    QVariantList firstVisibleItem() const { return m_firstVisible; }

    // Rows that have a widget in view, ascending.
    QList<int> visibleRows() const;
    // The widget that shows row, or null when the row is out of view.
    QWidget *itemWidget(int row) const;
    // The index path of the row whose item holds widget (the item itself or
    // any control inside it), or an empty list. Lets a button inside an
    // item find its row at the time it is pressed.
    QVariantList indexPathForWidget(const QWidget *widget) const;
    // The row under a point of the viewport, or -1.
    int rowAt(const QPoint &viewportPos) const;
    // Content offset of the viewport's top edge.
    qint64 scrollOffset() const { return m_top; }
    qint64 contentHeight() const { return m_heights.total(); }
    // Height used for rows not measured yet. Without a call, the average of
    // the first rows measured is used.
    void setEstimatedRowHeight(int height);
    // When on, the view stays at the end while rows are appended or grow,
    // as long as it was at the end.
    void setStickToEnd(bool on) { m_stickToEnd = on; }
    bool stickToEnd() const { return m_stickToEnd; }
    // When on, rows inserted at the top of a view scrolled to the very top
    // show up instead of pushing the old rows down out of sight unseen (a
    // chat list). Off, the rows in view stay put (a history being paged).
    void setStickToBeginning(bool on) { m_stickToBeginning = on; }
    bool stickToBeginning() const { return m_stickToBeginning; }

    // Runs updateItem again for every row in view (after a view property
    // that items show has changed).
    void updateVisibleItems();
    // Lays out now instead of on the next turn of the event loop.
    void layoutNow();

    // Counters for tests and benchmarks.
    int createdItemCount() const { return m_created; }
    int updateCount() const { return m_updates; }

Q_SIGNALS:
    void atBeginningChanged(bool atBeginning);
    void atEndChanged(bool atEnd);
    void firstVisibleItemChanged(const QVariantList &indexPath);
    void triggered(const QVariantList &indexPath);

protected:
    void resizeEvent(QResizeEvent *event) override;
    void showEvent(QShowEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void scrollContentsBy(int dx, int dy) override;

private:
    struct Item
    {
        QWidget *widget = nullptr;
        QString type;
        bool needsUpdate = false;
        bool needsMeasure = true;
        int measuredWidth = -1;
    };

    void scheduleLayout();
    void doLayout();
    void bind(int row, int width);
    void measure(int row, Item &item, int width);
    QWidget *acquire(const QString &type);
    void release(Item &item);
    void releaseAll();
    void destroyAllWidgets();
    QVariantMap rowData(int row) const;
    int rowCount() const;
    void setTop(qint64 top);
    void updateScrollBar(qint64 maxTop);
    void updateState();
    void maybeAdoptEstimate();
    void stopAnimation();
    void startAnimation(qint64 target, int durationMs = 250);
    void onAnimationFinished();

    void onRowsInserted(const QModelIndex &parent, int first, int last);
    void onRowsRemoved(const QModelIndex &parent, int first, int last);
    void onRowsMoved(const QModelIndex &parent, int start, int end, const QModelIndex &dest,
                     int row);
    void onDataChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight);
    void onModelReset();
    void onLayoutChanged();

    QPointer<QAbstractItemModel> m_model;
    QVector<QMetaObject::Connection> m_modelConnections;
    ListItemProvider *m_provider = nullptr;

    HeightIndex m_heights;
    int m_measuredCount = 0;
    qint64 m_measuredSum = 0;
    int m_estimate = 100;
    bool m_estimateFixed = false;
    bool m_estimateAdopted = false;

    QHash<int, Item> m_active;
    QHash<QString, QVector<QWidget *>> m_pool;

    int m_anchorRow = 0;
    int m_anchorOffset = 0;
    bool m_pinEnd = false;
    bool m_stickToEnd = false;
    bool m_stickToBeginning = false;
    qint64 m_top = 0;

    bool m_layoutPending = false;
    bool m_inLayout = false;
    bool m_settingScrollBar = false;

    bool m_atBeginning = true;
    bool m_atEnd = true;
    QVariantList m_firstVisible;

    QVariantAnimation *m_animation = nullptr;
    int m_animationRow = -1; // -2: the end
    QPoint m_pressPos;
    int m_pressRow = -1;
    bool m_dragging = false;
    int m_lastDragY = 0;
    double m_dragVelocity = 0;
    QElapsedTimer m_dragClock;

    int m_created = 0;
    int m_updates = 0;
};
