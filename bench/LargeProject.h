#pragma once

// The large project of the benchmarks, as documents in memory: 40 clips of
// 500 words each, 20,000 words in all, with every kind of cut and token
// (silences, band pauses, hidden trims, noises, kept events, fillers, seams,
// chatter, kept tics and repeats, merged islands, a retake in every clip).

#include "review/ReviewBundle.h"

namespace velum::bench {

inline constexpr int clipCount = 40;
inline constexpr int wordsPerClip = 500;

inline ProcessPipeline::ReviewDocuments largeProject()
{
    ProcessPipeline::ReviewDocuments d;
    d.probe.schemaVersion = 2;
    d.cuts = C3Cuts{.params = C3Cuts::Params{.seamTightnessMs = 120}};
    d.takes = C2Takes{.schemaVersion = 2};
    d.seams = C3Seams{.schemaVersion = 2};
    d.order = ClipOrder{};
    for (int c = 0; c < clipCount; ++c) {
        const QString id = QStringLiteral("%1").arg(c, 64, 16, QLatin1Char('0'));
        C1Transcript::Clip clip{.clipId = id, .filename = QStringLiteral("take %1.mov").arg(c), .language = "en"};
        C3Cuts::Clip cleanup{.clipId = id, .filename = clip.filename};
        C3Seams::Clip seams{.clipId = id};
        double t = 0.4;
        for (int i = 0; i < wordsPerClip; ++i) {
            const bool endOfSentence = i % 11 == 10;
            clip.words.push_back(TimedWord{.text = endOfSentence ? "done." : "word", .start = t, .end = t + 0.28,
                                           .isFiller = i % 37 == 5});
            const double gap = i % 23 == 0 ? 1.2 : (i % 7 == 0 ? 0.45 : 0.12);
            if (i % 23 == 0)
                cleanup.silenceCuts.push_back({i, t + 0.35, t + 0.28 + gap - 0.05, 900});
            else if (i % 7 == 0)
                cleanup.bandPauses.push_back({i, t + 0.32, t + 0.28 + gap - 0.04, 0});
            if (i % 13 == 0)
                cleanup.hiddenSilenceCuts.push_back({i, t + 0.29, t + 0.31, 20});
            if (i % 97 == 50)
                cleanup.noiseCuts.push_back({i, t + 0.3, t + 0.36, "[cough]"});
            if (i % 89 == 40)
                cleanup.keptAudioEvents.push_back({i, t + 0.3, t + 0.34, "[laughter]"});
            if (i % 37 == 5)
                cleanup.fillerCuts.push_back({i, i + 1, t, t + 0.28, "um"});
            if (i % 19 == 3) {
                seams.seams.push_back({i, C3Seams::Edge::trailing, 0.04});
                seams.seams.push_back({i + 2, C3Seams::Edge::leading, 0.03});
            }
            t += 0.28 + gap;
        }
        cleanup.chatterCuts.push_back({100, 112, 0, 0, "off topic"});
        cleanup.keptTics = {20, 60, 140};
        cleanup.keptMicroRepeats.push_back({300, 302, 0, 0, "I I"});
        cleanup.mergedIslands.push_back({200, clip.words[201].start - 0.01, clip.words[203].end + 0.01, 0, std::nullopt});
        d.takes->cuts.push_back(C2Takes::Cut{.clipId = id, .wordStart = 400, .wordEnd = 430, .reason = "retake"});
        d.probe.clips.push_back(C0Probe::Clip{.clipId = id, .filename = clip.filename, .path = "/footage/" + clip.filename,
                                              .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok,
                                              .media = ClipMedia{.clipId = id, .durationS = t + 1.5}});
        d.order->timelineOrder.push_back(id);
        d.transcript.clips.push_back(std::move(clip));
        d.cuts->clips.push_back(std::move(cleanup));
        d.seams->clips.push_back(std::move(seams));
    }
    return d;
}

} // namespace velum::bench
