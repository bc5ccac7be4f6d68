#pragma once

// Placing a camera take on the external microphone's time line without any
// timecode: both sound tracks are reduced to a loudness envelope of 200
// values a second, cross-correlated by FFT, and a position is accepted only
// when its peak stands clear of every rival more than a second away.

#include "tools/Cancellation.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QString>
#include <QUrl>

#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

namespace velum::AudioSync {

struct Match {
    double offsetS = 0;    // from the start of the reference to the start of the clip
    double confidence = 0; // the peak over the best rival; infinite without one
    double peak = 0;       // the correlation value

    friend bool operator==(const Match &, const Match &) = default;
};

// Envelope values a second: one every 5 ms.
inline constexpr int envelopeRate = 200;
// A rival peak must lie strictly more than this many lags away.
inline constexpr int minimumPeakSeparation = 200;
// A match is accepted at this confidence and above.
inline constexpr double acceptance = 2.0;
// Envelope windows read at a time.
inline constexpr int windowsPerRead = 512;

// The file cannot be opened as audio; what() names it.
class AudioReadError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The name of the temporary folder of the sync stage, under the system's
// temporary folder.
inline constexpr QLatin1StringView temporaryFolderName{"velum-process"};

// The sound of `url` as mono 16 kHz signed 16-bit WAV, "<clipId>.wav" in the
// sync stage's temporary folder; `startS` and `durationS` cut before
// decoding. Throws ProcessRunner::FailureError (tool not found, or
// "ffmpeg -i … wav" with a non-zero status) and CancelledError.
QCoro::Task<QUrl> extractWAV(QUrl url, QString clipId, std::optional<double> startS = std::nullopt,
                             std::optional<double> durationS = std::nullopt, ProcessRunner runner = ProcessRunner(),
                             Cancellation cancellation = Cancellation());

// The root mean square of each window of sample rate / 200 frames of the
// first channel. The last partial window is dropped; a read error midway
// ends the envelope there. Throws AudioReadError when the file cannot be
// opened.
std::vector<float> rawEnvelope(const QString &path);

// Zero mean and unit energy; a flat envelope keeps zero mean only, an empty
// one stays empty.
std::vector<float> normalize(std::vector<float> envelope);

// Where the clip's envelope fits best in the reference's, both normalised:
// lags 0 to max(m - floor(n/2), 1) - 1. No match when either is empty or the
// best correlation is not above 0.
std::optional<Match> match(std::span<const float> clip, std::span<const float> reference);

} // namespace velum::AudioSync
