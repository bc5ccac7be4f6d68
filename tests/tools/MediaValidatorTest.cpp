#include "tools/MediaValidator.h"

#include "support/Async.h"
#include "support/MediaSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

using namespace velum;

static void PrintTo(const QString &text, std::ostream *os) { *os << '"' << text.toStdString() << '"'; }
using velum::test::awaitTask;
using velum::test::MediaSamples;
using velum::test::TempDir;
using Outcome = MediaValidator::Outcome;
using Role = ProjectFileRole;
using State = ProjectFileState;

namespace {

Outcome validate(const QString &path, Role role, std::optional<QString> clipID = std::nullopt,
                 ProcessRunner runner = ProcessRunner())
{
    return awaitTask(MediaValidator::validate(QUrl::fromLocalFile(path), role, std::move(clipID), std::move(runner)));
}

QString sha256Of(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return QString::fromLatin1(QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex());
}

// A runner that sees only `folder`, holding links to the named real tools
// and whatever else the test put there.
ProcessRunner runnerWithOnly(const TempDir &folder, const QStringList &realTools)
{
    for (const QString &tool : realTools)
        QFile::link(QStandardPaths::findExecutable(tool), folder.file(tool));
    ProcessRunner::Locations locations;
    locations.bundledDirectory = folder.file("no-bundle");
    locations.searchPath = folder.path();
    locations.extraDirectories = {};
    return ProcessRunner(locations);
}

const QString noAudioNote = QStringLiteral("No audio — will sync by order only");

} // namespace

TEST(MediaValidator, AGoodTakeIsOkWithItsMediaNamedByItsBytes)
{
    const auto &media = MediaSamples::get();
    const Outcome outcome = validate(media.videoWithAudio, Role::aRoll);
    EXPECT_EQ(outcome.state, State::ok);
    EXPECT_FALSE(outcome.note);
    ASSERT_TRUE(outcome.media);
    const ClipMedia &clip = *outcome.media;
    EXPECT_EQ(clip.clipId, sha256Of(media.videoWithAudio));
    EXPECT_NEAR(clip.durationS, 4.0, 0.05);
    EXPECT_EQ(clip.fps, 25.0);
    EXPECT_EQ(clip.width, 320);
    EXPECT_EQ(clip.height, 240);
    EXPECT_EQ(clip.videoCodec, QStringLiteral("h264"));
    EXPECT_EQ(clip.audioCodec, QStringLiteral("aac"));
    EXPECT_EQ(clip.audioSampleRate, 48000);
    EXPECT_EQ(clip.audioChannels, 1);
    ASSERT_TRUE(clip.startTimecode);
    EXPECT_EQ(clip.startTimecode->text, QStringLiteral("01:00:00:00"));

    // A known identifier is taken as given; the same file as b-roll is ok too.
    const Outcome named = validate(media.videoWithAudio, Role::bRoll, QStringLiteral("clip-7"));
    EXPECT_EQ(named.state, State::ok);
    ASSERT_TRUE(named.media);
    EXPECT_EQ(named.media->clipId, QStringLiteral("clip-7"));
}

TEST(MediaValidator, UnreadableAndTooShortFilesFailWithoutMedia)
{
    const auto &media = MediaSamples::get();
    for (const QString &path : {media.textNamedMp4, media.truncatedMp4, media.folder + "/absent.mov"}) {
        for (const Role role : {Role::aRoll, Role::externalAudio, Role::bRoll}) {
            EXPECT_EQ(validate(path, role), (Outcome{State::failed, QStringLiteral("Could not read this file"), std::nullopt}))
                << path.toStdString();
        }
    }
    EXPECT_EQ(validate(media.tooShort, Role::bRoll),
              (Outcome{State::failed, QStringLiteral("Too short to use"), std::nullopt}));
}

TEST(MediaValidator, RolesNeedTheirStreams)
{
    const auto &media = MediaSamples::get();

    // Pictures alone cannot be external audio; the facts still come along.
    Outcome outcome = validate(media.videoOnly, Role::externalAudio);
    EXPECT_EQ(outcome.state, State::failed);
    EXPECT_EQ(outcome.note, QStringLiteral("No audio stream"));
    ASSERT_TRUE(outcome.media);
    EXPECT_EQ(outcome.media->videoCodec, QStringLiteral("h264"));

    // Sound alone cannot be a picture role, and never carries a frame rate.
    for (const Role role : {Role::aRoll, Role::bRoll}) {
        outcome = validate(media.audioOnly, role);
        EXPECT_EQ(outcome.state, State::failed);
        EXPECT_EQ(outcome.note, QStringLiteral("No video stream"));
        ASSERT_TRUE(outcome.media);
        EXPECT_FALSE(outcome.media->fps);
        EXPECT_FALSE(outcome.media->width);
        EXPECT_FALSE(outcome.media->height);
        EXPECT_EQ(outcome.media->audioSampleRate, 44100);
        EXPECT_EQ(outcome.media->audioChannels, 2);
    }

    // A recorder's file is fine external audio, with its time reference.
    outcome = validate(media.broadcastWave, Role::externalAudio);
    EXPECT_EQ(outcome.state, State::ok);
    ASSERT_TRUE(outcome.media && outcome.media->startTimecode);
    EXPECT_EQ(outcome.media->startTimecode->source, MediaTimecode::Source::bwfTimeReference);
    EXPECT_FALSE(outcome.media->fps);

    // A take without sound can still be cut, and syncs by order; b-roll
    // needs no sound at all.
    outcome = validate(media.videoOnly, Role::aRoll);
    EXPECT_EQ(outcome.state, State::warning);
    EXPECT_EQ(outcome.note, noAudioNote);
    EXPECT_TRUE(outcome.media);
    EXPECT_EQ(validate(media.videoOnly, Role::bRoll).state, State::ok);
}

