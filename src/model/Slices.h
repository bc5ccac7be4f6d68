#pragma once

// Work over many independent items, spread over a few threads in contiguous
// slices. Used where one call has thousands of items of work that need no
// lock (decoding a long array, checking files on disk).

#include <cstddef>
#include <functional>

namespace velum::Slices {

// How many slices `items` items are worth, at `perSlice` items or more a
// slice: 1 for short runs and on a thread already working on a slice (slices
// never nest), else up to one per core.
std::size_t count(std::size_t items, std::size_t perSlice = 64);

// Runs `work(slice, begin, end)` for each of `slices` contiguous ranges of
// [0, items), the first on the calling thread, and returns when all are
// done. When slices throw, the exception of the earliest one is rethrown.
void forEach(std::size_t items, std::size_t slices,
             const std::function<void(std::size_t slice, std::size_t begin, std::size_t end)> &work);

} // namespace velum::Slices
