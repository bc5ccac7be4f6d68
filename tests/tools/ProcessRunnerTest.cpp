#include "tools/BundledTools.h"
#include "tools/ContentHash.h"
#include "tools/DetachedTask.h"
#include "tools/FFmpegVersionCache.h"
#include "tools/ProcessRunner.h"
#include "tools/ToolPreflight.h"

#include "support/Async.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <functional>
#include <thread>

#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

using namespace velum;
using velum::test::awaitTask;
using velum::test::TempDir;

namespace {

using ToolSource = ProcessRunner::ToolSource;

// A stand-in tool: a shell script, executable unless asked otherwise.
QString writeScript(const QString &folder, const QString &name, const QByteArray &body = "exit 0\n",
                    bool executable = true)
{
    const QString path = QDir(folder).filePath(name);
    velum::test::writeBytes(path, "#!/bin/sh\n" + body);
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        permissions |= QFile::ExeOwner;
    QFile::setPermissions(path, permissions);
    return path;
}

QUrl script(const TempDir &dir, const QByteArray &body)
{
    return QUrl::fromLocalFile(writeScript(dir.path(), QStringLiteral("tool.sh"), body));
}

// A runner that sees only the given folders.
ProcessRunner runnerWith(const QString &bundled, const QString &searchPath, const QStringList &extra = {})
{
    ProcessRunner::Locations locations;
    locations.bundledDirectory = bundled;
    locations.searchPath = searchPath;
    locations.extraDirectories = extra;
    return ProcessRunner(locations);
}

QString pathOf(const std::optional<ProcessRunner::ResolvedTool> &tool)
{
    return tool ? tool->url.toLocalFile() : QString();
}

// Alive and not a zombie waiting to be reaped by someone else.
bool isRunning(pid_t pid)
{
    if (::kill(pid, 0) != 0)
        return false;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return false;
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    if (close < 0 || close + 2 >= text.size())
        return false;
    const char state = text.at(close + 2);
    return state != 'Z' && state != 'X';
}

bool waitUntil(const std::function<bool()> &condition, int milliseconds = 10000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > milliseconds)
            return false;
        QThread::msleep(10);
    }
    return true;
}

QString realTool(const QString &name)
{
    return QStandardPaths::findExecutable(name);
}

// --- Resolution ---------------------------------------------------------------

TEST(ProcessRunnerResolve, BundledBeatsPathBeatsExtraFolders)
{
    TempDir bundled, onPath, extra;
    const QString inBundle = writeScript(bundled.path(), "ffmpeg");
    const QString inPath = writeScript(onPath.path(), "ffmpeg");
    const QString inExtra = writeScript(extra.path(), "ffmpeg");
    const ProcessRunner runner = runnerWith(bundled.path(), onPath.path(), {extra.path()});

    auto tool = runner.resolve("ffmpeg");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->source, ToolSource::bundled);
    EXPECT_EQ(pathOf(tool), inBundle);

    QFile::remove(inBundle);
    tool = runner.resolve("ffmpeg");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->source, ToolSource::system);
    EXPECT_EQ(pathOf(tool), inPath);

    QFile::remove(inPath);
    tool = runner.resolve("ffmpeg");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->source, ToolSource::system);
    EXPECT_EQ(pathOf(tool), inExtra);

    // Not cached: a tool that goes or comes is seen at once.
    QFile::remove(inExtra);
    EXPECT_FALSE(runner.resolve("ffmpeg"));
    writeScript(bundled.path(), "ffmpeg");
    EXPECT_EQ(runner.resolve("ffmpeg")->source, ToolSource::bundled);
}

TEST(ProcessRunnerResolve, SearchPathFoldersKeepTheirOrderAheadOfExtraFolders)
{
    TempDir first, second, extra;
    writeScript(extra.path(), "ffprobe");
    const QString inSecond = writeScript(second.path(), "ffprobe");
    const ProcessRunner runner =
        runnerWith(QString(), "::" + first.path() + "::" + second.path() + ":", {extra.path()});
    EXPECT_EQ(pathOf(runner.resolve("ffprobe")), inSecond);

    const QString inFirst = writeScript(first.path(), "ffprobe");
    EXPECT_EQ(pathOf(runner.resolve("ffprobe")), inFirst);

    // The same folder twice does no harm.
    const QString twice = writeScript(extra.path(), "ffmpeg");
    EXPECT_EQ(pathOf(runnerWith(QString(), extra.path() + ":" + extra.path(), {extra.path()}).resolve("ffmpeg")), twice);
}

