#include "perception/PipelineStage.h"
#include "perception/ProbeStage.h"

#include "support/Async.h"
#include "support/MediaSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFile>

using namespace velum;
using test::awaitTask;
using test::MediaSamples;

namespace {

using Status = analysis::Extraction::Status;

ProjectFile file(const QString &path, ProjectFileRole role = ProjectFileRole::aRoll)
{
    return ProjectFile{.id = QUuid::createUuid(), .url = QUrl::fromLocalFile(path), .role = role};
}

TEST(ProbeStage, StageRawValues)
{
    EXPECT_EQ(json::text(ProcessPipeline::Stage::c05), QStringLiteral("c05"));
    EXPECT_EQ(json::fromText<ProcessPipeline::Stage>(u"outline"), ProcessPipeline::Stage::outline);
    EXPECT_FALSE(json::fromText<ProcessPipeline::Stage>(u"c6"));
    EXPECT_FALSE(json::fromText<ProcessPipeline::Stage>(u"C0"));
}

// Every file judged at once, the document in input order whatever finished
// first, unreadable files named by their file name, equal bytes sharing one
// clip id, and an earlier clip id kept.
TEST(ProbeStage, JudgesEveryFileAndWritesTheDocument)
{
    const auto &media = MediaSamples::get();
    test::TempDir dir;
    const QString copy = dir.file(QStringLiteral("copy of take.mov"));
    ASSERT_TRUE(QFile::copy(media.videoWithAudio, copy));
    const QString missing = dir.file(QStringLiteral("gone.mov"));

    ProjectFile kept = file(media.videoOnly, ProjectFileRole::bRoll);
    kept.media = ClipMedia{.clipId = QStringLiteral("earlier-id"), .durationS = 1};

    const std::vector<ProjectFile> files{
        file(media.heavilyDamaged),        // the slowest to judge
        file(media.videoWithAudio),
        file(media.textNamedMp4),
        file(copy),
        kept,
        file(missing),
        file(media.audioOnly, ProjectFileRole::externalAudio),
    };
    const QUuid id = QUuid::createUuid();
    const ProjectWorkspace workspace{.overrideRoot = QUrl::fromLocalFile(dir.file(QStringLiteral("projects")))};
    const auto result = awaitTask(ProcessPipeline::runC0(id, files, workspace));

    const auto &clips = result.document.clips;
    ASSERT_EQ(clips.size(), files.size());
    ASSERT_EQ(result.files.size(), files.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        EXPECT_EQ(clips[i].path, files[i].url.toLocalFile()) << i;
        EXPECT_EQ(clips[i].role, files[i].role) << i;
        EXPECT_EQ(result.files[i].id, files[i].id) << i;
        EXPECT_EQ(result.files[i].state, clips[i].state) << i;
        EXPECT_EQ(result.files[i].media, clips[i].media) << i;
        EXPECT_EQ(result.files[i].note, clips[i].note) << i;
    }
    EXPECT_EQ(clips[0].state, ProjectFileState::failed);
    EXPECT_EQ(clips[1].state, ProjectFileState::ok);
    EXPECT_EQ(clips[1].clipId.size(), 64); // SHA-256 of the bytes
    EXPECT_EQ(clips[3].clipId, clips[1].clipId);
    EXPECT_EQ(clips[3].filename, QStringLiteral("copy of take.mov"));
    EXPECT_EQ(clips[4].clipId, QStringLiteral("earlier-id"));
    for (const std::size_t failed : {2u, 5u}) {
        EXPECT_EQ(clips[failed].state, ProjectFileState::failed);
        EXPECT_FALSE(clips[failed].media);
        EXPECT_EQ(clips[failed].clipId, clips[failed].filename);
        EXPECT_TRUE(clips[failed].note);
    }
    EXPECT_EQ(result.document.usableClips().size(), 4u);

    EXPECT_EQ(result.document.schemaVersion, 2);
    EXPECT_EQ(result.document.projectId, id.toString(QUuid::WithoutBraces).toUpper());
    const auto &signals = result.document.extraction.signals;
    ASSERT_EQ(signals.size(), 3u);
    const auto &probe = signals.at(QStringLiteral("probe"));
    EXPECT_EQ(probe.tool, QStringLiteral("ffprobe"));
    EXPECT_EQ(probe.version, QStringLiteral("ffmpeg/8.1"));
    EXPECT_EQ(probe.status, Status::fallback);
    EXPECT_EQ(probe.note, QStringLiteral("3 clip(s) unreadable"));
    EXPECT_EQ(signals.at(QStringLiteral("clip_id")).version, QStringLiteral("sha256/1"));
    EXPECT_EQ(signals.at(QStringLiteral("validation")).tool, QStringLiteral("media-validator"));

    const auto written = StageCoder::read<C0Probe>(workspace.artifactPath(artifact::c0Probe, id));
    ASSERT_TRUE(written);
    EXPECT_EQ(*written, result.document);
}

TEST(ProbeStage, NoFilesGiveAnEmptyDocumentWithOkSignals)
{
    test::TempDir dir;
    const ProjectWorkspace workspace{.overrideRoot = QUrl::fromLocalFile(dir.path())};
    const QUuid id = QUuid::createUuid();
    const auto result = awaitTask(ProcessPipeline::runC0(id, {}, workspace));
    EXPECT_TRUE(result.document.clips.empty());
    for (const auto &[name, signal] : result.document.extraction.signals) {
        EXPECT_EQ(signal.status, Status::ok) << name.toStdString();
        EXPECT_FALSE(signal.note) << name.toStdString();
    }
    EXPECT_TRUE(QFile::exists(workspace.artifactPath(artifact::c0Probe, id)));
}

TEST(ProbeStage, OnlyWritingTheDocumentFails)
{
    test::TempDir dir;
    const QString blocker = dir.file(QStringLiteral("not a folder"));
    test::writeBytes(blocker, "x");
    const ProjectWorkspace workspace{.overrideRoot = QUrl::fromLocalFile(blocker)};
    EXPECT_THROW(awaitTask(ProcessPipeline::runC0(QUuid::createUuid(), {file(MediaSamples::get().videoOnly)}, workspace)),
                 WorkspaceError);
}

} // namespace
