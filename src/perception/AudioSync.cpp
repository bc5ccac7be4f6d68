#include "perception/AudioSync.h"

#include <fftw3.h>
#include <sndfile.h>

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <mutex>
#include <numeric>

namespace velum::AudioSync {

namespace {

// FFTW's planner keeps global state: plans are made and destroyed, and its
// buffers allocated and freed, one at a time. Running a plan is safe from
// any thread.
std::mutex &plannerMutex()
{
    static std::mutex mutex;
    return mutex;
}

struct FFTWFree {
    void operator()(fftwf_complex *p) const
    {
        const std::lock_guard lock(plannerMutex());
        fftwf_free(p);
    }
};
using ComplexBuffer = std::unique_ptr<fftwf_complex[], FFTWFree>;

ComplexBuffer complexBuffer(std::size_t size)
{
    const std::lock_guard lock(plannerMutex());
    auto *p = static_cast<fftwf_complex *>(fftwf_malloc(sizeof(fftwf_complex) * size));
    if (!p)
        throw std::bad_alloc();
    return ComplexBuffer(p);
}

// An in-place transform of one size and direction, planned once and run on
// any buffer of that size from fftwf_malloc.
class Transform {
public:
    Transform(int size, fftwf_complex *buffer, int sign)
    {
        const std::lock_guard lock(plannerMutex());
        m_plan = fftwf_plan_dft_1d(size, buffer, buffer, sign, FFTW_ESTIMATE);
        if (!m_plan)
            throw std::bad_alloc();
    }
    Transform(const Transform &) = delete;
    Transform &operator=(const Transform &) = delete;
    ~Transform()
    {
        const std::lock_guard lock(plannerMutex());
        fftwf_destroy_plan(m_plan);
    }

    void operator()(fftwf_complex *buffer) const { fftwf_execute_dft(m_plan, buffer, buffer); }

private:
    fftwf_plan m_plan = nullptr;
};

// The signal in the real parts, zero everywhere else.
void load(fftwf_complex *buffer, std::size_t size, std::span<const float> signal)
{
    std::fill_n(&buffer[0][0], 2 * size, 0.0f);
    for (std::size_t i = 0; i < signal.size(); ++i)
        buffer[i][0] = signal[i];
}

// The root mean square of `count` values `stride` apart. The squares are
// summed in eight lanes, which the compiler turns into vector operations.
float rootMeanSquare(const float *values, std::size_t count, std::size_t stride)
{
    constexpr std::size_t lanes = 8;
    float sums[lanes] = {};
    std::size_t i = 0;
    if (stride == 1) {
        for (; i + lanes <= count; i += lanes) {
            for (std::size_t lane = 0; lane < lanes; ++lane)
                sums[lane] += values[i + lane] * values[i + lane];
        }
    }
    for (; i < count; ++i)
        sums[i % lanes] += values[i * stride] * values[i * stride];
    float sum = 0;
    for (const float lane : sums)
        sum += lane;
    return std::sqrt(sum / float(count));
}

} // namespace

QCoro::Task<QUrl> extractWAV(QUrl url, QString clipId, std::optional<double> startS, std::optional<double> durationS,
                             ProcessRunner runner, Cancellation cancellation)
{
    const QString folder = QDir(QDir::tempPath()).filePath(temporaryFolderName);
    QDir().mkpath(folder);
    const QString output = QDir(folder).filePath(clipId + QStringLiteral(".wav"));
    const QUrl ffmpeg = runner.require(QStringLiteral("ffmpeg")).url;

    QStringList arguments{QStringLiteral("-nostdin"), QStringLiteral("-y"), QStringLiteral("-v"),
                          QStringLiteral("error")};
    if (startS)
        arguments << QStringLiteral("-ss") << QString::asprintf("%.3f", *startS);
    if (durationS)
        arguments << QStringLiteral("-t") << QString::asprintf("%.3f", *durationS);
    arguments << QStringLiteral("-i") << url.toLocalFile() << QStringLiteral("-vn") << QStringLiteral("-ac")
              << QStringLiteral("1") << QStringLiteral("-ar") << QStringLiteral("16000") << QStringLiteral("-c:a")
              << QStringLiteral("pcm_s16le") << output;

    auto run = ProcessRunner::run(ffmpeg, arguments, ProcessRunner::QualityOfService::utility, cancellation);
    const ProcessRunner::Output result = co_await std::move(run);
    ProcessRunner::requireSuccess(QStringLiteral("ffmpeg -i … wav"), result.status, result.text);
    co_return QUrl::fromLocalFile(output);
}

std::vector<float> rawEnvelope(const QString &path)
{
    SF_INFO info{};
    const QByteArray encodedPath = QFile::encodeName(path);
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE *)> file(sf_open(encodedPath.constData(), SFM_READ, &info),
                                                            &sf_close);
    if (!file)
        throw AudioReadError(QStringLiteral("Could not open %1 as audio: %2")
                                 .arg(path, QString::fromUtf8(sf_strerror(nullptr)))
                                 .toStdString());
    std::vector<float> envelope;
    const long window = std::lround(double(info.samplerate) / envelopeRate);
    if (window < 1 || info.channels < 1)
        return envelope;

