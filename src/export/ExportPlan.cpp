#include "export/ExportPlan.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <utility>

namespace velum {
namespace {

double length(const ExportPlan::Segment &segment) { return std::max(segment.sourceEnd - segment.sourceStart, 0.0); }

double seconds(const ExportPlan::Clip &clip, bool keptOnly)
{
    double total = 0;
    for (const auto &segment : clip.segments) {
        if (!keptOnly || segment.isKept())
            total += length(segment);
    }
    return total;
}

double seconds(const ExportPlan &plan, bool keptOnly)
{
    double total = 0;
    for (const auto &clip : plan.clips)
        total += seconds(clip, keptOnly);
    return total;
}

// Seconds per frame size over the clips with a size and more than zero
// seconds counted; the best size by seconds, then area, width, height.
std::optional<QSize> bestSize(const ExportPlan &plan, bool keptOnly)
{
    std::map<std::pair<int, int>, double> totals;
    for (const auto &clip : plan.clips) {
        const auto &width = clip.media.width;
        const auto &height = clip.media.height;
        if (!width || !height || *width < 1 || *height < 1 || clip.segments.empty())
            continue;
        const double s = seconds(clip, keptOnly);
        if (s > 0)
            totals[{*width, *height}] += s;
    }
    const auto better = [](const std::pair<const std::pair<int, int>, double> &lhs,
                           const std::pair<const std::pair<int, int>, double> &rhs) {
        if (lhs.second != rhs.second)
            return lhs.second > rhs.second;
        const auto [lw, lh] = lhs.first;
        const auto [rw, rh] = rhs.first;
        const std::int64_t lhsArea = std::int64_t{lw} * lh;
        const std::int64_t rhsArea = std::int64_t{rw} * rh;
        if (lhsArea != rhsArea)
            return lhsArea > rhsArea;
        if (lw != rw)
            return lw > rw;
        return lh > rh;
    };
    const auto best = std::min_element(totals.begin(), totals.end(), better);
    if (best == totals.end())
        return std::nullopt;
    return QSize(best->first.first, best->first.second);
}

} // namespace

int ExportPlan::segmentCount() const
{
    std::size_t count = 0;
    for (const auto &clip : clips)
        count += clip.segments.size();
    return static_cast<int>(count);
}

int ExportPlan::enabledCount() const
{
    std::size_t count = 0;
    for (const auto &clip : clips)
        count += static_cast<std::size_t>(
            std::count_if(clip.segments.begin(), clip.segments.end(), [](const Segment &s) { return s.isKept(); }));
    return static_cast<int>(count);
}

int ExportPlan::disabledCount() const { return segmentCount() - enabledCount(); }

double ExportPlan::keptDuration() const { return seconds(*this, true); }

double ExportPlan::sourceDuration() const { return seconds(*this, false); }

ExportPlan ExportPlan::keptOnly() const
{
    ExportPlan kept{.projectName = projectName, .clips = {}, .externalAudio = externalAudio};
    for (const auto &clip : clips) {
        Clip copy{.clipId = clip.clipId, .filename = clip.filename, .url = clip.url, .media = clip.media,
                  .externalOffsetS = clip.externalOffsetS, .segments = {}};
        std::copy_if(clip.segments.begin(), clip.segments.end(), std::back_inserter(copy.segments),
                     [](const Segment &s) { return s.isKept(); });
        if (!copy.segments.empty())
            kept.clips.push_back(std::move(copy));
    }
    return kept;
}

std::optional<QSize> ExportPlan::dominantVideoSize() const
{
    if (auto size = bestSize(*this, true))
        return size;
    return bestSize(*this, false);
}

} // namespace velum
