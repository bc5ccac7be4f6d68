#include "model/Project.h"

#include <gtest/gtest.h>

using namespace velum;

namespace {

QUuid uuid(const char *text) { return QUuid::fromString(QLatin1StringView(text)); }

ProjectFile fileOf(ProjectFileRole role, ProjectFileState state, std::optional<bool> confirmed = std::nullopt)
{
    return ProjectFile{.id = QUuid::createUuid(), .url = QUrl::fromLocalFile("/footage/take.mov"),
                       .role = role, .state = state, .isConfirmed = confirmed};
}

Project realisticProject()
{
    ClipMedia media{.clipId = "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08",
                    .durationS = 3725.48,
                    .fps = 29.97002997002997,
                    .width = 3840,
                    .height = 2160,
                    .videoCodec = "hevc",
                    .audioCodec = "aac",
                    .audioSampleRate = 48000,
                    .audioChannels = 2,
                    .startTimecode = MediaTimecode{.value = 1079078, .timescale = 30000,
                                                   .source = MediaTimecode::Source::timecodeTrack,
                                                   .text = "00:00:35;29"}};
    JobPause pause{.schemaVersion = 2, .stage = "transcribe", .provider = "speech", .model = "large-v3",
                   .failedRequests = 3, .message = "The transcription service is busy.",
                   .detail = "HTTP 503 after 3 retries", .pausedAt = QDateTime::fromSecsSinceEpoch(1718000000, Qt::UTC),
                   .jobName = "job-17"};
    return Project{
        .id = uuid("1B4E28BA-2FA1-11D2-883F-0016D3CCA427"),
        .name = "Tuesday vlog — בדיקה",
        .description = "Why I moved to \"Lisbon\"/Porto",
        .createdAt = QDateTime::fromSecsSinceEpoch(1717000000, Qt::UTC),
        .status = ProjectStatus::paused,
        .thumbnailSeed = -4242424242,
        .usedGenericSettings = true,
        .profileID = uuid("6BA7B810-9DAD-11D1-80B4-00C04FD430C8"),
        .cutPolicy = CutPolicy{.filler = false},
        .files = {ProjectFile{.id = uuid("6BA7B811-9DAD-11D1-80B4-00C04FD430C8"),
                              .url = QUrl::fromLocalFile("/media/card 1/A001.mov"),
                              .role = ProjectFileRole::aRoll,
                              .state = ProjectFileState::warning,
                              .note = "Some frames are damaged.",
                              .media = media,
                              .isConfirmed = true},
                  ProjectFile{.id = uuid("6BA7B812-9DAD-11D1-80B4-00C04FD430C8"),
                              .url = QUrl::fromLocalFile("/media/lav.wav"),
                              .role = ProjectFileRole::externalAudio,
                              .state = ProjectFileState::ok}},
        .progressFraction = 0.625,
        .pause = pause,
        .failureNote = std::nullopt,
    };
}

TEST(ProjectCoding, RoundTripsUnderBothCodersWithTheirOwnKeys)
{
    const Project project = realisticProject();
    const QByteArray state = StateCoder::encode(project);
    const QByteArray stage = StageCoder::encode(project);
    EXPECT_EQ(StateCoder::decode<Project>(state), project);
    EXPECT_EQ(StageCoder::decode<Project>(stage), project);
    // Records are written straight to text; the result is the same as going
    // through the JSON tree, hand-written codings (the pause) included.
    EXPECT_EQ(state, json::serialize(json::encode(project, json::KeyStyle::fieldNames)));
    EXPECT_EQ(stage, json::serialize(json::encode(project, json::KeyStyle::snakeCase)));
    const std::vector<Project> none;
    EXPECT_EQ(StateCoder::encode(none), "[]");
    const std::map<QString, std::vector<std::optional<CutReason>>> reasons{
        {"b\"/", {CutReason::filler, std::nullopt}}, {"a", {}}};
    EXPECT_EQ(StateCoder::encode(reasons), json::serialize(json::encode(reasons, json::KeyStyle::fieldNames)));

    EXPECT_TRUE(state.contains("\"thumbnailSeed\" : -4242424242"));
    EXPECT_TRUE(state.contains("\"clipId\""));
    EXPECT_TRUE(stage.contains("\"thumbnail_seed\""));
    EXPECT_TRUE(stage.contains("\"clip_id\""));
    EXPECT_TRUE(stage.contains("\"profile_id\""));
    EXPECT_TRUE(stage.contains("\"start_timecode\""));
    // The pause keeps its own snake-case keys under the state coder too.
    EXPECT_TRUE(state.contains("\"failed_requests\" : 3"));
    EXPECT_TRUE(state.contains("\"paused_at\" : \"2024-06-10T06:13:20Z\""));
    // Optional values without a value are left out, never null.
    EXPECT_FALSE(state.contains("null"));
    EXPECT_FALSE(state.contains("failureNote"));
    EXPECT_TRUE(state.contains("\"url\" : \"file:///media/card%201/A001.mov\""));
}

TEST(ProjectCoding, StrictOutsideTheLenientRecords)
{
    QJsonObject object = json::encode(realisticProject(), json::KeyStyle::fieldNames).toObject();

    QJsonObject unknownStatus = object;
    unknownStatus["status"] = "archived";
    EXPECT_THROW(json::decode<Project>(unknownStatus, json::KeyStyle::fieldNames), json::DecodingError);

    QJsonObject missingFiles = object;
    missingFiles.remove("files");
    EXPECT_THROW(json::decode<Project>(missingFiles, json::KeyStyle::fieldNames), json::DecodingError);

    QJsonObject wrongType = object;
    wrongType["usedGenericSettings"] = "yes";
    EXPECT_THROW(json::decode<Project>(wrongType, json::KeyStyle::fieldNames), json::DecodingError);

    // An optional key written as null reads as absent.
    QJsonObject nullNote = object;
    nullNote["failureNote"] = QJsonValue::Null;
    EXPECT_FALSE(json::decode<Project>(nullNote, json::KeyStyle::fieldNames).failureNote);
}

TEST(CutPolicyCoding, AbsentKeysReadAsTrue)
{
    EXPECT_EQ(StageCoder::decode<CutPolicy>("{}"), CutPolicy{});
    const auto onlyRetake = StageCoder::decode<CutPolicy>(R"({"retake": false})");
    EXPECT_EQ(onlyRetake, (CutPolicy{.retake = false}));
    EXPECT_EQ(StageCoder::decode<CutPolicy>(R"({"off_script": false})"), (CutPolicy{.offScript = false}));
    EXPECT_EQ(StateCoder::decode<CutPolicy>(R"({"offScript": false})"), (CutPolicy{.offScript = false}));
    EXPECT_THROW(StageCoder::decode<CutPolicy>(R"({"filler": 0})"), json::DecodingError);
}

TEST(JobPauseCoding, EveryKeyMayBeMissing)
{
    const QDateTime before = json::nowWholeSeconds();
    const auto pause = StateCoder::decode<JobPause>("{}");
    EXPECT_EQ(pause.schemaVersion, 1);
    EXPECT_EQ(pause.stage, "unknown");
    EXPECT_EQ(pause.provider, "unknown");
    EXPECT_EQ(pause.model, "unknown");
    EXPECT_EQ(pause.failedRequests, 0);
    EXPECT_EQ(pause.message, "");
    EXPECT_FALSE(pause.detail);
    EXPECT_FALSE(pause.jobName);
    EXPECT_GE(pause.pausedAt, before);
    EXPECT_LE(pause.pausedAt, json::nowWholeSeconds());
    EXPECT_THROW(StateCoder::decode<JobPause>(R"({"failed_requests": "three"})"), json::DecodingError);
}

TEST(JobPauseTexts, FirstVersionMessagesAreNeverShown)
{
    JobPause pause{.schemaVersion = 1, .stage = "plan", .provider = "llm", .model = "m-2", .failedRequests = 2,
                   .message = "  upstream 529 overloaded \n"};
    const QString generic = "Velum stopped partway through. Nothing you’ve done is lost.";
    EXPECT_EQ(pause.userMessage(), generic);
    pause.schemaVersion = 2;
    EXPECT_EQ(pause.userMessage(), "upstream 529 overloaded");
    pause.message = " \n\t";
    EXPECT_EQ(pause.userMessage(), generic);
    EXPECT_EQ(pause.description(),
              generic + "\n\nResume picks the job up where it stopped: everything already done is kept.");

    pause.message = "rate limited";
    EXPECT_EQ(pause.summary(), "2 request(s) to llm (m-2) failed during plan.\n\nrate limited");
    pause.detail = "";
    EXPECT_EQ(pause.summary(), "2 request(s) to llm (m-2) failed during plan.\n\nrate limited");
    pause.detail = "retry-after 60";
    EXPECT_EQ(pause.summary(), "2 request(s) to llm (m-2) failed during plan.\n\nrate limited\n\nretry-after 60");

    const JobPausedError error(pause);
    EXPECT_EQ(QString::fromStdString(error.what()), pause.description());
    JobPause other = pause;
    EXPECT_EQ(qHash(other), qHash(pause));
    other.jobName = "j";
    EXPECT_NE(other, pause);
}

TEST(ProjectRules, StartNeedsUsableARollAndNoOpenQuestions)
{
    Project project;
    project.files = {fileOf(ProjectFileRole::bRoll, ProjectFileState::ok)};
    EXPECT_FALSE(project.canStartProcessing());

    project.files = {fileOf(ProjectFileRole::aRoll, ProjectFileState::warning, true)};
    EXPECT_TRUE(project.canStartProcessing());
    project.files = {fileOf(ProjectFileRole::aRoll, ProjectFileState::warning)};
    EXPECT_FALSE(project.canStartProcessing());
    EXPECT_TRUE(project.files[0].needsConfirmation());

    project.files = {fileOf(ProjectFileRole::aRoll, ProjectFileState::ok),
                     fileOf(ProjectFileRole::bRoll, ProjectFileState::pending)};
    EXPECT_FALSE(project.canStartProcessing());
    project.files[1].state = ProjectFileState::failed;
    EXPECT_FALSE(project.canStartProcessing());
    project.files[1].state = ProjectFileState::ok;
    EXPECT_TRUE(project.canStartProcessing());
    EXPECT_EQ(project.filesIn(ProjectFileRole::bRoll).size(), 1u);
}

TEST(ProjectRules, FrameRatesAndWorkingSpace)
{
    auto withFps = [](ProjectFileRole role, std::optional<double> fps, double duration) {
        ProjectFile f = fileOf(role, ProjectFileState::ok);
        f.media = ClipMedia{.clipId = "c", .durationS = duration, .fps = fps};
        return f;
    };
    Project project;
    project.files = {withFps(ProjectFileRole::aRoll, 29.97, 120), withFps(ProjectFileRole::aRoll, 29.970001, 60),
                     withFps(ProjectFileRole::bRoll, 25, 30), withFps(ProjectFileRole::aRoll, std::nullopt, 30)};
    EXPECT_FALSE(project.mixedFrameRates());
    EXPECT_DOUBLE_EQ(project.estimatedWorkingSpaceMB(), 240.0 / 60 * 25);
    project.files.push_back(withFps(ProjectFileRole::aRoll, 30, 1));
    EXPECT_TRUE(project.mixedFrameRates());
}

TEST(FileTexts, DurationFactsResolutionAndLabel)
{
    EXPECT_EQ(ProjectFile::duration(65.4), "1:05");
    EXPECT_EQ(ProjectFile::duration(3599.4), "59:59");
    EXPECT_EQ(ProjectFile::duration(3599.6), "1:00:00");
    EXPECT_EQ(ProjectFile::duration(0), "0:00");

    ProjectFile file = fileOf(ProjectFileRole::aRoll, ProjectFileState::ok);
    EXPECT_FALSE(file.facts());
    file.media = ClipMedia{.clipId = "c", .durationS = 65, .width = 1920, .height = 1080};
    EXPECT_EQ(file.facts(), "1:05 · 1920×1080 · no audio");
    file.media->audioCodec = "pcm_s24le";
    file.media->width = 0;
    EXPECT_FALSE(file.media->resolution());
    EXPECT_EQ(file.facts(), "1:05");
    file.state = ProjectFileState::failed;
    EXPECT_FALSE(file.facts());

    EXPECT_EQ(MediaTimecode::label(3723.0456), "01:02:03.046");
    EXPECT_EQ(MediaTimecode::label(-5), "00:00:00.000");
    EXPECT_EQ(MediaTimecode::label(59.9996), "00:00:59.999");
}

TEST(SourcePalette, SevenColoursByAbsoluteIndex)
{
    EXPECT_EQ(SourceFile::color(0), (SourceFile::Color{94, 155, 168}));
    EXPECT_EQ(SourceFile::color(7), SourceFile::color(0));
    EXPECT_EQ(SourceFile::color(-2), (SourceFile::Color{168, 121, 94}));
    EXPECT_EQ(SourceFile::color(6), (SourceFile::Color{168, 160, 94}));
}

TEST(StyleVideoCoding, RoundTripAndEnums)
{
    StyleVideo video{.id = QUuid::createUuid(), .filename = "How I edit.mp4",
                     .url = QUrl::fromLocalFile("/v/How I edit.mp4"), .publishedAt = QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC),
                     .status = StyleVideoStatus::failed, .note = "Not enough speech.",
                     .noteSeverity = StyleVideo::NoteSeverity::failure, .youtubeID = "dQw4w9WgXcQ",
                     .sourceURL = QUrl("https://example.com/watch?v=dQw4w9WgXcQ&t=1s"), .serverVideoID = "sv_1"};
    EXPECT_EQ(StateCoder::decode<StyleVideo>(StateCoder::encode(video)), video);
    EXPECT_TRUE(StateCoder::encode(video).contains("\"youtubeID\""));
    EXPECT_EQ(json::allCases<ProjectStatus>().size(), 4u);
    EXPECT_EQ(json::text(ProjectFileRole::externalAudio), "external_audio");
}

} // namespace
