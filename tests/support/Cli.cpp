#include "support/Cli.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace velum::test {

namespace {

QString builtProgramPath(const QString &name)
{
    // Test programs live in <build>/tests/, the applications in <build>/apps/.
    const QFileInfo self(QStringLiteral("/proc/self/exe"));
    const QDir testsFolder = QFileInfo(self.canonicalFilePath()).dir();
    return QDir::cleanPath(testsFolder.filePath(QStringLiteral("../apps/") + name));
}

} // namespace

QString velumCliPath()
{
    return builtProgramPath(QStringLiteral("velum-cli"));
}

CliResult runVelumCli(const QStringList &arguments)
{
    return runBuiltProgram(QStringLiteral("velum-cli"), arguments);
}

CliResult runBuiltProgram(const QString &name, const QStringList &arguments, int timeoutMs)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(builtProgramPath(name), arguments);
    CliResult result;
    if (!process.waitForStarted(10000))
        return result;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.standardOutput = process.readAllStandardOutput();
    result.standardError = process.readAllStandardError();
    return result;
}

} // namespace velum::test
