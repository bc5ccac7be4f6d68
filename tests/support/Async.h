#pragma once

// Running coroutines from a test body: the application object they need for
// their event loop, and a blocking wait that hands back what the coroutine
// returned or threw.

#include "tools/WaitForTask.h"

#include <utility>

namespace velum::test {

// Creates the process's QCoreApplication on first use, on the calling thread.
void ensureCoreApplication();

// Runs `task` to its end in a nested event loop; returns its value or
// rethrows its exception.
template <class T>
T awaitTask(QCoro::Task<T> task)
{
    ensureCoreApplication();
    return waitForTask(std::move(task));
}

} // namespace velum::test
