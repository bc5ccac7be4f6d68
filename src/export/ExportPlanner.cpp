#include "export/ExportPlanner.h"

#include "model/FCPXMLTime.h"

#include <QUuid>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace velum::ExportPlanner {
namespace {

// Slack for times that sit on a frame edge but carry a rounding error: a run
// ending within this of an edge does not take the next frame.
constexpr double edgeSlack = 1e-9;
// Slack for a duration that is a whole number of frames give or take a
// rounding error.
constexpr double durationSlack = 1e-6;
// Far beyond any real footage (more than 10,000 years at 25 fps), and small
// enough that a frame number times a frame length stays exact in a double.
constexpr double maxFrames = 9007199254740992.0; // 2^53

// A whole frame number from an already rounded double, held to [0, total].
// Holding before the comparisons of the snapping rules changes none of their
// outcomes, since every result is clamped to [0, total] anyway.
qint64 heldFrame(double frame, qint64 total)
{
    if (!(frame > 0))
        return 0;
    if (frame >= static_cast<double>(total))
        return total;
    return static_cast<qint64>(frame);
}

struct FrameRange {
    qint64 start = 0;
    qint64 end = 0;
};

struct TimeRange {
    double start = 0;
    double end = 0;
};

// Kept runs merged across removed stretches of at most the tolerance, unless
// an off-script or manual cut was passed since the last kept run.
std::vector<TimeRange> mergedKeptRuns(const std::vector<Run> &runs)
{
    std::vector<TimeRange> merged;
    bool scriptCutPassed = false;
    for (const auto &run : runs) {
        if (run.reason) {
            if (*run.reason == CutReason::offScript || *run.reason == CutReason::manual)
                scriptCutPassed = true;
            continue;
        }
        if (!merged.empty() && !scriptCutPassed && run.start - merged.back().end <= mergeToleranceS)
            merged.back().end = std::max(merged.back().end, run.end);
        else
            merged.push_back({run.start, run.end});
        scriptCutPassed = false;
    }
    return merged;
}

// The word-backed cuts of a clip, indexed for the two questions the snapping
// asks of each kept range, so that a long clip is not quadratic.
class WordBackedCuts {
public:
    explicit WordBackedCuts(const std::vector<Run> &runs)
    {
        for (const auto &run : runs) {
            // A cut without finite times bounds nothing.
            if (run.reason && run.wordBacked && std::isfinite(run.start) && std::isfinite(run.end)) {
                m_byEnd.push_back({run.start, run.end});
                m_byStart.push_back({run.start, run.end});
            }
        }
        std::sort(m_byEnd.begin(), m_byEnd.end(), [](const TimeRange &l, const TimeRange &r) { return l.end < r.end; });
        std::sort(m_byStart.begin(), m_byStart.end(),
                  [](const TimeRange &l, const TimeRange &r) { return l.start < r.start; });
        m_smallestStartFrom.resize(m_byEnd.size());
        for (std::size_t i = m_byEnd.size(); i-- > 0;)
            m_smallestStartFrom[i] = i + 1 < m_byEnd.size() ? std::min(m_byEnd[i].start, m_smallestStartFrom[i + 1])
                                                             : m_byEnd[i].start;
        m_largestEndUpTo.resize(m_byStart.size());
        for (std::size_t i = 0; i < m_byStart.size(); ++i)
            m_largestEndUpTo[i] = i > 0 ? std::max(m_byStart[i].end, m_largestEndUpTo[i - 1]) : m_byStart[i].end;
    }

    // The smallest start among the cuts that end later than `time`.
    std::optional<double> smallestStartEndingAfter(double time) const
    {
        const auto first = std::upper_bound(m_byEnd.begin(), m_byEnd.end(), time,
                                            [](double t, const TimeRange &cut) { return t < cut.end; });
        if (first == m_byEnd.end())
            return std::nullopt;
        return m_smallestStartFrom[static_cast<std::size_t>(first - m_byEnd.begin())];
    }

    // The largest end among the cuts that start earlier than `time`.
    std::optional<double> largestEndStartingBefore(double time) const
    {
        const auto past = std::lower_bound(m_byStart.begin(), m_byStart.end(), time,
                                           [](const TimeRange &cut, double t) { return cut.start < t; });
        if (past == m_byStart.begin())
            return std::nullopt;
        return m_largestEndUpTo[static_cast<std::size_t>(past - m_byStart.begin()) - 1];
    }

private:
    std::vector<TimeRange> m_byEnd;
    std::vector<TimeRange> m_byStart;
    std::vector<double> m_smallestStartFrom; // over m_byEnd[i...]
    std::vector<double> m_largestEndUpTo;    // over m_byStart[...i]
};

// Overlap totals per reason for one removed stretch.
class ReasonTotals {
public:
    void add(const Run &run, double from, double to)
    {
        if (!run.reason)
            return;
        const double overlap = std::min(run.end, to) - std::max(run.start, from);
        if (!(overlap > 0))
            return;
        const auto slot = static_cast<std::size_t>(std::find(byText.begin(), byText.end(), *run.reason) - byText.begin());
        m_totals[slot] += overlap;
        m_counted[slot] = true;
    }

