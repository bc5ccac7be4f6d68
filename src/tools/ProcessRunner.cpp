#include "tools/ProcessRunner.h"

#include "tools/BundledTools.h"
#include "tools/DetachedTask.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace velum {

// --- Failures -----------------------------------------------------------------

QString ProcessRunner::description(const Failure &failure)
{
    struct Words {
        QString operator()(const ToolNotFound &) const
        {
            return QStringLiteral("Velum is missing part of its video toolkit. Reinstall Velum.");
        }
        QString operator()(const Failed &) const { return QStringLiteral("Velum couldn’t process that file."); }
    };
    return std::visit(Words{}, failure);
}

ProcessRunner::FailureError::FailureError(Failure failure)
    : m_failure(std::move(failure))
    , m_text(description(m_failure).toStdString())
{
}

void ProcessRunner::requireSuccess(const QString &command, qint32 status, const QString &output)
{
    if (status != 0)
        throw FailureError(Failed{command, status, output});
}

ProcessRunner::LaunchError::LaunchError(const QString &executable, int code)
    : std::runtime_error(QStringLiteral("Couldn’t start %1: %2")
                             .arg(executable, QString::fromLocal8Bit(std::strerror(code)))
                             .toStdString())
    , m_code(code)
{
}

// --- Resolution ---------------------------------------------------------------

