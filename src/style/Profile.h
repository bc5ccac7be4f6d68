#pragma once

// A style profile: the measured editing habit of a creator, built by the
// service from the analysed videos of that creator. The client carries the
// document ("params.json" in the profile's analysis folder) and reads none of
// its values; all rules that turn a profile into cuts run in the service.
//
// Written and read with the stage coder: snake-case keys, ISO 8601 dates.

#include "model/Json.h"
#include "model/ProfilePolicy.h"

#include <QDateTime>
#include <QString>

#include <map>
#include <optional>
#include <vector>

namespace velum {

// Whether a parameter's tolerance was measured or taken from a prior.
enum class ToleranceSource { measured, prior };

// The text side of a profile, written by the service's language model.
struct StyleNotes {
    std::optional<QString> hesitationNote;
    std::map<QString, QString> discourseNotes; // a note by discourse token
    std::vector<QString> catchphrases;
    std::vector<QString> segmentNames;
    QDateTime builtAt;
    QString promptVersion;
    QString builderVersion;
    int videoCount = 0;
    bool edited = false;

    friend bool operator==(const StyleNotes &, const StyleNotes &) = default;
};

struct Profile {
    // Shared with the c3 parameters of a stage document: one definition.
    using PolicyMode = profile::PolicyMode;
    using HesitationThresholds = profile::HesitationThresholds;

    enum class TokenMode { keepAll, suggest };
    // `default_` is stored as "default".
    enum class PolicySource { measured, default_ };

    // One measured number, by name in `params`.
    struct Param {
        double target = 0;
        double tolerance = 0;
        int n = 0; // sample count
        ToleranceSource toleranceSource = ToleranceSource::measured;
        QString unit;

        friend bool operator==(const Param &, const Param &) = default;
    };

    struct HesitationPolicy {
        PolicyMode mode = PolicyMode::conditional;
        double ratePer1000 = 0; // per 1000 words
        int n = 0;
        PolicySource source = PolicySource::measured;
        double durationP50Ms = 0;
        double durationP95Ms = 0;
        double durationP97Ms = 0;
        double gapP95Ms = 0;
        double sentenceInitialShare = 0;
        std::optional<HesitationThresholds> thresholds;

        friend bool operator==(const HesitationPolicy &, const HesitationPolicy &) = default;
    };

    struct TokenPolicy {
        TokenMode mode = TokenMode::suggest;
        double ratePer1000 = 0;
        int n = 0;
        PolicySource source = PolicySource::measured;

        friend bool operator==(const TokenPolicy &, const TokenPolicy &) = default;
    };

    struct MicroRepeatPolicy {
        PolicyMode mode = PolicyMode::conditional;
        double ratePer1000 = 0;
        int n = 0;
        PolicySource source = PolicySource::measured;

        friend bool operator==(const MicroRepeatPolicy &, const MicroRepeatPolicy &) = default;
    };

    struct FillerPolicy {
        HesitationPolicy hesitations;
        std::map<QString, TokenPolicy> discourse; // by token
        std::optional<QString> labeler;
        std::optional<MicroRepeatPolicy> microRepeat;

        friend bool operator==(const FillerPolicy &, const FillerPolicy &) = default;
    };

    struct HandleBand {
        double p10Ms = 0;
        double p50Ms = 0;
        double p90Ms = 0;

        friend bool operator==(const HandleBand &, const HandleBand &) = default;
    };

    struct CutStyle {
        HandleBand beforeHandleMs;
        HandleBand afterHandleMs;
        double sentenceBoundaryRatio = 0;
        double midSpeechRatio = 0;
        double shotLengthP50S = 0;
        double shotLengthP90S = 0;
        int n = 0;
        PolicySource source = PolicySource::measured;

        friend bool operator==(const CutStyle &, const CutStyle &) = default;
    };

    int schemaVersion = 0;
    QDateTime builtAt;                   // when the service built it
    std::vector<QString> videoIds;       // content hashes of the analysed videos
    std::map<QString, Param> params;     // the measured numbers, by name
    FillerPolicy fillerPolicy;
    CutStyle cutStyle;
    QString summary;                     // one text about the style
    std::optional<StyleNotes> styleNotes;

