#pragma once

// The analysis document of one published video a style profile learns from:
// what was said and when, where the pauses and cuts lie, how the video is
// built. The service computes every number; the client carries the document
// and stores it in the profile's analysis folder as "<video id>.json".
//
// Read and written with the stage coder: snake-case keys, ISO 8601 dates.
// Fields are required unless optional; an unknown enumeration text (a signal
// status, a label source, a structure source) makes the document unreadable.

#include "model/Json.h"
#include "stages/C1Transcript.h"
#include "stages/C3Cuts.h"
#include "stages/Extraction.h"
#include "tools/FFmpegRunner.h"

#include <QDateTime>
#include <QString>

#include <map>
#include <optional>
#include <vector>

namespace velum {

// Pause statistics of the speech.
namespace SpeechMetrics {

struct HistogramBin {
    double fromMs = 0;
    std::optional<double> toMs; // none: the last bin, open above
    int count = 0;

    friend bool operator==(const HistogramBin &, const HistogramBin &) = default;
};

// A pause and the words around it.
struct PauseEvent {
    double t = 0;
    double ms = 0;
    QString before;
    QString after;

    friend bool operator==(const PauseEvent &, const PauseEvent &) = default;
};

struct PauseStats {
    int count = 0;
    double p50Ms = 0;
    double p90Ms = 0;
    double maxMs = 0;
    double dramaticThresholdMs = 0;
    int dramaticCount = 0;
    double dramaticPerMin = 0;
    std::vector<HistogramBin> histogram;
    std::vector<PauseEvent> events;
    std::optional<std::vector<PauseEvent>> holes;

    friend bool operator==(const PauseStats &, const PauseStats &) = default;
};

} // namespace SpeechMetrics

// Seam and cut statistics of the edit.
namespace RhythmMetrics {

struct SeamEvent {
    double t = 0;
    double gapMs = 0;
    QString before;
    QString after;

    friend bool operator==(const SeamEvent &, const SeamEvent &) = default;
};

struct SeamStats {
    int count = 0;
    double medianMs = 0;
    double p90Ms = 0;
    std::vector<SeamEvent> events;

    friend bool operator==(const SeamStats &, const SeamStats &) = default;
};

struct HandleStats {
    double p10Ms = 0;
    double p50Ms = 0;
    double p90Ms = 0;

    friend bool operator==(const HandleStats &, const HandleStats &) = default;
};

struct CutStyleEvent {
    double t = 0;
    std::optional<double> beforeMs;
    std::optional<double> afterMs;
    bool midWord = false;
    bool sentenceEnd = false;

    friend bool operator==(const CutStyleEvent &, const CutStyleEvent &) = default;
};

struct CutStyleStats {
    int cutCount = 0;
    int handleN = 0;
    std::optional<HandleStats> beforeHandle;
    std::optional<HandleStats> afterHandle;
    double sentenceBoundaryRatio = 0;
    double midSpeechRatio = 0;
    double shotLengthP50S = 0;
    double shotLengthP90S = 0;
    std::vector<CutStyleEvent> events;

    friend bool operator==(const CutStyleStats &, const CutStyleStats &) = default;
};

} // namespace RhythmMetrics

struct Analysis {
    // The trailer shared with the stage documents: which tool made what.
    using Extraction = analysis::Extraction;

    struct Meta {
        QString filename;
        QString path;
        double durationS = 0;
        double fps = 0;
        int width = 0;
        int height = 0;
        std::optional<QString> videoCodec;
        std::optional<QString> audioCodec;
        qint64 sizeBytes = 0;
        std::optional<QString> language;
        std::optional<QDateTime> publishedAt;
        QDateTime ingestedAt;

        friend bool operator==(const Meta &, const Meta &) = default;
    };

    struct FillerBlock {
        int count = 0;
        double perMin = 0;
        std::map<QString, int> byText;
        LabelSource source = LabelSource::llm;

        friend bool operator==(const FillerBlock &, const FillerBlock &) = default;
    };

    struct SuspectedFillerBlock {
        int count = 0;
        double perMin = 0;

        friend bool operator==(const SuspectedFillerBlock &, const SuspectedFillerBlock &) = default;
    };

    struct TranscriptBlock {
        std::vector<TimedWord> words;
        double wpm = 0;
        double activeSpeechS = 0;
        double speechDensity = 0;
        FillerBlock fillers;
        std::optional<SuspectedFillerBlock> suspectedFillers;

        friend bool operator==(const TranscriptBlock &, const TranscriptBlock &) = default;
    };

    struct CutsBlock {
        std::vector<FFmpegRunner::DetectedCut> events;
        double cutsPerMin = 0;
        int shotCount = 0;
        double aslS = 0; // average shot length
        double mslS = 0; // median shot length
        double minClipS = 0;
        double thresholdScore = 0;

        friend bool operator==(const CutsBlock &, const CutsBlock &) = default;
    };

