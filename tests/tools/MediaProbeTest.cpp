#include "tools/FFmpegRunner.h"

#include "model/FCPXMLTime.h"

#include "support/Async.h"
#include "support/MediaSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QTimeZone>

#include <cmath>

using namespace velum;
using velum::test::awaitTask;
using velum::test::MediaSamples;
using velum::test::TempDir;

namespace {

FFmpegRunner::Probe probeFile(const QString &path, ProcessRunner runner = ProcessRunner())
{
    return awaitTask(FFmpegRunner::probe(QUrl::fromLocalFile(path), std::move(runner)));
}

// A runner that finds nothing but what lies in `folder`.
ProcessRunner runnerSeeing(const QString &folder)
{
    ProcessRunner::Locations locations;
    locations.bundledDirectory = folder + QStringLiteral("/bundled-absent");
    locations.searchPath = folder;
    locations.extraDirectories = {};
    return ProcessRunner(locations);
}

FFmpegRunner::Probe probeOfJson(const char *text)
{
    return FFmpegRunner::probeFrom(FFProbeOutput::decode(QByteArray(text)));
}

QDateTime utc(int y, int mo, int d, int h, int mi, int s, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), QTimeZone::utc());
}

} // namespace

// --- Real files -----------------------------------------------------------------

TEST(FFmpegProbe, AMovieWithSoundTimecodeAndCreationTime)
{
    const auto &media = MediaSamples::get();
    const auto probe = probeFile(media.videoWithAudio);

    EXPECT_NEAR(probe.durationS, 4.0, 0.05);
    EXPECT_DOUBLE_EQ(probe.fps, 25.0);
    EXPECT_EQ(probe.width, 320);
    EXPECT_EQ(probe.height, 240);
    EXPECT_EQ(probe.videoCodec, QStringLiteral("h264"));
    EXPECT_EQ(probe.audioCodec, QStringLiteral("aac"));
    EXPECT_EQ(probe.sampleRate, 48000);
    EXPECT_EQ(probe.channels, 1);
    EXPECT_EQ(probe.sizeBytes, QFileInfo(media.videoWithAudio).size());
    EXPECT_EQ(probe.creationTime, utc(2024, 3, 1, 9, 30, 0));
    EXPECT_EQ(probe.nbFrames, 100);
    EXPECT_EQ(probe.expectedVideoFrames(), 100);

    // One hour at 25 fps: 90,000 frames of 100/2500 s.
    ASSERT_TRUE(probe.startTimecode);
    EXPECT_EQ(probe.startTimecode->value, 9'000'000);
    EXPECT_EQ(probe.startTimecode->timescale, 2500);
    EXPECT_EQ(probe.startTimecode->source, MediaTimecode::Source::timecodeTrack);
    EXPECT_EQ(probe.startTimecode->text, QStringLiteral("01:00:00:00"));
}

TEST(FFmpegProbe, SoundOnlyFilesHaveNoPictureFacts)
{
    const auto &media = MediaSamples::get();
    const auto probe = probeFile(media.audioOnly);
    EXPECT_NEAR(probe.durationS, 3.0, 0.1);
    EXPECT_EQ(probe.fps, 0);
    EXPECT_EQ(probe.width, 0);
    EXPECT_EQ(probe.height, 0);
    EXPECT_FALSE(probe.videoCodec);
    EXPECT_EQ(probe.audioCodec, QStringLiteral("aac"));
    EXPECT_EQ(probe.sampleRate, 44100);
    EXPECT_EQ(probe.channels, 2);
    EXPECT_FALSE(probe.nbFrames);
    EXPECT_FALSE(probe.expectedVideoFrames());
    EXPECT_FALSE(probe.startTimecode);

    const auto silent = probeFile(media.videoOnly);
    EXPECT_FALSE(silent.audioCodec);
    EXPECT_FALSE(silent.sampleRate);
    EXPECT_FALSE(silent.channels);
    EXPECT_EQ(silent.videoCodec, QStringLiteral("h264"));
    EXPECT_FALSE(silent.startTimecode);
}

