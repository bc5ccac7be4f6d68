// The Final Cut export of the large project of the review benchmark (40
// clips, 20,000 words): the plan, the FCPXML file written to disk, read back
// and put through every structural check. The DTD check is left out (no DTD
// is found), so the figure is the export's own work, not xmllint's.

#include "LargeProject.h"

#include "export/ExportPlanner.h"
#include "export/FCPXMLExport.h"
#include "export/FCPXMLValidation.h"
#include "export/FCPXMLWriter.h"
#include "review/ReviewBundle.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <optional>

using namespace velum;

namespace {

struct Exporting {
    QTemporaryDir folder{QDir::tempPath() + QStringLiteral("/velum-bench-export-XXXXXX")};
    ProcessPipeline::ReviewBundle bundle;
    C0Probe probe;
    C05Sync sync;
};

Exporting &exporting()
{
    static Exporting e = [] {
        Exporting result;
        auto documents = bench::largeProject();
        // Footage at 29.97 fps with sound, each file present on disk so that
        // every asset relinks.
        for (auto &clip : documents.probe.clips) {
            clip.path = result.folder.filePath(clip.filename);
            QFile file(clip.path);
            if (!file.open(QIODevice::WriteOnly) || file.write("placeholder") < 0)
                std::abort();
            clip.media->fps = 29.97;
            clip.media->width = 1920;
            clip.media->height = 1080;
            clip.media->videoCodec = QStringLiteral("h264");
            clip.media->audioCodec = QStringLiteral("aac");
            clip.media->audioSampleRate = 48000;
            clip.media->audioChannels = 2;
        }
        result.bundle = *ProcessPipeline::buildReviewBundle(documents);
        result.probe = documents.probe;
        return result;
    }();
    return e;
}

// No DTD: the override names a file that does not exist, and the editor is
// not installed on this system.
bool withoutDTD()
{
    const Exporting &e = exporting();
    qputenv(FCPXMLValidation::dtdEnvironmentVariable, QFile::encodeName(e.folder.filePath(QStringLiteral("none.dtd"))));
    return !FCPXMLValidation::dtdURL(QStringLiteral("1.13")).has_value();
}

void BM_PlanWriteValidate(benchmark::State &state)
{
    if (!withoutDTD()) {
        state.SkipWithError("an FCPXML DTD is installed; the benchmark measures the export without xmllint");
        return;
    }
    const Exporting &e = exporting();
    const QUrl destination = QUrl::fromLocalFile(e.folder.filePath(QStringLiteral("out/output.fcpxml")));
    std::optional<FCPXMLValidation::Check> failed;
    for (auto _ : state) {
        const ExportPlan plan =
            ExportPlanner::plan(QStringLiteral("Large"), e.bundle.transcript, e.bundle.media, e.probe, e.sync);
        auto result = ProcessPipeline::write(plan, destination);
        for (const auto &check : result.report.checks) {
            if (!check.passed && !failed)
                failed = check;
        }
        benchmark::DoNotOptimize(result);
    }
    if (failed) {
        const QString message = QStringLiteral("the written timeline fails \"%1\": %2")
                                    .arg(failed->name, failed->detail.value_or(QString()));
        state.SkipWithError(qPrintable(message));
    }
    const ExportPlan plan =
        ExportPlanner::plan(QStringLiteral("Large"), e.bundle.transcript, e.bundle.media, e.probe, e.sync);
    state.counters["planSegments"] = plan.segmentCount();
    state.counters["fileBytes"] = static_cast<double>(QFileInfo(destination.toLocalFile()).size());
}
BENCHMARK(BM_PlanWriteValidate)->Unit(benchmark::kMillisecond);

// The checks alone, on the bytes as read back.
void BM_ValidateOnly(benchmark::State &state)
{
    if (!withoutDTD()) {
        state.SkipWithError("an FCPXML DTD is installed; the benchmark measures the export without xmllint");
        return;
    }
    const Exporting &e = exporting();
    const QUrl destination = QUrl::fromLocalFile(e.folder.filePath(QStringLiteral("out/validate.fcpxml")));
    const ExportPlan plan =
        ExportPlanner::plan(QStringLiteral("Large"), e.bundle.transcript, e.bundle.media, e.probe, e.sync);
    const auto written = ProcessPipeline::write(plan, destination);
    QFile file(destination.toLocalFile());
    if (!file.open(QIODevice::ReadOnly)) {
        state.SkipWithError("cannot read the written file back");
        return;
    }
    const QByteArray data = file.readAll();
    for (auto _ : state) {
        auto report = FCPXMLValidation::validate(data, plan);
        benchmark::DoNotOptimize(report);
    }
    state.counters["checks"] = static_cast<double>(written.report.checks.size());
}
BENCHMARK(BM_ValidateOnly)->Unit(benchmark::kMillisecond);

// The parts of an export apart: 0 the writer's tree, 1 the tree and its
// bytes, 2 the re-parse by the XML library alone (building the tree and
// freeing it), which the checks cannot do without.
void BM_Parts(benchmark::State &state)
{
    const Exporting &e = exporting();
    const ExportPlan plan =
        ExportPlanner::plan(QStringLiteral("Large"), e.bundle.transcript, e.bundle.media, e.probe, e.sync);
    const QString text = FCPXMLWriter::document(plan).text();
    const QByteArray bytes = text.toUtf8();
    for (auto _ : state) {
        if (state.range(0) == 0) {
            auto document = FCPXMLWriter::document(plan);
            benchmark::DoNotOptimize(document);
        } else if (state.range(0) == 1) {
            auto data = FCPXMLWriter::document(plan).data();
            benchmark::DoNotOptimize(data);
        } else {
            QDomDocument document;
            const bool parsed = document.setContent(bytes, false);
            benchmark::DoNotOptimize(parsed);
        }
    }
}
BENCHMARK(BM_Parts)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

} // namespace