TEST(ProcessRunnerResolve, FilesThatAreNotExecutableAreSkippedButLinksCount)
{
    TempDir bundled, onPath, later;
    writeScript(bundled.path(), "ffmpeg", "exit 0\n", false);
    writeScript(onPath.path(), "ffmpeg", "exit 0\n", false);
    QDir(later.path()).mkdir("ffprobe"); // a folder of the right name
    const QString good = writeScript(later.path(), "ffmpeg");
    const ProcessRunner runner = runnerWith(bundled.path(), onPath.path() + ":" + later.path());

    const auto tool = runner.resolve("ffmpeg");
    ASSERT_TRUE(tool);
    EXPECT_EQ(tool->source, ToolSource::system);
    EXPECT_EQ(pathOf(tool), good);
    EXPECT_FALSE(runner.resolve("ffprobe"));

    // A link to an executable counts, and the location is the link.
    TempDir linked;
    ASSERT_TRUE(QFile::link(good, linked.file("ffmpeg")));
    const auto link = runnerWith(linked.path(), QString()).resolve("ffmpeg");
    ASSERT_TRUE(link);
    EXPECT_EQ(link->source, ToolSource::bundled);
    EXPECT_EQ(pathOf(link), linked.file("ffmpeg"));
}

TEST(ProcessRunnerResolve, WithoutASearchPathOnlyTheExtraFoldersAreSearched)
{
    TempDir empty, extraA, extraB;
    const QString inB = writeScript(extraB.path(), "yt-dlp");
    const ProcessRunner runner = runnerWith(empty.path(), QString(), {extraA.path(), extraB.path()});
    EXPECT_EQ(pathOf(runner.resolve("yt-dlp")), inB);
    EXPECT_FALSE(runnerWith(empty.path(), QString(), {extraA.path()}).resolve("yt-dlp"));
    // Extra folders given for one call replace the runner's own.
    EXPECT_FALSE(runner.resolve("yt-dlp", {extraA.path()}));
    EXPECT_EQ(pathOf(runnerWith(empty.path(), QString()).resolve("yt-dlp", {extraB.path()})), inB);
}

TEST(ProcessRunnerResolve, DefaultLocationsReadTheEnvironmentsPathAtEachCall)
{
    TempDir folder;
    const QString tool = writeScript(folder.path(), "velum-test-tool");
    const QByteArray savedPath = qgetenv("PATH");
    const ProcessRunner runner;
    EXPECT_EQ(runner.locations().extraDirectories,
              (QStringList{"/opt/homebrew/bin", "/usr/local/bin", "/usr/bin"}));

    qputenv("PATH", QFile::encodeName(folder.path()) + ":" + savedPath);
    const auto found = runner.resolve("velum-test-tool");
    qunsetenv("PATH");
    const auto unset = runner.resolve("velum-test-tool");
    // With no PATH at all, the standard folders still find the system's shell.
    const auto shell = runner.resolve("sh");
    qputenv("PATH", savedPath);

    ASSERT_TRUE(found);
    EXPECT_EQ(pathOf(found), tool);
    EXPECT_EQ(found->source, ToolSource::system);
    EXPECT_FALSE(unset);
    ASSERT_TRUE(shell);
    EXPECT_TRUE(QStringList({"/usr/local/bin/sh", "/usr/bin/sh"}).contains(pathOf(shell)));
}

TEST(ProcessRunnerFailure, AMissingToolIsToolNotFoundInTheUsersWords)
{
    TempDir bundled, folder;
    const ProcessRunner runner = runnerWith(bundled.path(), folder.path());
    try {
        runner.require("ffprobe");
        FAIL() << "expected toolNotFound";
    } catch (const ProcessRunner::FailureError &e) {
        const auto *missing = std::get_if<ProcessRunner::ToolNotFound>(&e.failure());
        ASSERT_TRUE(missing);
        EXPECT_EQ(missing->name, "ffprobe");
        EXPECT_STREQ(e.what(), "Velum is missing part of its video toolkit. Reinstall Velum.");
    }
    writeScript(folder.path(), "ffprobe");
    EXPECT_EQ(runner.require("ffprobe").url.toLocalFile(), folder.file("ffprobe"));
}

