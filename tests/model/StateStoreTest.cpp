#include "model/AccountPartition.h"
#include "model/StateStore.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

using namespace velum;

namespace {

// Points the application folder at a temporary folder for one test.
class StateStoreTest : public ::testing::Test {
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

    StateStore storeIn(const QString &folder) const { return StateStore{QUrl::fromLocalFile(folder)}; }

    QString media(const QString &name) const
    {
        const QString path = m_media.file(name);
        test::writeBytes(path, "not really a movie");
        return path;
    }

    test::TempDir m_data;
    test::TempDir m_media;
    test::TempDir m_store;
    QByteArray m_previous;
};

ProjectFile fileAt(const QString &path, ProjectFileRole role = ProjectFileRole::aRoll)
{
    ProjectFile f;
    f.id = QUuid::createUuid();
    f.url = QUrl::fromLocalFile(path);
    f.role = role;
    f.state = ProjectFileState::ok;
    f.media = ClipMedia{.clipId = "hash-" + QFileInfo(path).fileName(), .durationS = 30, .fps = 25.0,
                        .width = 1920, .height = 1080, .audioCodec = "aac"};
    return f;
}

Project projectWith(std::vector<ProjectFile> files, ProjectStatus status = ProjectStatus::draft)
{
    Project p;
    p.id = QUuid::createUuid();
    p.name = "Episode 12";
    p.createdAt = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);
    p.status = status;
    p.files = std::move(files);
    return p;
}

TEST_F(StateStoreTest, EmptyObjectIsVersionOneWithNothingInIt)
{
    test::writeBytes(m_store.file("state.json"), "{}");
    const auto state = storeIn(m_store.path()).load();
    EXPECT_EQ(state.version, 1);
    EXPECT_TRUE(state.projects.empty());
    EXPECT_TRUE(state.styleVideos.empty());
}

TEST_F(StateStoreTest, MissingFileGivesAFreshState)
{
    EXPECT_EQ(storeIn(m_store.file("never-made")).load(), PersistedState::fresh());
    EXPECT_FALSE(QFileInfo::exists(m_store.file("never-made"))) << "loading creates nothing";
}

TEST_F(StateStoreTest, ProcessingProjectComesBackAsDraftWithItsFiles)
{
    const auto store = storeIn(m_store.path());
    PersistedState state = PersistedState::fresh();
    state.projects = {projectWith({fileAt(media("a.mov")), fileAt(media("b.wav"), ProjectFileRole::externalAudio)},
                                  ProjectStatus::processing),
                      projectWith({fileAt(media("c.mov"))}, ProjectStatus::ready)};
    state.projects[0].progressFraction = 0.4;
    store.save(state);

    const auto loaded = store.load();
    ASSERT_EQ(loaded.projects.size(), 2u);
    EXPECT_EQ(loaded.projects[0].status, ProjectStatus::draft);
    EXPECT_EQ(loaded.projects[0].files, state.projects[0].files);
    EXPECT_EQ(loaded.projects[1], state.projects[1]);
}

TEST_F(StateStoreTest, DeletedFileIsFailedAndBlocksProcessing)
{
    const auto store = storeIn(m_store.path());
    const QString kept = media("keep.mov");
    const QString gone = media("gone.mov");
    PersistedState state = PersistedState::fresh();
    state.projects = {projectWith({fileAt(kept), fileAt(gone)})};
    ASSERT_TRUE(state.projects[0].canStartProcessing());
    store.save(state);
    ASSERT_TRUE(QFile::remove(gone));

    const auto loaded = store.load();
    const auto &files = loaded.projects.at(0).files;
    EXPECT_EQ(files[0].state, ProjectFileState::ok);
    EXPECT_EQ(files[1].state, ProjectFileState::failed);
    EXPECT_EQ(files[1].media, state.projects[0].files[1].media);
    EXPECT_FALSE(loaded.projects[0].canStartProcessing());
}

TEST_F(StateStoreTest, ManyFilesAreEachCheckedAgainstTheirOwnPath)
{
    // Enough files for the checks to be shared among threads.
    const auto store = storeIn(m_store.path());
    PersistedState state = PersistedState::fresh();
    std::vector<QString> removed;
    for (int p = 0; p < 30; ++p) {
        std::vector<ProjectFile> files;
        for (int f = 0; f < 20; ++f) {
            const QString path = media(QString("p%1/f%2.mov").arg(p).arg(f));
            files.push_back(fileAt(path));
            if ((p * 20 + f) % 7 == 3)
                removed.push_back(path);
        }
        state.projects.push_back(projectWith(std::move(files)));
    }
    store.save(state);
    for (const auto &path : removed)
        ASSERT_TRUE(QFile::remove(path));

    const auto loaded = store.load();
    ASSERT_EQ(loaded.projects.size(), 30u);
    for (int p = 0; p < 30; ++p) {
        for (int f = 0; f < 20; ++f) {
            const bool gone = (p * 20 + f) % 7 == 3;
            EXPECT_EQ(loaded.projects[p].files[f].state, gone ? ProjectFileState::failed : ProjectFileState::ok)
                << p << "/" << f;
        }
    }
}

