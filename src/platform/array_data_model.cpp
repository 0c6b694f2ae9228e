#include "platform/array_data_model.h"

ArrayDataModel::ArrayDataModel(QObject *parent) : QAbstractListModel(parent) {}

int ArrayDataModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : m_rows.size();
}

QVariant ArrayDataModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() < 0 || index.row() >= m_rows.size() || index.column() != 0)
        return QVariant();
    if (role == Qt::UserRole || role == Qt::DisplayRole)
        return m_rows.at(index.row());
    return QVariant();
}

QHash<int, QByteArray> ArrayDataModel::roleNames() const
{
    return {{Qt::DisplayRole, "display"}, {Qt::UserRole, "row"}};
}

void ArrayDataModel::append(const QVariantMap &row)
{
    insert(m_rows.size(), row);
}

void ArrayDataModel::append(const QList<QVariantMap> &rows)
{
    insert(m_rows.size(), rows);
}

void ArrayDataModel::insert(int index, const QVariantMap &row)
{
    if (index < 0 || index > m_rows.size())
        return;
    beginInsertRows(QModelIndex(), index, index);
    m_rows.insert(index, row);
    endInsertRows();
}

void ArrayDataModel::insert(int index, const QList<QVariantMap> &rows)
{
    if (rows.isEmpty() || index < 0 || index > m_rows.size())
        return;
    beginInsertRows(QModelIndex(), index, index + rows.size() - 1);
    m_rows.reserve(m_rows.size() + rows.size());
    for (int i = 0; i < rows.size(); ++i)
        m_rows.insert(index + i, rows.at(i));
    endInsertRows();
}

void ArrayDataModel::replace(int index, const QVariantMap &row)
{
    if (index < 0 || index >= m_rows.size())
        return;
    m_rows[index] = row;
    const QModelIndex mi = createIndex(index, 0);
    Q_EMIT dataChanged(mi, mi);
}

void ArrayDataModel::removeAt(int index)
{
    removeRange(index, 1);
}

void ArrayDataModel::removeRange(int index, int count)
{
    if (index < 0 || index >= m_rows.size() || count <= 0)
        return;
    const int last = qMin(m_rows.size(), index + count) - 1;
    beginRemoveRows(QModelIndex(), index, last);
    m_rows.erase(m_rows.begin() + index, m_rows.begin() + last + 1);
    endRemoveRows();
}

void ArrayDataModel::move(int from, int to)
{
    const int n = m_rows.size();
    if (from < 0 || from >= n || to < 0 || to >= n || from == to)
        return;
    // beginMoveRows wants the destination as the row before which the moved
    // row lands, counted in the list before the move.
    const int dest = to > from ? to + 1 : to;
    if (!beginMoveRows(QModelIndex(), from, from, QModelIndex(), dest))
        return;
    m_rows.move(from, to);
    endMoveRows();
}

void ArrayDataModel::clear()
{
    if (m_rows.isEmpty())
        return;
    beginResetModel();
    m_rows.clear();
    endResetModel();
}

void ArrayDataModel::setRows(const QList<QVariantMap> &rows)
{
    beginResetModel();
    m_rows = rows;
    endResetModel();
}

QVariantMap ArrayDataModel::value(int index) const
{
    if (index < 0 || index >= m_rows.size())
        return QVariantMap();
    return m_rows.at(index);
}

void follow_model_changes(QAbstractItemModel *model, QObject *context,
                          const std::function<void()> &structural,
                          const std::function<void(int first, int last)> &changed)
{
    QObject::connect(model, &QAbstractItemModel::rowsInserted, context, structural);
    QObject::connect(model, &QAbstractItemModel::rowsRemoved, context, structural);
    QObject::connect(model, &QAbstractItemModel::rowsMoved, context, structural);
    QObject::connect(model, &QAbstractItemModel::modelReset, context, structural);
    QObject::connect(model, &QAbstractItemModel::layoutChanged, context, structural);
    QObject::connect(model, &QAbstractItemModel::dataChanged, context,
                     [changed](const QModelIndex &topLeft, const QModelIndex &bottomRight) {
                         changed(topLeft.row(), bottomRight.row());
                     });
}
