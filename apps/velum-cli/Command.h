#pragma once

// velum-cli's commands. Each command lives in its own file and registers
// itself with a static `CommandRegistration`; main() dispatches on the first
// argument.

#include <QStringList>

#include <exception>
#include <functional>
#include <utility>
#include <vector>

namespace velum::cli {

// Exit statuses shared by every command.
inline constexpr int exitOk = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;

struct Command {
    const char *name;
    const char *usage;   // arguments after the name, e.g. "PROJECT_DIR --json OUT"
    const char *summary; // one line for --help
    std::function<int(const QStringList &arguments)> run;
};

std::vector<Command> &commands();

struct CommandRegistration {
    explicit CommandRegistration(Command command) { commands().push_back(std::move(command)); }
};

// Writes a line to standard error and returns exitUsage.
int usageError(const QString &message);

// Writes "velum-cli: " and the error's text to standard error and returns
// exitFailure.
int failure(const std::exception &error);

// The same for an error that may come from a tool run: a tool that failed
// also gets the first line it printed, which names what went wrong.
int toolFailure(const std::exception &error);

} // namespace velum::cli
