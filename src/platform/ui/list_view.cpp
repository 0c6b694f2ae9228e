#include "platform/ui/list_view.h"

#include <QAbstractItemModel>
#include <QApplication>
#include <QEasingCurve>
#include <QMouseEvent>
#include <QScrollBar>
#include <QTimer>
#include <QVariantAnimation>

#include <algorithm>

ListItemProvider::~ListItemProvider() = default;

QString ListItemProvider::itemType(const QVariantMap &, const QVariantList &)
{
    return QStringLiteral("item");
}

ListView::ListView(QWidget *parent) : QAbstractScrollArea(parent)
{
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    setFrameShape(QFrame::NoFrame);
    verticalScrollBar()->setSingleStep(48);
    verticalScrollBar()->setRange(0, 0);
}

ListView::~ListView()
{
    stopAnimation();
    for (const auto &c : qAsConst(m_modelConnections))
        disconnect(c);
    // Item widgets go first, while this object can still hear from them.
    destroyAllWidgets();
}

void ListView::setDataModel(QAbstractItemModel *model)
{
    if (model == m_model)
        return;
    for (const auto &c : qAsConst(m_modelConnections))
        disconnect(c);
    m_modelConnections.clear();
    m_model = model;
    if (model) {
        m_modelConnections = {
            connect(model, &QAbstractItemModel::rowsInserted, this, &ListView::onRowsInserted),
            connect(model, &QAbstractItemModel::rowsRemoved, this, &ListView::onRowsRemoved),
            connect(model, &QAbstractItemModel::rowsMoved, this, &ListView::onRowsMoved),
            connect(model, &QAbstractItemModel::dataChanged, this,
                    [this](const QModelIndex &a, const QModelIndex &b) { onDataChanged(a, b); }),
            connect(model, &QAbstractItemModel::modelReset, this, &ListView::onModelReset),
            connect(model, &QAbstractItemModel::layoutChanged, this, [this] { onLayoutChanged(); }),
            connect(model, &QObject::destroyed, this,
                    [this] {
                        m_modelConnections.clear();
                        onModelReset();
                    }),
        };
    }
    onModelReset();
}

void ListView::setListItemProvider(ListItemProvider *provider)
{
    if (provider == m_provider)
        return;
    destroyAllWidgets();
    m_provider = provider;
    scheduleLayout();
}

int ListView::rowCount() const
{
    return m_model ? m_model->rowCount() : 0;
}

QVariantMap ListView::rowData(int row) const
{
    if (!m_model)
        return QVariantMap();
    return m_model->index(row, 0).data(Qt::UserRole).toMap();
}

QList<int> ListView::visibleRows() const
{
    QList<int> rows = m_active.keys();
    std::sort(rows.begin(), rows.end());
    return rows;
}

QWidget *ListView::itemWidget(int row) const
{
    auto it = m_active.constFind(row);
    return it == m_active.constEnd() ? nullptr : it->widget;
}

QVariantList ListView::indexPathForWidget(const QWidget *widget) const
{
    const QWidget *vp = viewport();
    while (widget && widget->parentWidget() != vp)
        widget = widget->parentWidget();
    if (!widget)
        return QVariantList();
    for (auto it = m_active.constBegin(); it != m_active.constEnd(); ++it) {
        if (it->widget == widget)
            return QVariantList{it.key()};
    }
    return QVariantList();
}

int ListView::rowAt(const QPoint &viewportPos) const
{
    const int n = m_heights.size();
    if (n == 0 || viewportPos.y() < 0)
        return -1;
    const qint64 y = m_top + viewportPos.y();
    if (y >= m_heights.total())
        return -1;
    return m_heights.rowAt(y);
}

void ListView::setEstimatedRowHeight(int height)
{
    if (height <= 0)
        return;
    m_estimate = height;
    m_estimateFixed = true;
}

void ListView::updateVisibleItems()
{
    for (auto it = m_active.begin(); it != m_active.end(); ++it)
        it->needsUpdate = true;
    scheduleLayout();
}

void ListView::layoutNow()
{
    doLayout();
}

// --- widgets ----------------------------------------------------------------

