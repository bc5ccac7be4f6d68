#pragma once

// A closed range of seconds, both ends included.

namespace velum {

struct ClosedRange {
    double lower = 0;
    double upper = 0;

    friend bool operator==(const ClosedRange &, const ClosedRange &) = default;

    bool contains(double value) const { return lower <= value && value <= upper; }
};

} // namespace velum
