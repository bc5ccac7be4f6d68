#pragma once

// The trailer of every stage document but the plan, and of a video analysis:
// which tool produced which part of the document. The analysis document
// itself lives with the style profiles, which refer to this record as
// `Analysis::Extraction`.

#include "model/Json.h"

#include <QString>

#include <map>
#include <optional>

namespace velum::analysis {

struct Extraction {
    enum class Status { ok, fallback, unavailable, skipped };

    struct Signal {
        QString tool;    // "ffprobe"
        QString version; // "media-validator/4"
        Status status = Status::ok;
        std::optional<QString> note; // what went differently

        friend bool operator==(const Signal &, const Signal &) = default;
    };

    // By signal name: "probe", "clip_id", "sync", ...
    std::map<QString, Signal> signals;

    friend bool operator==(const Extraction &, const Extraction &) = default;
};

} // namespace velum::analysis

namespace velum::json {

template <>
struct EnumTexts<analysis::Extraction::Status> {
    static constexpr std::array values{
        std::pair{analysis::Extraction::Status::ok, "ok"},
        std::pair{analysis::Extraction::Status::fallback, "fallback"},
        std::pair{analysis::Extraction::Status::unavailable, "unavailable"},
        std::pair{analysis::Extraction::Status::skipped, "skipped"},
    };
};

template <>
struct Fields<analysis::Extraction::Signal> {
    static constexpr auto list = std::tuple{
        field("tool", &analysis::Extraction::Signal::tool),
        field("version", &analysis::Extraction::Signal::version),
        field("status", &analysis::Extraction::Signal::status),
        field("note", &analysis::Extraction::Signal::note),
    };
};

template <>
struct Fields<analysis::Extraction> {
    static constexpr auto list = std::tuple{
        field("signals", &analysis::Extraction::signals),
    };
};

} // namespace velum::json
