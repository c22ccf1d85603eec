#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace kmxf {

// The first row of a table that has `value` in `column`; null when there is none.
template <class Row, size_t kCount, class Value>
constexpr const Row* FindRow(const Row (&rows)[kCount], Value Row::*column, const Value& value) {
    const Row* row = std::find_if(std::begin(rows), std::end(rows), [&](const Row& r) { return r.*column == value; });
    return row == std::end(rows) ? nullptr : row;
}

}  // namespace kmxf