TEST(ProcessRunnerFailure, ANonZeroExitOfRealFfmpegBecomesFailedWithItsOutput)
{
    const QString ffmpeg = realTool("ffmpeg");
    ASSERT_FALSE(ffmpeg.isEmpty()) << "ffmpeg must be installed";
    TempDir dir;
    const auto output = awaitTask(ProcessRunner::run(QUrl::fromLocalFile(ffmpeg),
                                                     {"-hide_banner", "-i", dir.file("absent.mov")}));
    EXPECT_NE(output.status, 0);
    EXPECT_TRUE(output.text.contains("absent.mov")) << output.text.toStdString();

    try {
        ProcessRunner::requireSuccess("ffmpeg -i", output.status, output.text);
        FAIL() << "expected failed";
    } catch (const ProcessRunner::FailureError &e) {
        const auto *failed = std::get_if<ProcessRunner::Failed>(&e.failure());
        ASSERT_TRUE(failed);
        EXPECT_EQ(*failed, (ProcessRunner::Failed{"ffmpeg -i", output.status, output.text}));
        EXPECT_EQ(QString::fromUtf8(e.what()), QStringLiteral("Velum couldn’t process that file."));
    }
    EXPECT_NO_THROW(ProcessRunner::requireSuccess("ffmpeg -i", 0, output.text));
}

// --- Running ------------------------------------------------------------------

TEST(ProcessRunnerRun, OneStreamInTheOrderWrittenWithTheExitStatus)
{
    TempDir dir;
    const QUrl tool = script(dir, "echo out1\necho err1 >&2\necho out2\necho err2 >&2\nexit 3\n");
    const auto output = awaitTask(ProcessRunner::run(tool, {}));
    EXPECT_EQ(output.status, 3);
    EXPECT_EQ(output.text, "out1\nerr1\nout2\nerr2\n");

    const auto separated = awaitTask(ProcessRunner::runSeparated(tool, {}));
    EXPECT_EQ(separated.status, 3);
    EXPECT_EQ(separated.stdoutText, "out1\nout2\n");
    EXPECT_EQ(separated.stderrText, "err1\nerr2\n");
}

TEST(ProcessRunnerRun, ArgumentsArriveVerbatimAndStandardInputIsEmpty)
{
    TempDir dir;
    const QUrl tool = script(dir, "for a in \"$@\"; do printf '[%s]\\n' \"$a\"; done\n");
    const QStringList arguments{"-i", "/tmp/a file with spaces.mov", "", "quote\"s and 'apostrophes'",
                                "$HOME", "*", "ünïcødé ✓", "-filter:a", "silencedetect=n=-30dB:d=0.5"};
    const auto output = ProcessRunner::runBlocking(tool, arguments);
    QString expected;
    for (const QString &a : arguments)
        expected += "[" + a + "]\n";
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.text, expected);

    // Standard input is the null device.
    const QUrl reader = script(dir, "readlink /proc/$$/fd/0\n"
                                  "if read line; then echo \"read:$line\"; else echo eof; fi\n"
                                  "cat\n"
                                  "echo done\n");
    EXPECT_EQ(awaitTask(ProcessRunner::run(reader, {})), (ProcessRunner::Output{0, "/dev/null\neof\ndone\n"}));
    const auto separated = ProcessRunner::runSeparatedBlocking(reader, {});
    EXPECT_EQ(separated.stdoutText, "/dev/null\neof\ndone\n");
}

TEST(ProcessRunnerRun, AToolThatEndsAtOnceOrIsKilledLosesNothing)
{
    TempDir dir;
    const QUrl quick = script(dir, "printf 'x'\nexit 7\n");
    const QUrl silent = QUrl::fromLocalFile(writeScript(dir.path(), "silent.sh"));
    for (int i = 0; i < 40; ++i) {
        const auto output = ProcessRunner::runBlocking(quick, {});
        ASSERT_EQ(output.status, 7);
        ASSERT_EQ(output.text, "x");
        const auto separated = ProcessRunner::runSeparatedBlocking(quick, {});
        ASSERT_EQ(separated.status, 7);
        ASSERT_EQ(separated.stdoutText, "x");
        const auto nothing = ProcessRunner::runBlocking(silent, {});
        ASSERT_EQ(nothing, (ProcessRunner::Output{0, QString()}));
    }
    // Ended by a signal: a non-zero status, and what came before.
    const QUrl killed = QUrl::fromLocalFile(writeScript(dir.path(), "killed.sh", "echo before\nkill -KILL $$\necho after\n"));
    EXPECT_EQ(ProcessRunner::runBlocking(killed, {}), (ProcessRunner::Output{128 + SIGKILL, "before\n"}));
}