    // The largest total; the first in text order among equals; silence
    // when nothing overlapped.
    CutReason dominant() const
    {
        std::optional<std::size_t> best;
        for (std::size_t i = 0; i < byText.size(); ++i) {
            if (m_counted[i] && (!best || m_totals[i] > m_totals[*best]))
                best = i;
        }
        return best ? byText[*best] : CutReason::silence;
    }

private:
    // The reasons in ascending order of their stored text.
    static constexpr std::array byText{CutReason::filler,    CutReason::manual, CutReason::noise,
                                       CutReason::offScript, CutReason::retake, CutReason::silence};
    std::array<double, byText.size()> m_totals{};
    std::array<bool, byText.size()> m_counted{};
};

// The removed runs of a clip indexed by start, so that the reason of each
// removed stretch looks only at the runs near it. Totals are added in the
// runs' own order, exactly as `dominantReason` adds them.
class RemovedRuns {
public:
    explicit RemovedRuns(const std::vector<Run> &runs) : m_runs(runs)
    {
        for (std::size_t i = 0; i < runs.size(); ++i) {
            // A run without comparable times never overlaps anything.
            if (runs[i].reason && !std::isnan(runs[i].start) && !std::isnan(runs[i].end))
                m_byStart.push_back(i);
        }
        std::stable_sort(m_byStart.begin(), m_byStart.end(),
                         [&](std::size_t l, std::size_t r) { return runs[l].start < runs[r].start; });
        m_largestEndUpTo.resize(m_byStart.size());
        for (std::size_t i = 0; i < m_byStart.size(); ++i) {
            const double end = runs[m_byStart[i]].end;
            m_largestEndUpTo[i] = i > 0 ? std::max(end, m_largestEndUpTo[i - 1]) : end;
        }
    }

    CutReason dominant(double from, double to) const
    {
        // Runs starting at or after `to` cannot overlap; of the others, walk
        // back while any earlier run still ends after `from`.
        const auto past = std::lower_bound(m_byStart.begin(), m_byStart.end(), to,
                                           [&](std::size_t index, double t) { return m_runs[index].start < t; });
        std::vector<std::size_t> overlapping;
        for (auto i = static_cast<std::size_t>(past - m_byStart.begin()); i-- > 0 && m_largestEndUpTo[i] > from;) {
            if (m_runs[m_byStart[i]].end > from)
                overlapping.push_back(m_byStart[i]);
        }
        std::sort(overlapping.begin(), overlapping.end());
        ReasonTotals totals;
        for (std::size_t index : overlapping)
            totals.add(m_runs[index], from, to);
        return totals.dominant();
    }

private:
    const std::vector<Run> &m_runs;
    std::vector<std::size_t> m_byStart;     // indices of removed runs, by start
    std::vector<double> m_largestEndUpTo;   // over m_byStart[...i]
};

} // namespace

std::vector<ExportPlan::Segment> tile(const std::vector<Run> &runs, double durationS, double fps)
{
    if (runs.empty() || !(durationS > 0) || !(fps > 0))
        return {};

    const FCPXMLFrameRate rate(fps);
    const double frameNum = static_cast<double>(rate.frameNum);
    const double frameDen = static_cast<double>(rate.frameDen);
    const double perSecond = frameDen / frameNum; // true frames per second
    const double framesInClip = std::min(std::trunc(durationS * perSecond + durationSlack), maxFrames);
    const qint64 totalFrames = std::max<qint64>(static_cast<qint64>(framesInClip), 1);
    const auto toSeconds = [&](qint64 frame) { return static_cast<double>(frame) * frameNum / frameDen; };

    const WordBackedCuts wordBackedCuts(runs);
    const RemovedRuns removedRuns(runs);

    std::vector<FrameRange> frames;
    for (const auto &[s, e] : mergedKeptRuns(runs)) {
        // Outward to whole frames.
        qint64 a = heldFrame(std::floor(perSecond * s + edgeSlack), totalFrames);
        qint64 b = std::min(std::max(heldFrame(std::ceil(perSecond * e - edgeSlack), totalFrames), a), totalFrames);

        // Inward where a word that was cut lies next to the range: the kept
        // range gives way, so no frame of a cut word is heard.
        const auto nextCutStart = wordBackedCuts.smallestStartEndingAfter(e + edgeSlack);
        const auto previousCutEnd = wordBackedCuts.largestEndStartingBefore(s - edgeSlack);
        if (nextCutStart)
            b = std::min(b, std::max(heldFrame(std::floor(perSecond * *nextCutStart + edgeSlack), totalFrames), a));
        if (previousCutEnd)
            a = std::max(std::min(heldFrame(std::ceil(perSecond * *previousCutEnd - edgeSlack), totalFrames), b), a);

        if (a >= b)
            continue; // shrunk to nothing
        if (!frames.empty() && frames.back().end >= a)
            frames.back().end = std::max(frames.back().end, b);
        else
            frames.push_back({a, b});
    }

    std::vector<ExportPlan::Segment> segments;
    segments.reserve(frames.size() * 2 + 1);
    const auto removed = [&](qint64 from, qint64 to) {
        const double start = toSeconds(from);
        const double end = toSeconds(to);
        segments.push_back({.sourceStart = start, .sourceEnd = end, .timelineStart = 0,
                            .reason = removedRuns.dominant(start, end)});
    };
    qint64 cursor = 0;
    for (const auto &range : frames) {
        if (cursor < range.start)
            removed(cursor, range.start);
        segments.push_back({.sourceStart = toSeconds(range.start), .sourceEnd = toSeconds(range.end),
                            .timelineStart = 0, .reason = std::nullopt});
        cursor = range.end;
    }
    if (cursor < totalFrames)
        removed(cursor, totalFrames);
    return segments;
}

