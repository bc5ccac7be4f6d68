#pragma once

// "c3_cuts.json": the cleanup of each clip: fillers, silences, noises and the
// parameters they were cut with. Word positions index the clip's words in the
// transcript of the same job; gaps sit after a word (-1: before the first).
// There is no version test: an older file that still decodes is used.

#include "model/Json.h"
#include "model/ProfilePolicy.h"
#include "model/Project.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <optional>
#include <vector>

namespace velum {

// Where a label came from.
enum class LabelSource { llm, mixed, lexicon };

// How the pause band was split between kept and removed pauses.
struct BandSplit {
    double keepRatio = 0;
    std::optional<double> splitMs;
    double rawRatePerMin = 0;
    std::optional<double> publishedRatePerMin;
    int rawBandCount = 0;
    int keptCount = 0;
    double survivingSpeechS = 0;
    QString source;

    friend bool operator==(const BandSplit &, const BandSplit &) = default;
};

struct C3Cuts {
    // Handle lengths around cuts, in milliseconds, as percentiles.
    struct CutStyleParams {
        double beforeP10Ms = 0;
        double beforeP50Ms = 0;
        double beforeP90Ms = 0;
        double afterP10Ms = 0;
        double afterP50Ms = 0;
        double afterP90Ms = 0;

        friend bool operator==(const CutStyleParams &, const CutStyleParams &) = default;
    };

    struct Params {
        double pauseBandMs = 0;
        double pauseThresholdMs = 0;
        double seamTightnessMs = 0; // the seam allowance
        double minClipS = 0;
        profile::PolicyMode hesitationMode = profile::PolicyMode::conditional;
        std::optional<profile::HesitationThresholds> hesitationThresholds;
        std::optional<std::vector<QString>> keepAllTokens;
        std::optional<CutStyleParams> cutStyle;
        QString source;

        friend bool operator==(const Params &, const Params &) = default;

        // The seam allowance in seconds, as the review uses it.
        double seamS() const { return seamTightnessMs / 1000; }
    };

    // Words `wordStart` up to one before `wordEnd`.
    struct WordRange {
        int wordStart = 0;
        int wordEnd = 0; // one past the last word
        double startS = 0;
        double endS = 0;
        QString text;

        friend bool operator==(const WordRange &, const WordRange &) = default;
    };

    struct Gap {
        int afterWord = 0; // -1: before the first word
        double startS = 0;
        double endS = 0;
        double removedMs = 0;
        std::optional<CutReason> reason;

        friend bool operator==(const Gap &, const Gap &) = default;
    };

    struct NoiseCut {
        int afterWord = 0;
        double startS = 0;
        double endS = 0;
        QString label;

        friend bool operator==(const NoiseCut &, const NoiseCut &) = default;
    };

    struct SeveredRemnant {
        int wordStart = 0;
        int wordEnd = 0;
        QString reason;
        CutReason absorbedInto = CutReason::retake;
        QString text;

        friend bool operator==(const SeveredRemnant &, const SeveredRemnant &) = default;
    };

    // What the review does with each list: filler cuts remove words as
    // `filler`, chatter cuts as `offScript`; silence cuts are removed pause
    // tokens and band pauses kept ones; words inside a merged island take the
    // island's reason; noise cuts and kept audio events become sound tokens;
    // kept tics and kept micro repeats show their words as kept tics. The
    // remaining lists are carried along. Lists that may be absent read as
    // empty.
    struct Clip {
        QString clipId;
        QString filename;
        std::vector<WordRange> fillerCuts;
        std::vector<WordRange> chatterCuts;
        std::vector<Gap> silenceCuts;
        std::vector<Gap> mergedIslands;
        LabelSource fillerSource = LabelSource::llm;
        std::vector<NoiseCut> noiseCuts;
        std::vector<Gap> hiddenSilenceCuts;
        std::vector<WordRange> demotedCuts;
        std::vector<WordRange> borderHesitations;
        std::vector<Gap> bandPauses;
        std::vector<int> keptTics;
        std::vector<WordRange> microRepeats;
        std::vector<SeveredRemnant> severedRemnants;
        std::vector<NoiseCut> keptAudioEvents;
        std::vector<WordRange> keptMicroRepeats;
        std::vector<WordRange> keptIslands;

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    int schemaVersion = 1;
    QString projectId;
    QDateTime createdAt;
    Params params;
    std::vector<Clip> clips;
    std::optional<BandSplit> bandSplit;
    analysis::Extraction extraction;

    friend bool operator==(const C3Cuts &, const C3Cuts &) = default;

