// Loading and saving a large account's state file: 500 projects of 20 files
// each, with measured media on every file and every file present on disk, so
// that the repair pass checks real paths. Targets: load (with repairs) and
// save each at most 50 ms of real time. Loading works on a few threads, so
// times are real (wall-clock) time, and the CPU column is that of the whole
// process, all threads together.

#include "model/StateStore.h"

#include <benchmark/benchmark.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <memory>

#include <unistd.h>

using namespace velum;

namespace {

constexpr int projectCount = 500;
constexpr int filesPerProject = 20;

struct Fixture {
    QTemporaryDir dir{QDir::tempPath() + QStringLiteral("/velum-bench-XXXXXX")};
    StateStore store;
    PersistedState state;

    Fixture()
    {
        store.override = QUrl::fromLocalFile(dir.path() + QStringLiteral("/account"));
        const QString media = dir.path() + QStringLiteral("/Footage Drive/Shoot Día");
        QDir().mkpath(media);
        state = PersistedState::fresh();
        const QDateTime start = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);
        const QUuid profile = QUuid::createUuid();
        for (int p = 0; p < projectCount; ++p) {
            Project project;
            project.id = QUuid::createUuid();
            project.name = QStringLiteral("Episode %1 — studio take").arg(p + 1);
            project.description = QStringLiteral("Weekly show, recorded on set B with two cameras and a lav.");
            project.createdAt = start.addSecs(p * 3600);
            project.status = p % 7 == 0 ? ProjectStatus::processing : (p % 3 == 0 ? ProjectStatus::ready : ProjectStatus::draft);
            project.thumbnailSeed = 1000003LL * p;
            project.profileID = profile;
            project.cutPolicy = CutPolicy{.noise = false};
            if (project.status == ProjectStatus::processing)
                project.progressFraction = 0.42;
            for (int f = 0; f < filesPerProject; ++f) {
                const QString path = media + QStringLiteral("/P%1_C%2 take.mov").arg(p, 3, 10, QLatin1Char('0')).arg(f, 2, 10, QLatin1Char('0'));
                QFile touch(path);
                touch.open(QIODevice::WriteOnly);
                const QByteArray clipId = QCryptographicHash::hash(path.toUtf8(), QCryptographicHash::Sha256).toHex();
                ProjectFile file;
                file.id = QUuid::createUuid();
                file.url = QUrl::fromLocalFile(path);
                file.role = f == 0 ? ProjectFileRole::externalAudio : (f > 16 ? ProjectFileRole::bRoll : ProjectFileRole::aRoll);
                file.state = f % 9 == 0 ? ProjectFileState::warning : ProjectFileState::ok;
                if (file.state == ProjectFileState::warning) {
                    file.note = QStringLiteral("Variable frame rate: the cut may drift by a frame.");
                    file.isConfirmed = true;
                }
                file.media = ClipMedia{
                    .clipId = QString::fromLatin1(clipId),
                    .durationS = 312.48 + f,
                    .fps = f == 0 ? std::nullopt : std::optional<double>(29.97002997002997),
                    .width = f == 0 ? std::nullopt : std::optional<int>(3840),
                    .height = f == 0 ? std::nullopt : std::optional<int>(2160),
                    .videoCodec = f == 0 ? std::nullopt : std::optional<QString>(QStringLiteral("hevc")),
                    .audioCodec = QStringLiteral("pcm_s24le"),
                    .audioSampleRate = 48000,
                    .audioChannels = 2,
                    .startTimecode = MediaTimecode{.value = 1080000LL + f * 30000, .timescale = 30000,
                                                   .source = MediaTimecode::Source::timecodeTrack,
                                                   .text = QStringLiteral("10:00:36:00")},
                };
                project.files.push_back(std::move(file));
            }
            state.projects.push_back(std::move(project));
        }
        store.save(state);
        // The new files reach the disk before anything is measured.
        ::sync();
    }
};

Fixture &fixture()
{
    static const auto shared = std::make_unique<Fixture>();
    return *shared;
}

void BM_LoadWithRepairs(benchmark::State &state)
{
    auto &f = fixture();
    for (auto _ : state) {
        auto loaded = std::make_unique<PersistedState>(f.store.load());
        benchmark::DoNotOptimize(loaded);
        // Letting go of the loaded state is not part of loading it.
        state.PauseTiming();
        if (loaded->projects.size() != projectCount)
            state.SkipWithError("the state did not load");
        loaded.reset();
        state.ResumeTiming();
    }
    state.counters["files"] = projectCount * filesPerProject;
}
BENCHMARK(BM_LoadWithRepairs)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_Save(benchmark::State &state)
{
    auto &f = fixture();
    for (auto _ : state)
        f.store.save(f.state);
    state.counters["bytes"] = static_cast<double>(QFileInfo(f.store.fileURL().toLocalFile()).size());
}
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// The two halves of a load, to see where the time goes.
void BM_DecodeOnly(benchmark::State &state)
{
    auto &f = fixture();
    const QByteArray bytes = StateCoder::encode(f.state);
    for (auto _ : state) {
        auto decoded = StateCoder::decode<PersistedState>(bytes);
        benchmark::DoNotOptimize(decoded);
    }
}
BENCHMARK(BM_DecodeOnly)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Only the JSON values to records step of the coder.
void BM_DecodeParsed(benchmark::State &state)
{
    auto &f = fixture();
    const QJsonValue parsed = json::parse(StateCoder::encode(f.state));
    for (auto _ : state) {
        auto decoded = json::decode<PersistedState>(parsed, json::KeyStyle::fieldNames);
        benchmark::DoNotOptimize(decoded);
    }
}
BENCHMARK(BM_DecodeParsed)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Finding the long array and the cuts between its elements, with the rest
// of the document parsed.
void BM_FindChunks(benchmark::State &state)
{
    auto &f = fixture();
    const QByteArray bytes = StateCoder::encode(f.state);
    for (auto _ : state) {
        auto chunks = json::detail::ArrayChunks::find(bytes);
        benchmark::DoNotOptimize(chunks);
    }
}
BENCHMARK(BM_FindChunks)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

// Only the text to JSON values step of the coder.
void BM_ParseOnly(benchmark::State &state)
{
    auto &f = fixture();
    const QByteArray bytes = StateCoder::encode(f.state);
    for (auto _ : state) {
        auto parsed = json::parse(bytes);
        benchmark::DoNotOptimize(parsed);
    }
}
BENCHMARK(BM_ParseOnly)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

void BM_RepairOnly(benchmark::State &state)
{
    auto &f = fixture();
    for (auto _ : state) {
        state.PauseTiming();
        PersistedState copy = f.state;
        state.ResumeTiming();
        StateStore::repair(copy);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_RepairOnly)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

} // namespace
