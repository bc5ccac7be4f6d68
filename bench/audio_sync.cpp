// What audio sync costs on a long shoot: one hour of external recording and
// ten camera takes of three minutes each.
//
//   BM_MatchTakeInHour  AudioSync::match of one take's envelope against the
//                       hour's (target: at most 150 ms)
//   BM_ExtractFloor     ffmpeg alone making the stage's WAVs: the hour first,
//                       then the ten takes at once, with the same argument
//                       vectors run the same way (extractWAV)
//   BM_RunC05           the whole stage: the same extractions, the envelopes,
//                       the matches, the shooting order and the document
//                       (target: at most 1.2 times the floor)
//
// The machine is shared, so besides the time each run reports `cpu_s`: the
// processor time of this process and of the ffmpeg children together, which
// load elsewhere does not inflate.
//
// The external track is a 48 kHz mono WAV, as a recorder writes it: white
// noise whose loudness follows a slow random curve, so that every stretch of
// it is unlike every other. Each take is three minutes cut from it, in AAC as
// a camera writes it. They are made once in the temporary folder (a minute or
// two) and kept for later runs.

#include "perception/AudioSync.h"
#include "perception/SyncStage.h"
#include "tools/ProcessRunner.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

using namespace velum;

namespace {

using bench::tool;
using bench::wait;

constexpr int takeCount = 10;
constexpr double takeLengthS = 180;

double takeOffsetS(int i) { return 97.31 + 341.7 * i; }


void ffmpeg(const QStringList &arguments, const QString &target)
{
    const QString partial = target + QStringLiteral(".part.") + QFileInfo(target).suffix();
    const auto output = ProcessRunner::runBlocking(
        tool("ffmpeg"), QStringList{"-nostdin", "-v", "error", "-y"} + arguments + QStringList{partial});
    if (output.status != 0 || !QFile::rename(partial, target)) {
        std::fprintf(stderr, "could not make %s: %s\n", qUtf8Printable(target), qUtf8Printable(output.text));
        QFile::remove(partial);
        std::exit(1);
    }
}

struct Media {
    QString external;
    std::vector<QString> takes;
};

// Makes what is missing, then reads everything once into the page cache.
const Media &media()
{
    static const Media made = [] {
        const QDir dir(QDir::tempPath() + QStringLiteral("/velum-bench-sync-v1"));
        dir.mkpath(QStringLiteral("."));
        Media m{.external = dir.filePath(QStringLiteral("external.wav")), .takes = {}};
        if (!QFileInfo::exists(m.external)) {
            std::fprintf(stderr, "making %s (one hour at 48 kHz)...\n", qUtf8Printable(m.external));
            ffmpeg({"-f", "lavfi", "-i", "anoisesrc=r=48000:c=white:seed=11:d=3600", "-f", "lavfi", "-i",
                    "anoisesrc=r=48000:c=brown:seed=12:d=3600", "-filter_complex",
                    "[1]lowpass=f=3,volume=8[m];[0][m]amultiply", "-ac", "1", "-c:a", "pcm_s16le"},
                   m.external);
        }
        for (int i = 0; i < takeCount; ++i) {
            const QString take = dir.filePath(QStringLiteral("take%1.m4a").arg(i + 1));
            if (!QFileInfo::exists(take))
                ffmpeg({"-ss", QString::number(takeOffsetS(i)), "-t", QString::number(takeLengthS), "-i", m.external,
                        "-c:a", "aac", "-b:a", "128k"},
                       take);
            m.takes.push_back(take);
        }
        const auto warm = ProcessRunner::runBlocking(tool("cat"), QStringList{m.external} + QStringList(m.takes.begin(), m.takes.end()));
        (void)warm;
        return m;
    }();
    return made;
}

// Processor seconds used so far by this process and its ended children.
double processorSeconds()
{
    double total = 0;
    for (const int who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage{};
        getrusage(who, &usage);
        total += double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
                 + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    }
    return total;
}

std::vector<float> envelopeOf(const QString &path, const QString &clipId)
{
    const QUrl wav = wait(AudioSync::extractWAV(QUrl::fromLocalFile(path), clipId));
    std::vector<float> envelope = AudioSync::normalize(AudioSync::rawEnvelope(wav.toLocalFile()));
    QFile::remove(wav.toLocalFile());
    return envelope;
}

void BM_MatchTakeInHour(benchmark::State &state)
{
    const Media &m = media();
    const std::vector<float> reference = envelopeOf(m.external, QStringLiteral("bench-external"));
    const std::vector<float> clip = envelopeOf(m.takes[3], QStringLiteral("bench-take"));
    for (auto _ : state) {
        const auto found = AudioSync::match(clip, reference);
        if (!found || std::abs(found->offsetS - takeOffsetS(3)) > 0.01 || found->confidence < AudioSync::acceptance)
            state.SkipWithError("the take was not found where it was cut");
    }
}

// The extractions of the stage and nothing else, run as the stage runs them.
QCoro::Task<void> extractAll(const Media &m)
{
    auto reference = AudioSync::extractWAV(QUrl::fromLocalFile(m.external), QStringLiteral("bench-external"));
    QFile::remove((co_await std::move(reference)).toLocalFile());
    std::vector<QCoro::Task<QUrl>> takes;
    for (int i = 0; i < takeCount; ++i)
        takes.push_back(AudioSync::extractWAV(QUrl::fromLocalFile(m.takes[std::size_t(i)]),
                                              QStringLiteral("bench-take%1").arg(i + 1)));
    for (auto &take : takes)
        QFile::remove((co_await std::move(take)).toLocalFile());
}

void BM_ExtractFloor(benchmark::State &state)
{
    const Media &m = media();
    const double before = processorSeconds();
    for (auto _ : state)
        wait(extractAll(m));
    state.counters["cpu_s"] = (processorSeconds() - before) / double(state.iterations());
}

C0Probe::Clip probed(const QString &id, const QString &path, ProjectFileRole role)
{
    C0Probe::Clip clip{.clipId = id, .filename = QFileInfo(path).fileName(), .path = path, .role = role,
                       .state = ProjectFileState::ok};
    clip.media = ClipMedia{.clipId = id, .durationS = takeLengthS};
    clip.media->audioCodec = QStringLiteral("aac");
    return clip;
}

void BM_RunC05(benchmark::State &state)
{
    const Media &m = media();
    C0Probe probe;
    probe.clips.push_back(probed(QStringLiteral("bench-external"), m.external, ProjectFileRole::externalAudio));
    for (int i = 0; i < takeCount; ++i)
        probe.clips.push_back(probed(QStringLiteral("bench-take%1").arg(i + 1), m.takes[std::size_t(i)],
                                     ProjectFileRole::aRoll));
    const QTemporaryDir projects(QDir::tempPath() + QStringLiteral("/velum-bench-XXXXXX"));
    const ProjectWorkspace workspace{.overrideRoot = QUrl::fromLocalFile(projects.path())};
    const QUuid id = QUuid::createUuid();
    const double before = processorSeconds();
    for (auto _ : state) {
        const C05Sync sync = wait(ProcessPipeline::runC05(id, probe, workspace));
        int synced = 0;
        for (const auto &clip : sync.clips)
            synced += clip.isSynced ? 1 : 0;
        if (synced != takeCount)
            state.SkipWithError("not every take was synced");
    }
    state.counters["cpu_s"] = (processorSeconds() - before) / double(state.iterations());
}

} // namespace

BENCHMARK(BM_MatchTakeInHour)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(BM_ExtractFloor)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();
BENCHMARK(BM_RunC05)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();
