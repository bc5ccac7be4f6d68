// The review engine on a large project: 40 clips, 20,000 words, with every
// kind of cut and token. Targets: the bundle from documents in memory in at
// most 20 ms, one cut with its rebuild in at most 3 ms, the edits document
// in at most 5 ms.

#include "LargeProject.h"

#include "review/ReviewBundle.h"

#include <benchmark/benchmark.h>

using namespace velum;
using namespace velum::ProcessPipeline;

namespace {

const ReviewDocuments &project()
{
    static const ReviewDocuments documents = bench::largeProject();
    return documents;
}

void BM_BuildBundle(benchmark::State &state)
{
    const auto &documents = project();
    for (auto _ : state) {
        auto bundle = buildReviewBundle(documents);
        benchmark::DoNotOptimize(bundle);
    }
    state.counters["words"] = static_cast<double>(buildReviewBundle(documents)->transcript.words().size());
}
BENCHMARK(BM_BuildBundle)->Unit(benchmark::kMillisecond);

void BM_CutOneWord(benchmark::State &state)
{
    auto transcript = buildReviewBundle(project())->transcript;
    const QUuid id = transcript.words()[transcript.words().size() / 2].id;
    bool cut = false;
    for (auto _ : state) {
        cut = !cut;
        transcript.setCutReason(cut ? std::optional(CutReason::manual) : std::nullopt, {id});
        benchmark::DoNotOptimize(transcript.revision());
    }
}
BENCHMARK(BM_CutOneWord)->Unit(benchmark::kMillisecond);

void BM_Diff(benchmark::State &state)
{
    auto transcript = buildReviewBundle(project())->transcript;
    QHash<QUuid, std::optional<CutReason>> baseline;
    for (const auto &w : transcript.words())
        baseline.insert(w.id, w.cutReason);
    QSet<QUuid> changed;
    for (std::size_t i = 0; i < transcript.words().size(); i += 50)
        changed.insert(transcript.words()[i].id);
    transcript.setCutReason(CutReason::manual, changed);
    for (auto _ : state) {
        auto edits = ReviewEdits::diff(transcript, baseline, {}, std::nullopt, {}, QStringLiteral("job"));
        benchmark::DoNotOptimize(edits);
    }
}
BENCHMARK(BM_Diff)->Unit(benchmark::kMillisecond);

} // namespace
