#include "perception/MeasurementsExporter.h"

#include "perception/AudioSync.h"
#include "tools/MediaValidator.h"

#include "support/Async.h"
#include "support/MediaSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QtEndian>

#include <memory>

using namespace velum;
using namespace velum::MeasurementsExporter;
using velum::test::awaitTask;
using velum::test::MediaSamples;
using velum::test::PrivateTemporaryFolder;
using velum::test::TempDir;
using Source = Measurements::Silences::Source;

static void PrintTo(const QString &text, std::ostream *os) { *os << '"' << text.toStdString() << '"'; }

namespace {

QUrl file(const QString &path) { return QUrl::fromLocalFile(path); }

std::vector<float> floatsOf(const QString &base64)
{
    const QByteArray bytes = QByteArray::fromBase64(base64.toLatin1());
    std::vector<float> values(std::size_t(bytes.size()) / sizeof(float));
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = qFromLittleEndian<float>(bytes.constData() + i * sizeof(float));
    return values;
}

// The first envelope value of the tone (amplitude 0.5, so about 0.35).
std::ptrdiff_t onset(const std::vector<float> &envelope)
{
    const auto at = std::find_if(envelope.begin(), envelope.end(), [](float v) { return v > 0.1f; });
    return at == envelope.end() ? -1 : at - envelope.begin();
}

C0Probe::Clip probedClip(const QString &id, const QString &path, ProjectFileRole role)
{
    const auto facts = awaitTask(FFmpegRunner::probe(file(path)));
    return C0Probe::Clip{id, QFileInfo(path).fileName(), path, role, ProjectFileState::ok, std::nullopt,
                         MediaValidator::clipMedia(facts, id)};
}

const Measurements::Clip &clipNamed(const Measurements &document, const QString &id)
{
    for (const auto &clip : document.clips) {
        if (clip.clip.clipId == id)
            return clip;
    }
    throw std::runtime_error("no clip " + id.toStdString());
}

} // namespace

TEST(MeasurementsEncoding, FloatsAreLittleEndianBase64)
{
    EXPECT_EQ(encodeFloats({}), QString());
    const std::vector<float> values{1.0f, -2.5f};
    EXPECT_EQ(encodeFloats(values), QStringLiteral("AACAPwAAIMA="));
}

// One project of every kind of clip, measured once for the tests below: an
// A-roll synced to the external microphone at 1 s, an A-roll whose row has an
// offset but is not synced, a B-roll without sound, a B-roll with sound and
// the microphone's own file.
class ProjectMeasurements : public ::testing::Test {
protected:
    struct Shared {
        TempDir folder;
        PrivateTemporaryFolder temporary{folder};
        Project project;
        C0Probe probe;
        Result result;
        QJsonObject json;
    };
    static inline std::unique_ptr<Shared> shared;

    static void SetUpTestSuite()
    {
        const auto &media = MediaSamples::get();
        shared = std::make_unique<Shared>();
        Shared &s = *shared;
        const ProjectWorkspace workspace{file(s.folder.file("projects"))};
        s.project.id = QUuid::createUuid();

        s.probe.projectId = ProjectWorkspace::folderName(s.project.id);
        s.probe.createdAt = json::nowWholeSeconds();
        s.probe.clips = {
            probedClip("synced", media.videoWithAudio, ProjectFileRole::aRoll),
            probedClip("unsynced", media.videoWithAudio, ProjectFileRole::aRoll),
            probedClip("mute", media.videoOnly, ProjectFileRole::bRoll),
            probedClip("cutaway", media.videoWithAudio, ProjectFileRole::bRoll),
            probedClip("mic", media.toneAndSilence, ProjectFileRole::externalAudio),
            C0Probe::Clip{"broken.mp4", "broken.mp4", media.textNamedMp4, ProjectFileRole::aRoll,
                          ProjectFileState::failed, QStringLiteral("Could not read this file"), std::nullopt},
        };
        for (const auto &clip : s.probe.clips)
            s.project.files.push_back(ProjectFile{QUuid::createUuid(), file(clip.path), clip.role, clip.state,
                                                  clip.note, clip.media, std::nullopt});

        C05Sync sync;
        sync.projectId = s.probe.projectId;
        sync.createdAt = s.probe.createdAt;
        sync.externalClipId = QStringLiteral("mic");
        sync.clips = {
            C05Sync::Clip{"synced", "take.mov", 1.0, 9.0, C05Sync::SyncSource::crossCorrelation, true, 1, std::nullopt},
            C05Sync::Clip{"unsynced", "take.mov", 0.5, 1.2, C05Sync::SyncSource::filename, false, 0, std::nullopt},
        };

        workspace.create(s.project.id);
        StageCoder::write(s.probe, workspace.artifactPath(artifact::c0Probe, s.project.id));
        StageCoder::write(sync, workspace.artifactPath(artifact::c05Sync, s.project.id));

        s.result = awaitTask(exportProject(s.project, file(s.folder.file("out")), workspace));
        const auto bytes = readFile(s.folder.file("out/measurements.json"));
        ASSERT_TRUE(bytes);
        s.json = json::parse(*bytes).toObject();
    }
    static void TearDownTestSuite() { shared.reset(); }

