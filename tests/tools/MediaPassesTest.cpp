#include "tools/FFmpegRunner.h"

#include "support/Async.h"
#include "support/MediaSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QRegularExpression>

#include <algorithm>
#include <numeric>

using namespace velum;
using namespace velum::FFmpegRunner;
using velum::test::awaitTask;
using velum::test::MediaSamples;
using velum::test::TempDir;
using Verdict = DecodeIntegrity::Verdict;

static void PrintTo(const QString &text, std::ostream *os) { *os << '"' << text.toStdString() << '"'; }

namespace {

QUrl file(const QString &path) { return QUrl::fromLocalFile(path); }

ProcessRunner runnerWithout(const TempDir &folder)
{
    ProcessRunner::Locations locations;
    locations.bundledDirectory = folder.file("no-bundle");
    locations.searchPath = folder.path();
    locations.extraDirectories = {};
    return ProcessRunner(locations);
}

// One frame as the scene filter prints it.
QString frameLines(int index, double t, double score)
{
    return QStringLiteral("frame:%1    pts:%2    pts_time:%3\nlavfi.scd.mafd=%4\nlavfi.scd.score=%4\n")
        .arg(index)
        .arg(index * 512)
        .arg(t)
        .arg(score, 0, 'f', 3);
}

DecodeIntegrity report(qint64 decoded, qint64 expected, qint64 errors, std::optional<double> sampledS = std::nullopt)
{
    return DecodeIntegrity{decoded, expected, errors, sampledS};
}

} // namespace

// --- The integrity report ---------------------------------------------------------

TEST(DecodeIntegrityReport, VerdictsAndTheirWords)
{
    auto r = report(970, 1000, 0);
    EXPECT_NEAR(*r.loss(), 0.03, 1e-12);
    EXPECT_EQ(r.verdict(), Verdict::warning);
    EXPECT_FALSE(r.isDamaged());
    EXPECT_EQ(r.message(), QStringLiteral("Minor decode issues — 3.0% frame loss, 0 decoder warnings; "
                                          "measurements from this file are marked approximate."));
    EXPECT_EQ(r.note(), r.message());

    r = report(1000, 1000, 51);
    EXPECT_EQ(r.verdict(), Verdict::warning);
    EXPECT_EQ(r.message(), QStringLiteral("Minor decode issues — 0.0% frame loss, 51 decoder warnings; "
                                          "measurements unaffected."));

    r = report(1000, 1000, 50);
    EXPECT_EQ(r.verdict(), Verdict::clean);
    EXPECT_EQ(r.message(), QStringLiteral("Decodes cleanly."));
    EXPECT_FALSE(r.note());

    // Nothing expected: no loss, only the error lines count.
    r = report(0, 0, 51);
    EXPECT_FALSE(r.loss());
    EXPECT_EQ(r.verdict(), Verdict::warning);
    EXPECT_EQ(report(0, 0, 3).verdict(), Verdict::clean);
    // More frames than expected is no loss; nor are errors ever damage.
    r = report(1010, 1000, 5000);
    EXPECT_FALSE(r.loss());
    EXPECT_EQ(r.verdict(), Verdict::warning);
    EXPECT_FALSE(r.isDamaged());

    // 1 % exactly is not above 1 %; 5 % exactly is not above 5 %.
    EXPECT_EQ(report(990, 1000, 0).verdict(), Verdict::clean);
    EXPECT_EQ(report(950, 1000, 0).verdict(), Verdict::warning);

    r = report(1350, 1500, 7, 60);
    EXPECT_TRUE(r.isDamaged());
    EXPECT_EQ(r.message(), QStringLiteral("Only 1350 of 1500 frames in the first 60 seconds could be decoded "
                                          "(10% loss), with 7 decode errors. Re-export or re-download the file."));
    EXPECT_EQ(report(10, 40, 0).message(),
              QStringLiteral("Only 10 of 40 frames could be decoded (75% loss), with 0 decode errors. "
                             "Re-export or re-download the file."));
}