TEST_F(StateStoreTest, FilesInABigFolderCountOnlyWhenTheirPathLeadsToSomething)
{
    // A folder with many of the files is listed rather than checked file by
    // file: links must still be followed, and entries other than files count.
    const auto store = storeIn(m_store.path());
    std::vector<ProjectFile> files;
    for (int f = 0; f < 24; ++f)
        files.push_back(fileAt(media(QString("big/f%1.mov").arg(f))));
    const QString folder = QFileInfo(files[0].url.toLocalFile()).absolutePath();
    ASSERT_EQ(::symlink("f1.mov", (folder + "/good link.mov").toUtf8().constData()), 0);
    ASSERT_EQ(::symlink("nowhere.mov", (folder + "/dangling.mov").toUtf8().constData()), 0);
    ASSERT_TRUE(QDir(folder).mkdir("Sub Folder"));
    for (const QString name : {"good link.mov", "dangling.mov", "Sub Folder", "Sub Folder/", "never there.mov"})
        files.push_back(fileAt(folder + "/" + name));
    // The same files in a second project.
    PersistedState state = PersistedState::fresh();
    state.projects.push_back(projectWith(files));
    state.projects.push_back(projectWith(std::move(files)));
    store.save(state);
    ASSERT_TRUE(QFile::remove(folder + "/f5.mov"));

    const auto loaded = store.load();
    ASSERT_EQ(loaded.projects.size(), 2u);
    for (const auto &project : loaded.projects) {
        ASSERT_EQ(project.files.size(), 29u);
        std::vector<QString> failed;
        for (const auto &file : project.files) {
            if (file.state == ProjectFileState::failed)
                failed.push_back(QFileInfo(file.url.toLocalFile()).fileName());
        }
        EXPECT_EQ(failed, (std::vector<QString>{"f5.mov", "dangling.mov", "never there.mov"}));
    }
}

TEST_F(StateStoreTest, StyleVideosAreRequeuedOrFailed)
{
    const auto store = storeIn(m_store.path());
    const auto video = [](StyleVideoStatus status, std::optional<QString> path) {
        StyleVideo v;
        v.id = QUuid::createUuid();
        v.filename = "talk.mp4";
        v.status = status;
        v.progress = 0.7;
        if (path)
            v.url = QUrl::fromLocalFile(*path);
        return v;
    };
    PersistedState state = PersistedState::fresh();
    state.styleVideos = {
        video(StyleVideoStatus::analyzing, media("here.mp4")),
        video(StyleVideoStatus::analyzing, m_media.file("missing.mp4")),
        video(StyleVideoStatus::analyzing, std::nullopt),
        video(StyleVideoStatus::paused, m_media.file("missing.mp4")),
        video(StyleVideoStatus::queued, media("there.mp4")),
    };
    store.save(state);

    const auto loaded = store.load().styleVideos;
    ASSERT_EQ(loaded.size(), 5u);
    EXPECT_EQ(loaded[0].status, StyleVideoStatus::queued);
    EXPECT_FALSE(loaded[0].progress);
    EXPECT_EQ(loaded[1].status, StyleVideoStatus::failed);
    EXPECT_FALSE(loaded[1].progress);
    EXPECT_EQ(loaded[2].status, StyleVideoStatus::queued);
    EXPECT_EQ(loaded[3].status, StyleVideoStatus::failed);
    EXPECT_EQ(loaded[3].progress, 0.7) << "only an analyzing video loses its progress";
    EXPECT_EQ(loaded[4], state.styleVideos[4]);
}

TEST_F(StateStoreTest, FileLivesInTheActivePartitionWithoutOverride)
{
    const QString base = m_data.path() + "/Velum";
    EXPECT_EQ(StateStore::shared().fileURL(), QUrl::fromLocalFile(base + "/accounts/_none/state.json"));
    AccountPartition::activate("auth0|abc");
    EXPECT_EQ(StateStore::shared().fileURL(), QUrl::fromLocalFile(base + "/accounts/auth0_abc/state.json"));

    PersistedState state = PersistedState::fresh();
    state.selectedProfileID = QUuid::createUuid();
    StateStore::shared().save(state);
    EXPECT_TRUE(QFileInfo::exists(base + "/accounts/auth0_abc/state.json"));
    EXPECT_EQ(StateStore::shared().load(), state);
}

TEST_F(StateStoreTest, OverrideBypassesThePartitionAndSaveMakesTheFolder)
{
    AccountPartition::activate("someone");
    const QString folder = m_store.file("nested/deeper/store");
    const auto store = storeIn(folder);
    EXPECT_EQ(store.fileURL(), QUrl::fromLocalFile(folder + "/state.json"));

    PersistedState state = PersistedState::fresh();
    state.newProjectStyle = StyleChoice::noProfile();
    store.save(state);
    EXPECT_TRUE(QFileInfo(folder + "/state.json").isFile());
    EXPECT_EQ(store.load(), state);
    EXPECT_FALSE(QFileInfo::exists(m_data.path() + "/Velum/accounts/someone/state.json"));
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{"state.json"});
}

