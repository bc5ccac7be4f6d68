#pragma once

// The two pieces of a style profile that a stage document carries: the c3
// parameters name the hesitation policy of the profile they were cut with.
// The rest of the profile record lives with the style store; it refers to
// these as `Profile::PolicyMode` and `Profile::HesitationThresholds`.

#include "model/Json.h"

namespace velum::profile {

enum class PolicyMode { cutAll, keepAll, conditional };

struct HesitationThresholds {
    double maxDurationMs = 0;
    double maxGapMs = 0;

    friend bool operator==(const HesitationThresholds &, const HesitationThresholds &) = default;
};

} // namespace velum::profile

namespace velum::json {

template <>
struct EnumTexts<profile::PolicyMode> {
    static constexpr std::array values{
        std::pair{profile::PolicyMode::cutAll, "cut_all"},
        std::pair{profile::PolicyMode::keepAll, "keep_all"},
        std::pair{profile::PolicyMode::conditional, "conditional"},
    };
};

template <>
struct Fields<profile::HesitationThresholds> {
    static constexpr auto list = std::tuple{
        field("maxDurationMs", &profile::HesitationThresholds::maxDurationMs),
        field("maxGapMs", &profile::HesitationThresholds::maxGapMs),
    };
};

} // namespace velum::json
