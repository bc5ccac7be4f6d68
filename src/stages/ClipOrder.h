#pragma once

// "c15_order.json": the order in which the clips run in the video, next to
// the order in which they were shot, and the part each clip plays.

#include "model/Json.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <map>
#include <optional>
#include <vector>

namespace velum {

struct ClipOrder {
    enum class Role { hook, body, outro, unknown };
    enum class Source { llm, shootingOrderFallback };

    int schemaVersion = 1;
    QString projectId;
    QDateTime createdAt;
    std::vector<QString> shootingOrder; // clip identifiers as shot
    std::vector<QString> timelineOrder; // clip identifiers as they run in the video
    std::map<QString, Role> roles;      // by clip identifier
    Source source = Source::llm;
    std::optional<QString> reason;
    analysis::Extraction extraction;

    friend bool operator==(const ClipOrder &, const ClipOrder &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<ClipOrder::Role> {
    static constexpr std::array values{
        std::pair{ClipOrder::Role::hook, "hook"},
        std::pair{ClipOrder::Role::body, "body"},
        std::pair{ClipOrder::Role::outro, "outro"},
        std::pair{ClipOrder::Role::unknown, "unknown"},
    };
};

template <>
struct EnumTexts<ClipOrder::Source> {
    static constexpr std::array values{
        std::pair{ClipOrder::Source::llm, "llm"},
        std::pair{ClipOrder::Source::shootingOrderFallback, "shooting_order_fallback"},
    };
};

template <>
struct Fields<ClipOrder> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &ClipOrder::schemaVersion),
        field("projectId", &ClipOrder::projectId),
        field("createdAt", &ClipOrder::createdAt),
        field("shootingOrder", &ClipOrder::shootingOrder),
        field("timelineOrder", &ClipOrder::timelineOrder),
        field("roles", &ClipOrder::roles),
        field("source", &ClipOrder::source),
        field("reason", &ClipOrder::reason),
        field("extraction", &ClipOrder::extraction),
    };
};

} // namespace velum::json