TEST(FFmpegProbe, BroadcastWaveTimeReferenceIsAnExactSampleTime)
{
    const auto probe = probeFile(MediaSamples::get().broadcastWave);
    EXPECT_EQ(probe.audioCodec, QStringLiteral("pcm_s16le"));
    ASSERT_TRUE(probe.startTimecode);
    EXPECT_EQ(*probe.startTimecode,
              (MediaTimecode{172'800'000, 48000, MediaTimecode::Source::bwfTimeReference, QStringLiteral("01:00:00.000")}));
}

TEST(FFmpegProbe, DropFrameTimecodeAtNtscRate)
{
    const auto probe = probeFile(MediaSamples::get().dropFrame);
    EXPECT_NEAR(probe.fps, 29.97002997, 1e-8);
    ASSERT_TRUE(probe.startTimecode);
    // 108,000 frame numbers in an hour, less 2 in each of the 54 minutes not
    // divisible by ten: 107,892 frames of 1001/30000 s, which is one hour of
    // wall-clock time to within the 3.6 ms drop-frame leaves over.
    EXPECT_EQ(probe.startTimecode->value, 107'892 * 1001);
    EXPECT_EQ(probe.startTimecode->timescale, 30000);
    EXPECT_EQ(probe.startTimecode->text, QStringLiteral("01:00:00;00"));
    EXPECT_NEAR(double(probe.startTimecode->value) / double(probe.startTimecode->timescale), 3599.9964, 1e-9);
}

TEST(FFmpegProbe, UnreadableFilesFailWithTheToolsOutput)
{
    const auto &media = MediaSamples::get();
    for (const QString &path : {media.textNamedMp4, media.truncatedMp4}) {
        try {
            probeFile(path);
            ADD_FAILURE() << "expected a failure for " << path.toStdString();
        } catch (const ProcessRunner::FailureError &e) {
            const auto *failed = std::get_if<ProcessRunner::Failed>(&e.failure());
            ASSERT_TRUE(failed);
            EXPECT_EQ(failed->command, QStringLiteral("ffprobe"));
            EXPECT_NE(failed->status, 0);
            EXPECT_TRUE(failed->output.contains(QFileInfo(path).fileName())) << failed->output.toStdString();
            EXPECT_EQ(QString::fromUtf8(e.what()), QStringLiteral("Velum couldn’t process that file."));
        }
    }
}

TEST(FFmpegProbe, WithoutFfprobeTheToolIsNotFound)
{
    TempDir empty;
    EXPECT_FALSE(FFmpegRunner::ffprobePath(runnerSeeing(empty.path())));
    try {
        probeFile(MediaSamples::get().videoWithAudio, runnerSeeing(empty.path()));
        FAIL() << "expected toolNotFound";
    } catch (const ProcessRunner::FailureError &e) {
        const auto *missing = std::get_if<ProcessRunner::ToolNotFound>(&e.failure());
        ASSERT_TRUE(missing);
        EXPECT_EQ(missing->name, QStringLiteral("ffprobe"));
    }
}

TEST(FFmpegProbe, JsonFormUsesFieldNamesAndLeavesOutWhatIsAbsent)
{
    const auto probe = probeFile(MediaSamples::get().audioOnly);
    const QJsonObject object = json::encode(probe, json::KeyStyle::fieldNames).toObject();
    EXPECT_TRUE(object.contains("durationS"));
    EXPECT_TRUE(object.contains("sampleRate"));
    EXPECT_TRUE(object.contains("sizeBytes"));
    EXPECT_FALSE(object.contains("videoCodec"));
    EXPECT_FALSE(object.contains("startTimecode"));
    EXPECT_FALSE(object.contains("nbFrames"));
    EXPECT_EQ(json::decode<FFmpegRunner::Probe>(object, json::KeyStyle::fieldNames), probe);
    EXPECT_EQ(qHash(probe), qHash(json::decode<FFmpegRunner::Probe>(object, json::KeyStyle::fieldNames)));
}

// --- Reading ffprobe's JSON -------------------------------------------------------

TEST(FFProbeOutputDecoding, UnknownKeysAreIgnoredAndEverythingButFormatAndStreamsIsOptional)
{
    const auto probe = probeOfJson(R"({"format": {"probe_score": 100}, "streams": [{"index": 0}, {"disposition": {}}]})");
    EXPECT_EQ(probe, FFmpegRunner::Probe{});

    EXPECT_THROW(FFProbeOutput::decode(R"({"format": {}})"), json::DecodingError);
    EXPECT_THROW(FFProbeOutput::decode(R"({"streams": []})"), json::DecodingError);
    EXPECT_THROW(FFProbeOutput::decode(R"({"format": {}, "streams": [{"width": "wide"}]})"), json::DecodingError);
    EXPECT_THROW(FFProbeOutput::decode("[ffmpeg] not json"), json::DecodingError);
}

TEST(FFProbeOutputDecoding, StreamsAreChosenByTypeAndNumbersReadStrictly)
{
    const auto probe = probeOfJson(R"({
        "format": {"duration": "N/A", "size": "12 345"},
        "streams": [
            {"codec_name": "mystery"},
            {"codec_type": "data", "tags": {"timecode": "00:00:10:00"}},
            {"codec_type": "audio", "codec_name": "pcm_s24le", "sample_rate": "", "channels": 2},
            {"codec_type": "video", "codec_name": "prores", "width": 1920, "height": 1080,
             "r_frame_rate": "25/1", "avg_frame_rate": "0/0", "nb_frames": "many", "duration": "+12.5"},
            {"codec_type": "video", "codec_name": "mjpeg"}
        ]})");
    EXPECT_EQ(probe.videoCodec, QStringLiteral("prores"));
    EXPECT_EQ(probe.audioCodec, QStringLiteral("pcm_s24le"));
    // avg_frame_rate is present, so its 0/0 counts, not r_frame_rate.
    EXPECT_EQ(probe.fps, 0);
    // The format's duration is no number: the video stream's is taken.
    EXPECT_DOUBLE_EQ(probe.durationS, 12.5);
    EXPECT_EQ(probe.sizeBytes, 0);
    EXPECT_FALSE(probe.sampleRate);
    EXPECT_EQ(probe.channels, 2);
    EXPECT_FALSE(probe.nbFrames);
    // fps 0 and no frame count: nothing to expect, and no timecode reads.
    EXPECT_FALSE(probe.expectedVideoFrames());
    EXPECT_FALSE(probe.startTimecode);

    const auto counted = probeOfJson(R"({"format": {}, "streams": [
        {"codec_type": "video", "avg_frame_rate": "0/0", "nb_frames": "240"}]})");
    EXPECT_EQ(counted.expectedVideoFrames(), 240);
    const auto computed = probeOfJson(R"({"format": {"duration": "10.02"}, "streams": [
        {"codec_type": "video", "avg_frame_rate": "30000/1001", "nb_frames": "0"}]})");
    EXPECT_EQ(computed.nbFrames, 0);
    EXPECT_EQ(computed.expectedVideoFrames(), 300); // 10.02 × 29.97 = 300.3
}

