#pragma once

// What the benchmarks share: the tools they make their media with, and a
// coroutine run to its end with the application object its event loop needs.

#include <QCoreApplication>
#include <QCoroTask>
#include <QStandardPaths>
#include <QUrl>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace velum::bench {

// An installed program; the benchmark cannot run without it.
inline QUrl tool(const char *name)
{
    const QString path = QStandardPaths::findExecutable(QString::fromLatin1(name));
    if (path.isEmpty()) {
        std::fprintf(stderr, "%s is not installed\n", name);
        std::exit(1);
    }
    return QUrl::fromLocalFile(path);
}

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
