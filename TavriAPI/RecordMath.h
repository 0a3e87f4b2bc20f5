#pragma once
// Small sums over image records that the set's verdict and the match of several sets
// both make.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "TavriAPI/ImageRecords.h"

namespace Tavri {

inline bool known(std::uint64_t value) { return value != ImageRecord::kUnknown; }

// The upper median (0 for none): reorders `values`, which callers build for it.
inline double median(std::vector<double> values) {
    if (values.empty()) return 0.0;
    auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

}  // namespace Tavri
