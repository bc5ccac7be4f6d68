#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace velum::test {

struct CliResult {
    int exitCode = -1;
    QByteArray standardOutput;
    QByteArray standardError;
};

// The built velum-cli beside the test programs: <build>/apps/velum-cli.
QString velumCliPath();

// Runs velum-cli with the arguments and waits for it (at most a minute).
CliResult runVelumCli(const QStringList &arguments);

// Runs a program of the build, given relative to <build>/apps/ ("velum").
CliResult runBuiltProgram(const QString &name, const QStringList &arguments, int timeoutMs = 60000);

} // namespace velum::test