TEST(ProcessRunnerRun, MegabytesOnBothPipesDrainWithoutDeadlock)
{
    TempDir dir;
    // 6 MB to standard error before a byte goes to standard output, then
    // 6 MB to standard output, then both again in alternation.
    const QUrl tool = script(dir, "head -c 6291456 /dev/zero | tr '\\000' e >&2\n"
                                  "head -c 6291456 /dev/zero | tr '\\000' o\n"
                                  "for i in 1 2 3 4; do\n"
                                  "  head -c 300000 /dev/zero | tr '\\000' O\n"
                                  "  head -c 300000 /dev/zero | tr '\\000' E >&2\n"
                                  "done\n"
                                  "exit 4\n");
    QElapsedTimer timer;
    timer.start();
    const auto separated = awaitTask(ProcessRunner::runSeparated(tool, {}));
    EXPECT_LT(timer.elapsed(), 60000);
    EXPECT_EQ(separated.status, 4);
    ASSERT_EQ(separated.stderrText.size(), 6291456 + 4 * 300000);
    ASSERT_EQ(separated.stdoutText.size(), 6291456 + 4 * 300000);
    EXPECT_EQ(separated.stderrText.count(QLatin1Char('e')), 6291456);
    EXPECT_EQ(separated.stderrText.count(QLatin1Char('E')), 4 * 300000);
    EXPECT_EQ(separated.stdoutText.count(QLatin1Char('o')), 6291456);
    EXPECT_EQ(separated.stdoutText.count(QLatin1Char('O')), 4 * 300000);

    const auto combined = awaitTask(ProcessRunner::run(tool, {}));
    EXPECT_EQ(combined.status, 4);
    ASSERT_EQ(combined.text.size(), 2 * (6291456 + 4 * 300000));
    // One stream, in order: all the e's come before the first o.
    EXPECT_EQ(combined.text.indexOf(QLatin1Char('o')), 6291456);
    EXPECT_EQ(combined.text.lastIndexOf(QLatin1Char('e')), 6291456 - 1);
}

TEST(ProcessRunnerRun, InvalidUtf8IsRepairedAndTheStatusKept)
{
    TempDir dir;
    const QUrl tool = script(dir, "printf 'caf\\303\\251 \\377\\376 end\\n'\n"
                                  "printf 'bad \\200 tail \\303' >&2\n"
                                  "exit 9\n");
    // Each invalid byte, and the cut-off sequence at the end, is one U+FFFD;
    // the valid two-byte "é" stays itself.
    const QString out = QString::fromUtf8("caf\xc3\xa9 \xef\xbf\xbd\xef\xbf\xbd end\n");
    const QString err = QString::fromUtf8("bad \xef\xbf\xbd tail \xef\xbf\xbd");
    const auto output = awaitTask(ProcessRunner::run(tool, {}));
    EXPECT_EQ(output.status, 9);
    EXPECT_EQ(output.text, out + err);

    const auto separated = awaitTask(ProcessRunner::runSeparated(tool, {}));
    EXPECT_EQ(separated.status, 9);
    EXPECT_EQ(separated.stdoutText, out);
    EXPECT_EQ(separated.stderrText, err);
}

TEST(ProcessRunnerRun, QualityOfServiceSetsTheChildsNiceness)
{
    TempDir dir;
    // Field 19 of /proc/<pid>/stat is the nice value.
    const QUrl tool = script(dir, "sleep 0.2\ncut -d' ' -f19 /proc/$$/stat\n");
    // A child never gets a better place than the process that starts it.
    const int ownNice = ::getpriority(PRIO_PROCESS, 0);
    const auto background = awaitTask(ProcessRunner::run(tool, {}, ProcessRunner::QualityOfService::background));
    EXPECT_EQ(background.text.trimmed(), "19");
    const auto utility = awaitTask(ProcessRunner::run(tool, {}, ProcessRunner::QualityOfService::utility));
    EXPECT_EQ(utility.text.trimmed(), QString::number(std::max(10, ownNice)));
    const auto initiated = awaitTask(ProcessRunner::run(tool, {}, ProcessRunner::QualityOfService::userInitiated));
    EXPECT_EQ(initiated.text.trimmed(), QString::number(ownNice));
    const auto inherited = awaitTask(ProcessRunner::run(tool, {}));
    EXPECT_EQ(inherited.text.trimmed(), QString::number(ownNice));
}

TEST(ProcessRunnerRun, ManyRunsAtOnceKeepTheirOwnOutput)
{
    TempDir dir;
    const QUrl tool = script(dir, "sleep 0.5\necho \"$1\"\necho \"err $1\" >&2\nexit $1\n");
    auto all = [](QUrl tool) -> QCoro::Task<std::vector<ProcessRunner::Output>> {
        std::vector<QCoro::Task<ProcessRunner::Output>> tasks;
        for (int i = 0; i < 24; ++i)
            tasks.push_back(ProcessRunner::run(tool, {QString::number(i)}));
        std::vector<ProcessRunner::Output> outputs;
        for (auto &task : tasks)
            outputs.push_back(co_await std::move(task));
        co_return outputs;
    };
    QElapsedTimer timer;
    timer.start();
    const auto outputs = awaitTask(all(tool));
    ASSERT_EQ(outputs.size(), 24u);
    for (int i = 0; i < 24; ++i) {
        EXPECT_EQ(outputs[static_cast<std::size_t>(i)].status, i);
        EXPECT_EQ(outputs[static_cast<std::size_t>(i)].text, QStringLiteral("%1\nerr %1\n").arg(i));
    }
    // They ran side by side, not one after another (24 × 0.5 s).
    EXPECT_LT(timer.elapsed(), 6000);
}