TEST(FFmpegIntegrity, ShortFilesAreDecodedWholeAndLongOnesSampled)
{
    const auto &media = MediaSamples::get();
    // A 4-second file with a 30-second sample: no "-t", no sampledS.
    auto r = awaitTask(checkIntegrity(file(media.videoWithAudio), 30.0));
    EXPECT_EQ(r, report(100, 100, 0));
    EXPECT_EQ(r.verdict(), Verdict::clean);

    // Only the first 2 seconds of it: 50 frames expected and decoded.
    r = awaitTask(checkIntegrity(file(media.videoWithAudio), 2.0));
    EXPECT_EQ(r, report(50, 50, 0, 2.0));

    // Without a sample the whole file is decoded against the probe's count.
    r = awaitTask(checkIntegrity(file(media.sceneCuts)));
    EXPECT_EQ(r, report(200, 200, 0));

    EXPECT_EQ(integrityArguments("/m/a.mov", 60.0),
              QStringList({"-nostdin", "-v", "error", "-progress", "pipe:1", "-t", "60.000", "-i", "/m/a.mov", "-an",
                           "-f", "null", "-"}));
    EXPECT_EQ(integrityArguments("/m/a.mov", std::nullopt),
              QStringList({"-nostdin", "-v", "error", "-progress", "pipe:1", "-i", "/m/a.mov", "-an", "-f", "null", "-"}));
}

TEST(FFmpegIntegrity, TruncatedAndCorruptFilesAreFound)
{
    const auto &media = MediaSamples::get();
    // Half the bytes of a 100-frame file that still states 4 seconds.
    auto r = awaitTask(checkIntegrity(file(media.truncatedMatroska), 60.0));
    EXPECT_EQ(r.expectedFrames, 100);
    EXPECT_FALSE(r.sampledS);
    EXPECT_GT(r.decodedFrames, 30);
    EXPECT_LT(r.decodedFrames, 70);
    EXPECT_EQ(r.verdict(), Verdict::damaged);

    // Sampled at 3 of its 4 seconds: 75 expected, and the span is named.
    r = awaitTask(checkIntegrity(file(media.truncatedMatroska), 3.0));
    EXPECT_EQ(r.expectedFrames, 75);
    EXPECT_EQ(r.sampledS, 3.0);
    EXPECT_EQ(r.verdict(), Verdict::damaged);
    EXPECT_TRUE(r.message().contains(QStringLiteral(" frames in the first 3 seconds could be decoded"))) << r.message().toStdString();

    // A third of the stream is noise: many frames are lost, and the decoder
    // complains.
    r = awaitTask(checkIntegrity(file(media.heavilyDamaged), 60.0));
    EXPECT_EQ(r.expectedFrames, 200);
    EXPECT_EQ(r.verdict(), Verdict::damaged);
    EXPECT_GT(r.decodeErrorLines, 0);
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^Only \\d+ of 200 frames could be decoded \\(\\d+% loss\\), with \\d+ "
                                                  "decode errors\\. Re-export or re-download the file\\.$"))
                    .match(r.message())
                    .hasMatch())
        << r.message().toStdString();
}

