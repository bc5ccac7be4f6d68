#include "model/AccountPartition.h"
#include "model/StateStore.h"
#include "style/ProfileMigration.h"
#include "style/ProfileStore.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFileInfo>

using namespace velum;

namespace {

class ProfileStoreTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_previous = qgetenv("XDG_DATA_HOME");
        qputenv("XDG_DATA_HOME", m_data.path().toUtf8());
        AccountPartition::deactivate();
    }
    void TearDown() override
    {
        AccountPartition::deactivate();
        qputenv("XDG_DATA_HOME", m_previous);
    }

    QString at(const QString &relative) const { return m_base.path() + "/" + relative; }
    bool exists(const QString &relative) const { return QFileInfo::exists(at(relative)); }

    test::TempDir m_data;
    test::TempDir m_base;
    ProfileStore m_store{QUrl::fromLocalFile(m_base.path())};
    QByteArray m_previous;
};

QString text(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

TEST_F(ProfileStoreTest, LayoutUnderTheBase)
{
    const QUuid id = QUuid::fromString(u"6ba7b810-9dad-11d1-80b4-00c04fd430c8");
    EXPECT_EQ(m_store.root(), QUrl::fromLocalFile(at("profiles")));
    EXPECT_EQ(m_store.indexURL(), QUrl::fromLocalFile(at("profiles/index.json")));
    EXPECT_EQ(m_store.analysisDirectory(id),
              QUrl::fromLocalFile(at("profiles/6BA7B810-9DAD-11D1-80B4-00C04FD430C8/analysis")));
    EXPECT_EQ(m_store.paramsURL(id),
              QUrl::fromLocalFile(at("profiles/6BA7B810-9DAD-11D1-80B4-00C04FD430C8/analysis/params.json")));
    EXPECT_EQ(m_store.legacyAnalysisDirectory(), QUrl::fromLocalFile(at("analysis")));
    EXPECT_EQ(m_store.legacyProfileDirectory(), QUrl::fromLocalFile(at("profile")));

    // Without an override the store follows the active account.
    EXPECT_EQ(ProfileStore::shared().root(), QUrl::fromLocalFile(m_data.path() + "/Velum/accounts/_none/profiles"));
    AccountPartition::activate("auth0|someone");
    EXPECT_EQ(ProfileStore::shared().root(),
              QUrl::fromLocalFile(m_data.path() + "/Velum/accounts/auth0_someone/profiles"));
}

TEST_F(ProfileStoreTest, CreateAppendsTrimsAndMakesTheAnalysisFolder)
{
    const auto first = m_store.create("  Tech reviews \n");
    const auto blank = m_store.create(" \t\n ");
    EXPECT_EQ(first.name, "Tech reviews");
    EXPECT_EQ(blank.name, "Default");
    EXPECT_NE(first.id, blank.id);
    EXPECT_LE(std::abs(first.createdAt.secsTo(QDateTime::currentDateTimeUtc())), 5);
    EXPECT_EQ(m_store.profiles(), (std::vector<CreatorProfile>{first, blank}));
    EXPECT_TRUE(QFileInfo(at("profiles/" + text(first.id) + "/analysis")).isDir());
    EXPECT_TRUE(QFileInfo(at("profiles/" + text(blank.id) + "/analysis")).isDir());

    const QByteArray index = test::readBytes(at("profiles/index.json"));
    EXPECT_TRUE(index.contains("\"created_at\" : ")) << index.constData();
    EXPECT_TRUE(index.contains("\"id\" : \"" + text(first.id).toLatin1() + "\""));
}

TEST_F(ProfileStoreTest, UnreadableIndexCountsAsEmpty)
{
    test::writeBytes(at("profiles/index.json"), "[{\"id\": 12}]");
    EXPECT_TRUE(m_store.profiles().empty());
    const auto made = m_store.create("New");
    EXPECT_EQ(m_store.profiles(), std::vector<CreatorProfile>{made});

    test::writeBytes(at("profiles/index.json"), "{\"not\":\"a list\"}");
    EXPECT_TRUE(m_store.profiles().empty());
}

TEST_F(ProfileStoreTest, DeletingTheLastProfileLeavesAnEmptyListUntilEnsureDefault)
{
    const auto only = m_store.ensureDefault();
    EXPECT_EQ(only.name, "Default");
    EXPECT_EQ(m_store.ensureDefault(), only) << "an existing first entry is the default";
    test::writeBytes(at("profiles/" + text(only.id) + "/analysis/abc.json"), "{}");

    m_store.deleteProfile(only.id);
    EXPECT_TRUE(m_store.profiles().empty());
    EXPECT_TRUE(exists("profiles/index.json"));
    EXPECT_FALSE(exists("profiles/" + text(only.id)));

    const auto again = m_store.ensureDefault();
    EXPECT_EQ(again.name, "Default");
    EXPECT_NE(again.id, only.id);
    EXPECT_EQ(m_store.profiles(), std::vector<CreatorProfile>{again});
}

TEST_F(ProfileStoreTest, DeleteKeepsTheOthersAndIgnoresAMissingFolder)
{
    const auto a = m_store.create("A");
    const auto b = m_store.create("B");
    QDir(at("profiles/" + text(a.id))).removeRecursively();
    EXPECT_NO_THROW(m_store.deleteProfile(a.id));
    EXPECT_EQ(m_store.profiles(), std::vector<CreatorProfile>{b});
    m_store.deleteProfile(QUuid::createUuid());
    EXPECT_EQ(m_store.profiles(), std::vector<CreatorProfile>{b});
}

TEST_F(ProfileStoreTest, WriteFailureIsLoggedNotThrown)
{
    test::writeBytes(at("blocker"), "file");
    const ProfileStore blocked{QUrl::fromLocalFile(at("blocker"))};
    testing::internal::CaptureStderr();
    EXPECT_NO_THROW(blocked.write({CreatorProfile{QUuid::createUuid(), "X", json::nowWholeSeconds()}}));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.rfind("velum: error: profile list not saved: ", 0), 0u) << log;
    EXPECT_TRUE(blocked.profiles().empty());
}