    friend bool operator==(const Profile &, const Profile &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<ToleranceSource> {
    static constexpr std::array values{
        std::pair{ToleranceSource::measured, "measured"},
        std::pair{ToleranceSource::prior, "prior"},
    };
};

template <>
struct EnumTexts<Profile::TokenMode> {
    static constexpr std::array values{
        std::pair{Profile::TokenMode::keepAll, "keep_all"},
        std::pair{Profile::TokenMode::suggest, "suggest"},
    };
};

template <>
struct EnumTexts<Profile::PolicySource> {
    static constexpr std::array values{
        std::pair{Profile::PolicySource::measured, "measured"},
        std::pair{Profile::PolicySource::default_, "default"},
    };
};

template <>
struct Fields<StyleNotes> {
    static constexpr auto list = std::tuple{
        field("hesitationNote", &StyleNotes::hesitationNote),
        field("discourseNotes", &StyleNotes::discourseNotes),
        field("catchphrases", &StyleNotes::catchphrases),
        field("segmentNames", &StyleNotes::segmentNames),
        field("builtAt", &StyleNotes::builtAt),
        field("promptVersion", &StyleNotes::promptVersion),
        field("builderVersion", &StyleNotes::builderVersion),
        field("videoCount", &StyleNotes::videoCount),
        field("edited", &StyleNotes::edited),
    };
};

template <>
struct Fields<Profile::Param> {
    static constexpr auto list = std::tuple{
        field("target", &Profile::Param::target),
        field("tolerance", &Profile::Param::tolerance),
        field("n", &Profile::Param::n),
        field("toleranceSource", &Profile::Param::toleranceSource),
        field("unit", &Profile::Param::unit),
    };
};

template <>
struct Fields<Profile::HesitationPolicy> {
    static constexpr auto list = std::tuple{
        field("mode", &Profile::HesitationPolicy::mode),
        field("ratePer1000", &Profile::HesitationPolicy::ratePer1000),
        field("n", &Profile::HesitationPolicy::n),
        field("source", &Profile::HesitationPolicy::source),
        field("durationP50Ms", &Profile::HesitationPolicy::durationP50Ms),
        field("durationP95Ms", &Profile::HesitationPolicy::durationP95Ms),
        field("durationP97Ms", &Profile::HesitationPolicy::durationP97Ms),
        field("gapP95Ms", &Profile::HesitationPolicy::gapP95Ms),
        field("sentenceInitialShare", &Profile::HesitationPolicy::sentenceInitialShare),
        field("thresholds", &Profile::HesitationPolicy::thresholds),
    };
};

template <>
struct Fields<Profile::TokenPolicy> {
    static constexpr auto list = std::tuple{
        field("mode", &Profile::TokenPolicy::mode),
        field("ratePer1000", &Profile::TokenPolicy::ratePer1000),
        field("n", &Profile::TokenPolicy::n),
        field("source", &Profile::TokenPolicy::source),
    };
};

template <>
struct Fields<Profile::MicroRepeatPolicy> {
    static constexpr auto list = std::tuple{
        field("mode", &Profile::MicroRepeatPolicy::mode),
        field("ratePer1000", &Profile::MicroRepeatPolicy::ratePer1000),
        field("n", &Profile::MicroRepeatPolicy::n),
        field("source", &Profile::MicroRepeatPolicy::source),
    };
};

template <>
struct Fields<Profile::FillerPolicy> {
    static constexpr auto list = std::tuple{
        field("hesitations", &Profile::FillerPolicy::hesitations),
        field("discourse", &Profile::FillerPolicy::discourse),
        field("labeler", &Profile::FillerPolicy::labeler),
        field("microRepeat", &Profile::FillerPolicy::microRepeat),
    };
};

template <>
struct Fields<Profile::HandleBand> {
    static constexpr auto list = std::tuple{
        field("p10Ms", &Profile::HandleBand::p10Ms),
        field("p50Ms", &Profile::HandleBand::p50Ms),
        field("p90Ms", &Profile::HandleBand::p90Ms),
    };
};

template <>
struct Fields<Profile::CutStyle> {
    static constexpr auto list = std::tuple{
        field("beforeHandleMs", &Profile::CutStyle::beforeHandleMs),
        field("afterHandleMs", &Profile::CutStyle::afterHandleMs),
        field("sentenceBoundaryRatio", &Profile::CutStyle::sentenceBoundaryRatio),
        field("midSpeechRatio", &Profile::CutStyle::midSpeechRatio),
        field("shotLengthP50S", &Profile::CutStyle::shotLengthP50S),
        field("shotLengthP90S", &Profile::CutStyle::shotLengthP90S),
        field("n", &Profile::CutStyle::n),
        field("source", &Profile::CutStyle::source),
    };
};

template <>
struct Fields<Profile> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &Profile::schemaVersion),
        field("builtAt", &Profile::builtAt),
        field("videoIds", &Profile::videoIds),
        field("params", &Profile::params),
        field("fillerPolicy", &Profile::fillerPolicy),
        field("cutStyle", &Profile::cutStyle),
        field("summary", &Profile::summary),
        field("styleNotes", &Profile::styleNotes),
    };
};

} // namespace velum::json
