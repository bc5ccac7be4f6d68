#pragma once

// Running coroutines from a test body: the application object they need for
// their event loop, and a blocking wait that hands back what the coroutine
// returned or threw.

#include <QCoroTask>

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace velum::test {

// Creates the process's QCoreApplication on first use, on the calling thread.
void ensureCoreApplication();

namespace detail {

template <class T>
struct Settled {
    std::optional<T> value;
    std::exception_ptr error;
};

template <>
struct Settled<void> {
    std::exception_ptr error;
};

template <class T>
QCoro::Task<Settled<T>> settle(QCoro::Task<T> task)
{
    Settled<T> settled;
    try {
        if constexpr (std::is_void_v<T>)
            co_await std::move(task);
        else
            settled.value.emplace(co_await std::move(task));
    } catch (...) {
        settled.error = std::current_exception();
    }
    co_return settled;
}

} // namespace detail

// Runs `task` to its end in a nested event loop; returns its value or
// rethrows its exception.
template <class T>
T awaitTask(QCoro::Task<T> task)
{
    ensureCoreApplication();
    auto settled = QCoro::waitFor(detail::settle(std::move(task)));
    if (settled.error)
        std::rethrow_exception(settled.error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*settled.value);
}

} // namespace velum::test