TEST(FFmpegIntegrity, ProbesFirstAndFailsWithoutItsTools)
{
    const auto &media = MediaSamples::get();
    // Without a probe given and nothing readable, the probe's failure comes
    // through.
    EXPECT_THROW(awaitTask(checkIntegrity(file(media.textNamedMp4), 60.0)), ProcessRunner::FailureError);

    TempDir empty;
    const auto probe = awaitTask(FFmpegRunner::probe(file(media.videoWithAudio)));
    try {
        awaitTask(checkIntegrity(file(media.videoWithAudio), 60.0, probe, runnerWithout(empty)));
        FAIL() << "expected toolNotFound";
    } catch (const ProcessRunner::FailureError &e) {
        const auto *missing = std::get_if<ProcessRunner::ToolNotFound>(&e.failure());
        ASSERT_TRUE(missing);
        EXPECT_EQ(missing->name, QStringLiteral("ffmpeg"));
    }
    const auto isFFmpegMissing = [](const ProcessRunner::FailureError &e) {
        const auto *missing = std::get_if<ProcessRunner::ToolNotFound>(&e.failure());
        return missing && missing->name == QStringLiteral("ffmpeg");
    };
    const ProcessRunner without = runnerWithout(empty);
    for (int pass = 0; pass < 3; ++pass) {
        try {
            if (pass == 0)
                awaitTask(detectCutsWithIntegrity(file(media.sceneCuts), 3.5, 0.25, std::nullopt, std::nullopt, without));
            else if (pass == 1)
                awaitTask(detectSilences(file(media.toneAndSilence), -35, 0.2, without));
            else
                awaitTask(motionEnvelope(file(media.videoOnly), without));
            ADD_FAILURE() << "pass " << pass << " ran without ffmpeg";
        } catch (const ProcessRunner::FailureError &e) {
            EXPECT_TRUE(isFFmpegMissing(e)) << pass;
        }
    }
}

// --- Scene cuts ------------------------------------------------------------------

TEST(FFmpegSceneCuts, HardCutsAtKnownTimesFromOneDecode)
{
    const auto &media = MediaSamples::get();
    const auto result = awaitTask(detectCutsWithIntegrity(file(media.sceneCuts), 3.5, 0.25, 8.0, 200));
    // The change at 0.4 s lies in the first second and is dropped.
    ASSERT_EQ(result.cuts.size(), 3u);
    const double times[] = {2.0, 4.0, 6.0};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(result.cuts[i].t, times[i], 0.041) << i;
        EXPECT_GE(result.cuts[i].score, 3.5);
        EXPECT_GT(result.cuts[i].confidence, 0);
        EXPECT_LE(result.cuts[i].confidence, 1);
    }
    EXPECT_EQ(std::max_element(result.cuts.begin(), result.cuts.end(),
                               [](const auto &a, const auto &b) { return a.confidence < b.confidence; })
                  ->confidence,
              1.0);
    EXPECT_EQ(result.integrity, report(200, 200, 0));

    // A threshold above every score gives no cuts, but the same frame count.
    const auto none = awaitTask(detectCutsWithIntegrity(file(media.sceneCuts), 1000, 0.25, std::nullopt, std::nullopt));
    EXPECT_TRUE(none.cuts.empty());
    EXPECT_EQ(none.integrity, report(200, 0, 0));
}

TEST(FFmpegSceneCuts, AFileFfmpegCannotReadFails)
{
    try {
        awaitTask(detectCutsWithIntegrity(file(MediaSamples::get().textNamedMp4), 3.5, 0.25, std::nullopt, std::nullopt));
        FAIL() << "expected a failure";
    } catch (const ProcessRunner::FailureError &e) {
        const auto *failed = std::get_if<ProcessRunner::Failed>(&e.failure());
        ASSERT_TRUE(failed);
        EXPECT_EQ(failed->command, QStringLiteral("ffmpeg scdet"));
        EXPECT_NE(failed->status, 0);
        EXPECT_TRUE(failed->output.contains(QStringLiteral("notes.mp4"))) << failed->output.toStdString();
    }
}