TEST_F(ProfileStoreTest, NoLegacyLayoutMeansNoMigration)
{
    EXPECT_FALSE(m_store.migrateLegacyLayout());
    EXPECT_FALSE(exists("profiles"));
    // A legacy profile folder without its document does not count either.
    QDir().mkpath(at("profile"));
    EXPECT_FALSE(m_store.migrateLegacyLayout());
}

TEST_F(ProfileStoreTest, LegacyLayoutBecomesADefaultProfile)
{
    test::writeBytes(at("analysis/v1.json"), "first");
    test::writeBytes(at("analysis/v2.json"), "second");
    test::writeBytes(at("profile/params.json"), "params");

    const auto migrated = m_store.migrateLegacyLayout();
    ASSERT_TRUE(migrated);
    EXPECT_EQ(migrated->name, "Default");
    EXPECT_EQ(m_store.profiles(), std::vector<CreatorProfile>{*migrated});
    const QString folder = "profiles/" + text(migrated->id) + "/analysis/";
    EXPECT_EQ(test::readBytes(at(folder + "v1.json")), "first");
    EXPECT_EQ(test::readBytes(at(folder + "v2.json")), "second");
    EXPECT_EQ(test::readBytes(at(folder + "params.json")), "params");
    EXPECT_FALSE(exists("analysis"));
    EXPECT_FALSE(exists("profile"));
    EXPECT_EQ(m_store.ensureDefault(), *migrated);

    EXPECT_FALSE(m_store.migrateLegacyLayout()) << "nothing left to bring";
}

TEST_F(ProfileStoreTest, LegacyLayoutJoinsTheFirstListedProfile)
{
    const auto first = m_store.create("Mine");
    m_store.create("Other");
    test::writeBytes(at("profiles/" + text(first.id) + "/analysis/params.json"), "current");
    test::writeBytes(at("profiles/" + text(first.id) + "/analysis/v1.json"), "current v1");
    test::writeBytes(at("analysis/v1.json"), "old v1");
    test::writeBytes(at("analysis/v2.json"), "old v2");
    test::writeBytes(at("profile/params.json"), "old params");

    testing::internal::CaptureStderr();
    EXPECT_EQ(m_store.migrateLegacyLayout(), first);
    (void)testing::internal::GetCapturedStderr();
    const QString folder = "profiles/" + text(first.id) + "/analysis/";
    EXPECT_EQ(test::readBytes(at(folder + "params.json")), "current") << "a newer document is not replaced";
    EXPECT_EQ(test::readBytes(at(folder + "v1.json")), "current v1");
    EXPECT_EQ(test::readBytes(at(folder + "v2.json")), "old v2");
    EXPECT_EQ(test::readBytes(at("analysis/v1.json")), "old v1") << "a clash stays in the old place";
    EXPECT_FALSE(exists("profile"));
    EXPECT_EQ(m_store.profiles().size(), 2u);
}

