#include "platform/height_index.h"

void HeightIndex::reset(int n, int h)
{
    m_heights.fill(h, qMax(0, n));
    rebuild();
}

void HeightIndex::assign(const QVector<int> &heights)
{
    m_heights = heights;
    rebuild();
}

void HeightIndex::rebuild()
{
    const int n = m_heights.size();
    m_tree.fill(0, n + 1);
    for (int i = 1; i <= n; ++i) {
        m_tree[i] += m_heights.at(i - 1);
        const int parent = i + (i & -i);
        if (parent <= n)
            m_tree[parent] += m_tree[i];
    }
}

void HeightIndex::setHeight(int row, int h)
{
    if (row < 0 || row >= m_heights.size())
        return;
    const qint64 delta = qint64(h) - m_heights.at(row);
    if (delta == 0)
        return;
    m_heights[row] = h;
    for (int i = row + 1; i < m_tree.size(); i += i & -i)
        m_tree[i] += delta;
}

qint64 HeightIndex::offsetOf(int row) const
{
    qint64 sum = 0;
    for (int i = qBound(0, row, m_heights.size()); i > 0; i -= i & -i)
        sum += m_tree.at(i);
    return sum;
}

int HeightIndex::rowAt(qint64 y) const
{
    const int n = m_heights.size();
    if (n == 0)
        return -1;
    if (y < 0)
        return 0;
    // Descend the tree: find the largest prefix whose sum is <= y.
    int pos = 0;
    int step = 1;
    while (step * 2 <= n)
        step *= 2;
    qint64 rest = y;
    for (; step > 0; step /= 2) {
        const int next = pos + step;
        if (next <= n && m_tree.at(next) <= rest) {
            pos = next;
            rest -= m_tree.at(next);
        }
    }
    // pos rows fit entirely at or above y; y lies in row pos. Zero-height
    // rows were skipped over, which is what a hit test wants.
    return qMin(pos, n - 1);
}

void HeightIndex::insert(int row, int count, int h)
{
    if (count <= 0 || row < 0 || row > m_heights.size())
        return;
    m_heights.insert(row, count, h);
    rebuild();
}

void HeightIndex::remove(int row, int count)
{
    if (count <= 0 || row < 0 || row >= m_heights.size())
        return;
    m_heights.remove(row, qMin(count, m_heights.size() - row));
    rebuild();
}

void HeightIndex::move(int from, int to)
{
    const int n = m_heights.size();
    if (from < 0 || from >= n || to < 0 || to >= n || from == to)
        return;
    m_heights.move(from, to);
    rebuild();
}
