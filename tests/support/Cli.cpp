#include "support/Cli.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>

namespace velum::test {

QString velumCliPath()
{
    // Test programs live in <build>/tests/.
    const QFileInfo self(QStringLiteral("/proc/self/exe"));
    const QDir testsFolder = QFileInfo(self.canonicalFilePath()).dir();
    return QDir::cleanPath(testsFolder.filePath(QStringLiteral("../apps/velum-cli")));
}

CliResult runVelumCli(const QStringList &arguments)
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(velumCliPath(), arguments);
    CliResult result;
    if (!process.waitForStarted(10000))
        return result;
    process.waitForFinished(60000);
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.standardOutput = process.readAllStandardOutput();
    result.standardError = process.readAllStandardError();
    return result;
}

} // namespace velum::test
