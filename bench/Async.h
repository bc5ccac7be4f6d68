#pragma once

// Running a coroutine to its end from a benchmark body, with the
// application object its event loop needs.

#include <QCoreApplication>
#include <QCoroTask>

#include <memory>
#include <utility>

namespace velum::bench {

inline void ensureApplication()
{
    static int argc = 1;
    static char name[] = "velum-bench";
    static char *argv[] = {name, nullptr};
    static std::unique_ptr<QCoreApplication> app =
        QCoreApplication::instance() ? nullptr : std::make_unique<QCoreApplication>(argc, argv);
}

template <class T>
T wait(QCoro::Task<T> task)
{
    ensureApplication();
    return QCoro::waitFor(std::move(task));
}

} // namespace velum::bench
