#pragma once

#include <QVector>

// Row heights with prefix sums in O(log n) (a Fenwick tree), for list views
// that must find the row under a pixel offset among many rows of varying
// height without laying them all out.
class HeightIndex
{
public:
    // n rows, each of height h.
    void reset(int n, int h);
    // Rebuilds from explicit heights in O(n).
    void assign(const QVector<int> &heights);

    int size() const { return m_heights.size(); }
    int height(int row) const { return m_heights.at(row); }
    void setHeight(int row, int h);

    // Sum of the heights of rows [0, row).
    qint64 offsetOf(int row) const;
    qint64 total() const { return offsetOf(m_heights.size()); }
    // The row whose span [offset, offset + height) contains y; y below 0
    // gives 0, y at or past the end gives size() - 1 (-1 when empty).
    int rowAt(qint64 y) const;

    // Structural edits rebuild in O(n).
    void insert(int row, int count, int h);
    void remove(int row, int count);
    void move(int from, int to);

    const QVector<int> &heights() const { return m_heights; }

private:
    void rebuild();

    QVector<int> m_heights;
    QVector<qint64> m_tree; // 1-based Fenwick tree
};
