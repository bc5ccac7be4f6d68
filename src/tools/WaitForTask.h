#pragma once

// Running a coroutine to its end from code that is not one: a command-line
// command or a test body. The caller's thread must have a Qt application
// object for the nested event loop.

#include <QCoroTask>

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace velum {

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

// The exception is caught inside a coroutine of our own: one that escapes
// the task waitFor drives would leave the loop waiting for ever.
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
T waitForTask(QCoro::Task<T> task)
{
    auto settled = QCoro::waitFor(detail::settle(std::move(task)));
    if (settled.error)
        std::rethrow_exception(settled.error);
    if constexpr (!std::is_void_v<T>)
        return std::move(*settled.value);
}

} // namespace velum
