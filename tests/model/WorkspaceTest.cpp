#include "model/AppPaths.h"
#include "model/ProjectWorkspace.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

using namespace velum;

namespace {

const QUuid projectId = QUuid::fromString(QLatin1StringView("{1b4e28ba-2fa1-11d2-883f-0016d3cca427}"));

ProjectWorkspace workspaceIn(const test::TempDir &dir, const QString &sub = QStringLiteral("projects"))
{
    return ProjectWorkspace{.overrideRoot = QUrl::fromLocalFile(dir.file(sub))};
}

TEST(ProjectWorkspace, FolderIsTheUpperCaseUuidUnderTheRoot)
{
    test::TempDir dir;
    const auto workspace = workspaceIn(dir);
    EXPECT_EQ(ProjectWorkspace::folderName(projectId), "1B4E28BA-2FA1-11D2-883F-0016D3CCA427");
    EXPECT_EQ(workspace.root(), QUrl::fromLocalFile(dir.file("projects")));
    EXPECT_EQ(workspace.folderPath(projectId), dir.file("projects/1B4E28BA-2FA1-11D2-883F-0016D3CCA427"));
    EXPECT_EQ(workspace.artifactURL(artifact::c3Cuts, projectId),
              QUrl::fromLocalFile(dir.file("projects/1B4E28BA-2FA1-11D2-883F-0016D3CCA427/c3_cuts.json")));
    EXPECT_EQ(workspace.artifactURL(artifact::events, projectId).toLocalFile(),
              workspace.artifactPath(artifact::events, projectId));
}

TEST(ProjectWorkspace, ArtifactURLNeedsNoFolder)
{
    test::TempDir dir;
    const auto workspace = workspaceIn(dir);
    const QUrl url = workspace.artifactURL(artifact::reviewEdits, projectId);
    EXPECT_TRUE(url.isLocalFile());
    EXPECT_TRUE(url.toLocalFile().endsWith("/1B4E28BA-2FA1-11D2-883F-0016D3CCA427/review_edits.json"));
    EXPECT_FALSE(QFileInfo::exists(url.toLocalFile()));
    EXPECT_FALSE(QFileInfo::exists(dir.file("projects")));
}

TEST(ProjectWorkspace, WithoutOverrideTheRootIsProjectsInTheStoreRoot)
{
    const ProjectWorkspace workspace;
    EXPECT_EQ(workspace.root(), QUrl::fromLocalFile(QDir::cleanPath(defaultStoreRoot() + "/projects")));
    EXPECT_TRUE(workspace.root().toLocalFile().startsWith(AppPaths::base() + "/accounts/"));
    EXPECT_TRUE(workspace.folderPath(projectId).endsWith("/projects/1B4E28BA-2FA1-11D2-883F-0016D3CCA427"));
}

TEST(ProjectWorkspace, CreateMakesMissingParentsAndIsIdempotent)
{
    test::TempDir dir;
    const auto workspace = workspaceIn(dir, "deep/er/projects");
    const QUrl made = workspace.create(projectId);
    EXPECT_EQ(made, workspace.folderURL(projectId));
    EXPECT_TRUE(QFileInfo(made.toLocalFile()).isDir());

    test::writeBytes(workspace.artifactPath(artifact::waveform, projectId), "{}");
    EXPECT_EQ(workspace.create(projectId), made);
    // What was in the folder stays.
    EXPECT_EQ(test::readBytes(workspace.artifactPath(artifact::waveform, projectId)), "{}");
}

TEST(ProjectWorkspace, CreateFailsWithTheFileSystemsWords)
{
    test::TempDir dir;
    // A plain file where the root folder should be.
    test::writeBytes(dir.file("projects"), "not a folder");
    const auto workspace = workspaceIn(dir);
    try {
        workspace.create(projectId);
        FAIL() << "made a folder inside a file";
    } catch (const WorkspaceError &e) {
        EXPECT_EQ(e.path(), workspace.folderPath(projectId));
        EXPECT_FALSE(e.reason().isEmpty());
        EXPECT_TRUE(QString::fromUtf8(e.what()).contains(e.reason()));
    }

    // A plain file where the project's own folder should be.
    test::TempDir other;
    test::writeBytes(other.file("projects/1B4E28BA-2FA1-11D2-883F-0016D3CCA427"), "x");
    EXPECT_THROW(workspaceIn(other).create(projectId), WorkspaceError);
}

TEST(ProjectWorkspace, RemoveTakesEverythingAndIgnoresWhatIsNotThere)
{
    test::TempDir dir;
    const auto workspace = workspaceIn(dir);
    const QUuid otherProject = QUuid::createUuid();

    EXPECT_NO_THROW(workspace.remove(projectId));
    EXPECT_FALSE(QFileInfo::exists(workspace.folderPath(projectId)));

    workspace.create(projectId);
    workspace.create(otherProject);
    test::writeBytes(workspace.artifactPath(artifact::c1Transcript, projectId), "{}");
    test::writeBytes(workspace.artifactPath(artifact::events, projectId), "{}\n{}\n");
    test::writeBytes(workspace.folderPath(projectId) + "/stray/inner.bin", "1");
    workspace.remove(projectId);
    EXPECT_FALSE(QFileInfo::exists(workspace.folderPath(projectId)));
    // Only that project's folder goes.
    EXPECT_TRUE(QFileInfo(workspace.folderPath(otherProject)).isDir());
    EXPECT_TRUE(QFileInfo(dir.file("projects")).isDir());
    EXPECT_NO_THROW(workspace.remove(projectId));
}

TEST(ArtifactsJobStamp, WritesTheThreeKeysIntoAFolderThatDidNotExist)
{
    test::TempDir dir;
    const auto workspace = workspaceIn(dir, "not/yet/there");
    const QDateTime before = json::nowWholeSeconds();
    ProcessPipeline::stampArtifactsJob("job_01HZX3K9", projectId, workspace);
    const QDateTime after = json::nowWholeSeconds();

    const QString path = workspace.artifactPath(artifact::artifactsJob, projectId);
    const QJsonObject onDisk = json::parse(test::readBytes(path)).toObject();
    EXPECT_EQ(onDisk.keys(), (QStringList{"completed_at", "job_id", "schema"}));
    EXPECT_EQ(onDisk.value("schema").toInt(), 1);
    EXPECT_EQ(onDisk.value("job_id").toString(), "job_01HZX3K9");

    const auto stamp = StageCoder::read<ArtifactsJob>(path);
    ASSERT_TRUE(stamp);
    EXPECT_EQ(stamp->jobId, "job_01HZX3K9");
    EXPECT_GE(stamp->completedAt, before);
    EXPECT_LE(stamp->completedAt, after);

    // A later job's stamp replaces the earlier one.
    ProcessPipeline::stampArtifactsJob("job_02", projectId, workspace);
    EXPECT_EQ(StageCoder::read<ArtifactsJob>(path)->jobId, "job_02");
    EXPECT_EQ(QDir(workspace.folderPath(projectId)).entryList(QDir::Files), QStringList{"artifacts_job.json"});
}

TEST(ArtifactsJobStamp, FailureIsSwallowed)
{
    test::TempDir dir;
    test::writeBytes(dir.file("projects"), "a file, not a folder");
    EXPECT_NO_THROW(ProcessPipeline::stampArtifactsJob("job_03", projectId, workspaceIn(dir)));
    EXPECT_EQ(test::readBytes(dir.file("projects")), "a file, not a folder");
}

TEST(ArtifactsJobStamp, EveryKeyIsRequiredWhenReading)
{
    test::TempDir dir;
    const QString path = dir.file("artifacts_job.json");
    const ArtifactsJob stamp{.schema = 1, .jobId = "job_9", .completedAt = QDateTime::fromSecsSinceEpoch(1717400000, Qt::UTC)};
    StageCoder::write(stamp, path);
    EXPECT_EQ(StageCoder::read<ArtifactsJob>(path), stamp);
    for (const char *key : {"schema", "job_id", "completed_at"}) {
        QJsonObject object = json::parse(test::readBytes(path)).toObject();
        object.remove(QLatin1StringView(key));
        EXPECT_THROW(StageCoder::decode<ArtifactsJob>(json::serialize(object)), json::DecodingError) << key;
    }
}

} // namespace
