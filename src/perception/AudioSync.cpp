#include "perception/AudioSync.h"

#include <sndfile.h>

#include <QFile>

#include <cmath>
#include <memory>

namespace velum::AudioSync {

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

    const sf_count_t framesPerRead = sf_count_t(window) * windowsPerRead;
    std::vector<float> block(std::size_t(framesPerRead) * std::size_t(info.channels));
    // The first channel of what has been read but not yet summed: always
    // less than one window between reads.
    std::vector<float> carry;
    carry.reserve(std::size_t(framesPerRead + window));
    for (;;) {
        const sf_count_t frames = sf_readf_float(file.get(), block.data(), framesPerRead);
        if (frames <= 0)
            break; // the end, or a read error: keep what was gathered
        for (sf_count_t f = 0; f < frames; ++f)
            carry.push_back(block[std::size_t(f) * std::size_t(info.channels)]);
        std::size_t start = 0;
        for (; start + std::size_t(window) <= carry.size(); start += std::size_t(window)) {
            double sum = 0;
            for (std::size_t i = start; i < start + std::size_t(window); ++i)
                sum += double(carry[i]) * double(carry[i]);
            envelope.push_back(float(std::sqrt(sum / double(window))));
        }
        carry.erase(carry.begin(), carry.begin() + std::ptrdiff_t(start));
        if (frames < framesPerRead)
            break;
    }
    return envelope;
}

} // namespace velum::AudioSync