TEST(ProcessRunnerLaunch, AProgramThatCannotStartThrowsThePlatformsError)
{
    TempDir dir;
    const QString notExecutable = writeScript(dir.path(), "plain.sh", "exit 0\n", false);
    velum::test::writeBytes(dir.file("garbage"), QByteArray("\x01\x02\x03 not a program"));
    QFile::setPermissions(dir.file("garbage"), QFile::ReadOwner | QFile::ExeOwner);

    const auto codeOf = [](const QString &path) {
        try {
            awaitTask(ProcessRunner::run(QUrl::fromLocalFile(path), {}));
        } catch (const ProcessRunner::LaunchError &e) {
            EXPECT_TRUE(QString::fromUtf8(e.what()).contains(path)) << e.what();
            return e.code();
        }
        return 0;
    };
    EXPECT_EQ(codeOf(dir.file("absent")), ENOENT);
    EXPECT_EQ(codeOf(notExecutable), EACCES);
    EXPECT_EQ(codeOf(dir.file("garbage")), ENOEXEC);
    EXPECT_THROW(ProcessRunner::runSeparatedBlocking(QUrl::fromLocalFile(dir.file("absent")), {}),
                 ProcessRunner::LaunchError);
}

// --- Cancellation -------------------------------------------------------------

TEST(ProcessRunnerCancel, CancellingKillsTheChildAndWhatItStarted)
{
    TempDir dir;
    // The helper `sleep` keeps the pipe open after the shell is gone: the run
    // would last 60 s if only the shell were killed.
    const QUrl tool = script(dir, "echo $$ > '" + QFile::encodeName(dir.file("shell.pid")) + "'\n"
                                  "sleep 60 &\n"
                                  "echo $! > '" + QFile::encodeName(dir.file("helper.pid")) + "'\n"
                                  "wait\n");
    for (const bool separated : {false, true}) {
        QFile::remove(dir.file("shell.pid"));
        QFile::remove(dir.file("helper.pid"));
        Cancellation cancellation;
        auto run = [](QUrl tool, bool separated, Cancellation cancellation) -> QCoro::Task<qint32> {
            if (separated) {
                auto task = ProcessRunner::runSeparated(tool, {}, cancellation);
                const auto output = co_await std::move(task);
                co_return output.status;
            }
            auto task = ProcessRunner::run(tool, {}, std::nullopt, cancellation);
            const auto output = co_await std::move(task);
            co_return output.status;
        };
        // Cancel from another thread once the helper is running.
        std::thread canceller([&] {
            if (waitUntil([&] { return QFileInfo(dir.file("helper.pid")).size() > 0; }))
                cancellation.cancel();
        });
        QElapsedTimer timer;
        timer.start();
        EXPECT_THROW(awaitTask(run(tool, separated, cancellation)), CancelledError);
        canceller.join();
        EXPECT_LT(timer.elapsed(), 20000);

        const pid_t shell = test::readBytes(dir.file("shell.pid")).trimmed().toInt();
        const pid_t helper = test::readBytes(dir.file("helper.pid")).trimmed().toInt();
        ASSERT_GT(shell, 0);
        ASSERT_GT(helper, 0);
        EXPECT_FALSE(isRunning(shell));
        EXPECT_TRUE(waitUntil([&] { return !isRunning(helper); }, 5000));
    }
}

TEST(ProcessRunnerCancel, AnAlreadyCancelledRunStartsNothingAndALateOneChangesNothing)
{
    TempDir dir;
    const QUrl tool = script(dir, "touch '" + QFile::encodeName(dir.file("started")) + "'\n");
    Cancellation cancellation;
    cancellation.cancel();
    EXPECT_THROW(awaitTask(ProcessRunner::run(tool, {}, std::nullopt, cancellation)), CancelledError);
    EXPECT_THROW(ProcessRunner::runSeparatedBlocking(tool, {}, cancellation), CancelledError);
    QThread::msleep(100);
    EXPECT_FALSE(QFileInfo::exists(dir.file("started")));

    // A cancellation after the run changes nothing.
    Cancellation late;
    const QUrl fine = QUrl::fromLocalFile(writeScript(dir.path(), "fine.sh", "echo fine\n"));
    const auto output = ProcessRunner::runBlocking(fine, {}, std::nullopt, late);
    late.cancel();
    EXPECT_EQ(output, (ProcessRunner::Output{0, "fine\n"}));
}

