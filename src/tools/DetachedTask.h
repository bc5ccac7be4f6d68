#pragma once

// Blocking work handed to a thread pool and awaited from a coroutine.
//
// Tools and file hashing run on their own pool, not on Qt's global one: a
// tool may run for many minutes (a download, an analysis pass over an hour of
// footage), and a flow starts one per file without a limit, so they must not
// starve the short jobs of the global pool, nor be starved by them. Its
// threads run at low priority.
//
// The awaiting coroutine resumes on its own thread, through that thread's
// event loop (the main thread's, for every flow of the application). An
// exception thrown by the work reaches the awaiting coroutine unchanged.

#include <QCoroFuture>
#include <QCoroTask>
#include <QFuture>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <exception>
#include <optional>
#include <type_traits>
#include <utility>

namespace velum {

// The process-wide pool of the tools layer: up to 256 threads, which is more
// than any flow starts at once, so a new piece of work never waits for a
// thread in practice.
QThreadPool &utilityPool();

namespace detail {

template <class R>
struct DetachedOutcome {
    std::optional<R> value;
    std::exception_ptr error;
};

template <>
struct DetachedOutcome<void> {
    std::exception_ptr error;
};

} // namespace detail

// Runs `work` on the utility pool and gives its result, or rethrows what it
// threw. `work` is taken by value: it must own everything it uses.
//
// Make the task a named variable and await that (`auto task = runDetached(
// ...); co_await std::move(task);`): the compiler in use destroys temporaries
// of a co_await expression (such as the lambda) at the wrong time.

template <class F>
QCoro::Task<std::invoke_result_t<F &>> runDetached(F work)
{
    using R = std::invoke_result_t<F &>;
    using Outcome = detail::DetachedOutcome<R>;
    QFuture<Outcome> future = QtConcurrent::run(&utilityPool(), [work = std::move(work)]() mutable {
        Outcome outcome;
        try {
            if constexpr (std::is_void_v<R>)
                work();
            else
                outcome.value.emplace(work());
        } catch (...) {
            outcome.error = std::current_exception();
        }
        return outcome;
    });
    Outcome outcome = co_await future;
    if (outcome.error)
        std::rethrow_exception(outcome.error);
    if constexpr (!std::is_void_v<R>)
        co_return std::move(*outcome.value);
}

} // namespace velum