    // The first clip with this identifier, pointing into this document.
    const Clip *clip(const QString &id) const &;
    const Clip *clip(const QString &id) const && = delete;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<LabelSource> {
    static constexpr std::array values{
        std::pair{LabelSource::llm, "llm"},
        std::pair{LabelSource::mixed, "mixed"},
        std::pair{LabelSource::lexicon, "lexicon"},
    };
};

template <>
struct Fields<BandSplit> {
    static constexpr auto list = std::tuple{
        field("keepRatio", &BandSplit::keepRatio),
        field("splitMs", &BandSplit::splitMs),
        field("rawRatePerMin", &BandSplit::rawRatePerMin),
        field("publishedRatePerMin", &BandSplit::publishedRatePerMin),
        field("rawBandCount", &BandSplit::rawBandCount),
        field("keptCount", &BandSplit::keptCount),
        field("survivingSpeechS", &BandSplit::survivingSpeechS),
        field("source", &BandSplit::source),
    };
};

template <>
struct Fields<C3Cuts::CutStyleParams> {
    static constexpr auto list = std::tuple{
        field("beforeP10Ms", &C3Cuts::CutStyleParams::beforeP10Ms),
        field("beforeP50Ms", &C3Cuts::CutStyleParams::beforeP50Ms),
        field("beforeP90Ms", &C3Cuts::CutStyleParams::beforeP90Ms),
        field("afterP10Ms", &C3Cuts::CutStyleParams::afterP10Ms),
        field("afterP50Ms", &C3Cuts::CutStyleParams::afterP50Ms),
        field("afterP90Ms", &C3Cuts::CutStyleParams::afterP90Ms),
    };
};

template <>
struct Fields<C3Cuts::Params> {
    static constexpr auto list = std::tuple{
        field("pauseBandMs", &C3Cuts::Params::pauseBandMs),
        field("pauseThresholdMs", &C3Cuts::Params::pauseThresholdMs),
        field("seamTightnessMs", &C3Cuts::Params::seamTightnessMs),
        field("minClipS", &C3Cuts::Params::minClipS),
        field("hesitationMode", &C3Cuts::Params::hesitationMode),
        field("hesitationThresholds", &C3Cuts::Params::hesitationThresholds),
        field("keepAllTokens", &C3Cuts::Params::keepAllTokens),
        field("cutStyle", &C3Cuts::Params::cutStyle),
        field("source", &C3Cuts::Params::source),
    };
};

template <>
struct Fields<C3Cuts::WordRange> {
    static constexpr auto list = std::tuple{
        field("wordStart", &C3Cuts::WordRange::wordStart),
        field("wordEnd", &C3Cuts::WordRange::wordEnd),
        field("startS", &C3Cuts::WordRange::startS),
        field("endS", &C3Cuts::WordRange::endS),
        field("text", &C3Cuts::WordRange::text),
    };
};

template <>
struct Fields<C3Cuts::Gap> {
    static constexpr auto list = std::tuple{
        field("afterWord", &C3Cuts::Gap::afterWord),
        field("startS", &C3Cuts::Gap::startS),
        field("endS", &C3Cuts::Gap::endS),
        field("removedMs", &C3Cuts::Gap::removedMs),
        field("reason", &C3Cuts::Gap::reason),
    };
};

template <>
struct Fields<C3Cuts::NoiseCut> {
    static constexpr auto list = std::tuple{
        field("afterWord", &C3Cuts::NoiseCut::afterWord),
        field("startS", &C3Cuts::NoiseCut::startS),
        field("endS", &C3Cuts::NoiseCut::endS),
        field("label", &C3Cuts::NoiseCut::label),
    };
};

template <>
struct Fields<C3Cuts::SeveredRemnant> {
    static constexpr auto list = std::tuple{
        field("wordStart", &C3Cuts::SeveredRemnant::wordStart),
        field("wordEnd", &C3Cuts::SeveredRemnant::wordEnd),
        field("reason", &C3Cuts::SeveredRemnant::reason),
        field("absorbedInto", &C3Cuts::SeveredRemnant::absorbedInto),
        field("text", &C3Cuts::SeveredRemnant::text),
    };
};

template <>
struct Fields<C3Cuts::Clip> {
    static constexpr auto list = std::tuple{
        field("clipId", &C3Cuts::Clip::clipId),
        field("filename", &C3Cuts::Clip::filename),
        field("fillerCuts", &C3Cuts::Clip::fillerCuts),
        field("chatterCuts", &C3Cuts::Clip::chatterCuts, Absent::keepDefault),
        field("silenceCuts", &C3Cuts::Clip::silenceCuts),
        field("mergedIslands", &C3Cuts::Clip::mergedIslands),
        field("fillerSource", &C3Cuts::Clip::fillerSource),
        field("noiseCuts", &C3Cuts::Clip::noiseCuts, Absent::keepDefault),
        field("hiddenSilenceCuts", &C3Cuts::Clip::hiddenSilenceCuts, Absent::keepDefault),
        field("demotedCuts", &C3Cuts::Clip::demotedCuts, Absent::keepDefault),
        field("borderHesitations", &C3Cuts::Clip::borderHesitations, Absent::keepDefault),
        field("bandPauses", &C3Cuts::Clip::bandPauses, Absent::keepDefault),
        field("keptTics", &C3Cuts::Clip::keptTics, Absent::keepDefault),
        field("microRepeats", &C3Cuts::Clip::microRepeats, Absent::keepDefault),
        field("severedRemnants", &C3Cuts::Clip::severedRemnants, Absent::keepDefault),
        field("keptAudioEvents", &C3Cuts::Clip::keptAudioEvents, Absent::keepDefault),
        field("keptMicroRepeats", &C3Cuts::Clip::keptMicroRepeats, Absent::keepDefault),
        field("keptIslands", &C3Cuts::Clip::keptIslands, Absent::keepDefault),
    };
};

template <>
struct Fields<C3Cuts> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C3Cuts::schemaVersion),
        field("projectId", &C3Cuts::projectId),
        field("createdAt", &C3Cuts::createdAt),
        field("params", &C3Cuts::params),
        field("clips", &C3Cuts::clips),
        field("bandSplit", &C3Cuts::bandSplit),
        field("extraction", &C3Cuts::extraction),
    };
};

} // namespace velum::json