TEST(FFProbeOutputDecoding, CreationTimeFromTheFormatElseTheVideoStream)
{
    EXPECT_EQ(probeOfJson(R"({"format": {"tags": {"creation_time": "2023-11-05T18:04:07.250000Z"}},
        "streams": [{"codec_type": "video", "tags": {"creation_time": "2001-01-01T00:00:00Z"}}]})")
                  .creationTime,
              utc(2023, 11, 5, 18, 4, 7, 250));
    EXPECT_EQ(probeOfJson(R"({"format": {}, "streams": [
        {"codec_type": "audio", "tags": {"creation_time": "2001-01-01T00:00:00Z"}},
        {"codec_type": "video", "tags": {"creation_time": "2022-06-30T23:00:00+02:00"}}]})")
                  .creationTime,
              utc(2022, 6, 30, 21, 0, 0));
    EXPECT_FALSE(probeOfJson(R"({"format": {"tags": {"creation_time": "yesterday"}}, "streams": []})").creationTime);
}

TEST(FFProbeOutputDecoding, StartTimecodeRulesInOrder)
{
    // A time reference wins over a timecode when it can be read with a rate.
    auto probe = probeOfJson(R"({"format": {"tags": {"time_reference": " 96000 ", "timecode": "01:00:00:00"}},
        "streams": [{"codec_type": "audio", "sample_rate": "48000"}, {"codec_type": "video", "avg_frame_rate": "25/1"}]})");
    ASSERT_TRUE(probe.startTimecode);
    EXPECT_EQ(*probe.startTimecode,
              (MediaTimecode{96000, 48000, MediaTimecode::Source::bwfTimeReference, QStringLiteral("00:00:02.000")}));

    // A zero reference, a reference that is no number, or one without a
    // sample rate falls through to the timecode.
    for (const char *text : {
             R"({"format": {"tags": {"time_reference": "0", "timecode": "00:00:01:00"}},
                 "streams": [{"codec_type": "audio", "sample_rate": "48000"}, {"codec_type": "video", "avg_frame_rate": "25/1"}]})",
             R"({"format": {"tags": {"time_reference": "12ab", "timecode": "00:00:01:00"}},
                 "streams": [{"codec_type": "audio", "sample_rate": "48000"}, {"codec_type": "video", "avg_frame_rate": "25/1"}]})",
             R"({"format": {"tags": {"time_reference": "96000", "timecode": "00:00:01:00"}},
                 "streams": [{"codec_type": "video", "avg_frame_rate": "25/1"}]})"}) {
        probe = probeOfJson(text);
        ASSERT_TRUE(probe.startTimecode) << text;
        EXPECT_EQ(probe.startTimecode->source, MediaTimecode::Source::timecodeTrack);
        EXPECT_EQ(probe.startTimecode->value, 2500); // 25 frames of 100/2500 s
    }

    // An all-zero format timecode is passed over for a stream's.
    probe = probeOfJson(R"({"format": {"tags": {"timecode": "00:00:00:00"}}, "streams": [
        {"codec_type": "video", "avg_frame_rate": "25/1", "tags": {"timecode": ""}},
        {"codec_type": "data", "tags": {"timecode": "01:00:00:00"}}]})");
    ASSERT_TRUE(probe.startTimecode);
    EXPECT_EQ(probe.startTimecode->text, QStringLiteral("01:00:00:00"));

    // Nothing usable: no start timecode at all.
    EXPECT_FALSE(probeOfJson(R"({"format": {"tags": {"timecode": "00:00:00:00"}}, "streams": [
        {"codec_type": "video", "avg_frame_rate": "25/1", "tags": {"timecode": "garbage"}}]})")
                     .startTimecode);
}