QStringList ProcessRunner::standardExtraDirectories()
{
    return {QStringLiteral("/opt/homebrew/bin"), QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin")};
}

std::optional<ProcessRunner::ResolvedTool> ProcessRunner::resolve(const QString &name) const
{
    return resolve(name, m_locations.extraDirectories);
}

std::optional<ProcessRunner::ResolvedTool> ProcessRunner::resolve(const QString &name,
                                                                 const QStringList &extraDirectories) const
{
    const std::optional<QString> bundledFolder =
        m_locations.bundledDirectory ? m_locations.bundledDirectory : BundledTools::directory();
    if (bundledFolder) {
        if (auto url = BundledTools::url(name, *bundledFolder))
            return ResolvedTool{*url, ToolSource::bundled};
    }

    const QString searchPath = m_locations.searchPath ? *m_locations.searchPath : qEnvironmentVariable("PATH");
    QStringList folders = searchPath.split(QLatin1Char(':'), Qt::SkipEmptyParts);
    folders += extraDirectories;
    for (const QString &folder : folders) {
        if (folder.isEmpty() || name.isEmpty())
            continue;
        const QString path = QFileInfo(QDir(folder).filePath(name)).absoluteFilePath();
        if (BundledTools::isExecutableFile(path))
            return ResolvedTool{QUrl::fromLocalFile(path), ToolSource::system};
    }
    return std::nullopt;
}

ProcessRunner::ResolvedTool ProcessRunner::require(const QString &name) const
{
    if (auto tool = resolve(name))
        return *tool;
    throw FailureError(ToolNotFound{name});
}

// --- Running ------------------------------------------------------------------

namespace {

class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    void reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

// Written to by the cancellation's callback, watched by the reading loop.
// The callback holds it too, so the descriptor outlives any late write.
struct Wakeup {
    FileDescriptor fd{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    void signal() const
    {
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = ::write(fd.get(), &one, sizeof one);
    }
};

struct SpawnAttributes {
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    SpawnAttributes()
    {
        posix_spawnattr_init(&attributes);
        posix_spawn_file_actions_init(&actions);
    }
    ~SpawnAttributes()
    {
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
    }
    SpawnAttributes(const SpawnAttributes &) = delete;
    SpawnAttributes &operator=(const SpawnAttributes &) = delete;
};

int niceValue(ProcessRunner::QualityOfService quality)
{
    switch (quality) {
    case ProcessRunner::QualityOfService::userInteractive:
    case ProcessRunner::QualityOfService::userInitiated:
        return 0;
    case ProcessRunner::QualityOfService::utility:
        return 10;
    case ProcessRunner::QualityOfService::background:
        return 19;
    }
    return 0;
}

qint32 exitStatus(int waitStatus)
{
    if (WIFEXITED(waitStatus))
        return WEXITSTATUS(waitStatus);
    if (WIFSIGNALED(waitStatus))
        return 128 + WTERMSIG(waitStatus);
    return -1;
}

struct RawResult {
    qint32 status = 0;
    QByteArray out;
    QByteArray err;
};

void throwLaunchError(const QString &program, int code)
{
    throw ProcessRunner::LaunchError(program, code);
}

// One run: spawn, drain every pipe while watching for the child's end and the
// cancellation, reap. With `separate` false both streams share `out`.
RawResult runChild(const QUrl &executable, const QStringList &arguments, bool separate,
                   std::optional<ProcessRunner::QualityOfService> quality, const Cancellation &cancellation)
{
    cancellation.throwIfCancelled();

    const QString program = executable.isLocalFile() ? executable.toLocalFile() : executable.toString();
    if (!executable.isLocalFile() || program.isEmpty())
        throwLaunchError(program, ENOENT);

    // Argument vector: the program's path, then the arguments, as the file
    // system's bytes.
    std::vector<QByteArray> argumentBytes;
    argumentBytes.reserve(static_cast<std::size_t>(arguments.size()) + 1);
    argumentBytes.push_back(QFile::encodeName(program));
    for (const QString &argument : arguments)
        argumentBytes.push_back(argument.toUtf8());
    std::vector<char *> argv;
    argv.reserve(argumentBytes.size() + 1);
    for (QByteArray &bytes : argumentBytes)
        argv.push_back(bytes.data());
    argv.push_back(nullptr);

    // Pipes: read ends stay here, write ends go to the child. All are
    // close-on-exec; dup2 in the child clears the flag on 1 and 2 only.
    std::array<int, 2> outPipe{-1, -1};
    std::array<int, 2> errPipe{-1, -1};
    if (::pipe2(outPipe.data(), O_CLOEXEC) != 0)
        throwLaunchError(program, errno);
    FileDescriptor outRead(outPipe[0]);
    FileDescriptor outWrite(outPipe[1]);
    FileDescriptor errRead;
    FileDescriptor errWrite;
    if (separate) {
        if (::pipe2(errPipe.data(), O_CLOEXEC) != 0)
            throwLaunchError(program, errno);
        errRead.reset(errPipe[0]);
        errWrite.reset(errPipe[1]);
    }

    SpawnAttributes spawn;
    posix_spawn_file_actions_addopen(&spawn.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&spawn.actions, outWrite.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&spawn.actions, separate ? errWrite.get() : outWrite.get(), STDERR_FILENO);
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 34))
    // Nothing else of this process leaks into the tool, whoever opened it.
    posix_spawn_file_actions_addclosefrom_np(&spawn.actions, STDERR_FILENO + 1);
#endif
    // A group of its own, so that cancelling reaches whatever the tool starts;
    // default signal handling and an empty mask whatever this process uses.
    sigset_t noSignals;
    sigemptyset(&noSignals);
    sigset_t allSignals;
    sigfillset(&allSignals);
    posix_spawnattr_setpgroup(&spawn.attributes, 0);
    posix_spawnattr_setsigmask(&spawn.attributes, &noSignals);
    posix_spawnattr_setsigdefault(&spawn.attributes, &allSignals);
    posix_spawnattr_setflags(&spawn.attributes,
                             POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    // Listen for the cancellation before the child exists, so that none is
    // missed between the launch and the first wait.
    auto wakeup = std::make_shared<Wakeup>();
    if (!wakeup->fd.isOpen())
        throwLaunchError(program, errno);
    const Cancellation::Registration registration = cancellation.onCancel([wakeup] { wakeup->signal(); });

    pid_t pid = 0;
    const int spawnError = ::posix_spawn(&pid, argumentBytes.front().constData(), &spawn.actions,
                                         &spawn.attributes, argv.data(), environ);
    if (spawnError != 0)
        throwLaunchError(program, spawnError);
    outWrite.reset();
    errWrite.reset();

    if (quality) {
        // Never more favourable than this process: a child may only give way.
        errno = 0;
        const int own = ::getpriority(PRIO_PROCESS, 0);
        const int nice = errno == 0 ? std::max(own, niceValue(*quality)) : niceValue(*quality);
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(pid), nice);
    }

    // The child's end as a descriptor where the kernel offers one; otherwise
    // the loop looks every 50 ms.
    FileDescriptor childEnd;
#ifdef SYS_pidfd_open
    childEnd.reset(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
#endif

    RawResult result;
    bool exited = false;
    int waitStatus = 0;
    bool cancelled = false;
    std::vector<char> buffer(65536);

    const auto reap = [&](int options) {
        for (;;) {
            const pid_t done = ::waitpid(pid, &waitStatus, options);
            if (done == pid) {
                exited = true;
                return;
            }
            if (done == 0)
                return;
            if (errno == EINTR)
                continue;
            // Someone else reaped it (a process that ignores SIGCHLD): the
            // status is lost.
            exited = true;
            waitStatus = -1;
            return;
        }
    };

    while (outRead.isOpen() || errRead.isOpen() || !exited) {
        std::array<pollfd, 4> fds{};
        nfds_t count = 0;
        int outIndex = -1;
        int errIndex = -1;
        int childIndex = -1;
        const int wakeIndex = static_cast<int>(count);
        fds[count++] = pollfd{wakeup->fd.get(), POLLIN, 0};
        if (outRead.isOpen()) {
            outIndex = static_cast<int>(count);
            fds[count++] = pollfd{outRead.get(), POLLIN, 0};
        }
        if (errRead.isOpen()) {
            errIndex = static_cast<int>(count);
            fds[count++] = pollfd{errRead.get(), POLLIN, 0};
        }
        if (!exited && childEnd.isOpen()) {
            childIndex = static_cast<int>(count);
            fds[count++] = pollfd{childEnd.get(), POLLIN, 0};
        }
        const int timeout = !exited && !childEnd.isOpen() ? 50 : -1;

        const int ready = ::poll(fds.data(), count, timeout);
        if (ready < 0 && errno != EINTR)
            break;

        if ((fds[static_cast<std::size_t>(wakeIndex)].revents & POLLIN) || cancellation.isCancelled()) {
            cancelled = true;
            break;
        }

        const auto drain = [&](int index, FileDescriptor &fd, QByteArray &into) {
            if (index < 0 || fds[static_cast<std::size_t>(index)].revents == 0)
                return;
            const ssize_t n = ::read(fd.get(), buffer.data(), buffer.size());
            if (n > 0)
                into.append(buffer.data(), static_cast<qsizetype>(n));
            else if (n == 0 || (errno != EINTR && errno != EAGAIN))
                fd.reset();
        };
        drain(outIndex, outRead, result.out);
        drain(errIndex, errRead, separate ? result.err : result.out);

        if (!exited && (childIndex < 0 || fds[static_cast<std::size_t>(childIndex)].revents != 0))
            reap(WNOHANG);
    }

    if (cancelled) {
        // The group is named after the child, which leads it; it exists while
        // any member does, even after the child itself was reaped.
        ::kill(-pid, SIGKILL);
        if (!exited)
            reap(0);
        throw CancelledError();
    }
    if (!exited)
        reap(0);
    result.status = waitStatus == -1 ? -1 : exitStatus(waitStatus);
    return result;
}

} // namespace

ProcessRunner::Output ProcessRunner::runBlocking(const QUrl &executable, const QStringList &arguments,
                                                 std::optional<QualityOfService> qualityOfService,
                                                 const Cancellation &cancellation)
{
    const RawResult raw = runChild(executable, arguments, false, qualityOfService, cancellation);
    return Output{raw.status, QString::fromUtf8(raw.out)};
}

ProcessRunner::SeparatedOutput ProcessRunner::runSeparatedBlocking(const QUrl &executable,
                                                                   const QStringList &arguments,
                                                                   const Cancellation &cancellation)
{
    const RawResult raw = runChild(executable, arguments, true, std::nullopt, cancellation);
    return SeparatedOutput{raw.status, QString::fromUtf8(raw.out), QString::fromUtf8(raw.err)};
}

QCoro::Task<ProcessRunner::Output> ProcessRunner::run(QUrl executable, QStringList arguments,
                                                      std::optional<QualityOfService> qualityOfService,
                                                      Cancellation cancellation)
{
    // Built outside the co_await expression: the compiler mishandles
    // temporaries that live across a suspension.
    auto task = runDetached([executable, arguments, qualityOfService, cancellation] {
        return runBlocking(executable, arguments, qualityOfService, cancellation);
    });
    co_return co_await std::move(task);
}

QCoro::Task<ProcessRunner::SeparatedOutput> ProcessRunner::runSeparated(QUrl executable, QStringList arguments,
                                                                        Cancellation cancellation)
{
    auto task = runDetached([executable, arguments, cancellation] {
        return runSeparatedBlocking(executable, arguments, cancellation);
    });
    co_return co_await std::move(task);
}

} // namespace velum
