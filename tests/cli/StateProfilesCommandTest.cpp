// The "state" and "profiles" commands of velum-cli, run as the built program.

#include "model/StateStore.h"
#include "style/ProfileStore.h"
#include "support/Cli.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDirIterator>
#include <QFileInfo>

using namespace velum;

namespace {

test::CliResult runCli(const QStringList &arguments)
{
    return test::runVelumCli(arguments);
}

// Every path under a folder, to show that a command changed nothing.
QStringList tree(const QString &folder)
{
    QStringList all;
    QDirIterator it(folder, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        all << it.next();
    all.sort();
    return all;
}

class StateAndProfilesCli : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(QFileInfo(test::velumCliPath()).isExecutable()) << test::velumCliPath().toStdString(); }
    test::TempDir m_dir;
};

TEST_F(StateAndProfilesCli, StatePrintsTheRepairedStateAsTheStateCoderWritesIt)
{
    test::writeBytes(m_dir.file("media/a.mov"), "movie");
    Project project;
    project.id = QUuid::createUuid();
    project.name = "Pilot";
    project.createdAt = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);
    project.status = ProjectStatus::processing;
    for (const char *name : {"a.mov", "gone.mov"}) {
        ProjectFile file;
        file.id = QUuid::createUuid();
        file.url = QUrl::fromLocalFile(m_dir.file(QString("media/") + name));
        file.state = ProjectFileState::ok;
        project.files.push_back(file);
    }
    PersistedState stored = PersistedState::fresh();
    stored.projects = {project};
    stored.newProjectStyle = StyleChoice::noProfile();
    const QString path = m_dir.file("saved-state.json");
    StateCoder::write(stored, path);

    const test::CliResult run = runCli({"state", path});
    EXPECT_EQ(run.exitCode, 0) << run.standardError.constData();

    PersistedState expected = stored;
    expected.projects[0].status = ProjectStatus::draft;
    expected.projects[0].files[1].state = ProjectFileState::failed;
    EXPECT_EQ(run.standardOutput, StateCoder::encode(expected) + "\n");
    EXPECT_EQ(StateCoder::read<PersistedState>(path), stored) << "the file itself is not rewritten";
}

TEST_F(StateAndProfilesCli, StateOfAnOlderOrUnreadableFile)
{
    test::writeBytes(m_dir.file("empty.json"), "{}");
    test::CliResult run = runCli({"state", m_dir.file("empty.json")});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_EQ(StateCoder::decode<PersistedState>(run.standardOutput).version, 1);

    const QByteArray fresh = StateCoder::encode(PersistedState::fresh()) + "\n";
    test::writeBytes(m_dir.file("broken.json"), "{\"projects\": [");
    for (const QString &file : {m_dir.file("broken.json"), m_dir.file("missing.json"), m_dir.path()}) {
        run = runCli({"state", file});
        EXPECT_EQ(run.exitCode, 0) << file.toStdString();
        EXPECT_EQ(run.standardOutput, fresh) << file.toStdString();
    }
}

TEST_F(StateAndProfilesCli, UsageErrorsExitTwo)
{
    for (const QStringList &arguments : {QStringList{"state"}, QStringList{"state", "a.json", "b.json"},
                                         QStringList{"state", "--pretty", "a.json"}, QStringList{"profiles"},
                                         QStringList{"profiles", "a", "b"}}) {
        const test::CliResult run = runCli(arguments);
        EXPECT_EQ(run.exitCode, 2) << arguments.join(' ').toStdString();
        EXPECT_TRUE(run.standardOutput.isEmpty());
        EXPECT_FALSE(run.standardError.isEmpty());
    }
    const test::CliResult help = runCli({"--help"});
    EXPECT_TRUE(help.standardOutput.contains("state FILE"));
    EXPECT_TRUE(help.standardOutput.contains("profiles ACCOUNT_DIR"));
}

TEST_F(StateAndProfilesCli, ProfilesListsEachProfileWithItsAnalysisCountAndChangesNothing)
{
    const QString account = m_dir.file("account");
    const ProfileStore store{QUrl::fromLocalFile(account)};
    const auto main = store.create("Main channel");
    const auto shorts = store.create("Shorts");
    const auto empty = store.create("Empty");
    const QString mainAnalysis = store.analysisDirectory(main.id).toLocalFile();
    for (const char *name : {"a1.json", "b2.json", "c3.json", "params.json", "notes.txt"})
        test::writeBytes(mainAnalysis + "/" + name, "{}");
    test::writeBytes(store.paramsURL(shorts.id).toLocalFile(), "{}");
    QDir(store.profileDirectory(empty.id).toLocalFile()).removeRecursively();

    const QStringList before = tree(account);
    const test::CliResult run = runCli({"profiles", account});
    EXPECT_EQ(run.exitCode, 0) << run.standardError.constData();
    const auto id = [](const QUuid &u) { return u.toString(QUuid::WithoutBraces).toUpper(); };
    EXPECT_EQ(QString::fromUtf8(run.standardOutput), QString("Main channel\t%1\t3\nShorts\t%2\t0\nEmpty\t%3\t0\n")
                                              .arg(id(main.id), id(shorts.id), id(empty.id)));
    EXPECT_EQ(tree(account), before);
}

TEST_F(StateAndProfilesCli, ProfilesOfAnAccountWithoutAStore)
{
    const QString account = m_dir.file("fresh-account");
    QDir().mkpath(account);
    test::CliResult run = runCli({"profiles", account});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.standardOutput.isEmpty());
    EXPECT_TRUE(tree(account).isEmpty()) << "nothing is created";

    run = runCli({"profiles", m_dir.file("no-such-folder")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_FALSE(QFileInfo::exists(m_dir.file("no-such-folder")));
}

} // namespace