// --- Numbers, rates, dates and timecodes ---------------------------------------------

TEST(FFmpegNumbers, WholeTextStrictCLocale)
{
    EXPECT_EQ(FFmpegRunner::integer(u"42"), 42);
    EXPECT_EQ(FFmpegRunner::integer(u"+42"), 42);
    EXPECT_EQ(FFmpegRunner::integer(u"-42"), -42);
    EXPECT_EQ(FFmpegRunner::integer(u"9223372036854775807"), std::numeric_limits<qint64>::max());
    for (const char16_t *bad : {u"", u" 42", u"42 ", u"4 2", u"42.0", u"+-4", u"++4", u"-", u"+",
                                u"9223372036854775808", u"0x10", u"٤٢"})
        EXPECT_FALSE(FFmpegRunner::integer(bad)) << QString::fromUtf16(bad).toStdString();

    EXPECT_EQ(FFmpegRunner::number(u"4.000000"), 4.0);
    EXPECT_EQ(FFmpegRunner::number(u"-0.5"), -0.5);
    EXPECT_EQ(FFmpegRunner::number(u"+1e3"), 1000.0);
    for (const char16_t *bad : {u"", u"N/A", u"1,5", u" 1.5", u"1.5s", u"1e400", u"--1"})
        EXPECT_FALSE(FFmpegRunner::number(bad)) << QString::fromUtf16(bad).toStdString();
    EXPECT_EQ(FFmpegRunner::floatNumber(u"12.25"), 12.25f);
    EXPECT_FALSE(FFmpegRunner::floatNumber(u"1e50"));
}

TEST(FFmpegNumbers, FrameRates)
{
    EXPECT_NEAR(FFmpegRunner::frameRate(QStringLiteral("30000/1001")), 29.97002997, 1e-8);
    EXPECT_EQ(FFmpegRunner::frameRate(QStringLiteral("25/1")), 25);
    EXPECT_EQ(FFmpegRunner::frameRate(QStringLiteral("25")), 25);
    EXPECT_EQ(FFmpegRunner::frameRate(QStringLiteral("50//2")), 25); // empty pieces drop out
    EXPECT_EQ(FFmpegRunner::frameRate(QStringLiteral("0/0")), 0);
    EXPECT_EQ(FFmpegRunner::frameRate(QStringLiteral("24/0")), 0);
    EXPECT_EQ(FFmpegRunner::frameRate(QStringLiteral("fast")), 0);
    EXPECT_EQ(FFmpegRunner::frameRate(std::nullopt), 0);
}

