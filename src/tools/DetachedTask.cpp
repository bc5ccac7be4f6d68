#include "tools/DetachedTask.h"

#include <QThread>

namespace velum {

QThreadPool &utilityPool()
{
    static QThreadPool *pool = [] {
        auto *p = new QThreadPool();
        p->setObjectName(QStringLiteral("velum-utility"));
        p->setMaxThreadCount(256);
        p->setThreadPriority(QThread::LowPriority);
        return p;
    }();
    return *pool;
}

} // namespace velum