QWidget *ListView::acquire(const QString &type)
{
    auto pool = m_pool.find(type);
    if (pool != m_pool.end() && !pool->isEmpty())
        return pool->takeLast();
    QWidget *w = m_provider ? m_provider->createItem(this, type) : nullptr;
    if (!w)
        w = new QWidget; // a provider that gives nothing still gets a row
    ++m_created;
    w->setParent(viewport());
    w->installEventFilter(this);
    return w;
}

void ListView::release(Item &item)
{
    if (!item.widget)
        return;
    item.widget->hide();
    m_pool[item.type].append(item.widget);
    item.widget = nullptr;
}

void ListView::releaseAll()
{
    for (auto it = m_active.begin(); it != m_active.end(); ++it)
        release(*it);
    m_active.clear();
}

void ListView::destroyAllWidgets()
{
    releaseAll();
    for (auto &list : m_pool) {
        for (QWidget *w : qAsConst(list))
            delete w;
    }
    m_pool.clear();
}

void ListView::bind(int row, int width)
{
    // A provider that edits the model from updateItem can shrink it under us.
    if (row < 0 || row >= m_heights.size() || row >= rowCount())
        return;
    auto it = m_active.find(row);
    if (it == m_active.end() || it->needsUpdate) {
        const QVariantMap data = rowData(row);
        const QVariantList path{row};
        const QString type = m_provider->itemType(data, path);
        if (it == m_active.end()) {
            Item item;
            item.type = type;
            item.widget = acquire(type);
            it = m_active.insert(row, item);
        } else if (it->type != type) {
            release(*it);
            it->type = type;
            it->widget = acquire(type);
        }
        it->needsUpdate = false;
        it->needsMeasure = true;
        // The provider may touch the model from here; the iterator must
        // not be used across the call.
        QWidget *w = it->widget;
        ++m_updates;
        m_provider->updateItem(this, w, type, path, data);
        it = m_active.find(row);
        if (it == m_active.end())
            return;
    }
    if (it->needsMeasure || it->measuredWidth != width)
        measure(row, *it, width);
}

void ListView::measure(int row, Item &item, int width)
{
    QWidget *w = item.widget;
    w->ensurePolished();
    int h = w->hasHeightForWidth() ? w->heightForWidth(width) : -1;
    if (h < 0)
        h = w->sizeHint().height();
    h = qBound(w->minimumHeight(), h, w->maximumHeight());
    h = qMax(0, h);
    item.needsMeasure = false;
    item.measuredWidth = width;
    if (row < 0 || row >= m_heights.size())
        return;
    ++m_measuredCount;
    m_measuredSum += h;
    m_heights.setHeight(row, h);
}

// The first rows measured tell more about the rest than any fixed guess.
void ListView::maybeAdoptEstimate()
{
    if (m_estimateFixed || m_estimateAdopted || m_measuredCount == 0)
        return;
    m_estimateAdopted = true;
    const int avg = int(qMax<qint64>(1, m_measuredSum / m_measuredCount));
    if (avg == m_estimate)
        return;
    const int old = m_estimate;
    m_estimate = avg;
    QVector<int> hs = m_heights.heights();
    for (int r = 0; r < hs.size(); ++r) {
        if (!m_active.contains(r) && hs[r] == old)
            hs[r] = avg;
    }
    m_heights.assign(hs);
}

// --- layout -----------------------------------------------------------------

void ListView::scheduleLayout()
{
    if (m_layoutPending)
        return;
    m_layoutPending = true;
    QTimer::singleShot(0, this, [this] {
        if (m_layoutPending)
            doLayout();
    });
}