// A stored state of the given version with a project, a pending and an
// analysed style video, and a snapshot.
PersistedState oldState(int version)
{
    PersistedState state;
    state.version = version;
    Project project;
    project.id = QUuid::createUuid();
    project.name = "Old project";
    project.createdAt = QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC);
    state.projects = {project};
    StyleVideo pending;
    pending.id = QUuid::createUuid();
    pending.filename = "pending.mp4";
    pending.status = StyleVideoStatus::queued;
    StyleVideo analyzed = pending;
    analyzed.id = QUuid::createUuid();
    analyzed.filename = "done.mp4";
    analyzed.status = StyleVideoStatus::analyzed;
    state.styleVideos = {pending, analyzed};
    state.profileSnapshot.profiles = {{.id = QUuid::createUuid(), .name = "Server"}};
    return state;
}

TEST_F(ProfileStoreTest, MigrationGivesOldProjectsTheMigratedProfile)
{
    test::writeBytes(at("analysis/v1.json"), "{}");
    const StateStore stateStore{QUrl::fromLocalFile(m_base.path())};
    stateStore.save(oldState(1));

    ProfileMigration::run(stateStore, m_store);

    const auto profiles = m_store.profiles();
    ASSERT_EQ(profiles.size(), 1u);
    EXPECT_TRUE(exists("profiles/" + text(profiles[0].id) + "/analysis/v1.json"));
    const auto state = stateStore.load();
    EXPECT_EQ(state.version, 3);
    EXPECT_EQ(state.projects.at(0).profileID, profiles[0].id);
    ASSERT_EQ(state.styleVideos.size(), 1u);
    EXPECT_EQ(state.styleVideos[0].filename, "pending.mp4");
    EXPECT_EQ(state.styleVideos[0].profileID, profiles[0].id);
    EXPECT_EQ(state.profileSnapshot, ProfileSnapshot{});
}

TEST_F(ProfileStoreTest, MigrationOfVersionTwoOnlyAdoptsTheServerAttribution)
{
    const StateStore stateStore{QUrl::fromLocalFile(m_base.path())};
    stateStore.save(oldState(2));

    ProfileMigration::run(stateStore, m_store);

    EXPECT_EQ(m_store.profiles().size(), 1u) << "a default profile always exists";
    const auto state = stateStore.load();
    EXPECT_EQ(state.version, 3);
    EXPECT_FALSE(state.projects.at(0).profileID);
    ASSERT_EQ(state.styleVideos.size(), 1u);
    EXPECT_FALSE(state.styleVideos[0].profileID);
    EXPECT_TRUE(state.profileSnapshot.profiles.empty());
}

TEST_F(ProfileStoreTest, CurrentStateIsLeftUntouched)
{
    const StateStore stateStore{QUrl::fromLocalFile(m_base.path())};
    PersistedState current = oldState(3);
    stateStore.save(current);
    const QByteArray before = test::readBytes(at("state.json"));

    ProfileMigration::run(stateStore, m_store);
    EXPECT_EQ(test::readBytes(at("state.json")), before);
    EXPECT_EQ(stateStore.load(), current);
}

TEST(ProfileMigrationAdopt, DropsAnalyzedVideosAndTheSnapshot)
{
    PersistedState state = oldState(2);
    state.selectedProfileID = QUuid::createUuid();
    const auto adopted = ProfileMigration::adoptServerAttribution(state);
    ASSERT_EQ(adopted.styleVideos.size(), 1u);
    EXPECT_EQ(adopted.styleVideos[0], state.styleVideos[0]);
    EXPECT_EQ(adopted.profileSnapshot, ProfileSnapshot{});
    EXPECT_EQ(adopted.projects, state.projects);
    EXPECT_EQ(adopted.selectedProfileID, state.selectedProfileID);
    EXPECT_EQ(adopted.version, 2);
}

} // namespace