TEST(MediaValidator, ExternalAudioWithPicturesIsNeverDecoded)
{
    const auto &media = MediaSamples::get();
    // An ffmpeg that leaves a mark when it is run at all.
    TempDir folder;
    const ProcessRunner runner = runnerWithOnly(folder, {"ffprobe"});
    const QString marker = folder.file("ffmpeg-ran");
    test::writeBytes(folder.file("ffmpeg"), "#!/bin/sh\ntouch '" + marker.toUtf8() + "'\nexit 1\n");
    QFile::setPermissions(folder.file("ffmpeg"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    const Outcome outcome = validate(media.heavilyDamaged, Role::externalAudio, std::nullopt, runner);
    EXPECT_EQ(outcome.state, State::failed); // it has no sound
    EXPECT_EQ(validate(media.videoWithAudio, Role::externalAudio, std::nullopt, runner).state, State::ok);
    EXPECT_FALSE(QFile::exists(marker));

    // The same ffmpeg is run for a picture role, and a decode that gives
    // nothing at all is a finding.
    EXPECT_EQ(validate(media.videoWithAudio, Role::bRoll, std::nullopt, runner).note,
              QStringLiteral("Only 0 of 100 frames could be decoded (100% loss), with 0 decode errors. "
                             "Re-export or re-download the file."));
    EXPECT_TRUE(QFile::exists(marker));
}

TEST(MediaValidator, DamagedPicturesFailButKeepTheirMedia)
{
    const auto &media = MediaSamples::get();
    for (const QString &path : {media.heavilyDamaged, media.truncatedMatroska}) {
        for (const Role role : {Role::aRoll, Role::bRoll}) {
            const Outcome outcome = validate(path, role);
            EXPECT_EQ(outcome.state, State::failed) << path.toStdString();
            ASSERT_TRUE(outcome.note);
            EXPECT_TRUE(outcome.note->startsWith("Only ")) << outcome.note->toStdString();
            EXPECT_TRUE(outcome.note->endsWith("decode errors. Re-export or re-download the file."));
            // The file is shorter than the sample, so no span is named.
            EXPECT_FALSE(outcome.note->contains("in the first"));
            ASSERT_TRUE(outcome.media);
            EXPECT_GT(outcome.media->durationS, 3.9);
            EXPECT_TRUE(outcome.media->videoCodec);
        }
    }
}

TEST(MediaValidator, MinorDamageWarnsAndJoinsTheNotes)
{
    const auto &media = MediaSamples::get();
    const auto report = awaitTask(FFmpegRunner::checkIntegrity(QUrl::fromLocalFile(media.lightlyDamaged), 60));
    ASSERT_EQ(report.verdict(), FFmpegRunner::DecodeIntegrity::Verdict::warning)
        << report.decodedFrames << " of " << report.expectedFrames << ", " << report.decodeErrorLines << " errors";

    // b-roll: the report's note alone.
    Outcome outcome = validate(media.lightlyDamaged, Role::bRoll);
    EXPECT_EQ(outcome.state, State::warning);
    EXPECT_EQ(outcome.note, report.note());
    EXPECT_TRUE(outcome.note->startsWith(QStringLiteral("Minor decode issues — ")));
    EXPECT_TRUE(outcome.media);

    // A take without sound: both notes, the report's first.
    outcome = validate(media.lightlyDamaged, Role::aRoll);
    EXPECT_EQ(outcome.state, State::warning);
    EXPECT_EQ(outcome.note, *report.note() + QStringLiteral(" · ") + noAudioNote);
}

TEST(MediaValidator, MissingToolsHaveTheirOwnOutcomes)
{
    const auto &media = MediaSamples::get();
    {
        // Without ffprobe nothing can be read.
        TempDir folder;
        const ProcessRunner runner = runnerWithOnly(folder, {"ffmpeg"});
        for (const Role role : {Role::aRoll, Role::externalAudio, Role::bRoll})
            EXPECT_EQ(validate(media.videoWithAudio, role, std::nullopt, runner),
                      (Outcome{State::failed, QStringLiteral("Could not read this file"), std::nullopt}));
    }
    {
        // Without ffmpeg the integrity step finds nothing: even a damaged
        // file stands ok.
        TempDir folder;
        const ProcessRunner runner = runnerWithOnly(folder, {"ffprobe"});
        const Outcome outcome = validate(media.truncatedMatroska, Role::bRoll, std::nullopt, runner);
        EXPECT_EQ(outcome.state, State::ok);
        EXPECT_FALSE(outcome.note);
        EXPECT_TRUE(outcome.media);
    }
}

TEST(MediaValidator, OutcomeJsonLeavesOutWhatIsAbsent)
{
    const Outcome outcome = validate(MediaSamples::get().videoOnly, Role::externalAudio, QStringLiteral("abc"));
    const QJsonObject object = json::encode(outcome, json::KeyStyle::fieldNames).toObject();
    EXPECT_EQ(object.value("state").toString(), QStringLiteral("failed"));
    EXPECT_EQ(object.value("note").toString(), QStringLiteral("No audio stream"));
    EXPECT_EQ(object.value("media").toObject().value("clipId").toString(), QStringLiteral("abc"));
    EXPECT_FALSE(object.value("media").toObject().contains("audioCodec"));
    EXPECT_EQ(json::decode<Outcome>(object, json::KeyStyle::fieldNames), outcome);
}
