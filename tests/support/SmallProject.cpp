#include "support/SmallProject.h"

#include "review/ReviewEdits.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "stages/C1Transcript.h"
#include "stages/C3Cuts.h"

namespace velum::test {

ClipMedia cameraMedia(const QString &clipId, double durationS, double fps, int width, int height)
{
    return ClipMedia{.clipId = clipId, .durationS = durationS, .fps = fps, .width = width, .height = height,
                     .videoCodec = QStringLiteral("h264"), .audioCodec = QStringLiteral("aac"),
                     .audioSampleRate = 48000, .audioChannels = 2};
}

void writeSmallProject(const TempDir &dir, const SmallProjectOptions &options)
{
    const auto media = [&](const QString &name) { return options.mediaFolder + QLatin1Char('/') + name; };
    if (options.placeholders) {
        for (const QString name : {"a take.mov", "b.mov", "mic.wav"})
            writeBytes(media(name), "placeholder");
    }
    const QDateTime now = json::nowWholeSeconds();
    C1Transcript transcript{.schemaVersion = 1, .projectId = "p", .createdAt = now};
    for (const QString id : {"a", "b"}) {
        C1Transcript::Clip clip{.clipId = id, .filename = id + " take.mov", .language = "en"};
        const int count = id == "a" ? 8 : 4;
        for (int i = 0; i < count; ++i)
            clip.words.push_back(TimedWord{.text = i == 2 ? "um" : "word", .start = 0.5 * i, .end = 0.5 * i + 0.3,
                                           .isFiller = i == 2});
        transcript.clips.push_back(clip);
    }
    ClipMedia aMedia{.clipId = "a", .durationS = 6, .fps = 25, .width = 1920, .height = 1080, .videoCodec = "h264"};
    if (options.cameraSound) {
        aMedia.audioCodec = "aac";
        aMedia.audioSampleRate = 48000;
        aMedia.audioChannels = 2;
    }
    C0Probe probe{.schemaVersion = 2, .projectId = "p", .createdAt = now};
    probe.clips.push_back(C0Probe::Clip{.clipId = "a", .filename = "a take.mov", .path = media("a take.mov"),
                                        .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok,
                                        .media = aMedia});
    probe.clips.push_back(C0Probe::Clip{.clipId = "b", .filename = "b take.mov", .path = media("b.mov"),
                                        .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok,
                                        .media = ClipMedia{.clipId = "b", .durationS = 3, .fps = 24, .width = 1080,
                                                           .height = 1920, .videoCodec = "h264"}});
    probe.clips.push_back(C0Probe::Clip{
        .clipId = "mic", .filename = "mic.wav", .path = media("mic.wav"), .role = ProjectFileRole::externalAudio,
        .state = ProjectFileState::ok,
        .media = ClipMedia{.clipId = "mic", .durationS = 20, .audioCodec = "pcm_s24le", .audioSampleRate = 48000,
                           .audioChannels = 1,
                           .startTimecode = MediaTimecode{.value = 172800000, .timescale = 48000,
                                                          .source = MediaTimecode::Source::bwfTimeReference,
                                                          .text = "01:00:00:00"}}});
    C05Sync sync{.schemaVersion = 1, .projectId = "p", .createdAt = now, .externalClipId = "mic"};
    sync.clips.push_back(C05Sync::Clip{.clipId = "a", .filename = "a take.mov", .offsetS = 1.5, .confidence = 9,
                                       .syncSource = C05Sync::SyncSource::crossCorrelation, .isSynced = true,
                                       .shootingIndex = 0});
    sync.clips.push_back(C05Sync::Clip{.clipId = "b", .filename = "b take.mov", .shootingIndex = 1});
    C3Cuts cuts{.schemaVersion = 1, .projectId = "p", .createdAt = now,
                .params = C3Cuts::Params{.seamTightnessMs = 100, .source = "profile"}};
    C3Cuts::Clip cleanup{.clipId = "a", .filename = "a take.mov"};
    cleanup.fillerCuts = {C3Cuts::WordRange{.wordStart = 2, .wordEnd = 3, .startS = 1, .endS = 1.3, .text = "um"}};
    cuts.clips.push_back(cleanup);

    StageCoder::write(transcript, dir.file("c1_transcript.json"));
    StageCoder::write(probe, dir.file("c0_probe.json"));
    StageCoder::write(sync, dir.file("c05_sync.json"));
    StageCoder::write(cuts, dir.file("c3_cuts.json"));
    StageCoder::write(ReviewEdits{.cuts = {{"a", 5, 7, std::nullopt}}}, dir.file("review_edits.json"));
}

} // namespace velum::test
