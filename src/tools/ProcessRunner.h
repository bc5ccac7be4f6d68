#pragma once

// The one way an external tool (ffmpeg, ffprobe, yt-dlp, xmllint) is found and
// run.
//
// Finding. `resolve` looks in the application's bundled tools folder first,
// then in each folder of "PATH", then in the standard extra folders, and takes
// the first executable file of the name. It reads the file system and the
// environment afresh at every call, so a tool installed while the application
// runs is seen at its next use. Where it looks is a `Locations` value: the
// default is the real application, and tests give their own folders.
//
// Running. A run is a child process started with posix_spawn:
//
//  - standard input is the null device, so no tool can ever wait for input;
//  - `run` gives the child one pipe for standard output and standard error,
//    so the text is in the order the tool wrote it; `runSeparated` gives each
//    its own pipe;
//  - one thread waits on every pipe, the child's exit and the cancellation at
//    once (poll), so no pipe can fill up while the reader sits on another, and
//    a child that ends before the reader starts loses nothing;
//  - the child leads a process group of its own; the bytes are decoded as
//    UTF-8 at the end, invalid sequences becoming U+FFFD;
//  - the exit status is handed back, never judged: each caller decides what a
//    non-zero status means. A child ended by a signal reports 128 + the
//    signal's number, as a shell does.
//
// Threads. `runBlocking` and `runSeparatedBlocking` block the calling thread
// for the whole run; they are safe on any thread and from many at once, and
// share no state. `run` and `runSeparated` are the same runs handed to the
// utility pool (DetachedTask.h) and awaited from a coroutine, which therefore
// never blocks its event loop; every flow uses these.
//
// Cancellation. Every run takes a `Cancellation`. When it is cancelled, the
// runner kills the child's whole process group with SIGKILL (so helpers the
// tool started, which may hold the pipes open, go too), reaps the child and
// throws CancelledError. A run whose cancellation is already set when it is
// called throws at once without starting anything. Dropping the awaiting
// coroutine does not stop a tool: cancel its Cancellation.

#include "model/Json.h"
#include "tools/Cancellation.h"

#include <QCoroTask>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>

namespace velum {

class ProcessRunner {
public:
    enum class ToolSource { bundled, system };

    struct ResolvedTool {
        QUrl url; // a local file
        ToolSource source = ToolSource::system;

        friend bool operator==(const ResolvedTool &, const ResolvedTool &) = default;
    };

    // Standard output and standard error as one stream.
    struct Output {
        qint32 status = 0;
        QString text;

        friend bool operator==(const Output &, const Output &) = default;
    };

    // The two streams apart. (Named with a suffix: `stdout` and `stderr`
    // are names of the C library.)
    struct SeparatedOutput {
        qint32 status = 0;
        QString stdoutText;
        QString stderrText;

        friend bool operator==(const SeparatedOutput &, const SeparatedOutput &) = default;
    };

    // How much the child may take from the rest of the machine: its nice
    // value, set just after the launch, and never below this process's own.
    // Without one, the child keeps the niceness it inherits.
    enum class QualityOfService {
        userInteractive, // nice 0
        userInitiated,   // nice 0
        utility,         // nice 10
        background,      // nice 19
    };

    // What a caller of the runner raises; the words are what the user sees.
    struct ToolNotFound {
        QString name;
        friend bool operator==(const ToolNotFound &, const ToolNotFound &) = default;
    };
    struct Failed {
        QString command;
        qint32 status = 0;
        QString output;
        friend bool operator==(const Failed &, const Failed &) = default;
    };
    using Failure = std::variant<ToolNotFound, Failed>;
    static QString description(const Failure &failure);

    // Carries a Failure; what() is its description.
    class FailureError : public std::exception {
    public:
        explicit FailureError(Failure failure);
        const char *what() const noexcept override { return m_text.c_str(); }
        const Failure &failure() const { return m_failure; }

    private:
        Failure m_failure;
        std::string m_text;
    };

    // For callers that treat a non-zero exit as a failure: throws
    // FailureError(Failed{command, status, output}) unless status is 0.
    static void requireSuccess(const QString &command, qint32 status, const QString &output);

    // The platform refused to start the program (no such file, not
    // executable, not a program, no resources). `code` is the errno value.
    class LaunchError : public std::runtime_error {
    public:
        LaunchError(const QString &executable, int code);
        int code() const { return m_code; }

    private:
        int m_code;
    };

    // Where tools are looked for.
    struct Locations {
        // The bundled tools folder; absent: BundledTools::directory().
        std::optional<QString> bundledDirectory;
        // A search path in the form of "PATH"; absent: the environment's
        // "PATH" at the moment of the search (an empty text when unset).
        std::optional<QString> searchPath;
        // Searched after the search path, in order.
        QStringList extraDirectories = standardExtraDirectories();

        friend bool operator==(const Locations &, const Locations &) = default;
    };

    // "/opt/homebrew/bin", "/usr/local/bin", "/usr/bin": they serve a process
    // started without a useful "PATH", as a desktop application often is.
    static QStringList standardExtraDirectories();

    ProcessRunner() = default;
    explicit ProcessRunner(Locations locations) : m_locations(std::move(locations)) {}
    const Locations &locations() const { return m_locations; }

    // The first executable file called `name`: in the bundled folder (source
    // `bundled`), else in the search path followed by the extra folders
    // (source `system`). A file that exists but is not executable is passed
    // over. No value when there is none; callers then raise toolNotFound.
    std::optional<ResolvedTool> resolve(const QString &name) const;
    // The same with other extra folders in place of the runner's own.
    std::optional<ResolvedTool> resolve(const QString &name, const QStringList &extraDirectories) const;
    // As resolve, but throws FailureError(ToolNotFound{name}) when absent.
    ResolvedTool require(const QString &name) const;

    // One run with standard output and standard error on one pipe. Throws
    // LaunchError when the program cannot be started and CancelledError when
    // cancelled; a non-zero exit status is not an error.
    static QCoro::Task<Output> run(QUrl executable, QStringList arguments,
                                   std::optional<QualityOfService> qualityOfService = std::nullopt,
                                   Cancellation cancellation = Cancellation());
    // One run with a pipe for each stream, drained at the same time.
    static QCoro::Task<SeparatedOutput> runSeparated(QUrl executable, QStringList arguments,
                                                     Cancellation cancellation = Cancellation());

    // The same runs, blocking the calling thread until the child has ended
    // and its pipes are closed.
    static Output runBlocking(const QUrl &executable, const QStringList &arguments,
                              std::optional<QualityOfService> qualityOfService = std::nullopt,
                              const Cancellation &cancellation = Cancellation());
    static SeparatedOutput runSeparatedBlocking(const QUrl &executable, const QStringList &arguments,
                                                const Cancellation &cancellation = Cancellation());

private:
    Locations m_locations;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<ProcessRunner::ToolSource> {
    static constexpr std::array values{
        std::pair{ProcessRunner::ToolSource::bundled, "bundled"},
        std::pair{ProcessRunner::ToolSource::system, "system"},
    };
};

} // namespace velum::json
