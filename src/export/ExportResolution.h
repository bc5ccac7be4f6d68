#pragma once

// The sizes an MP4 can be rendered at, in the order of the menu, and the
// canvas and label of each against the plan's source size.

#include "model/Json.h"

#include <QSize>
#include <QSizeF>
#include <QString>

#include <optional>

namespace velum {

enum class ExportResolution { source, uhd4K, hd1080, hd720 };

// The canvas for a source size. A source counts only with both sides at
// least 1; otherwise 1920×1080 is assumed. `source` keeps the source's size;
// the others are a fixed 16:9 for a landscape source, and for a portrait or
// square one the source's shape at a height of 3840, 1920 or 1280. Every
// side is even and at least 2.
QSize canvas(ExportResolution resolution, const std::optional<QSizeF> &source);

// The menu title: "4K", "1080p", "720p"; for `source`, "Source", followed by
// the source's size in parentheses when it has one ("Source (1920×1080)").
QString label(ExportResolution resolution, const std::optional<QSizeF> &source);

// "1920×1080", each side rounded to a whole number; none when the size is
// absent or a side is below 1.
std::optional<QString> resolutionText(const std::optional<QSizeF> &size);

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<ExportResolution> {
    static constexpr std::array values{
        std::pair{ExportResolution::source, "source"},
        std::pair{ExportResolution::uhd4K, "4k"},
        std::pair{ExportResolution::hd1080, "1080p"},
        std::pair{ExportResolution::hd720, "720p"},
    };
};

} // namespace velum::json