TEST(FFmpegNumbers, DatesWithAndWithoutFractionsAndZones)
{
    EXPECT_EQ(FFmpegRunner::date(QStringLiteral("2024-03-01T09:30:00Z")), utc(2024, 3, 1, 9, 30, 0));
    EXPECT_EQ(FFmpegRunner::date(QStringLiteral("2024-03-01T09:30:00.123456Z")), utc(2024, 3, 1, 9, 30, 0, 123));
    EXPECT_EQ(FFmpegRunner::date(QStringLiteral("2024-03-01T09:30:00-05:00")), utc(2024, 3, 1, 14, 30, 0));
    EXPECT_EQ(FFmpegRunner::date(QStringLiteral("2024-03-01T09:30:00.5+0100")), utc(2024, 3, 1, 8, 30, 0, 500));
    for (const char *bad : {"2024-03-01T09:30:00", "2024-03-01 09:30:00Z", "2024-02-30T09:30:00Z",
                            "2024-03-01T09:30:00.Z", "2024-03-01T25:00:00Z", "2024-03-01T09:30:00Zjunk", ""})
        EXPECT_FALSE(FFmpegRunner::date(QString::fromLatin1(bad))) << bad;
    EXPECT_FALSE(FFmpegRunner::date(std::nullopt));
}

TEST(MediaTimecodeParse, NonDropAndDropFrame)
{
    auto tc = parseMediaTimecode(u"01:00:00;00", 29.97);
    ASSERT_TRUE(tc);
    EXPECT_EQ(tc->value, 107'892 * 1001);
    EXPECT_EQ(tc->timescale, 30000);

    // Every tenth minute keeps its frame numbers: 00:10:00;00 is 17,982.
    tc = parseMediaTimecode(u"00:10:00;00", 29.97);
    ASSERT_TRUE(tc);
    EXPECT_EQ(tc->value, 17'982 * 1001);
    // 60 fps drops four a minute: one minute is 3,600 − 4.
    tc = parseMediaTimecode(u"00:01:00;00", 59.94);
    ASSERT_TRUE(tc);
    EXPECT_EQ(tc->value, 3'596 * 1001);
    EXPECT_EQ(tc->timescale, 60000);

    tc = parseMediaTimecode(u"10:20:30:12", 24);
    ASSERT_TRUE(tc);
    EXPECT_EQ(tc->value, ((10 * 60 + 20) * 60 + 30) * 24 * 100 + 12 * 100);
    EXPECT_EQ(tc->timescale, 2400);
    EXPECT_EQ(tc->text, QStringLiteral("10:20:30:12"));

    // Exactly zero reads, and is passed over by the probe.
    tc = parseMediaTimecode(u"00:00:00:00", 25);
    ASSERT_TRUE(tc);
    EXPECT_EQ(tc->value, 0);

    EXPECT_FALSE(parseMediaTimecode(u"01:00:00;00", 25));   // drop-frame needs a multiple of 30
    EXPECT_FALSE(parseMediaTimecode(u"00:00:00:30", 29.97)); // frames must be below 30
    EXPECT_FALSE(parseMediaTimecode(u"00:00:00:00", 0));
    EXPECT_FALSE(parseMediaTimecode(u"00:00:00:00", -25));
    EXPECT_FALSE(parseMediaTimecode(u"00:60:00:00", 25));
    EXPECT_FALSE(parseMediaTimecode(u"00:00:60:00", 25));
    EXPECT_FALSE(parseMediaTimecode(u"-1:00:00:00", 25));
    EXPECT_FALSE(parseMediaTimecode(u"00:00:00", 25));
    EXPECT_FALSE(parseMediaTimecode(u"00:00:00:00:00", 25));
    EXPECT_FALSE(parseMediaTimecode(u"aa:00:00:00", 25));
    EXPECT_FALSE(parseMediaTimecode(u"99999999999999999:00:00:00", 25)); // too large for 64-bit time
    // Empty pieces drop out before counting.
    EXPECT_TRUE(parseMediaTimecode(u"01::00:00:00", 25));
}