    // A read is a whole number of windows, so every window starts at the
    // start of a read or a whole number of windows after it; the partial
    // window at the end of the last read is dropped with it.
    const sf_count_t framesPerRead = sf_count_t(window) * windowsPerRead;
    const auto channels = std::size_t(info.channels);
    std::vector<float> block(std::size_t(framesPerRead) * channels);
    for (;;) {
        const sf_count_t frames = sf_readf_float(file.get(), block.data(), framesPerRead);
        if (frames <= 0)
            break; // the end, or a read error: keep what was gathered
        for (sf_count_t start = 0; start + window <= frames; start += window)
            envelope.push_back(rootMeanSquare(block.data() + std::size_t(start) * channels, std::size_t(window),
                                              channels));
        if (frames < framesPerRead)
            break;
    }
    return envelope;
}

std::vector<float> normalize(std::vector<float> envelope)
{
    if (envelope.empty())
        return envelope;
    const double mean = std::accumulate(envelope.begin(), envelope.end(), 0.0) / double(envelope.size());
    double energy = 0;
    for (float &value : envelope) {
        value = float(double(value) - mean);
        energy += double(value) * double(value);
    }
    if (energy > 0) {
        const double scale = std::sqrt(energy);
        for (float &value : envelope)
            value = float(double(value) / scale);
    }
    return envelope;
}

std::optional<Match> match(std::span<const float> clip, std::span<const float> reference)
{
    if (clip.empty() || reference.empty())
        return std::nullopt;
    const std::size_t n = clip.size();
    const std::size_t m = reference.size();
    std::size_t size = 1;
    while (size < n + m)
        size *= 2;
    if (size > std::size_t(std::numeric_limits<int>::max()))
        return std::nullopt;

    const ComplexBuffer a = complexBuffer(size);
    const ComplexBuffer b = complexBuffer(size);
    const Transform forward(int(size), a.get(), FFTW_FORWARD);
    const Transform backward(int(size), a.get(), FFTW_BACKWARD);

    load(a.get(), size, reference);
    load(b.get(), size, clip);
    forward(a.get());
    forward(b.get());
    // A times the conjugate of B, into A.
    for (std::size_t i = 0; i < size; ++i) {
        const float ar = a[i][0];
        const float ai = a[i][1];
        const float br = b[i][0];
        const float bi = b[i][1];
        a[i][0] = ar * br + ai * bi;
        a[i][1] = ai * br - ar * bi;
    }
    backward(a.get());

    // Only lags at which the clip starts inside the reference and runs over
    // its end by at most half its own length.
    const std::ptrdiff_t lags = std::min<std::ptrdiff_t>(
        std::max<std::ptrdiff_t>(std::ptrdiff_t(m) - std::ptrdiff_t(n / 2), 1), std::ptrdiff_t(size));
    const float scale = float(size);
    const auto correlation = [&](std::ptrdiff_t lag) { return a[lag][0] / scale; };

    std::ptrdiff_t k = 0;
    float peak = correlation(0);
    for (std::ptrdiff_t lag = 1; lag < lags; ++lag) {
        if (const float c = correlation(lag); c > peak) {
            peak = c;
            k = lag;
        }
    }
    if (!(peak > 0))
        return std::nullopt;

    float second = 0;
    for (std::ptrdiff_t lag = 0; lag < lags; ++lag) {
        if (std::abs(lag - k) > minimumPeakSeparation)
            second = std::max(second, correlation(lag));
    }
    return Match{
        .offsetS = double(k) / envelopeRate,
        .confidence = second == 0 ? std::numeric_limits<double>::infinity() : double(peak) / double(second),
        .peak = double(peak),
    };
}

} // namespace velum::AudioSync
