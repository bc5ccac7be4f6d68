#include "support/Async.h"

#include <QCoreApplication>

namespace velum::test {

void ensureCoreApplication()
{
    if (QCoreApplication::instance())
        return;
    static int argc = 1;
    static char name[] = "velum-tests";
    static char *argv[] = {name, nullptr};
    new QCoreApplication(argc, argv);
}

} // namespace velum::test