TEST_F(StateStoreTest, HostileFilesGiveAFreshState)
{
    const auto store = storeIn(m_store.path());
    const QString path = m_store.file("state.json");
    PersistedState good = PersistedState::fresh();
    good.projects = {projectWith({fileAt(media("a.mov"))})};
    const QByteArray valid = StateCoder::encode(good);

    QByteArray wrongType = valid;
    wrongType.replace("\"thumbnailSeed\" : 0", "\"thumbnailSeed\" : \"zero\"");
    ASSERT_NE(wrongType, valid);

    // A large account, whose projects are read in pieces on a few threads,
    // with one bad value deep inside.
    PersistedState large = PersistedState::fresh();
    for (int p = 0; p < 500; ++p)
        large.projects.push_back(projectWith({fileAt(media(QString("p%1.mov").arg(p)))}));
    const QByteArray largeValid = StateCoder::encode(large);
    ASSERT_GT(largeValid.size(), 300000);
    test::writeBytes(path, largeValid);
    EXPECT_EQ(store.load(), large);
    QByteArray largeWrongType = largeValid;
    const QByteArray seed = "\"thumbnailSeed\" : 0";
    largeWrongType.replace(largeValid.indexOf(seed, largeValid.size() * 2 / 3), seed.size(), "\"thumbnailSeed\" : []");
    ASSERT_NE(largeWrongType, largeValid);

    const std::vector<QByteArray> hostile{
        valid.left(valid.size() / 2),                          // truncated
        QByteArray(100000, '[') + QByteArray(100000, ']'),     // deeply nested
        "{\"projects\":" + QByteArray(5000, '[') + QByteArray(5000, ']') + "}",
        wrongType,                                             // one bad value inside one project
        largeWrongType,
        largeValid.left(largeValid.size() * 3 / 4),
        "{\"projects\":[{\"id\":\"x\"}]}",
        "{\"version\":3,\"projects\":{}}",
        "[]",
        "",
        "{\"version\":\"\xff\xfe\"}",
    };
    for (const auto &bytes : hostile) {
        test::writeBytes(path, bytes);
        EXPECT_EQ(store.load(), PersistedState::fresh()) << bytes.left(80).constData();
    }
}

TEST_F(StateStoreTest, StateFileThatIsAFolderLoadsFreshAndIsNotReplaced)
{
    ASSERT_TRUE(QDir().mkpath(m_store.file("state.json")));
    const auto store = storeIn(m_store.path());
    EXPECT_EQ(store.load(), PersistedState::fresh());
    store.save(PersistedState::fresh());
    EXPECT_TRUE(QFileInfo(m_store.file("state.json")).isDir());
}

TEST_F(StateStoreTest, FailedSaveLeavesThePreviousFile)
{
    // The store root lies under a regular file, so no folder can be made.
    test::writeBytes(m_store.file("blocker"), "a file");
    const auto blocked = storeIn(m_store.file("blocker/store"));
    EXPECT_NO_THROW(blocked.save(PersistedState::fresh()));
    EXPECT_EQ(test::readBytes(m_store.file("blocker")), "a file");

    // A read-only store root keeps the file that was there.
    const auto store = storeIn(m_store.path());
    PersistedState before = PersistedState::fresh();
    before.selectedProfileID = QUuid::createUuid();
    store.save(before);
    const QByteArray previous = test::readBytes(m_store.file("state.json"));

    // A state that cannot be encoded writes nothing.
    PersistedState unwritable = before;
    unwritable.projects = {projectWith({})};
    unwritable.projects[0].progressFraction = std::numeric_limits<double>::infinity();
    EXPECT_NO_THROW(store.save(unwritable));
    EXPECT_EQ(test::readBytes(m_store.file("state.json")), previous);

    if (::geteuid() == 0)
        GTEST_SKIP() << "permissions do not bind the superuser";
    QFile::setPermissions(m_store.path(), QFileDevice::ReadOwner | QFileDevice::ExeOwner);
    PersistedState after = before;
    after.selectedProfileID = QUuid::createUuid();
    store.save(after);
    QFile::setPermissions(m_store.path(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    EXPECT_EQ(test::readBytes(m_store.file("state.json")), previous);
    EXPECT_EQ(store.load(), before);
}

TEST_F(StateStoreTest, UnreadableFileIsOverwrittenByTheNextSave)
{
    const auto store = storeIn(m_store.path());
    test::writeBytes(m_store.file("state.json"), "{ broken");
    PersistedState state = store.load();
    state.selectedProfileID = QUuid::createUuid();
    store.save(state);
    EXPECT_EQ(store.load(), state);
}

} // namespace