    struct StructureBlock {
        enum class Source { llm, heuristic };

        struct Span {
            double startS = 0;
            double endS = 0;
            std::optional<QString> label;

            friend bool operator==(const Span &, const Span &) = default;
        };

        std::optional<Span> hook;
        std::optional<Span> outro;
        std::vector<Span> cta;
        std::vector<Span> sponsors;
        Source source = Source::llm;

        friend bool operator==(const StructureBlock &, const StructureBlock &) = default;
    };

    struct BrollBlock {
        std::vector<QString> spans;

        friend bool operator==(const BrollBlock &, const BrollBlock &) = default;
    };

    int schemaVersion = 0;
    QString videoId; // the content hash of the video
    Meta meta;
    std::optional<TranscriptBlock> transcript;
    std::optional<SpeechMetrics::PauseStats> pauses;
    std::optional<CutsBlock> cuts;
    std::optional<RhythmMetrics::SeamStats> seams;
    std::optional<RhythmMetrics::CutStyleStats> cutStyle;
    std::optional<StructureBlock> structure;
    std::optional<BrollBlock> broll;
    Extraction extraction;

    friend bool operator==(const Analysis &, const Analysis &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct Fields<SpeechMetrics::HistogramBin> {
    static constexpr auto list = std::tuple{
        field("fromMs", &SpeechMetrics::HistogramBin::fromMs),
        field("toMs", &SpeechMetrics::HistogramBin::toMs),
        field("count", &SpeechMetrics::HistogramBin::count),
    };
};

template <>
struct Fields<SpeechMetrics::PauseEvent> {
    static constexpr auto list = std::tuple{
        field("t", &SpeechMetrics::PauseEvent::t),
        field("ms", &SpeechMetrics::PauseEvent::ms),
        field("before", &SpeechMetrics::PauseEvent::before),
        field("after", &SpeechMetrics::PauseEvent::after),
    };
};

template <>
struct Fields<SpeechMetrics::PauseStats> {
    static constexpr auto list = std::tuple{
        field("count", &SpeechMetrics::PauseStats::count),
        field("p50Ms", &SpeechMetrics::PauseStats::p50Ms),
        field("p90Ms", &SpeechMetrics::PauseStats::p90Ms),
        field("maxMs", &SpeechMetrics::PauseStats::maxMs),
        field("dramaticThresholdMs", &SpeechMetrics::PauseStats::dramaticThresholdMs),
        field("dramaticCount", &SpeechMetrics::PauseStats::dramaticCount),
        field("dramaticPerMin", &SpeechMetrics::PauseStats::dramaticPerMin),
        field("histogram", &SpeechMetrics::PauseStats::histogram),
        field("events", &SpeechMetrics::PauseStats::events),
        field("holes", &SpeechMetrics::PauseStats::holes),
    };
};

template <>
struct Fields<RhythmMetrics::SeamEvent> {
    static constexpr auto list = std::tuple{
        field("t", &RhythmMetrics::SeamEvent::t),
        field("gapMs", &RhythmMetrics::SeamEvent::gapMs),
        field("before", &RhythmMetrics::SeamEvent::before),
        field("after", &RhythmMetrics::SeamEvent::after),
    };
};

template <>
struct Fields<RhythmMetrics::SeamStats> {
    static constexpr auto list = std::tuple{
        field("count", &RhythmMetrics::SeamStats::count),
        field("medianMs", &RhythmMetrics::SeamStats::medianMs),
        field("p90Ms", &RhythmMetrics::SeamStats::p90Ms),
        field("events", &RhythmMetrics::SeamStats::events),
    };
};

template <>
struct Fields<RhythmMetrics::HandleStats> {
    static constexpr auto list = std::tuple{
        field("p10Ms", &RhythmMetrics::HandleStats::p10Ms),
        field("p50Ms", &RhythmMetrics::HandleStats::p50Ms),
        field("p90Ms", &RhythmMetrics::HandleStats::p90Ms),
    };
};

template <>
struct Fields<RhythmMetrics::CutStyleEvent> {
    static constexpr auto list = std::tuple{
        field("t", &RhythmMetrics::CutStyleEvent::t),
        field("beforeMs", &RhythmMetrics::CutStyleEvent::beforeMs),
        field("afterMs", &RhythmMetrics::CutStyleEvent::afterMs),
        field("midWord", &RhythmMetrics::CutStyleEvent::midWord),
        field("sentenceEnd", &RhythmMetrics::CutStyleEvent::sentenceEnd),
    };
};

template <>
struct Fields<RhythmMetrics::CutStyleStats> {
    static constexpr auto list = std::tuple{
        field("cutCount", &RhythmMetrics::CutStyleStats::cutCount),
        field("handleN", &RhythmMetrics::CutStyleStats::handleN),
        field("beforeHandle", &RhythmMetrics::CutStyleStats::beforeHandle),
        field("afterHandle", &RhythmMetrics::CutStyleStats::afterHandle),
        field("sentenceBoundaryRatio", &RhythmMetrics::CutStyleStats::sentenceBoundaryRatio),
        field("midSpeechRatio", &RhythmMetrics::CutStyleStats::midSpeechRatio),
        field("shotLengthP50S", &RhythmMetrics::CutStyleStats::shotLengthP50S),
        field("shotLengthP90S", &RhythmMetrics::CutStyleStats::shotLengthP90S),
        field("events", &RhythmMetrics::CutStyleStats::events),
    };
};

template <>
struct EnumTexts<Analysis::StructureBlock::Source> {
    static constexpr std::array values{
        std::pair{Analysis::StructureBlock::Source::llm, "llm"},
        std::pair{Analysis::StructureBlock::Source::heuristic, "heuristic"},
    };
};

template <>
struct Fields<Analysis::Meta> {
    static constexpr auto list = std::tuple{
        field("filename", &Analysis::Meta::filename),
        field("path", &Analysis::Meta::path),
        field("durationS", &Analysis::Meta::durationS),
        field("fps", &Analysis::Meta::fps),
        field("width", &Analysis::Meta::width),
        field("height", &Analysis::Meta::height),
        field("videoCodec", &Analysis::Meta::videoCodec),
        field("audioCodec", &Analysis::Meta::audioCodec),
        field("sizeBytes", &Analysis::Meta::sizeBytes),
        field("language", &Analysis::Meta::language),
        field("publishedAt", &Analysis::Meta::publishedAt),
        field("ingestedAt", &Analysis::Meta::ingestedAt),
    };
};

template <>
struct Fields<Analysis::FillerBlock> {
    static constexpr auto list = std::tuple{
        field("count", &Analysis::FillerBlock::count),
        field("perMin", &Analysis::FillerBlock::perMin),
        field("byText", &Analysis::FillerBlock::byText),
        field("source", &Analysis::FillerBlock::source),
    };
};

template <>
struct Fields<Analysis::SuspectedFillerBlock> {
    static constexpr auto list = std::tuple{
        field("count", &Analysis::SuspectedFillerBlock::count),
        field("perMin", &Analysis::SuspectedFillerBlock::perMin),
    };
};

template <>
struct Fields<Analysis::TranscriptBlock> {
    static constexpr auto list = std::tuple{
        field("words", &Analysis::TranscriptBlock::words),
        field("wpm", &Analysis::TranscriptBlock::wpm),
        field("activeSpeechS", &Analysis::TranscriptBlock::activeSpeechS),
        field("speechDensity", &Analysis::TranscriptBlock::speechDensity),
        field("fillers", &Analysis::TranscriptBlock::fillers),
        field("suspectedFillers", &Analysis::TranscriptBlock::suspectedFillers),
    };
};

template <>
struct Fields<Analysis::CutsBlock> {
    static constexpr auto list = std::tuple{
        field("events", &Analysis::CutsBlock::events),
        field("cutsPerMin", &Analysis::CutsBlock::cutsPerMin),
        field("shotCount", &Analysis::CutsBlock::shotCount),
        field("aslS", &Analysis::CutsBlock::aslS),
        field("mslS", &Analysis::CutsBlock::mslS),
        field("minClipS", &Analysis::CutsBlock::minClipS),
        field("thresholdScore", &Analysis::CutsBlock::thresholdScore),
    };
};

template <>
struct Fields<Analysis::StructureBlock::Span> {
    static constexpr auto list = std::tuple{
        field("startS", &Analysis::StructureBlock::Span::startS),
        field("endS", &Analysis::StructureBlock::Span::endS),
        field("label", &Analysis::StructureBlock::Span::label),
    };
};

template <>
struct Fields<Analysis::StructureBlock> {
    static constexpr auto list = std::tuple{
        field("hook", &Analysis::StructureBlock::hook),
        field("outro", &Analysis::StructureBlock::outro),
        field("cta", &Analysis::StructureBlock::cta),
        field("sponsors", &Analysis::StructureBlock::sponsors),
        field("source", &Analysis::StructureBlock::source),
    };
};

template <>
struct Fields<Analysis::BrollBlock> {
    static constexpr auto list = std::tuple{
        field("spans", &Analysis::BrollBlock::spans),
    };
};

template <>
struct Fields<Analysis> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &Analysis::schemaVersion),
        field("videoId", &Analysis::videoId),
        field("meta", &Analysis::meta),
        field("transcript", &Analysis::transcript),
        field("pauses", &Analysis::pauses),
        field("cuts", &Analysis::cuts),
        field("seams", &Analysis::seams),
        field("cutStyle", &Analysis::cutStyle),
        field("structure", &Analysis::structure),
        field("broll", &Analysis::broll),
        field("extraction", &Analysis::extraction),
    };
};

} // namespace velum::json