TEST(Cancellation, CallbacksRunOnceAndRegistrationsEndThem)
{
    Cancellation cancellation;
    int first = 0, second = 0, dropped = 0;
    auto a = cancellation.onCancel([&] { ++first; });
    auto b = cancellation.onCancel([&] { ++second; });
    {
        auto c = cancellation.onCancel([&] { ++dropped; });
    }
    const Cancellation copy = cancellation;
    EXPECT_FALSE(copy.isCancelled());
    copy.cancel();
    cancellation.cancel();
    EXPECT_TRUE(cancellation.isCancelled());
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(dropped, 0);
    int late = 0;
    auto d = cancellation.onCancel([&] { ++late; });
    EXPECT_EQ(late, 1);
    EXPECT_THROW(cancellation.throwIfCancelled(), CancelledError);
}

// --- Preflight ----------------------------------------------------------------

TEST(ToolPreflight, FindsBothToolsAndSaysWhereFromOrListsWhatIsMissing)
{
    const QString ffmpeg = realTool("ffmpeg");
    const QString ffprobe = realTool("ffprobe");
    ASSERT_FALSE(ffmpeg.isEmpty());
    ASSERT_FALSE(ffprobe.isEmpty());
    TempDir bundled, onPath;
    ASSERT_TRUE(QFile::link(ffmpeg, bundled.file("ffmpeg")));
    ASSERT_TRUE(QFile::link(ffprobe, onPath.file("ffprobe")));

    const auto result = ToolPreflight::check(runnerWith(bundled.path(), onPath.path()));
    EXPECT_TRUE(result.isComplete());
    EXPECT_EQ(result, (ToolPreflight{{}, {{"ffmpeg", ToolSource::bundled}, {"ffprobe", ToolSource::system}}}));

    // What is missing is listed in the order checked; yt-dlp is not asked for.
    TempDir none, extra;
    EXPECT_EQ(ToolPreflight::check(runnerWith(none.path(), none.path(), {extra.path()})),
              (ToolPreflight{{"ffmpeg", "ffprobe"}, {}}));
    writeScript(extra.path(), "ffprobe");
    writeScript(none.path(), "yt-dlp");
    const auto partial = ToolPreflight::check(runnerWith(none.path(), none.path(), {extra.path()}));
    EXPECT_EQ(partial, (ToolPreflight{{"ffmpeg"}, {{"ffprobe", ToolSource::system}}}));
    EXPECT_FALSE(partial.isComplete());

    // The installed tools pass on this machine.
    const auto installed = ToolPreflight::check();
    EXPECT_TRUE(installed.missing.isEmpty()) << installed.missing.join(", ").toStdString();
    EXPECT_EQ(installed.sources.size(), 2u);
}

// --- Bundled tools ------------------------------------------------------------

TEST(BundledTools, VersionFileFirstLineAndOnlyExecutableFiles)
{
    TempDir dir;
    const auto versionOf = [&](const QByteArray &content) {
        velum::test::writeBytes(dir.file("VERSION"), content);
        return BundledTools::bundledVersion(dir.path());
    };
    EXPECT_EQ(versionOf("ffmpeg 7.1.1 built for Velum\nsecond line\n"), "7.1.1");
    EXPECT_EQ(versionOf("ffmpeg   6.0\r\n"), "6.0");
    EXPECT_EQ(versionOf("ffmpeg n7.0-12-gabc"), "n7.0-12-gabc");
    EXPECT_FALSE(versionOf("ffmpeg\n7.1\n"));
    EXPECT_FALSE(versionOf("FFmpeg 7.1\n"));
    EXPECT_FALSE(versionOf("libav 12\n"));
    EXPECT_FALSE(versionOf(""));
    EXPECT_FALSE(versionOf("ffmpeg 7.1 \xff\xfe\n"));
    QFile::remove(dir.file("VERSION"));
    EXPECT_FALSE(BundledTools::bundledVersion(dir.path()));

    // Only executable files are offered.
    writeScript(dir.path(), "ffmpeg");
    writeScript(dir.path(), "ffprobe", "exit 0\n", false);
    QDir(dir.path()).mkdir("yt-dlp");
    EXPECT_EQ(BundledTools::url("ffmpeg", dir.path()), QUrl::fromLocalFile(dir.file("ffmpeg")));
    EXPECT_FALSE(BundledTools::url("ffprobe", dir.path()));
    EXPECT_FALSE(BundledTools::url("yt-dlp", dir.path()));
    EXPECT_FALSE(BundledTools::url("absent", dir.path()));
}