CutReason dominantReason(double from, double to, const std::vector<Run> &in)
{
    ReasonTotals totals;
    for (const auto &run : in)
        totals.add(run, from, to);
    return totals.dominant();
}

void assignTimeline(ExportPlan &plan)
{
    double t = 0;
    for (auto &clip : plan.clips) {
        for (auto &segment : clip.segments) {
            segment.timelineStart = t;
            if (segment.isKept())
                t += std::max(segment.sourceEnd - segment.sourceStart, 0.0);
        }
    }
}

KeptRanges keptRanges(const ExportPlan &plan, const QHash<QString, double> &clipStarts)
{
    KeptRanges ranges;
    for (const auto &clip : plan.clips) {
        const double offset = clipStarts.value(clip.clipId, 0.0);
        for (const auto &segment : clip.segments) {
            if (segment.isKept())
                ranges.spans.push_back({.timelineStart = offset + segment.sourceStart,
                                        .timelineEnd = offset + segment.sourceEnd,
                                        .keptStart = segment.timelineStart});
        }
    }
    return ranges;
}

namespace {

std::optional<ExportPlan::ExternalAudio> externalAudio(const ExportPlan &plan, const ReviewMedia &media,
                                                       const C0Probe &probe, const std::optional<C05Sync> &sync)
{
    std::optional<QString> clipId;
    if (sync && sync->externalClipId) {
        clipId = sync->externalClipId;
    } else if (media.externalURL) {
        const QString path = media.externalURL->path(QUrl::FullyDecoded);
        const auto found = std::find_if(probe.clips.begin(), probe.clips.end(), [&](const C0Probe::Clip &clip) {
            return clip.path == path && clip.role == ProjectFileRole::externalAudio;
        });
        if (found != probe.clips.end())
            clipId = found->clipId;
    }
    if (!clipId)
        return std::nullopt;
    const bool anySynced = std::any_of(plan.clips.begin(), plan.clips.end(),
                                       [](const ExportPlan::Clip &clip) { return clip.externalOffsetS.has_value(); });
    if (!anySynced)
        return std::nullopt;
    const C0Probe::Clip *clip = probe.clip(*clipId);
    if (!clip || !clip->media)
        return std::nullopt;
    return ExportPlan::ExternalAudio{.clipId = *clipId,
                                     .filename = clip->filename,
                                     .url = QUrl::fromLocalFile(clip->path),
                                     .durationS = clip->media->durationS,
                                     .sampleRate = clip->media->audioSampleRate,
                                     .channels = clip->media->audioChannels,
                                     .startTimecode = clip->media->startTimecode};
}

} // namespace

ExportPlan plan(const QString &projectName, const Transcript &transcript, const ReviewMedia &media,
                const C0Probe &probe, const std::optional<C05Sync> &sync)
{
    // The runs of every source, in transcript order.
    QHash<QUuid, std::vector<Run>> runsBySource;
    for (const auto &segment : transcript.segments())
        runsBySource[segment.sourceID].push_back(Run{.start = segment.localStart, .end = segment.localEnd,
                                                     .reason = segment.cutReason, .wordBacked = segment.wordBacked});

    ExportPlan result{.projectName = projectName, .clips = {}, .externalAudio = std::nullopt};
    for (const auto &mediaClip : media.clips) {
        const C0Probe::Clip *probeClip = probe.clip(mediaClip.clipId);
        if (!probeClip || !probeClip->media)
            continue;
        const auto runs = runsBySource.constFind(mediaClip.sourceID);
        if (runs == runsBySource.constEnd() || runs->empty())
            continue;
        auto segments = tile(*runs, mediaClip.durationS, probeClip->media->fps.value_or(fallbackFps));
        if (segments.empty())
            continue;
        result.clips.push_back(ExportPlan::Clip{.clipId = mediaClip.clipId,
                                                .filename = probeClip->filename,
                                                .url = mediaClip.url,
                                                .media = *probeClip->media,
                                                .externalOffsetS = mediaClip.externalOffsetS,
                                                .segments = std::move(segments)});
    }
    result.externalAudio = externalAudio(result, media, probe, sync);
    assignTimeline(result);
    return result;
}

} // namespace velum::ExportPlanner