    void SetUp() override
    {
        if (!shared || shared->json.isEmpty())
            GTEST_SKIP() << "the project could not be measured";
    }

    static const Measurements &document() { return shared->result.document; }
};

TEST_F(ProjectMeasurements, DocumentKeysAndHeader)
{
    const Result &result = shared->result;
    EXPECT_EQ(result.measurementsURL, file(shared->folder.file("out/measurements.json")));
    EXPECT_EQ(result.measurementsBytes, QFileInfo(shared->folder.file("out/measurements.json")).size());
    EXPECT_EQ(StageCoder::decode<Measurements>(readFile(result.measurementsURL.toLocalFile()).value()),
              result.document);

    // Keys in snake case throughout, as in every stage document.
    const QJsonObject &json = shared->json;
    EXPECT_EQ(json[u"schema"].toString(), QStringLiteral("measurements/3"));
    EXPECT_EQ(json[u"job_type"].toString(), QStringLiteral("process"));
    EXPECT_EQ(json[u"project_id"].toString(), shared->project.id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_EQ(json[u"external_clip_id"].toString(), QStringLiteral("mic"));
    EXPECT_FALSE(json[u"meta"].toObject()[u"ffmpeg_version"].toString().isEmpty());

    const QJsonArray clips = json[u"clips"].toArray();
    ASSERT_EQ(clips.size(), 5); // the failed file is left out; probe order
    QStringList order;
    for (const auto &clip : clips)
        order << clip.toObject()[u"clip"][u"clip_id"].toString();
    EXPECT_EQ(order, QStringList({"synced", "unsynced", "mute", "cutaway", "mic"}));

    const QJsonObject synced = clips[0].toObject();
    EXPECT_EQ(synced[u"clip"][u"media"][u"duration_s"].toDouble(), shared->probe.clips[0].media->durationS);
    EXPECT_TRUE(synced[u"sync"][u"is_synced"].toBool());
    EXPECT_EQ(synced[u"sync"][u"offset_s"].toDouble(), 1.0);
    EXPECT_EQ(synced[u"sync"][u"sync_source"].toString(), QStringLiteral("cross_correlation"));
    EXPECT_GT(synced[u"size_bytes"].toInteger(), 0);
    EXPECT_EQ(synced[u"creation_time"].toString(), QStringLiteral("2024-03-01T09:30:00Z"));
    EXPECT_EQ(synced[u"integrity"][u"version"].toString(), QStringLiteral("media-integrity/2"));
    EXPECT_TRUE(synced[u"integrity"][u"frame_loss_ratio"].isDouble());
    EXPECT_EQ(synced[u"silences"][u"noise_db"].toDouble(), -35);
    EXPECT_EQ(synced[u"silences"][u"min_duration_s"].toDouble(), 0.2);
    EXPECT_TRUE(synced[u"silences"][u"intervals"][0][u"end_s"].isDouble());
    EXPECT_EQ(synced[u"envelope"][u"rate_hz"].toDouble(), 200);
    EXPECT_EQ(synced[u"motion"][u"version"].toString(), QStringLiteral("motion-envelope/1"));
    EXPECT_EQ(synced[u"audio_name"].toString(), QStringLiteral("synced.m4a"));
}

TEST_F(ProjectMeasurements, SyncedARollIsMeasuredOnTheMicrophoneFromItsOffset)
{
    const auto &clip = clipNamed(document(), "synced");
    ASSERT_TRUE(clip.silences);
    EXPECT_EQ(clip.silences->source, Source::external);
    // The microphone is silent from 1 s to 2.5 s: from the offset of 1 s on,
    // the first silence runs to 1.5 s.
    ASSERT_FALSE(clip.silences->intervals.empty());
    EXPECT_NEAR(clip.silences->intervals[0].startS, 0, 0.05);
    EXPECT_NEAR(clip.silences->intervals[0].endS, 1.5, 0.05);

    ASSERT_TRUE(clip.envelope);
    const auto envelope = floatsOf(clip.envelope->data);
    EXPECT_EQ(clip.envelope->frames, qint64(envelope.size()));
    EXPECT_EQ(clip.envelope->rateHz, 200);
    EXPECT_EQ(envelope.size(), 800u); // the clip's 4 s
    EXPECT_NEAR(onset(envelope), 300, 4);

    // The audio file holds the same stretch: the clip's length, the tone
    // coming back 1.5 s in.
    ASSERT_EQ(shared->result.audio.size(), 4u);
    const AudioFile &audio = shared->result.audio[0];
    EXPECT_EQ(audio.clipId, QStringLiteral("synced"));
    EXPECT_EQ(audio.name, QStringLiteral("synced.m4a"));
    EXPECT_EQ(audio.bytes, QFileInfo(audio.url.toLocalFile()).size());
    const auto facts = awaitTask(FFmpegRunner::probe(audio.url));
    EXPECT_NEAR(facts.durationS, clip.clip.media->durationS, 0.05);
    EXPECT_EQ(facts.sampleRate, 16000);
    EXPECT_EQ(facts.channels, 1);
    EXPECT_FALSE(facts.videoCodec);

    const QString wav = shared->folder.file("decoded.wav");
    const auto decoded = ProcessRunner::runBlocking(ProcessRunner().require("ffmpeg").url,
                                                    {"-nostdin", "-v", "error", "-i", audio.url.toLocalFile(), wav});
    ASSERT_EQ(decoded.status, 0) << decoded.text.toStdString();
    EXPECT_NEAR(onset(AudioSync::rawEnvelope(wav)), 300, 6);
}

TEST_F(ProjectMeasurements, EachClipGetsWhatItsRoleAndSoundAllow)
{
    const auto &unsynced = clipNamed(document(), "unsynced");
    ASSERT_TRUE(unsynced.silences);
    EXPECT_EQ(unsynced.silences->source, Source::clip);
    EXPECT_TRUE(unsynced.silences->intervals.empty()); // its tone never stops
    EXPECT_EQ(unsynced.sync->offsetS, 0.5);
    ASSERT_TRUE(unsynced.integrity);
    EXPECT_EQ(unsynced.integrity->decodedFrames, 100);
    EXPECT_EQ(unsynced.integrity->expectedFrames, 100);
    EXPECT_EQ(unsynced.integrity->frameLossRatio, 0);
    EXPECT_EQ(unsynced.integrity->verdict, FFmpegRunner::DecodeIntegrity::Verdict::clean);
    ASSERT_TRUE(unsynced.motion);
    EXPECT_EQ(unsynced.motion->fps, 25);
    EXPECT_EQ(unsynced.motion->frames, 100);
    EXPECT_EQ(floatsOf(unsynced.motion->data).size(), 100u);
    EXPECT_NE(unsynced.envelope, clipNamed(document(), "synced").envelope);

    const auto &mute = clipNamed(document(), "mute");
    EXPECT_FALSE(mute.envelope);
    EXPECT_FALSE(mute.audioName);
    EXPECT_FALSE(mute.silences);
    EXPECT_FALSE(mute.sync);
    EXPECT_TRUE(mute.integrity);
    EXPECT_TRUE(mute.motion);

    const auto &cutaway = clipNamed(document(), "cutaway");
    ASSERT_TRUE(cutaway.envelope);
    // Its whole sound: the AAC track runs a little past the pictures' 4 s.
    EXPECT_NEAR(cutaway.envelope->frames, 800, 5);
    EXPECT_EQ(cutaway.envelope->frames, qint64(floatsOf(cutaway.envelope->data).size()));
    EXPECT_EQ(cutaway.audioName, QStringLiteral("cutaway.m4a"));
    EXPECT_FALSE(cutaway.silences);

    // The microphone: no pictures to judge or to move, its whole sound.
    const auto &mic = clipNamed(document(), "mic");
    EXPECT_FALSE(mic.integrity);
    EXPECT_FALSE(mic.silences);
    EXPECT_FALSE(mic.motion);
    ASSERT_TRUE(mic.envelope);
    EXPECT_EQ(mic.envelope->frames, 1000);
    EXPECT_EQ(mic.audioName, QStringLiteral("mic.m4a"));

    for (const auto &clip : document().clips) {
        EXPECT_FALSE(clip.cuts);
        EXPECT_FALSE(clip.publishedAt);
    }
    std::vector<QString> names;
    for (const auto &audio : shared->result.audio)
        names.push_back(audio.name);
    EXPECT_EQ(names, (std::vector<QString>{"synced.m4a", "unsynced.m4a", "cutaway.m4a", "mic.m4a"}));
    // The temporary WAV files are gone.
    for (const auto &audio : shared->result.audio)
        EXPECT_FALSE(QFileInfo::exists(QDir::tempPath() + "/velum-measurements/" + audio.clipId + ".wav"));
}

TEST(MeasurementsProbe, AStaleOrFailedProbeDocument)
{
    const auto &media = MediaSamples::get();
    TempDir folder;
    const PrivateTemporaryFolder temporary(folder);
    const ProjectWorkspace workspace{file(folder.file("projects"))};
    Project project;
    project.id = QUuid::createUuid();
    workspace.create(project.id);

    // A probe document of the first schema names only a failed file; the
    // project's one file is probed afresh, keeping its clip id.
    ClipMedia known;
    known.clipId = QStringLiteral("kept-id");
    project.files = {ProjectFile{QUuid::createUuid(), file(media.videoOnly), ProjectFileRole::bRoll,
                                 ProjectFileState::ok, std::nullopt, known, std::nullopt}};
    C0Probe stale;
    stale.schemaVersion = 1;
    stale.projectId = ProjectWorkspace::folderName(project.id);
    stale.createdAt = json::nowWholeSeconds();
    stale.clips = {C0Probe::Clip{"gone", "gone.mp4", folder.file("gone.mp4"), ProjectFileRole::aRoll,
                                 ProjectFileState::failed, std::nullopt, std::nullopt}};
    StageCoder::write(stale, workspace.artifactPath(artifact::c0Probe, project.id));

    const Result result = awaitTask(exportProject(project, file(folder.file("out")), workspace));
    ASSERT_EQ(result.document.clips.size(), 1u);
    EXPECT_EQ(result.document.clips[0].clip.clipId, QStringLiteral("kept-id"));
    EXPECT_EQ(result.document.clips[0].clip.path, media.videoOnly);
    EXPECT_FALSE(result.document.externalClipId);
    EXPECT_TRUE(result.audio.empty());
    // The fresh probe is not written.
    EXPECT_EQ(StageCoder::read<C0Probe>(workspace.artifactPath(artifact::c0Probe, project.id)), stale);

    // The same document at the current schema is taken as it is.
    stale.schemaVersion = C0Probe::currentSchemaVersion;
    StageCoder::write(stale, workspace.artifactPath(artifact::c0Probe, project.id));
    try {
        awaitTask(exportProject(project, file(folder.file("out")), workspace));
        FAIL() << "exported without a usable clip";
    } catch (const ExportError &e) {
        EXPECT_STREQ(e.what(), "No usable clips to export");
        EXPECT_TRUE(std::holds_alternative<NoUsableClips>(e.failure()));
    }
}

TEST(MeasurementsIngest, OnePublishedVideo)
{
    const auto &media = MediaSamples::get();
    TempDir folder;
    const PrivateTemporaryFolder temporary(folder);
    // The date its name starts with stands in for a missing publication date.
    const QString video = folder.file("2024-05-06 talk.mp4");
    ASSERT_TRUE(QFile::copy(media.sceneCuts, video));

    const Result result = awaitTask(exportIngest(file(video), std::nullopt, file(folder.file("out"))));
    const Measurements &document = result.document;
    EXPECT_EQ(document.jobType, JobType::ingest);
    EXPECT_FALSE(document.projectId);
    EXPECT_FALSE(document.externalClipId);
    EXPECT_TRUE(document.meta);
    ASSERT_EQ(document.clips.size(), 1u);
    const auto &clip = document.clips[0];
    EXPECT_EQ(clip.clip.clipId.size(), 64); // the content hash
    EXPECT_EQ(clip.clip.role, ProjectFileRole::aRoll);
    EXPECT_EQ(clip.publishedAt, QDateTime(QDate(2024, 5, 6), QTime(0, 0), Qt::UTC));
    EXPECT_EQ(clip.sizeBytes, QFileInfo(video).size());

    // The cuts at 2, 4 and 6 s (the one at 0.4 s is in the first second), and
    // the integrity of the same decode.
    ASSERT_TRUE(clip.cuts);
    EXPECT_EQ(clip.cuts->version, QStringLiteral("scdet/3"));
    EXPECT_EQ(clip.cuts->threshold, 3.5);
    ASSERT_EQ(clip.cuts->events.size(), 3u);
    EXPECT_NEAR(clip.cuts->events[0].t, 2, 0.05);
    EXPECT_NEAR(clip.cuts->events[2].t, 6, 0.05);
    ASSERT_TRUE(clip.integrity);
    EXPECT_EQ(clip.integrity->decodedFrames, 200);
    EXPECT_EQ(clip.integrity->expectedFrames, 200);
    EXPECT_FALSE(clip.integrity->sampledS);
    // No sound: no envelope and no audio file. Ingest measures no motion.
    EXPECT_FALSE(clip.envelope);
    EXPECT_FALSE(clip.audioName);
    EXPECT_FALSE(clip.motion);
    EXPECT_TRUE(result.audio.empty());
    const QJsonObject json = json::parse(readFile(folder.file("out/measurements.json")).value()).toObject();
    EXPECT_EQ(json[u"job_type"].toString(), QStringLiteral("ingest"));
    EXPECT_EQ(json[u"clips"][0][u"cuts"][u"events"][0].toObject().keys(), QStringList({"confidence", "score", "t"}));

    // A given date wins. A video with sound is measured as an A-roll clip.
    const QDateTime given(QDate(2023, 1, 2), QTime(3, 4, 5), Qt::UTC);
    const Result spoken = awaitTask(exportIngest(file(media.videoWithAudio), given, file(folder.file("out2"))));
    const auto &talk = spoken.document.clips.at(0);
    EXPECT_EQ(talk.publishedAt, given);
    ASSERT_TRUE(talk.silences);
    EXPECT_EQ(talk.silences->source, Source::clip);
    ASSERT_TRUE(talk.envelope);
    EXPECT_EQ(talk.envelope->frames, 800);
    ASSERT_EQ(spoken.audio.size(), 1u);
    EXPECT_EQ(spoken.audio[0].name, talk.clip.clipId + ".m4a");
    EXPECT_TRUE(QFileInfo::exists(spoken.audio[0].url.toLocalFile()));

    try {
        awaitTask(exportIngest(file(media.textNamedMp4), std::nullopt, file(folder.file("out3"))));
        FAIL() << "a text file was measured";
    } catch (const ExportError &e) {
        EXPECT_STREQ(e.what(), "Could not read this file");
        EXPECT_EQ(std::get<Unreadable>(e.failure()).note, QStringLiteral("Could not read this file"));
    }
}