TEST(BundledTools, TheResourceFolderSitsBesideTheExecutablesFolder)
{
    velum::test::ensureCoreApplication();
    const QString expected = QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/velum");
    const auto resources = BundledTools::resourceDirectory();
    if (QFileInfo(expected).isDir()) {
        EXPECT_EQ(resources, expected);
        EXPECT_EQ(BundledTools::directory(), expected + "/ffmpeg");
    } else {
        EXPECT_FALSE(resources);
        EXPECT_FALSE(BundledTools::directory());
        EXPECT_FALSE(BundledTools::url("ffmpeg"));
        EXPECT_FALSE(BundledTools::bundledVersion());
        EXPECT_FALSE(BundledTools::licenseURL("ffmpeg"));
    }
}

// --- Version cache ------------------------------------------------------------

TEST(FFmpegVersionCache, VersionLineParsing)
{
    EXPECT_EQ(FFmpegVersionCache::versionFromOutput("ffmpeg version 6.0-6 Copyright (c) 2000-2023\nbuilt with gcc\n"),
              "6.0-6");
    EXPECT_EQ(FFmpegVersionCache::versionFromOutput("  ffmpeg   version   n7.1  \n"), "n7.1");
    EXPECT_EQ(FFmpegVersionCache::versionFromOutput("avconv build 12 by someone\nmore"), "avconv build 12 by someone");
    EXPECT_EQ(FFmpegVersionCache::versionFromOutput("ffmpeg version\n"), "ffmpeg version");
    EXPECT_FALSE(FFmpegVersionCache::versionFromOutput("   \nffmpeg version 7\n"));
    EXPECT_FALSE(FFmpegVersionCache::versionFromOutput(""));
}

TEST(FFmpegVersionCache, ReadsTheRealFfmpeg)
{
    const QString ffmpeg = realTool("ffmpeg");
    ASSERT_FALSE(ffmpeg.isEmpty());
    TempDir bundled;
    const auto version = FFmpegVersionCache::readBinaryVersion(runnerWith(bundled.path(), QFileInfo(ffmpeg).path()));
    ASSERT_TRUE(version);
    EXPECT_FALSE(version->isEmpty());
    EXPECT_FALSE(version->contains(' '));
    QProcess process;
    process.start(ffmpeg, {"-version"});
    ASSERT_TRUE(process.waitForFinished(30000));
    const QString firstLine = QString::fromUtf8(process.readAllStandardOutput()).section('\n', 0, 0);
    EXPECT_TRUE(firstLine.startsWith("ffmpeg version " + *version + " ")) << firstLine.toStdString();
}

TEST(FFmpegVersionCache, AsksTheToolOnceForEveryCallerAndKeepsAnAbsentAnswer)
{
    TempDir bundled, folder;
    writeScript(folder.path(), "ffmpeg",
                "echo run >> '" + QFile::encodeName(folder.file("runs")) + "'\n"
                "sleep 0.3\n"
                "echo 'ffmpeg version 9.9-test Copyright (c) the makers'\n"
                "echo 'configuration: --enable-everything'\n");
    const ProcessRunner runner = runnerWith(bundled.path(), folder.path());
    FFmpegVersionCache cache([runner] { return FFmpegVersionCache::readBinaryVersion(runner); });
    EXPECT_FALSE(cache.resolved());

    auto askMany = [](FFmpegVersionCache *cache) -> QCoro::Task<std::vector<std::optional<QString>>> {
        std::vector<QCoro::Task<std::optional<QString>>> tasks;
        for (int i = 0; i < 6; ++i)
            tasks.push_back(cache->version());
        std::vector<std::optional<QString>> answers;
        for (auto &task : tasks)
            answers.push_back(co_await std::move(task));
        co_return answers;
    };
    const auto answers = awaitTask(askMany(&cache));
    for (const auto &answer : answers)
        EXPECT_EQ(answer, "9.9-test");
    EXPECT_EQ(awaitTask(cache.version()), "9.9-test");
    EXPECT_EQ(cache.resolved(), std::optional<std::optional<QString>>(QString("9.9-test")));
    EXPECT_EQ(test::readBytes(folder.file("runs")), "run\n");

    // An absent version is stored too: installed afterwards, the run of the
    // application keeps its answer, and only a fresh cache reads it.
    TempDir empty;
    const ProcessRunner without = runnerWith(bundled.path(), empty.path());
    FFmpegVersionCache absent([without] { return FFmpegVersionCache::readBinaryVersion(without); });
    EXPECT_FALSE(awaitTask(absent.version()));
    ASSERT_TRUE(absent.resolved());
    EXPECT_FALSE(*absent.resolved());
    writeScript(empty.path(), "ffmpeg",
                "echo run >> '" + QFile::encodeName(empty.file("runs")) + "'\necho 'ffmpeg version 1.0'\n");
    EXPECT_FALSE(awaitTask(absent.version()));
    EXPECT_FALSE(QFileInfo::exists(empty.file("runs")));
    FFmpegVersionCache fresh([without] { return FFmpegVersionCache::readBinaryVersion(without); });
    EXPECT_EQ(awaitTask(fresh.version()), "1.0");
}

