// What the verdict on a dropped file costs. The validator's work is one probe,
// one hash of the bytes and a decode of at most the first 60 seconds, so on a
// long 1080p take it should cost little more than that decode plus the hash:
//
//   BM_DecodeFloor   "ffmpeg -t 60 -i FILE -an -f null -" alone: the floor
//   BM_Probe         the ffprobe call and the reading of its JSON
//   BM_ContentHash   ContentHash::videoID's SHA-256 of the file, in bytes/s
//   BM_Sha256sum     sha256sum of the same file, for comparison
//   BM_Validate      MediaValidator::validate of the file as an A-roll take
//
// The 10-minute 1080p H.264 file (with sound) is made once in the temporary
// folder and kept for later runs. Every benchmark reads it whole first, so
// all of them see the file in the page cache.

#include "tools/ContentHash.h"
#include "tools/FFmpegRunner.h"
#include "tools/MediaValidator.h"
#include "tools/ProcessRunner.h"

#include "BenchSupport.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <cstdlib>
#include <memory>

using namespace velum;

namespace {

using bench::tool;
using bench::wait;

QString benchFile()
{
    return QDir(QDir::tempPath()).filePath(QStringLiteral("velum-bench-1080p-10min.mp4"));
}


// Makes the file when it is not there yet (a few minutes), then reads it once
// so that it sits in the page cache.
const QString &mediaFile()
{
    static const QString path = [] {
        const QString target = benchFile();
        if (!QFileInfo::exists(target)) {
            std::fprintf(stderr, "making %s (10 minutes of 1080p H.264)...\n", qUtf8Printable(target));
            const QString partial = target + QStringLiteral(".part.mp4");
            const auto output = ProcessRunner::runBlocking(
                tool("ffmpeg"),
                {"-nostdin", "-v", "error", "-y", "-f", "lavfi", "-i", "testsrc2=size=1920x1080:rate=25:duration=600",
                 "-f", "lavfi", "-i", "sine=frequency=440:sample_rate=48000:duration=600", "-c:v", "libx264",
                 "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac", "-ac", "2", partial});
            if (output.status != 0 || !QFile::rename(partial, target)) {
                std::fprintf(stderr, "could not make the file: %s\n", qUtf8Printable(output.text));
                QFile::remove(partial);
                std::exit(1);
            }
        }
        const auto warm = ProcessRunner::runBlocking(tool("cat"), {target});
        (void)warm;
        return target;
    }();
    return path;
}

void BM_DecodeFloor(benchmark::State &state)
{
    const QString &file = mediaFile();
    const QUrl ffmpeg = tool("ffmpeg");
    for (auto _ : state) {
        const auto output = ProcessRunner::runBlocking(ffmpeg, {"-t", "60", "-i", file, "-an", "-f", "null", "-"});
        if (output.status != 0)
            state.SkipWithError("ffmpeg failed");
    }
}

void BM_Probe(benchmark::State &state)
{
    const QUrl url = QUrl::fromLocalFile(mediaFile());
    for (auto _ : state) {
        const auto probe = wait(FFmpegRunner::probe(url));
        benchmark::DoNotOptimize(probe.durationS);
    }
}

void BM_ContentHash(benchmark::State &state)
{
    const QUrl url = QUrl::fromLocalFile(mediaFile());
    const qint64 size = QFileInfo(mediaFile()).size();
    for (auto _ : state) {
        const QString id = ContentHash::videoIDBlocking(url);
        benchmark::DoNotOptimize(id.size());
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void BM_Sha256sum(benchmark::State &state)
{
    const QString &file = mediaFile();
    const QUrl sha256sum = tool("sha256sum");
    const qint64 size = QFileInfo(file).size();
    for (auto _ : state) {
        const auto output = ProcessRunner::runBlocking(sha256sum, {file});
        if (output.status != 0)
            state.SkipWithError("sha256sum failed");
    }
    state.SetBytesProcessed(state.iterations() * size);
}

void BM_Validate(benchmark::State &state)
{
    const QUrl url = QUrl::fromLocalFile(mediaFile());
    for (auto _ : state) {
        const auto outcome = wait(MediaValidator::validate(url, ProjectFileRole::aRoll));
        if (outcome.state != ProjectFileState::ok)
            state.SkipWithError("the file did not validate as ok");
    }
}

} // namespace

BENCHMARK(BM_DecodeFloor)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Probe)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();
BENCHMARK(BM_ContentHash)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Sha256sum)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_Validate)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
