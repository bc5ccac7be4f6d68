#include "Command.h"

#include "tools/ProcessRunner.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <variant>

namespace velum::cli {

std::vector<Command> &commands()
{
    static std::vector<Command> all;
    return all;
}

int usageError(const QString &message)
{
    std::fprintf(stderr, "velum-cli: %s\n", qPrintable(message));
    std::fputs("Try 'velum-cli --help'.\n", stderr);
    return exitUsage;
}

int failure(const std::exception &error)
{
    std::fprintf(stderr, "velum-cli: %s\n", error.what());
    return exitFailure;
}

int toolFailure(const std::exception &error)
{
    failure(error);
    if (const auto *run = dynamic_cast<const ProcessRunner::FailureError *>(&error)) {
        if (const auto *failed = std::get_if<ProcessRunner::Failed>(&run->failure())) {
            const QString first = failed->output.trimmed().section(QLatin1Char('\n'), 0, 0);
            std::fprintf(stderr, "velum-cli: %s exited with status %d%s%s\n", qUtf8Printable(failed->command),
                         failed->status, first.isEmpty() ? "" : ": ", qUtf8Printable(first));
        }
    }
    return exitFailure;
}

namespace {

void printUsage(std::FILE *out)
{
    std::fputs("Usage: velum-cli COMMAND [ARGUMENTS]\n\n"
               "Velum's headless tool: the engine's work on project folders and media\n"
               "files, for scripting and checks.\n\n"
               "Commands:\n",
               out);
    auto sorted = commands();
    std::sort(sorted.begin(), sorted.end(), [](const Command &a, const Command &b) { return std::strcmp(a.name, b.name) < 0; });
    for (const auto &c : sorted)
        std::fprintf(out, "  %s %s\n      %s\n", c.name, c.usage, c.summary);
    if (sorted.empty())
        std::fputs("  (none in this build)\n", out);
    std::fputs("\nOptions:\n  --help    show this text\n", out);
}

} // namespace
} // namespace velum::cli

int main(int argc, char *argv[])
{
    using namespace velum::cli;
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Velum"));
    QStringList arguments = QCoreApplication::arguments().mid(1);

    if (arguments.isEmpty())
        return usageError(QStringLiteral("no command given"));
    if (arguments.first() == QLatin1String("--help") || arguments.first() == QLatin1String("-h")
        || arguments.first() == QLatin1String("help")) {
        printUsage(stdout);
        return exitOk;
    }
    const QString name = arguments.takeFirst();
    for (const auto &command : commands()) {
        if (name == QLatin1String(command.name)) {
            if (arguments.contains(QLatin1String("--help"))) {
                std::printf("Usage: velum-cli %s %s\n  %s\n", command.name, command.usage, command.summary);
                return exitOk;
            }
            return command.run(arguments);
        }
    }
    return usageError(QStringLiteral("unknown command \"%1\"").arg(name));
}