TEST(FFmpegSceneCuts, EdgesAreTrimmedInclusively)
{
    QString printed;
    int i = 0;
    for (const auto &[t, score] : std::vector<std::pair<double, double>>{
             {0.99, 40}, {1.0, 10}, {3.0, 20}, {9.0, 30}, {9.01, 50}})
        printed += frameLines(i++, t, score);
    auto result = cutsFromSceneScores(printed, 3.5, 0.25, 10.0);
    ASSERT_EQ(result.cuts.size(), 3u);
    EXPECT_EQ(result.cuts[0].t, 1.0);
    EXPECT_EQ(result.cuts[2].t, 9.0);
    EXPECT_EQ(result.cuts[2].confidence, 1.0); // 30 is the highest that stayed
    EXPECT_EQ(result.integrity.decodedFrames, 5);

    // Without a duration the last frame's time sets the limit: 9.01 − 1.
    result = cutsFromSceneScores(printed, 3.5, 0.25, std::nullopt);
    ASSERT_EQ(result.cuts.size(), 2u);
    EXPECT_EQ(result.cuts[1].t, 3.0);

    // A score with no frame line before it, or a second score for one frame,
    // is passed over; a time that does not read counts as no frame time.
    const QString odd = QStringLiteral("lavfi.scd.score=99\n") + frameLines(0, 2.0, 10)
                        + QStringLiteral("lavfi.scd.score=80\nframe:1 pts:1 pts_time:N/A\nlavfi.scd.score=70\n");
    result = cutsFromSceneScores(odd, 3.5, 0.25, 10.0);
    ASSERT_EQ(result.cuts.size(), 1u);
    EXPECT_EQ(result.cuts[0], (DetectedCut{2.0, 10.0, 1.0}));
    EXPECT_EQ(result.integrity.decodedFrames, 2);
}

TEST(FFmpegSceneCuts, PeakPicking)
{
    EXPECT_TRUE(peakPick({}, 0.5).empty());
    EXPECT_TRUE(peakPick({{2, 0}, {3, 0}}, 0.5).empty());

    // The higher of two close events survives.
    auto cuts = peakPick({{5.0, 4}, {5.3, 8}, {7.0, 2}}, 0.5);
    ASSERT_EQ(cuts.size(), 2u);
    EXPECT_EQ(cuts[0], (DetectedCut{5.3, 8, 1.0}));
    EXPECT_EQ(cuts[1], (DetectedCut{7.0, 2, 0.25}));

    // Of equal scores the earlier stays.
    cuts = peakPick({{5.3, 6}, {5.0, 6}}, 0.5);
    ASSERT_EQ(cuts.size(), 1u);
    EXPECT_EQ(cuts[0].t, 5.3);
    cuts = peakPick({{5.0, 6}, {5.3, 6}}, 0.5);
    ASSERT_EQ(cuts.size(), 1u);
    EXPECT_EQ(cuts[0].t, 5.0);

    // Exactly the separation apart is not too close.
    EXPECT_EQ(peakPick({{5.0, 6}, {5.5, 6}}, 0.5).size(), 2u);
    // A chain: the middle peak keeps both neighbours out.
    cuts = peakPick({{1.0, 5}, {1.4, 9}, {1.8, 5}, {2.5, 1}}, 0.5);
    ASSERT_EQ(cuts.size(), 2u);
    EXPECT_EQ(cuts[0].t, 1.4);
    EXPECT_EQ(cuts[1].t, 2.5);
}

// --- Silences and motion ---------------------------------------------------------