void ListView::doLayout()
{
    if (m_inLayout) {
        // Asked from inside a layout (a provider's updateItem): run again
        // once this pass is over.
        scheduleLayout();
        return;
    }
    m_inLayout = true;
    m_layoutPending = false;

    if (rowCount() != m_heights.size()) {
        // Out of step with the model (a change we could not follow):
        // start the heights afresh but keep the place.
        releaseAll();
        m_heights.reset(rowCount(), m_estimate);
    }
    const int n = m_heights.size();
    const int width = viewport()->width();
    const int vh = viewport()->height();

    if (!m_provider || n == 0) {
        releaseAll();
        m_top = 0;
        m_anchorRow = 0;
        m_anchorOffset = 0;
        updateScrollBar(0);
        m_inLayout = false;
        updateState();
        return;
    }
    if (width <= 0) {
        // Not sized yet: keep the anchor for when it is.
        m_inLayout = false;
        return;
    }

    qint64 top = 0;
    bool fromEnd = m_pinEnd;
    for (int pass = 0; !fromEnd && pass < 8; ++pass) {
        m_anchorRow = qBound(0, m_anchorRow, m_heights.size() - 1);
        m_anchorOffset = qMax(0, m_anchorOffset);
        const int anchor = m_anchorRow;
        const int anchorHeight = m_heights.height(anchor);
        qint64 y = -m_anchorOffset;
        for (int r = m_anchorRow; r < m_heights.size() && y < vh; ++r) {
            bind(r, width);
            y += m_heights.height(r);
        }
        maybeAdoptEstimate();
        m_anchorRow = qBound(0, m_anchorRow, m_heights.size() - 1);
        const int height = m_heights.height(m_anchorRow);
        if (m_anchorOffset > 0 && m_anchorRow == anchor && height != anchorHeight) {
            // The row at the top, partly scrolled past, was measured again at another height (a
            // picture still loading): keep the part of it on screen, so that what is below it
            // stays where the user sees it.
            m_anchorOffset = int(qBound<qint64>(0, qint64(m_anchorOffset) + height - anchorHeight,
                                                qMax(0, height - 1)));
        }
        top = m_heights.offsetOf(m_anchorRow) + m_anchorOffset;
        const qint64 maxTop = qMax<qint64>(0, m_heights.total() - vh);
        if (top > maxTop) {
            // Past the end: lay out from the last row up instead.
            fromEnd = true;
            break;
        }
        if (m_anchorOffset > 0 && m_anchorOffset >= height) {
            // The row at the anchor is shorter than the offset (the model shrank under it):
            // anchor again where the top is.
            m_anchorRow = m_heights.rowAt(top);
            m_anchorOffset = int(top - m_heights.offsetOf(m_anchorRow));
            continue;
        }
        break;
    }
    if (fromEnd) {
        // Measure upwards from the last row until the viewport is full, so
        // the last row's bottom meets the viewport's bottom exactly.
        qint64 filled = 0;
        for (int r = m_heights.size() - 1; r >= 0 && filled < vh; --r) {
            bind(r, width);
            if (r < m_heights.size())
                filled += m_heights.height(r);
        }
        maybeAdoptEstimate();
        top = qMax<qint64>(0, m_heights.total() - vh);
        m_anchorRow = m_heights.rowAt(top);
        m_anchorOffset = int(top - m_heights.offsetOf(m_anchorRow));
    }
    if (m_heights.size() == 0) {
        releaseAll();
        m_inLayout = false;
        doLayout();
        return;
    }
    m_top = top;

    // Place the rows in view; drop the rest.
    QVector<int> shown;
    qint64 y = m_heights.offsetOf(m_anchorRow) - m_top;
    for (int r = m_anchorRow; r < m_heights.size() && y < vh; ++r) {
        bind(r, width);
        auto it = m_active.find(r);
        if (it == m_active.end())
            continue;
        const int h = m_heights.height(r);
        it->widget->setGeometry(0, int(y), width, h);
        if (it->widget->isHidden())
            it->widget->show();
        shown.append(r);
        y += h;
    }
    for (auto it = m_active.begin(); it != m_active.end();) {
        if (!std::binary_search(shown.cbegin(), shown.cend(), it.key())) {
            release(*it);
            it = m_active.erase(it);
        } else {
            ++it;
        }
    }

    const qint64 maxTop = qMax<qint64>(0, m_heights.total() - vh);
    updateScrollBar(maxTop);
    if (m_stickToEnd)
        m_pinEnd = m_top >= maxTop;
    else if (m_pinEnd && isVisible())
        m_pinEnd = false; // a request made while hidden waits for the real size
    m_inLayout = false;
    // Last, so that handlers may scroll or change the model.
    updateState();
}

