#include "model/AppPaths.h"

#include <QDir>
#include <QStandardPaths>

namespace velum::AppPaths {

QString base()
{
    const QString data = qEnvironmentVariable("XDG_DATA_HOME");
    const QString root = data.isEmpty() || !QDir::isAbsolutePath(data)
                             ? QDir::homePath() + QStringLiteral("/.local/share")
                             : data;
    return QDir::cleanPath(root + QStringLiteral("/Velum"));
}

} // namespace velum::AppPaths
