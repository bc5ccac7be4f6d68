#include "perception/AudioSync.h"
#include "perception/SyncStage.h"

#include "support/Async.h"
#include "support/SpeechSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cmath>
#include <limits>
#include <random>
#include <variant>

namespace velum {
namespace {

using AudioSync::match;

// Writes 16-bit PCM frames (interleaved) as a WAV file.
void writeWAV(const QString &path, int rate, int channels, const std::vector<float> &frames)
{
    SF_INFO info{.frames = 0, .samplerate = rate, .channels = channels,
                 .format = SF_FORMAT_WAV | SF_FORMAT_PCM_16, .sections = 0, .seekable = 0};
    SNDFILE *file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    sf_writef_float(file, frames.data(), sf_count_t(frames.size()) / channels);
    sf_close(file);
}

std::vector<float> sine(int rate, double seconds, double amplitude)
{
    std::vector<float> out(std::size_t(std::lround(rate * seconds)));
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = float(amplitude * std::sin(2 * M_PI * 400 * double(i) / rate));
    return out;
}

// --- The correlation ---------------------------------------------------------

// With a one-value clip the correlation is the reference itself, so the
// peaks can be placed exactly.
TEST(AudioSyncMatch, RivalsLieStrictlyMoreThanOneSecondAway)
{
    const std::vector<float> clip{1};
    std::vector<float> reference(1000, 0);
    reference[300] = 1;
    reference[150] = 0.95f; // 150 lags before: the same stretch of sound
    reference[500] = 0.9f;  // exactly 200 lags after: still the same
    reference[501] = 0.4f;  // 201 lags after: the rival
    const auto found = match(clip, reference);
    ASSERT_TRUE(found);
    EXPECT_DOUBLE_EQ(found->offsetS, 1.5);
    EXPECT_NEAR(found->peak, 1.0, 1e-5);
    EXPECT_NEAR(found->confidence, 2.5, 1e-3);

    // Two equal peaks: confidence falls to about 1.
    reference[501] = 1;
    const auto doubled = match(clip, reference);
    ASSERT_TRUE(doubled);
    EXPECT_NEAR(doubled->confidence, 1.0, 1e-3);
}

TEST(AudioSyncMatch, WithoutAnyRivalConfidenceIsInfinite)
{
    // Correlations below 0 are no rivals.
    std::vector<float> reference(600, -0.5f);
    reference[40] = 1;
    const auto found = match(std::vector<float>{1}, reference);
    ASSERT_TRUE(found);
    EXPECT_DOUBLE_EQ(found->offsetS, 0.2);
    EXPECT_EQ(found->confidence, std::numeric_limits<double>::infinity());
}

TEST(AudioSyncMatch, LagsStopWhereTheClipWouldRunHalfItsLengthPastTheEnd)
{
    // A 400-value clip that is one impulse: 300 - 200 = 100 lags searched.
    std::vector<float> clip(400, 0);
    clip[0] = 1;
    std::vector<float> reference(300, 0);
    reference[99] = 0.5f;
    reference[100] = 1; // just out of reach
    auto found = match(clip, reference);
    ASSERT_TRUE(found);
    EXPECT_DOUBLE_EQ(found->offsetS, 0.495);

    // A clip longer than twice the reference still has lag 0.
    clip.resize(1000, 0);
    reference[0] = 0.2f;
    found = match(clip, reference);
    ASSERT_TRUE(found);
    EXPECT_DOUBLE_EQ(found->offsetS, 0);
    EXPECT_NEAR(found->peak, 0.2, 1e-5);
}

TEST(AudioSyncMatch, SilenceAndEmptinessMatchNothing)
{
    const std::vector<float> silence = AudioSync::normalize(std::vector<float>(500, 0));
    EXPECT_EQ(silence, std::vector<float>(500, 0));
    std::minstd_rand random(7);
    std::uniform_real_distribution<float> uniform(0, 1);
    std::vector<float> sound(500);
    for (float &v : sound)
        v = uniform(random);
    sound = AudioSync::normalize(sound);

    EXPECT_FALSE(match(silence, silence));
    EXPECT_FALSE(match(std::span(silence).first(100), sound));
    EXPECT_FALSE(match(std::span(sound).first(100), silence));
    EXPECT_FALSE(match({}, sound));
    EXPECT_FALSE(match(sound, {}));

    // The clip cut out of the sound is found where it was cut.
    const auto found = match(std::span(sound).subspan(260, 120), sound);
    ASSERT_TRUE(found);
    EXPECT_DOUBLE_EQ(found->offsetS, 1.3);
}

TEST(AudioSyncNormalize, ZeroMeanAndUnitEnergy)
{
    const std::vector<float> out = AudioSync::normalize({1, 2, 3, 6});
    double sum = 0;
    double energy = 0;
    for (const float v : out) {
        sum += v;
        energy += double(v) * v;
    }
    EXPECT_NEAR(sum, 0, 1e-6);
    EXPECT_NEAR(energy, 1, 1e-6);
    EXPECT_NEAR(out[3] / out[0], -1.5, 1e-5); // (6 - 3) / (1 - 3)
    EXPECT_TRUE(AudioSync::normalize({}).empty());
}

// --- The envelope ---------------------------------------------------------------

TEST(AudioSyncEnvelope, RootMeanSquareOfEveryWholeWindowOfTheFirstChannel)
{
    const test::TempDir dir;

    // 1 s of sine, 0.5 s of silence and 40 frames: 300 windows of 80 frames.
    std::vector<float> mono = sine(16000, 1, 0.5);
    mono.resize(16000 + 8000 + 40, 0);
    writeWAV(dir.file("mono.wav"), 16000, 1, mono);
    const std::vector<float> envelope = AudioSync::rawEnvelope(dir.file("mono.wav"));
    ASSERT_EQ(envelope.size(), 300u);
    EXPECT_NEAR(envelope[10], 0.5 / std::sqrt(2.0), 1e-3);
    EXPECT_NEAR(envelope[199], 0.5 / std::sqrt(2.0), 1e-3);
    EXPECT_EQ(envelope[200], 0);

    // At 48 kHz a window is 240 frames, and only the first channel counts.
    const std::vector<float> loud = sine(48000, 0.5, 0.8);
    std::vector<float> stereo(loud.size() * 2, 0);
    for (std::size_t i = 0; i < loud.size(); ++i)
        stereo[2 * i + 1] = loud[i];
    writeWAV(dir.file("stereo.wav"), 48000, 2, stereo);
    EXPECT_EQ(AudioSync::rawEnvelope(dir.file("stereo.wav")), std::vector<float>(100, 0));
}

TEST(AudioSyncEnvelope, ATruncatedFileGivesWhatIsReadableAndAnUnreadableOneThrows)
{
    const test::TempDir dir;
    writeWAV(dir.file("whole.wav"), 16000, 1, sine(16000, 4, 0.5));
    QByteArray bytes = test::readBytes(dir.file("whole.wav"));
    // The header still states 4 s; about 1.5 s of samples follow it.
    test::writeBytes(dir.file("cut.wav"), bytes.left(44 + 16000 * 3));
    const std::vector<float> envelope = AudioSync::rawEnvelope(dir.file("cut.wav"));
    EXPECT_NEAR(double(envelope.size()), 300, 2);
    EXPECT_NEAR(envelope.back(), 0.5 / std::sqrt(2.0), 1e-3);

    test::writeBytes(dir.file("notes.wav"), "Not a sound file, only notes about one.\n");
    EXPECT_THROW(AudioSync::rawEnvelope(dir.file("notes.wav")), AudioSync::AudioReadError);
    EXPECT_THROW(AudioSync::rawEnvelope(dir.file("missing.wav")), AudioSync::AudioReadError);
}

// --- Extraction -------------------------------------------------------------------

TEST(AudioSyncExtract, CutsBeforeDecodingIntoMono16kHzInTheStageFolder)
{
    const auto &speech = test::SpeechSamples::get();
    const QUrl wav = test::awaitTask(
        AudioSync::extractWAV(QUrl::fromLocalFile(speech.take1), QStringLiteral("extract-test"), 1.0, 2.5));
    EXPECT_EQ(wav.toLocalFile(), QDir::tempPath() + QStringLiteral("/velum-process/extract-test.wav"));
    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(wav.toLocalFile()).constData(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    sf_close(file);
    EXPECT_EQ(info.samplerate, 16000);
    EXPECT_EQ(info.channels, 1);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_NEAR(double(info.frames), 40000, 16);
    QFile::remove(wav.toLocalFile());

    // A file ffmpeg cannot read, and no ffmpeg at all.
    const test::TempDir dir;
    test::writeBytes(dir.file("notes.mov"), "no pictures here\n");
    try {
        test::awaitTask(AudioSync::extractWAV(QUrl::fromLocalFile(dir.file("notes.mov")), QStringLiteral("x")));
        ADD_FAILURE() << "no error";
    } catch (const ProcessRunner::FailureError &error) {
        const auto *failed = std::get_if<ProcessRunner::Failed>(&error.failure());
        ASSERT_TRUE(failed);
        EXPECT_EQ(failed->command, QStringLiteral("ffmpeg -i … wav"));
        EXPECT_NE(failed->status, 0);
    }
    const ProcessRunner nowhere(
        ProcessRunner::Locations{.bundledDirectory = dir.path(), .searchPath = dir.path(), .extraDirectories = {}});
    try {
        test::awaitTask(AudioSync::extractWAV(QUrl::fromLocalFile(speech.take1), QStringLiteral("x"), std::nullopt,
                                              std::nullopt, nowhere));
        ADD_FAILURE() << "no error";
    } catch (const ProcessRunner::FailureError &error) {
        EXPECT_EQ(error.failure(), ProcessRunner::Failure(ProcessRunner::ToolNotFound{QStringLiteral("ffmpeg")}));
    }
}

// --- The stage ----------------------------------------------------------------------

C0Probe::Clip clip(const QString &id, const QString &path, ProjectFileRole role = ProjectFileRole::aRoll,
                   bool withAudio = true)
{
    C0Probe::Clip c{.clipId = id, .filename = id + QStringLiteral(".wav"), .path = path, .role = role,
                    .state = ProjectFileState::ok};
    c.media = ClipMedia{.clipId = id, .durationS = 5};
    if (withAudio)
        c.media->audioCodec = QStringLiteral("pcm_s16le");
    return c;
}

const QString noMatch = QStringLiteral("No confident match in the external track");

class SyncStageTest : public ::testing::Test {
protected:
    const test::SpeechSamples &speech = test::SpeechSamples::get();
    test::TempDir dir;
    ProjectWorkspace workspace{.overrideRoot = QUrl::fromLocalFile(dir.path())};
    QUuid id = QUuid::createUuid();

    C05Sync run(const C0Probe &probe)
    {
        return test::awaitTask(ProcessPipeline::runC05(id, probe, workspace));
    }
    std::optional<C05Sync> written() const
    {
        return StageCoder::read<C05Sync>(workspace.artifactPath(artifact::c05Sync, id));
    }
};

TEST_F(SyncStageTest, PlacesEachTakeOnTheExternalTrackOrLeavesItUnsynced)
{
    C0Probe probe;
    probe.clips = {
        clip("unmatched", speech.unmatched),
        clip("take3", speech.take3),
        clip("ext", speech.external, ProjectFileRole::externalAudio),
        clip("take1", speech.take1),
        clip("doubled", speech.doubled),
        clip("early", speech.early),
        clip("silent", speech.silent),
        clip("take2", speech.take2),
        clip("b-roll", speech.take2, ProjectFileRole::bRoll),
        clip("mute", speech.take2, ProjectFileRole::aRoll, false),
    };
    C0Probe::Clip failed = clip("failed", speech.take1);
    failed.state = ProjectFileState::failed;
    probe.clips.push_back(failed);

    const C05Sync sync = run(probe);

    EXPECT_EQ(sync.schemaVersion, 1);
    EXPECT_EQ(sync.projectId, id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_EQ(sync.externalClipId, QStringLiteral("ext"));
    // Synced by offset, then the rest by name.
    EXPECT_EQ(sync.shootingOrder(), (QStringList{"take1", "take2", "take3", "doubled", "early", "mute", "silent",
                                                  "unmatched"}));
    const std::pair<const char *, double> placed[] = {{"take1", test::SpeechSamples::take1OffsetS},
                                                      {"take2", test::SpeechSamples::take2OffsetS},
                                                      {"take3", test::SpeechSamples::take3OffsetS}};
    for (const auto &[name, offset] : placed) {
        const C05Sync::Clip *c = sync.clip(QString::fromLatin1(name));
        ASSERT_TRUE(c) << name;
        EXPECT_TRUE(c->isSynced) << name;
        EXPECT_NEAR(c->offsetS.value_or(-1), offset, 0.005) << name;
        EXPECT_GE(c->confidence.value_or(0), 2.0) << name;
        EXPECT_EQ(c->syncSource, C05Sync::SyncSource::crossCorrelation) << name;
        EXPECT_FALSE(c->note) << name;
    }
    for (const char *name : {"doubled", "early", "mute", "silent", "unmatched"}) {
        const C05Sync::Clip *c = sync.clip(QString::fromLatin1(name));
        ASSERT_TRUE(c) << name;
        EXPECT_FALSE(c->isSynced) << name;
        EXPECT_FALSE(c->offsetS) << name;
        EXPECT_FALSE(c->confidence) << name;
        EXPECT_EQ(c->note, noMatch) << name;
        EXPECT_EQ(c->syncSource, C05Sync::SyncSource::filename) << name;
    }
    const auto &signal = sync.extraction.signals.at(QStringLiteral("sync"));
    EXPECT_EQ(signal, (analysis::Extraction::Signal{"envelope-xcorr", "audio-sync/1",
                                                    analysis::Extraction::Status::fallback,
                                                    QStringLiteral("5 clip(s) unsynced")}));
    EXPECT_EQ(written(), sync);
    // The temporary sound is gone.
    for (const char *name : {"ext", "take1", "doubled", "silent"})
        EXPECT_FALSE(QFileInfo::exists(QDir::tempPath() + "/velum-process/" + name + ".wav")) << name;
}

TEST_F(SyncStageTest, WithoutReadableExternalAudioEveryClipFallsBackOnItsName)
{
    C0Probe probe;
    probe.clips = {clip("take 10", speech.take1), clip("take 9", speech.take2)};
    probe.clips[0].filename = QStringLiteral("take 10.wav");
    probe.clips[1].filename = QStringLiteral("take 9.wav");

    const C05Sync alone = run(probe);
    EXPECT_FALSE(alone.externalClipId);
    EXPECT_EQ(alone.shootingOrder(), (QStringList{"take 9", "take 10"}));
    for (const auto &c : alone.clips) {
        EXPECT_EQ(c.note, noMatch);
        EXPECT_EQ(c.syncSource, C05Sync::SyncSource::filename);
    }
    EXPECT_EQ(alone.extraction.signals.at(QStringLiteral("sync")),
              (analysis::Extraction::Signal{"envelope-xcorr", "audio-sync/1", analysis::Extraction::Status::skipped,
                                            QStringLiteral("no external audio")}));
    EXPECT_EQ(written(), alone);

    test::writeBytes(dir.file("recorder.wav"), "not sound\n");
    probe.clips.push_back(clip("recorder", dir.file("recorder.wav"), ProjectFileRole::externalAudio));
    const C05Sync unreadable = run(probe);
    EXPECT_EQ(unreadable.externalClipId, QStringLiteral("recorder"));
    for (const auto &c : unreadable.clips) {
        EXPECT_FALSE(c.isSynced);
        EXPECT_EQ(c.note, QStringLiteral("External audio could not be read"));
    }
    EXPECT_EQ(unreadable.extraction.signals.at(QStringLiteral("sync")).note, QStringLiteral("2 clip(s) unsynced"));
    EXPECT_EQ(written(), unreadable);
}

} // namespace
} // namespace velum
