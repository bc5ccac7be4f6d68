// The decode passes of FFmpegRunner: integrity, scene cuts, silences and
// motion. Each resolves ffmpeg afresh, runs one fixed argument vector and
// reads what the tool printed once it has ended.

#include "tools/FFmpegRunner.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace velum::FFmpegRunner {

namespace {

QUrl requireFFmpeg(const ProcessRunner &runner) { return runner.require(QStringLiteral("ffmpeg")).url; }

// The lines of a text, without their line ends.
QList<QStringView> linesOf(QStringView text) { return text.split(QLatin1Char('\n')); }

// What follows `marker` in `line`, or none when the marker is not there.
std::optional<QStringView> after(QStringView line, QLatin1StringView marker)
{
    const qsizetype at = line.indexOf(marker);
    if (at < 0)
        return std::nullopt;
    return line.mid(at + marker.size());
}

// The text up to the first white space.
QStringView firstWord(QStringView text)
{
    qsizetype end = 0;
    while (end < text.size() && !text[end].isSpace())
        ++end;
    return text.left(end);
}

qint64 roundedCount(double value)
{
    if (!std::isfinite(value) || value < 0)
        return 0;
    const double r = std::round(value);
    return r > 9.2e18 ? std::numeric_limits<qint64>::max() : static_cast<qint64>(r);
}

QString shortestDecimal(double value)
{
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

// Whole decibels of a threshold, truncated toward zero and held to what an
// integer can hold.
long long wholeDecibels(double noiseDB)
{
    if (std::isnan(noiseDB))
        return 0;
    const double clamped = std::clamp(std::trunc(noiseDB), -1e15, 1e15);
    return static_cast<long long>(clamped);
}

} // namespace

// --- The integrity report -----------------------------------------------------

std::optional<double> DecodeIntegrity::loss() const
{
    if (expectedFrames < 1)
        return std::nullopt;
    const double value = static_cast<double>(expectedFrames - decodedFrames) / static_cast<double>(expectedFrames);
    if (value < 0)
        return std::nullopt;
    return value;
}

DecodeIntegrity::Verdict DecodeIntegrity::verdict() const
{
    const auto lost = loss();
    if (lost && *lost > 0.05)
        return Verdict::damaged;
    if (lost && *lost > 0.01)
        return Verdict::warning;
    if (decodeErrorLines > 50)
        return Verdict::warning;
    return Verdict::clean;
}

bool DecodeIntegrity::isDamaged() const
{
    const auto lost = loss();
    return lost && *lost > 0.05;
}

QString DecodeIntegrity::message() const
{
    const auto lost = loss();
    switch (verdict()) {
    case Verdict::clean:
        return QStringLiteral("Decodes cleanly.");
    case Verdict::damaged: {
        const QString span = sampledS ? QStringLiteral(" in the first %1 seconds").arg(std::llround(*sampledS))
                                      : QString();
        return QStringLiteral("Only %1 of %2 frames%3 could be decoded (%4% loss), with %5 decode errors. "
                              "Re-export or re-download the file.")
            .arg(decodedFrames)
            .arg(expectedFrames)
            .arg(span)
            .arg(std::llround(lost.value_or(0) * 100))
            .arg(decodeErrorLines);
    }
    case Verdict::warning: {
        const QString consequence = lost && *lost > 0.01
                                        ? QStringLiteral("measurements from this file are marked approximate")
                                        : QStringLiteral("measurements unaffected");
        return QStringLiteral("Minor decode issues — %1% frame loss, %2 decoder warnings; %3.")
            .arg(QString::asprintf("%.1f", lost.value_or(0) * 100))
            .arg(decodeErrorLines)
            .arg(consequence);
    }
    }
    return {};
}

std::optional<QString> DecodeIntegrity::note() const
{
    if (verdict() == Verdict::clean)
        return std::nullopt;
    return message();
}

// --- Scene cuts -----------------------------------------------------------------

std::vector<DetectedCut> peakPick(std::vector<ScoredTime> events, double minSeparationS)
{
    if (events.empty())
        return {};
    const double maxScore =
        std::max_element(events.begin(), events.end(), [](const auto &a, const auto &b) { return a.score < b.score; })
            ->score;
    if (!(maxScore > 0))
        return {};

    std::stable_sort(events.begin(), events.end(), [](const auto &a, const auto &b) { return a.score > b.score; });
    std::vector<ScoredTime> kept;
    for (const auto &event : events) {
        const bool crowded = std::any_of(kept.begin(), kept.end(), [&](const ScoredTime &other) {
            return std::abs(event.t - other.t) < minSeparationS;
        });
        if (!crowded)
            kept.push_back(event);
    }
    std::stable_sort(kept.begin(), kept.end(), [](const auto &a, const auto &b) { return a.t < b.t; });

    std::vector<DetectedCut> cuts;
    cuts.reserve(kept.size());
    for (const auto &event : kept)
        cuts.push_back(DetectedCut{event.t, event.score, std::min(event.score / maxScore, 1.0)});
    return cuts;
}

CutsWithIntegrity cutsFromSceneScores(QStringView printed, double threshold, double minSeparationS,
                                      std::optional<double> durationS)
{
    static constexpr QLatin1StringView ptsMarker("pts_time:");
    static constexpr QLatin1StringView scoreMarker("lavfi.scd.score=");

    std::vector<ScoredTime> raw;
    std::optional<double> pendingT;
    double maxT = 0;
    qint64 frames = 0;
    for (const auto line : linesOf(printed)) {
        if (const auto rest = after(line, ptsMarker)) {
            pendingT = number(firstWord(*rest));
            maxT = std::max(maxT, pendingT.value_or(0));
            ++frames;
        } else if (const auto scoreText = after(line, scoreMarker)) {
            if (!pendingT)
                continue;
            const double score = number(scoreText->trimmed()).value_or(0);
            if (threshold <= score)
                raw.push_back(ScoredTime{*pendingT, score});
            // One frame gives one event at most.
            pendingT.reset();
        }
    }

    // Fades and camera starts look like cuts: the first and the last second
    // of a file never hold one.
    const double limit = durationS.value_or(maxT) - 1.0;
    std::erase_if(raw, [limit](const ScoredTime &event) { return !(event.t >= 1.0 && event.t <= limit); });

    CutsWithIntegrity result;
    result.cuts = peakPick(std::move(raw), minSeparationS);
    result.integrity.decodedFrames = frames;
    return result;
}

// --- Argument vectors -------------------------------------------------------------

QStringList integrityArguments(const QString &path, std::optional<double> sampleS)
{
    QStringList arguments{QStringLiteral("-nostdin"), QStringLiteral("-v"), QStringLiteral("error"),
                          QStringLiteral("-progress"), QStringLiteral("pipe:1")};
    if (sampleS)
        arguments << QStringLiteral("-t") << QString::asprintf("%.3f", *sampleS);
    arguments << QStringLiteral("-i") << path << QStringLiteral("-an") << QStringLiteral("-f") << QStringLiteral("null")
              << QStringLiteral("-");
    return arguments;
}

QStringList sceneCutArguments(const QString &path)
{
    return {QStringLiteral("-nostdin"), QStringLiteral("-v"),   QStringLiteral("error"),
            QStringLiteral("-i"),       path,                   QStringLiteral("-an"),
            QStringLiteral("-vf"),      QStringLiteral("scdet=threshold=100,metadata=print:file=-"),
            QStringLiteral("-f"),       QStringLiteral("null"), QStringLiteral("-")};
}

QStringList silenceArguments(const QString &path, double noiseDB, double minDurationS)
{
    return {QStringLiteral("-nostdin"),
            QStringLiteral("-v"),
            QStringLiteral("info"),
            QStringLiteral("-i"),
            path,
            QStringLiteral("-vn"),
            QStringLiteral("-af"),
            QStringLiteral("silencedetect=noise=%1dB:d=%2").arg(wholeDecibels(noiseDB)).arg(shortestDecimal(minDurationS)),
            QStringLiteral("-f"),
            QStringLiteral("null"),
            QStringLiteral("-")};
}

QStringList motionArguments(const QString &path)
{
    return {QStringLiteral("-nostdin"),
            QStringLiteral("-v"),
            QStringLiteral("error"),
            QStringLiteral("-i"),
            path,
            QStringLiteral("-an"),
            QStringLiteral("-vf"),
            QStringLiteral("scale=160:-2,format=gray,tblend=all_mode=difference,signalstats,"
                           "metadata=print:key=lavfi.signalstats.YAVG:file=-"),
            QStringLiteral("-f"),
            QStringLiteral("null"),
            QStringLiteral("-")};
}

QStringList compressAudioArguments(const QUrl &from, const QUrl &to, int bitrateKbps)
{
    return {QStringLiteral("-nostdin"),
            QStringLiteral("-y"),
            QStringLiteral("-v"),
            QStringLiteral("error"),
            QStringLiteral("-i"),
            from.toLocalFile(),
            QStringLiteral("-vn"),
            QStringLiteral("-c:a"),
            QStringLiteral("aac"),
            QStringLiteral("-b:a"),
            QStringLiteral("%1k").arg(bitrateKbps),
            QStringLiteral("-f"),
            QStringLiteral("ipod"),
            QStringLiteral("-movflags"),
            QStringLiteral("+faststart"),
            to.toLocalFile()};
}

// --- The passes ---------------------------------------------------------------------

QCoro::Task<DecodeIntegrity> checkIntegrity(QUrl url, std::optional<double> sampleS, std::optional<Probe> given,
                                            ProcessRunner runner, Cancellation cancellation)
{
    Probe facts;
    if (given) {
        facts = *given;
    } else {
        auto probing = probe(url, runner, cancellation);
        facts = co_await std::move(probing);
    }
    const QUrl ffmpeg = requireFFmpeg(runner);

    // Only the head of a longer file is decoded; "-t" before the input stops
    // the demuxer there.
    const bool sampled = sampleS && (!(facts.durationS > 0) || facts.durationS > *sampleS);
    auto run = ProcessRunner::runSeparated(
        ffmpeg, integrityArguments(url.toLocalFile(), sampled ? sampleS : std::nullopt), cancellation);
    const ProcessRunner::SeparatedOutput output = co_await std::move(run);

    DecodeIntegrity report;
    for (const auto line : linesOf(output.stdoutText)) {
        if (!line.startsWith(QLatin1String("frame=")))
            continue;
        if (const auto frames = integer(line.mid(6).trimmed()))
            report.decodedFrames = *frames;
    }
    if (sampled) {
        report.expectedFrames = facts.fps > 0 ? roundedCount(std::min(facts.durationS, *sampleS) * facts.fps) : 0;
        report.sampledS = sampleS;
    } else {
        report.expectedFrames = facts.expectedVideoFrames().value_or(0);
    }
    report.decodeErrorLines = errorLineCount(output.stderrText);
    co_return report;
}

QCoro::Task<CutsWithIntegrity> detectCutsWithIntegrity(QUrl url, double threshold, double minSeparationS,
                                                       std::optional<double> durationS,
                                                       std::optional<qint64> expectedFrames, ProcessRunner runner,
                                                       Cancellation cancellation)
{
    const QUrl ffmpeg = requireFFmpeg(runner);
    auto run = ProcessRunner::runSeparated(ffmpeg, sceneCutArguments(url.toLocalFile()), cancellation);
    const ProcessRunner::SeparatedOutput output = co_await std::move(run);
    ProcessRunner::requireSuccess(QStringLiteral("ffmpeg scdet"), output.status, output.stderrText);

    CutsWithIntegrity result = cutsFromSceneScores(output.stdoutText, threshold, minSeparationS, durationS);
    result.integrity.expectedFrames = expectedFrames.value_or(0);
    result.integrity.decodeErrorLines = errorLineCount(output.stderrText);
    co_return result;
}

std::vector<Silence> silencesFromLog(QStringView log)
{
    static constexpr QLatin1StringView startMarker("silence_start:");
    static constexpr QLatin1StringView endMarker("silence_end:");

    std::vector<Silence> silences;
    std::optional<double> pendingStart;
    for (const auto line : linesOf(log)) {
        if (const auto rest = after(line, startMarker)) {
            pendingStart = number(rest->trimmed());
        } else if (const auto rest = after(line, endMarker)) {
            const qsizetype bar = rest->indexOf(QLatin1Char('|'));
            const auto end = number((bar < 0 ? *rest : rest->left(bar)).trimmed());
            if (end && pendingStart) {
                silences.push_back(Silence{*pendingStart, *end});
                pendingStart.reset();
            }
        }
    }
    return silences;
}

QCoro::Task<std::vector<Silence>> detectSilences(QUrl url, double noiseDB, double minDurationS, ProcessRunner runner,
                                                 Cancellation cancellation)
{
    const QUrl ffmpeg = requireFFmpeg(runner);
    auto run = ProcessRunner::run(ffmpeg, silenceArguments(url.toLocalFile(), noiseDB, minDurationS), std::nullopt,
                                  cancellation);
    const ProcessRunner::Output output = co_await std::move(run);
    co_return silencesFromLog(output.text);
}

QCoro::Task<std::vector<float>> motionEnvelope(QUrl url, ProcessRunner runner, Cancellation cancellation)
{
    static constexpr QLatin1StringView marker("lavfi.signalstats.YAVG=");

    const QUrl ffmpeg = requireFFmpeg(runner);
    auto run = ProcessRunner::run(ffmpeg, motionArguments(url.toLocalFile()), std::nullopt, cancellation);
    const ProcessRunner::Output output = co_await std::move(run);

    // The first frame has nothing before it to differ from.
    std::vector<float> envelope{0.0f};
    for (const auto line : linesOf(output.text)) {
        if (const auto rest = after(line, marker)) {
            if (const auto value = floatNumber(rest->trimmed()))
                envelope.push_back(*value);
        }
    }
    if (envelope.size() < 2)
        envelope.clear();
    co_return envelope;
}

} // namespace velum::FFmpegRunner
