#include "model/Slices.h"

#include <algorithm>
#include <exception>
#include <thread>
#include <vector>

namespace velum::Slices {

namespace {

// Set on a thread while it works on a slice.
thread_local bool insideSlice = false;

constexpr std::size_t slicesMaximum = 8;

} // namespace

std::size_t count(std::size_t items, std::size_t perSlice)
{
    if (insideSlice)
        return 1;
    const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
    return std::clamp<std::size_t>(std::min(cores, items / std::max<std::size_t>(perSlice, 1)), 1, slicesMaximum);
}

void forEach(std::size_t items, std::size_t slices,
             const std::function<void(std::size_t, std::size_t, std::size_t)> &work)
{
    slices = std::clamp<std::size_t>(slices, 1, std::max<std::size_t>(items, 1));
    std::vector<std::exception_ptr> failures(slices);
    const auto run = [&](std::size_t slice) {
        const bool outer = insideSlice;
        insideSlice = true;
        try {
            work(slice, items * slice / slices, items * (slice + 1) / slices);
        } catch (...) {
            failures[slice] = std::current_exception();
        }
        insideSlice = outer;
    };
    std::vector<std::thread> threads;
    threads.reserve(slices - 1);
    for (std::size_t slice = 1; slice < slices; ++slice)
        threads.emplace_back(run, slice);
    run(0);
    for (auto &thread : threads)
        thread.join();
    for (const auto &failure : failures) {
        if (failure)
            std::rethrow_exception(failure);
    }
}

} // namespace velum::Slices
