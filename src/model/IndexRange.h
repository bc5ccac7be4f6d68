#pragma once

namespace velum {

// A half-open range of indices: [lower, upper).
struct IndexRange {
    int lower = 0;
    int upper = 0;

    friend bool operator==(const IndexRange &, const IndexRange &) = default;

    bool isEmpty() const { return upper <= lower; }
    int count() const { return isEmpty() ? 0 : upper - lower; }
    bool contains(int index) const { return index >= lower && index < upper; }
};

} // namespace velum