// --- Content hash -------------------------------------------------------------

QString sha256sumOf(const QString &path)
{
    QProcess process;
    process.start("sha256sum", {path});
    if (!process.waitForFinished(60000))
        return {};
    return QString::fromUtf8(process.readAllStandardOutput()).section(' ', 0, 0);
}

TEST(ContentHash, VideoIDIsTheSha256OfTheBytes)
{
    TempDir dir;
    // Sizes around the 1 MiB chunk: empty, one byte, a chunk exactly, a
    // chunk and a byte, several chunks and a tail.
    for (const qsizetype size : {qsizetype(0), qsizetype(1), qsizetype(1048576), qsizetype(1048577),
                                 qsizetype(3 * 1048576 + 12345)}) {
        QByteArray bytes(size, Qt::Uninitialized);
        for (qsizetype i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(QRandomGenerator::global()->bounded(256));
        const QString path = dir.file(QStringLiteral("clip-%1.mov").arg(size));
        velum::test::writeBytes(path, bytes);

        const QString expected = sha256sumOf(path);
        ASSERT_EQ(expected.size(), 64);
        const QString id = awaitTask(ContentHash::videoID(QUrl::fromLocalFile(path)));
        EXPECT_EQ(id, expected) << size;
        EXPECT_EQ(ContentHash::videoIDBlocking(QUrl::fromLocalFile(path)), expected);
    }
}

TEST(ContentHash, TheSameBytesGiveTheSameIdWhereverTheyLieAndFaultsAreThrown)
{
    TempDir a, b;
    velum::test::writeBytes(a.file("take 1.mov"), "identical footage");
    velum::test::writeBytes(b.file("other name.mp4"), "identical footage");
    velum::test::writeBytes(b.file("changed.mp4"), "identical footagE");
    const auto first = ContentHash::videoIDBlocking(QUrl::fromLocalFile(a.file("take 1.mov")));
    EXPECT_EQ(ContentHash::videoIDBlocking(QUrl::fromLocalFile(b.file("other name.mp4"))), first);
    EXPECT_NE(ContentHash::videoIDBlocking(QUrl::fromLocalFile(b.file("changed.mp4"))), first);
    EXPECT_EQ(first, first.toLower());

    // Unreadable files and cancellation are thrown.
    TempDir dir;
    EXPECT_THROW(awaitTask(ContentHash::videoID(QUrl::fromLocalFile(dir.file("absent.mov")))),
                 ContentHash::ReadError);
    EXPECT_THROW(ContentHash::videoIDBlocking(QUrl::fromLocalFile(dir.path())), ContentHash::ReadError);
    EXPECT_THROW(ContentHash::videoIDBlocking(QUrl("https://example.com/clip.mov")), ContentHash::ReadError);

    velum::test::writeBytes(dir.file("clip.mov"), QByteArray(3 * 1048576, 'v'));
    Cancellation cancellation;
    cancellation.cancel();
    EXPECT_THROW(awaitTask(ContentHash::videoID(QUrl::fromLocalFile(dir.file("clip.mov")), cancellation)),
                 CancelledError);
}

// --- Detached work ------------------------------------------------------------

TEST(DetachedTask, RunsOffTheCallingThreadAndCarriesExceptions)
{
    velum::test::ensureCoreApplication();
    QThread *caller = QThread::currentThread();
    auto probe = [](QThread *caller) -> QCoro::Task<bool> {
        auto task = runDetached([] { return QThread::currentThread(); });
        QThread *worker = co_await std::move(task);
        // Resumed on the caller's thread, after work on another.
        co_return worker != caller && QThread::currentThread() == caller;
    };
    EXPECT_TRUE(awaitTask(probe(caller)));
    EXPECT_THROW(awaitTask(runDetached([]() -> int { throw ContentHash::ReadError("boom"); })),
                 ContentHash::ReadError);
    int ran = 0;
    awaitTask(runDetached([&ran] { ran = 1; }));
    EXPECT_EQ(ran, 1);
}

} // namespace
