// The export planner on the large project of the review benchmark: 40 clips,
// 20,000 words. The plan is made on every export and every time the player
// loads the review, so it has to stay far below what a user notices.

#include "LargeProject.h"

#include "export/ExportPlanner.h"
#include "review/ReviewBundle.h"

#include <benchmark/benchmark.h>

using namespace velum;

namespace {

struct Planning {
    ProcessPipeline::ReviewBundle bundle;
    C0Probe probe;
    C05Sync sync;
};

const Planning &planning()
{
    static const Planning p = [] {
        const auto documents = bench::largeProject();
        Planning result{.bundle = *ProcessPipeline::buildReviewBundle(documents), .probe = documents.probe, .sync = {}};
        // Footage at 29.97 fps, the rate with the least friendly arithmetic.
        for (auto &clip : result.probe.clips) {
            clip.media->fps = 29.97;
            clip.media->width = 1920;
            clip.media->height = 1080;
        }
        return result;
    }();
    return p;
}

void BM_Plan(benchmark::State &state)
{
    const auto &p = planning();
    for (auto _ : state) {
        auto plan = ExportPlanner::plan(QStringLiteral("Large"), p.bundle.transcript, p.bundle.media, p.probe, p.sync);
        benchmark::DoNotOptimize(plan);
    }
    const auto plan = ExportPlanner::plan(QStringLiteral("Large"), p.bundle.transcript, p.bundle.media, p.probe, p.sync);
    state.counters["transcriptSegments"] = static_cast<double>(p.bundle.transcript.segments().size());
    state.counters["planSegments"] = plan.segmentCount();
}
BENCHMARK(BM_Plan)->Unit(benchmark::kMillisecond);

// All of the project's runs as one long clip: the snapping against
// word-backed cuts must not grow with the square of a clip's cuts.
void BM_TileOneLongClip(benchmark::State &state)
{
    const auto &p = planning();
    std::vector<ExportPlanner::Run> runs;
    double offset = 0;
    QUuid source;
    for (const auto &segment : p.bundle.transcript.segments()) {
        if (segment.sourceID != source) {
            if (!runs.empty())
                offset = runs.back().end;
            source = segment.sourceID;
        }
        runs.push_back({offset + segment.localStart, offset + segment.localEnd, segment.cutReason, segment.wordBacked});
    }
    const double duration = runs.back().end + 1;
    for (auto _ : state) {
        auto segments = ExportPlanner::tile(runs, duration, 29.97);
        benchmark::DoNotOptimize(segments);
    }
    state.counters["runs"] = static_cast<double>(runs.size());
}
BENCHMARK(BM_TileOneLongClip)->Unit(benchmark::kMillisecond);

void BM_PlanDerivedValues(benchmark::State &state)
{
    const auto &p = planning();
    const auto plan = ExportPlanner::plan(QStringLiteral("Large"), p.bundle.transcript, p.bundle.media, p.probe, p.sync);
    const auto clipStarts = p.bundle.media.clipStarts();
    for (auto _ : state) {
        auto keptOnly = plan.keptOnly();
        auto ranges = ExportPlanner::keptRanges(plan, clipStarts);
        auto size = plan.dominantVideoSize();
        benchmark::DoNotOptimize(keptOnly);
        benchmark::DoNotOptimize(ranges);
        benchmark::DoNotOptimize(size);
    }
}
BENCHMARK(BM_PlanDerivedValues)->Unit(benchmark::kMillisecond);

} // namespace