void ListView::updateScrollBar(qint64 maxTop)
{
    QScrollBar *sb = verticalScrollBar();
    m_settingScrollBar = true;
    sb->setRange(0, int(qMin<qint64>(maxTop, INT_MAX)));
    sb->setPageStep(qMax(1, viewport()->height()));
    sb->setValue(int(qMin<qint64>(m_top, INT_MAX)));
    m_settingScrollBar = false;
}

void ListView::updateState()
{
    // Each value is read afresh: a handler of an earlier signal may have
    // scrolled or changed the model already.
    const bool atBeginning = m_top <= 0;
    if (atBeginning != m_atBeginning) {
        m_atBeginning = atBeginning;
        Q_EMIT atBeginningChanged(atBeginning);
    }
    const qint64 maxTop = qMax<qint64>(0, m_heights.total() - viewport()->height());
    const bool atEnd = m_heights.size() == 0 || m_top >= maxTop;
    if (atEnd != m_atEnd) {
        m_atEnd = atEnd;
        Q_EMIT atEndChanged(atEnd);
    }
    const QVariantList first = m_heights.size() == 0 ? QVariantList() : QVariantList{m_anchorRow};
    if (first != m_firstVisible) {
        m_firstVisible = first;
        Q_EMIT firstVisibleItemChanged(first);
    }
}

void ListView::setTop(qint64 top)
{
    m_pinEnd = false;
    const int n = m_heights.size();
    const int vh = viewport()->height();
    if (n == 0 || !m_provider)
        return;
    const qint64 maxTop = qMax<qint64>(0, m_heights.total() - vh);
    top = qBound<qint64>(0, top, maxTop);
    const qint64 delta = top - m_top;
    if (qAbs(delta) > 3 * qint64(qMax(vh, 1))) {
        // A jump: place by the estimated offsets.
        m_anchorRow = m_heights.rowAt(top);
        m_anchorOffset = int(top - m_heights.offsetOf(m_anchorRow));
    } else {
        // A scroll step: move relative to the anchor, measuring the rows
        // that come into view above it, so real heights replace estimates
        // without shifting what is already on screen.
        const int width = viewport()->width();
        qint64 offset = m_anchorOffset + delta;
        int row = qBound(0, m_anchorRow, n - 1);
        while (offset < 0 && row > 0) {
            --row;
            bind(row, width);
            offset += m_heights.height(row);
        }
        while (row < m_heights.size() - 1 && offset >= m_heights.height(row) &&
               m_heights.height(row) > 0) {
            offset -= m_heights.height(row);
            ++row;
        }
        m_anchorRow = row;
        m_anchorOffset = int(qMax<qint64>(0, offset));
    }
    doLayout();
}

void ListView::scrollContentsBy(int, int)
{
    // The scroll bar moved (wheel, keys, dragging the bar).
    if (m_settingScrollBar || m_inLayout)
        return;
    stopAnimation();
    setTop(verticalScrollBar()->value());
}

// --- scrolling requests -----------------------------------------------------

void ListView::scrollToItem(const QVariantList &indexPath, bool animated)
{
    if (indexPath.isEmpty())
        return;
    bool ok = false;
    const int row = indexPath.first().toInt(&ok);
    if (!ok || row < 0 || row >= m_heights.size())
        return;
    stopAnimation();
    if (animated && isVisible()) {
        m_animationRow = row;
        startAnimation(m_heights.offsetOf(row));
        return;
    }
    m_pinEnd = false;
    m_anchorRow = row;
    m_anchorOffset = 0;
    doLayout();
}

void ListView::scrollToPosition(ScrollPosition position, bool animated)
{
    stopAnimation();
    if (animated && isVisible() && m_heights.size() > 0) {
        m_animationRow = position == End ? -2 : 0;
        startAnimation(position == End ? m_heights.total() : 0);
        return;
    }
    if (position == End) {
        m_pinEnd = true;
    } else {
        m_pinEnd = false;
        m_anchorRow = 0;
        m_anchorOffset = 0;
    }
    doLayout();
}