TEST(FFmpegSilences, IntervalsBetweenSoundAndNoneAtTheEnd)
{
    const auto &media = MediaSamples::get();
    const auto silences = awaitTask(detectSilences(file(media.toneAndSilence), -35, 0.2));
    // The filter closes the silence that runs to the end of the file itself.
    ASSERT_EQ(silences.size(), 2u);
    EXPECT_NEAR(silences[0].startS, 1.0, 0.02);
    EXPECT_NEAR(silences[0].endS, 2.5, 0.02);
    EXPECT_NEAR(silences[1].startS, 4.0, 0.02);
    EXPECT_NEAR(silences[1].endS, 5.0, 0.02);

    // A start that never gets its end adds nothing; an unreadable start
    // drops the pending one; status lines before a report do not matter.
    const auto read = silencesFromLog(
        u"size=N/A time=00:00:00.04 bitrate=N/A speed=4e+04x    [silencedetect @ 0x1] silence_start: 1\n"
        u"[silencedetect @ 0x1] silence_end: 2.50002 | silence_duration: 1.50002\n"
        u"[silencedetect @ 0x1] silence_start: bad\n"
        u"[silencedetect @ 0x1] silence_end: 3.5 | silence_duration: 0.5\n"
        u"[silencedetect @ 0x1] silence_start: 4\n"
        u"[silencedetect @ 0x1] silence_end: N/A\n"
        u"[silencedetect @ 0x1] silence_start: 6.25\n");
    ASSERT_EQ(read.size(), 1u);
    EXPECT_EQ(read[0], (Silence{1.0, 2.50002}));

    // Sound throughout, and no sound at all, give nothing.
    EXPECT_TRUE(awaitTask(detectSilences(file(media.videoWithAudio), -35, 0.2)).empty());
    EXPECT_TRUE(awaitTask(detectSilences(file(media.videoOnly), -35, 0.2)).empty());

    EXPECT_EQ(silenceArguments("/a.wav", -35.9, 0.2),
              QStringList({"-nostdin", "-v", "info", "-i", "/a.wav", "-vn", "-af", "silencedetect=noise=-35dB:d=0.2",
                           "-f", "null", "-"}));
    EXPECT_EQ(silenceArguments("/a.wav", -40, 2)[7], QStringLiteral("silencedetect=noise=-40dB:d=2"));
    EXPECT_EQ(silenceArguments("/a.wav", -40, 0.1 + 0.2)[7],
              QStringLiteral("silencedetect=noise=-40dB:d=0.30000000000000004"));
}

TEST(FFmpegMotion, OneValueAFrameAndNothingWithoutPictures)
{
    const auto &media = MediaSamples::get();
    const auto moving = awaitTask(motionEnvelope(file(media.videoWithAudio)));
    ASSERT_EQ(moving.size(), 100u);
    EXPECT_EQ(moving[0], 0.0f);
    EXPECT_GT(std::accumulate(moving.begin() + 1, moving.end(), 0.0), 0.0);

    // Flat colours move only where they change.
    const auto cuts = awaitTask(motionEnvelope(file(media.sceneCuts)));
    ASSERT_EQ(cuts.size(), 200u);
    std::vector<std::size_t> jumps;
    for (std::size_t i = 1; i < cuts.size(); ++i) {
        if (cuts[i] > 10)
            jumps.push_back(i);
    }
    EXPECT_EQ(jumps, (std::vector<std::size_t>{10, 50, 100, 150}));

    EXPECT_TRUE(awaitTask(motionEnvelope(file(media.audioOnly))).empty());
    EXPECT_TRUE(awaitTask(motionEnvelope(file(media.textNamedMp4))).empty());
}

TEST(FFmpegAudioCompression, TheArgumentsMakeAPlayableAacFile)
{
    const auto &media = MediaSamples::get();
    TempDir out;
    const QUrl target = file(out.file("speech.m4a"));
    const QStringList arguments = compressAudioArguments(file(media.videoWithAudio), target, 64);
    EXPECT_EQ(arguments, QStringList({"-nostdin", "-y", "-v", "error", "-i", media.videoWithAudio, "-vn", "-c:a", "aac",
                                      "-b:a", "64k", "-f", "ipod", "-movflags", "+faststart", out.file("speech.m4a")}));

    const auto ffmpeg = ProcessRunner().require("ffmpeg");
    const auto output = awaitTask(ProcessRunner::run(ffmpeg.url, arguments));
    ASSERT_EQ(output.status, 0) << output.text.toStdString();
    const auto probe = awaitTask(FFmpegRunner::probe(target));
    EXPECT_EQ(probe.audioCodec, QStringLiteral("aac"));
    EXPECT_FALSE(probe.videoCodec);
    EXPECT_NEAR(probe.durationS, 4.0, 0.1);
}
