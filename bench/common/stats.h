#pragma once

// Small measuring helpers shared by the benchmarks.

#include <malloc.h>

#include <algorithm>
#include <vector>

namespace bench {

// Bytes the allocator has handed out (small blocks and mapped ones).
inline size_t heapInUse()
{
    const struct mallinfo2 mi = mallinfo2();
    return mi.uordblks + mi.hblkhd;
}

inline double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

inline double percentile(std::vector<double> v, double p)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[std::min(v.size() - 1, size_t(double(v.size()) * p))];
}

} // namespace bench