void ListView::startAnimation(qint64 target, int durationMs)
{
    const qint64 maxTop = qMax<qint64>(0, m_heights.total() - viewport()->height());
    target = qBound<qint64>(0, target, maxTop);
    m_animation = new QVariantAnimation(this);
    m_animation->setDuration(durationMs);
    m_animation->setEasingCurve(QEasingCurve::OutCubic);
    m_animation->setStartValue(double(m_top));
    m_animation->setEndValue(double(target));
    connect(m_animation, &QVariantAnimation::valueChanged, this, [this](const QVariant &v) {
        const int keep = m_animationRow;
        setTop(qint64(v.toDouble()));
        m_animationRow = keep;
    });
    connect(m_animation, &QVariantAnimation::finished, this, &ListView::onAnimationFinished);
    m_animation->start();
}

void ListView::onAnimationFinished()
{
    const int row = m_animationRow;
    m_animation->deleteLater();
    m_animation = nullptr;
    m_animationRow = -1;
    // Heights measured on the way may have moved the target: land exactly.
    if (row == -2) {
        m_pinEnd = true;
    } else if (row >= 0 && row < m_heights.size()) {
        m_pinEnd = false;
        m_anchorRow = row;
        m_anchorOffset = 0;
    }
    doLayout();
}

void ListView::stopAnimation()
{
    if (!m_animation)
        return;
    QVariantAnimation *a = m_animation;
    m_animation = nullptr;
    m_animationRow = -1;
    a->disconnect(this);
    a->stop();
    a->deleteLater();
}

// --- model changes ----------------------------------------------------------

void ListView::onRowsInserted(const QModelIndex &parent, int first, int last)
{
    if (parent.isValid())
        return;
    const int count = last - first + 1;
    const bool wasEmpty = m_heights.size() == 0;
    m_heights.insert(first, count, m_estimate);
    // The rows below move down with their widgets as they are: their data is
    // the same, so a page of history going in above costs no rebinding.
    QHash<int, Item> shifted;
    for (auto it = m_active.begin(); it != m_active.end(); ++it)
        shifted.insert(it.key() >= first ? it.key() + count : it.key(), it.value());
    m_active.swap(shifted);
    if (wasEmpty || (m_stickToBeginning && first == 0 && m_anchorRow == 0 && m_anchorOffset == 0 &&
                     !m_pinEnd)) {
        m_anchorRow = 0;
        m_anchorOffset = 0;
    } else if (first <= m_anchorRow) {
        // Keep the rows the user looks at where they are.
        m_anchorRow += count;
    }
    scheduleLayout();
}

void ListView::onRowsRemoved(const QModelIndex &parent, int first, int last)
{
    if (parent.isValid())
        return;
    const int count = last - first + 1;
    QHash<int, Item> kept;
    for (auto it = m_active.begin(); it != m_active.end(); ++it) {
        if (it.key() >= first && it.key() <= last) {
            release(*it);
        } else if (it.key() > last) {
            kept.insert(it.key() - count, it.value());
        } else {
            kept.insert(it.key(), it.value());
        }
    }
    m_active.swap(kept);
    m_heights.remove(first, count);
    if (m_anchorRow > last) {
        m_anchorRow -= count;
    } else if (m_anchorRow >= first) {
        m_anchorRow = first;
        m_anchorOffset = 0;
    }
    scheduleLayout();
}

void ListView::onRowsMoved(const QModelIndex &parent, int start, int end, const QModelIndex &dest,
                           int row)
{
    if (parent.isValid() || dest.isValid())
        return;
    // Rows [start, end] now sit before what was row `row`; rebuild the
    // height list in the same order and let the rows in view be rebound.
    QVector<int> hs = m_heights.heights();
    const int count = end - start + 1;
    if (start < 0 || end >= hs.size() || count <= 0)
        return;
    const QVector<int> moved = hs.mid(start, count);
    hs.remove(start, count);
    const int at = row > end ? row - count : row;
    for (int i = 0; i < count; ++i)
        hs.insert(at + i, moved.at(i));
    m_heights.assign(hs);
    releaseAll();
    scheduleLayout();
}

