#include "support/Cli.h"
#include "support/MediaSamples.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using velum::test::CliResult;
using velum::test::MediaSamples;
using velum::test::runVelumCli;

namespace {

QJsonObject jsonOf(const CliResult &result)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(result.standardOutput, &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << result.standardOutput.toStdString();
    return document.object();
}

QString sha256Of(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
}

} // namespace

TEST(ProbeCommand, PrintsTheProbeWithFieldNamesAndTimecodeObject)
{
    const auto &media = MediaSamples::get();
    auto result = runVelumCli({"probe", media.videoWithAudio});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    QJsonObject probe = jsonOf(result);
    EXPECT_EQ(probe.value("videoCodec").toString(), "h264");
    EXPECT_EQ(probe.value("audioCodec").toString(), "aac");
    EXPECT_EQ(probe.value("width").toInt(), 320);
    EXPECT_EQ(probe.value("fps").toDouble(), 25.0);
    EXPECT_EQ(probe.value("nbFrames").toInt(), 100);
    EXPECT_EQ(probe.value("creationTime").toString(), "2024-03-01T09:30:00Z");
    EXPECT_EQ(probe.value("startTimecode").toObject(),
              (QJsonObject{{"value", 9000000}, {"timescale", 2500}, {"source", "timecode_track"}, {"text", "01:00:00:00"}}));

    // Optional facts without a value are left out.
    result = runVelumCli({"probe", media.broadcastWave});
    ASSERT_EQ(result.exitCode, 0);
    probe = jsonOf(result);
    EXPECT_FALSE(probe.contains("videoCodec"));
    EXPECT_FALSE(probe.contains("creationTime"));
    EXPECT_FALSE(probe.contains("nbFrames"));
    EXPECT_EQ(probe.value("startTimecode").toObject().value("source").toString(), "bwf_time_reference");

    // An unreadable file is a failure with the user's words and the tool's.
    result = runVelumCli({"probe", media.textNamedMp4});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardOutput.isEmpty());
    EXPECT_TRUE(result.standardError.contains("Velum couldn’t process that file.")) << result.standardError.toStdString();
    EXPECT_TRUE(result.standardError.contains("ffprobe exited with status"));

    EXPECT_EQ(runVelumCli({"probe"}).exitCode, 2);
    EXPECT_EQ(runVelumCli({"probe", media.videoOnly, media.audioOnly}).exitCode, 2);
    EXPECT_EQ(runVelumCli({"probe", media.folder + "/absent.mov"}).exitCode, 1);
}

TEST(ValidateCommand, PrintsTheOutcomeForTheRole)
{
    const auto &media = MediaSamples::get();
    auto result = runVelumCli({"validate", media.videoOnly, "--role", "a_roll"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    QJsonObject outcome = jsonOf(result);
    EXPECT_EQ(outcome.value("state").toString(), "warning");
    EXPECT_EQ(outcome.value("note").toString(), QStringLiteral("No audio — will sync by order only"));
    const QJsonObject clip = outcome.value("media").toObject();
    EXPECT_EQ(clip.value("clipId").toString(), sha256Of(media.videoOnly));
    EXPECT_EQ(clip.value("width").toInt(), 320);
    EXPECT_FALSE(clip.contains("audioCodec"));

    outcome = jsonOf(runVelumCli({"validate", "--role", "b_roll", media.videoOnly}));
    EXPECT_EQ(outcome.value("state").toString(), "ok");
    EXPECT_FALSE(outcome.contains("note"));

    outcome = jsonOf(runVelumCli({"validate", media.heavilyDamaged, "--role", "b_roll"}));
    EXPECT_EQ(outcome.value("state").toString(), "failed");
    EXPECT_TRUE(outcome.value("note").toString().startsWith("Only "));
    EXPECT_TRUE(outcome.contains("media"));

    outcome = jsonOf(runVelumCli({"validate", media.textNamedMp4, "--role", "external_audio"}));
    EXPECT_EQ(outcome, (QJsonObject{{"state", "failed"}, {"note", "Could not read this file"}}));

    EXPECT_EQ(runVelumCli({"validate", media.videoOnly}).exitCode, 2);
    EXPECT_EQ(runVelumCli({"validate", media.videoOnly, "--role", "aRoll"}).exitCode, 2);
    EXPECT_EQ(runVelumCli({"validate", media.videoOnly, "--role"}).exitCode, 2);
}

TEST(PassesCommand, PrintsCutsIntegritySilencesAndMotion)
{
    const auto &media = MediaSamples::get();
    auto result = runVelumCli({"passes", media.sceneCuts});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    QJsonObject passes = jsonOf(result);
    const QJsonArray events = passes.value("cuts").toObject().value("events").toArray();
    ASSERT_EQ(events.size(), 3);
    EXPECT_NEAR(events[0].toObject().value("t").toDouble(), 2.0, 0.041);
    EXPECT_TRUE(events[0].toObject().contains("confidence"));
    const QJsonObject integrity = passes.value("integrity").toObject();
    EXPECT_EQ(integrity.value("decodedFrames").toInt(), 200);
    EXPECT_EQ(integrity.value("expectedFrames").toInt(), 200);
    EXPECT_EQ(integrity.value("verdict").toString(), "clean");
    EXPECT_FALSE(integrity.contains("sampledS"));
    EXPECT_EQ(passes.value("motion").toObject().value("frames").toInt(), 200);
    EXPECT_EQ(passes.value("motion").toObject().value("data").toArray().size(), 200);
    EXPECT_FALSE(passes.contains("silences")); // no sound in it
    EXPECT_EQ(passes.value("probe").toObject().value("nbFrames").toInt(), 200);

    // Sound alone: silences on its own sound, no picture passes.
    result = runVelumCli({"passes", media.toneAndSilence});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    passes = jsonOf(result);
    EXPECT_FALSE(passes.contains("cuts"));
    EXPECT_FALSE(passes.contains("motion"));
    const QJsonObject silences = passes.value("silences").toObject();
    EXPECT_EQ(silences.value("noiseDb").toDouble(), -35);
    EXPECT_EQ(silences.value("minDurationS").toDouble(), 0.2);
    const QJsonArray intervals = silences.value("intervals").toArray();
    ASSERT_EQ(intervals.size(), 2);
    EXPECT_NEAR(intervals[0].toObject().value("startS").toDouble(), 1.0, 0.02);
    EXPECT_NEAR(intervals[0].toObject().value("endS").toDouble(), 2.5, 0.02);

    result = runVelumCli({"passes", media.truncatedMp4});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardOutput.isEmpty());
}
