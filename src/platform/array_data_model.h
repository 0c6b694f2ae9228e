#pragma once

#include <QAbstractListModel>
#include <QList>
#include <QVariantMap>

#include <functional>

// A flat list model of row maps. Views read a row's map under Qt::UserRole
// (and Qt::DisplayRole). Every index is bounds-checked: out-of-range calls
// do nothing and reads give an empty map.
class ArrayDataModel : public QAbstractListModel
{
    Q_OBJECT
public:
    explicit ArrayDataModel(QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = QModelIndex()) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QHash<int, QByteArray> roleNames() const override;

    void append(const QVariantMap &row);
    // One insert notification for the whole batch.
    void append(const QList<QVariantMap> &rows);
    // index == size() appends; anything else out of range is ignored.
    void insert(int index, const QVariantMap &row);
    void insert(int index, const QList<QVariantMap> &rows);
    // Always notifies, even when the map is unchanged: "touching" a row
    // this way makes views redraw it.
    void replace(int index, const QVariantMap &row);
    void removeAt(int index);
    // Removes count rows from index (clipped to the model's end).
    void removeRange(int index, int count);
    // Moves one row so that it ends up at index to.
    void move(int from, int to);
    void clear();
    // Replaces all rows with one reset notification.
    void setRows(const QList<QVariantMap> &rows);

    int size() const { return m_rows.size(); }
    bool isEmpty() const { return m_rows.isEmpty(); }
    QVariantMap value(int index) const;
    const QList<QVariantMap> &rows() const { return m_rows; }

private:
    QList<QVariantMap> m_rows;
};

// For an index kept beside a model that others may write too: structural()
// after rows are inserted, removed or moved and after a reset or a layout
// change; changed(first, last) after rows' data changed.
void follow_model_changes(QAbstractItemModel *model, QObject *context,
                          const std::function<void()> &structural,
                          const std::function<void(int first, int last)> &changed);