void ListView::onDataChanged(const QModelIndex &topLeft, const QModelIndex &bottomRight)
{
    if (topLeft.parent().isValid())
        return;
    const int first = topLeft.row();
    const int last = bottomRight.row();
    bool any = false;
    if (last - first + 1 < m_active.size()) {
        for (int r = first; r <= last; ++r) {
            auto it = m_active.find(r);
            if (it != m_active.end()) {
                it->needsUpdate = true;
                any = true;
            }
        }
    } else {
        for (auto it = m_active.begin(); it != m_active.end(); ++it) {
            if (it.key() >= first && it.key() <= last) {
                it->needsUpdate = true;
                any = true;
            }
        }
    }
    if (any)
        scheduleLayout();
}

void ListView::onModelReset()
{
    stopAnimation();
    releaseAll();
    m_heights.reset(rowCount(), m_estimate);
    m_anchorRow = 0;
    m_anchorOffset = 0;
    m_pinEnd = false;
    scheduleLayout();
}

void ListView::onLayoutChanged()
{
    releaseAll();
    const int n = rowCount();
    if (n != m_heights.size())
        m_heights.reset(n, m_estimate);
    scheduleLayout();
}

// --- events -----------------------------------------------------------------

void ListView::resizeEvent(QResizeEvent *event)
{
    QAbstractScrollArea::resizeEvent(event);
    doLayout();
}

void ListView::showEvent(QShowEvent *event)
{
    QAbstractScrollArea::showEvent(event);
    doLayout();
}

bool ListView::viewportEvent(QEvent *event)
{
    if (event->type() == QEvent::LayoutRequest) {
        for (auto it = m_active.begin(); it != m_active.end(); ++it)
            it->needsMeasure = true;
        scheduleLayout();
    }
    return QAbstractScrollArea::viewportEvent(event);
}

bool ListView::eventFilter(QObject *watched, QEvent *event)
{
    // An item whose content changed size asks for a new layout.
    if (event->type() == QEvent::LayoutRequest && !m_inLayout) {
        for (auto it = m_active.begin(); it != m_active.end(); ++it) {
            if (it->widget == watched) {
                it->needsMeasure = true;
                scheduleLayout();
                break;
            }
        }
    }
    return QAbstractScrollArea::eventFilter(watched, event);
}

void ListView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mousePressEvent(event);
        return;
    }
    stopAnimation();
    m_pressPos = event->pos();
    m_pressRow = rowAt(event->pos());
    m_dragging = false;
    m_dragClock.start();
    event->accept();
}

void ListView::mouseMoveEvent(QMouseEvent *event)
{
    if (!(event->buttons() & Qt::LeftButton)) {
        QAbstractScrollArea::mouseMoveEvent(event);
        return;
    }
    const int dy = event->pos().y() - m_pressPos.y();
    if (!m_dragging && qAbs(dy) >= QApplication::startDragDistance()) {
        m_dragging = true;
        m_lastDragY = m_pressPos.y();
        m_dragVelocity = 0;
    }
    // Dragging the content scrolls it, as a finger does on the phone.
    if (m_dragging) {
        const int step = event->pos().y() - m_lastDragY;
        const qint64 dt = qMax<qint64>(1, m_dragClock.restart());
        // Smoothed finger speed in pixels per millisecond, for the flick.
        m_dragVelocity = 0.6 * (-double(step) / dt) + 0.4 * m_dragVelocity;
        setTop(m_top - step);
        m_lastDragY = event->pos().y();
    }
    event->accept();
}

void ListView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QAbstractScrollArea::mouseReleaseEvent(event);
        return;
    }
    const int row = m_pressRow;
    const bool tap = !m_dragging && row >= 0 && rowAt(event->pos()) == row;
    // A drag released while moving keeps gliding, as on a touch screen.
    if (m_dragging && m_dragClock.isValid() && m_dragClock.elapsed() < 80 &&
        qAbs(m_dragVelocity) > 0.5) {
        m_animationRow = -1;
        startAnimation(m_top + qint64(m_dragVelocity * 350), 700);
    }
    m_pressRow = -1;
    m_dragging = false;
    event->accept();
    if (tap)
        Q_EMIT triggered(QVariantList{row});
}
