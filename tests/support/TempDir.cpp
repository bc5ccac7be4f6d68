#include "support/TempDir.h"

#include <QFile>
#include <QFileInfo>

#include <stdexcept>

namespace velum::test {

PathOverride::PathOverride(const char *variable, const QString &path)
    : m_variable(variable), m_had(qEnvironmentVariableIsSet(variable)), m_previous(qgetenv(variable))
{
    qputenv(variable, QFile::encodeName(path));
}

PathOverride::~PathOverride()
{
    if (m_had)
        qputenv(m_variable, m_previous);
    else
        qunsetenv(m_variable);
}

void writeBytes(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        throw std::runtime_error("cannot write test file " + path.toStdString());
}

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.readAll();
}

} // namespace velum::test
