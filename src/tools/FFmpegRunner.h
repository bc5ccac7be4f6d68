#pragma once

// The front end to ffmpeg and ffprobe: what a media file is (the probe) and
// what a decode of it measures (the passes). Nothing is kept between calls;
// every call resolves its tool afresh through the given runner, whose
// locations default to the application's bundled folder, "PATH" and the
// standard extra folders.
//
// Every tool runs on the utility pool through ProcessRunner and is awaited;
// the argument vectors are fixed, the file's plain path being one argument.
// A pass runs to its end once started unless its Cancellation is cancelled,
// which kills the tool and throws CancelledError.

#include "model/Json.h"
#include "model/Project.h"
#include "tools/Cancellation.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <QUrl>

#include <map>
#include <optional>
#include <vector>

namespace velum {

// The JSON that "ffprobe -print_format json -show_format -show_streams"
// prints, with the tool's own keys. Everything but `format` and `streams` may
// be missing, unknown keys are ignored, and numbers the tool prints as text
// stay text here.
struct FFProbeOutput {
    struct Format {
        std::optional<QString> duration;
        std::optional<QString> size;
        std::optional<std::map<QString, QString>> tags;

        friend bool operator==(const Format &, const Format &) = default;
    };

    struct Stream {
        std::optional<QString> codec_type;
        std::optional<QString> codec_name;
        std::optional<int> width;
        std::optional<int> height;
        std::optional<QString> r_frame_rate;
        std::optional<QString> avg_frame_rate;
        std::optional<QString> sample_rate;
        std::optional<int> channels;
        std::optional<QString> nb_frames;
        std::optional<QString> duration;
        std::optional<std::map<QString, QString>> tags;

        friend bool operator==(const Stream &, const Stream &) = default;
    };

    Format format;
    std::vector<Stream> streams;

    friend bool operator==(const FFProbeOutput &, const FFProbeOutput &) = default;

    // Throws json::DecodingError when the text is not JSON of this shape.
    static FFProbeOutput decode(const QByteArray &bytes);
};

// MediaTimecode's reader of a timecode text ("HH:MM:SS:FF", or with a ";"
// anywhere for drop-frame) at a measured frame rate. It belongs with the
// reading of media files, so it lives here rather than with the record.
//
// The frame count is (minutes · 60 + seconds) · nominal + frames, nominal
// being the rounded rate; a drop-frame count then loses nominal / 15 frames a
// minute except every tenth minute, and needs a nominal rate that is a
// multiple of 30. The result is the count in frame durations of
// FCPXMLFrameRate(fps), with the text kept as given. No value for a rate not
// above 0, a malformed text, fields out of range, frames not below the
// nominal rate, or a count too large for 64-bit time.
std::optional<MediaTimecode> parseMediaTimecode(QStringView timecode, double fps);

namespace FFmpegRunner {

// The facts of a media file.
struct Probe {
    double durationS = 0;
    double fps = 0; // 0 when unknown
    int width = 0;  // 0 without video
    int height = 0;
    std::optional<QString> videoCodec;
    std::optional<QString> audioCodec;
    std::optional<int> sampleRate;
    std::optional<int> channels;
    qint64 sizeBytes = 0; // 0 when unknown
    std::optional<QDateTime> creationTime;
    std::optional<qint64> nbFrames; // the container's own frame count
    std::optional<MediaTimecode> startTimecode;

    friend bool operator==(const Probe &, const Probe &) = default;

    // `nbFrames` when above 0; otherwise duration times frame rate, rounded,
    // when both are above 0; otherwise none.
    std::optional<qint64> expectedVideoFrames() const;
};

size_t qHash(const Probe &probe, size_t seed = 0);

// One scene cut.
struct DetectedCut {
    double t = 0;          // seconds
    double score = 0;      // the filter's score
    double confidence = 0; // score over the highest score, 0 to 1

    friend bool operator==(const DetectedCut &, const DetectedCut &) = default;
};

// One stretch of silence.
struct Silence {
    double startS = 0;
    double endS = 0;

    friend bool operator==(const Silence &, const Silence &) = default;
};

// What a decode found: frames decoded against frames expected, and the lines
// the decoder complained on.
struct DecodeIntegrity {
    enum class Verdict { clean, warning, damaged };

    qint64 decodedFrames = 0;
    qint64 expectedFrames = 0; // 0 when unknown
    qint64 decodeErrorLines = 0;
    std::optional<double> sampledS; // set when only the head was decoded

    friend bool operator==(const DecodeIntegrity &, const DecodeIntegrity &) = default;

    // (expected - decoded) / expected; none when fewer than one frame was
    // expected or more were decoded than expected.
    std::optional<double> loss() const;
    // Loss above 5 % is damage, above 1 % a warning, and so are more than 50
    // error lines; the error lines alone never make a file damaged.
    Verdict verdict() const;
    bool isDamaged() const;
    // What the user reads about the decode.
    QString message() const;
    // The message, except for a clean decode.
    std::optional<QString> note() const;
};

struct CutsWithIntegrity {
    std::vector<DetectedCut> cuts;
    DecodeIntegrity integrity;

    friend bool operator==(const CutsWithIntegrity &, const CutsWithIntegrity &) = default;
};

// A scored moment before peak picking.
struct ScoredTime {
    double t = 0;
    double score = 0;

    friend bool operator==(const ScoredTime &, const ScoredTime &) = default;
};

// --- Reading the tools' text ---------------------------------------------------

// Strict C-locale parses of a whole text: no blanks, nothing after the
// number; a leading sign is allowed; overflow gives no number.
std::optional<qint64> integer(QStringView text);
std::optional<double> number(QStringView text);
std::optional<float> floatNumber(QStringView text);

// "30000/1001" is 29.97002997…, "25" is 25; absent, "0/0" and anything
// unreadable are 0.
double frameRate(const std::optional<QString> &text);

// An ISO 8601 moment with a zone, read first without and then with a
// fraction of a second.
std::optional<QDateTime> date(const std::optional<QString> &text);

// The start time a file states: a broadcast-wave time reference of at least
// one sample (with a known sample rate), else the first timecode tag, of the
// format then of each stream, that reads as a non-zero time at `fps`.
std::optional<MediaTimecode> startTimecode(const std::map<QString, QString> &tags,
                                           const std::vector<FFProbeOutput::Stream> &streams,
                                           std::optional<int> audioRate, double fps);

// The probe of ffprobe's output.
Probe probeFrom(const FFProbeOutput &output);

// The lines of a text that are not blank.
qint64 errorLineCount(QStringView text);

// The strongest of events that lie closer together than `minSeparationS`,
// in time order, each with its score relative to the highest.
std::vector<DetectedCut> peakPick(std::vector<ScoredTime> events, double minSeparationS);

// What one scdet decode printed (one "pts_time:" line and one score line a
// frame): the cuts scoring at least `threshold`, none in the first second or
// in the last (of `durationS`, or of the last frame's time), peak picked;
// and the number of frames seen.
CutsWithIntegrity cutsFromSceneScores(QStringView printed, double threshold, double minSeparationS,
                                      std::optional<double> durationS);

// The intervals in silencedetect's log: each "silence_start:" that is
// followed by a readable "silence_end:"; a start left open adds nothing.
std::vector<Silence> silencesFromLog(QStringView log);

// --- Running the tools ---------------------------------------------------------

// ffprobe's location, or none.
std::optional<QUrl> ffprobePath(const ProcessRunner &runner = ProcessRunner());

// Asks ffprobe for the facts of the file. Throws ProcessRunner::FailureError
// (toolNotFound "ffprobe", or failed "ffprobe" with the tool's text),
// LaunchError, json::DecodingError for output that is not the expected JSON,
// and CancelledError.
QCoro::Task<Probe> probe(QUrl url, ProcessRunner runner = ProcessRunner(), Cancellation cancellation = Cancellation());

// Decodes the file's pictures (only its first `sampleS` seconds when it is
// longer) and counts frames and complaints. Probes first when no probe is
// given. The tool's exit status is not judged: a damaged file is a finding.
QCoro::Task<DecodeIntegrity> checkIntegrity(QUrl url, std::optional<double> sampleS = std::nullopt,
                                            std::optional<Probe> probe = std::nullopt,
                                            ProcessRunner runner = ProcessRunner(),
                                            Cancellation cancellation = Cancellation());

// One whole decode through the scene-cut filter, which scores every frame:
// the cuts at or above `threshold`, and the decode's integrity against
// `expectedFrames`. A non-zero exit is failed "ffmpeg scdet".
QCoro::Task<CutsWithIntegrity> detectCutsWithIntegrity(QUrl url, double threshold, double minSeparationS,
                                                       std::optional<double> durationS,
                                                       std::optional<qint64> expectedFrames,
                                                       ProcessRunner runner = ProcessRunner(),
                                                       Cancellation cancellation = Cancellation());

// Stretches of the sound below `noiseDB` (truncated to whole decibels) for at
// least `minDurationS`. A silence still open at the end of the file is left
// out.
QCoro::Task<std::vector<Silence>> detectSilences(QUrl url, double noiseDB, double minDurationS,
                                                 ProcessRunner runner = ProcessRunner(),
                                                 Cancellation cancellation = Cancellation());

// How much moves from frame to frame: the mean grey level of the difference
// of successive frames at 160 pixels wide, after a 0 for the first frame.
// Empty when fewer than one difference was decoded (no video, say).
QCoro::Task<std::vector<float>> motionEnvelope(QUrl url, ProcessRunner runner = ProcessRunner(),
                                               Cancellation cancellation = Cancellation());

// ffmpeg's arguments (after the program) that compress the sound of `from`
// to AAC at `bitrateKbps` in an MPEG-4 audio file `to`.
QStringList compressAudioArguments(const QUrl &from, const QUrl &to, int bitrateKbps);

// The exact argument vectors, for the passes above and for whoever shows or
// logs them.
QStringList probeArguments(const QString &path);
QStringList integrityArguments(const QString &path, std::optional<double> sampleS);
QStringList sceneCutArguments(const QString &path);
QStringList silenceArguments(const QString &path, double noiseDB, double minDurationS);
QStringList motionArguments(const QString &path);

} // namespace FFmpegRunner
} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<FFmpegRunner::DecodeIntegrity::Verdict> {
    static constexpr std::array values{
        std::pair{FFmpegRunner::DecodeIntegrity::Verdict::clean, "clean"},
        std::pair{FFmpegRunner::DecodeIntegrity::Verdict::warning, "warning"},
        std::pair{FFmpegRunner::DecodeIntegrity::Verdict::damaged, "damaged"},
    };
};

template <>
struct Fields<FFProbeOutput::Format> {
    static constexpr auto list = std::tuple{
        field("duration", &FFProbeOutput::Format::duration),
        field("size", &FFProbeOutput::Format::size),
        field("tags", &FFProbeOutput::Format::tags),
    };
};

template <>
struct Fields<FFProbeOutput::Stream> {
    static constexpr auto list = std::tuple{
        field("codec_type", &FFProbeOutput::Stream::codec_type),
        field("codec_name", &FFProbeOutput::Stream::codec_name),
        field("width", &FFProbeOutput::Stream::width),
        field("height", &FFProbeOutput::Stream::height),
        field("r_frame_rate", &FFProbeOutput::Stream::r_frame_rate),
        field("avg_frame_rate", &FFProbeOutput::Stream::avg_frame_rate),
        field("sample_rate", &FFProbeOutput::Stream::sample_rate),
        field("channels", &FFProbeOutput::Stream::channels),
        field("nb_frames", &FFProbeOutput::Stream::nb_frames),
        field("duration", &FFProbeOutput::Stream::duration),
        field("tags", &FFProbeOutput::Stream::tags),
    };
};

template <>
struct Fields<FFProbeOutput> {
    static constexpr auto list = std::tuple{
        field("format", &FFProbeOutput::format),
        field("streams", &FFProbeOutput::streams),
    };
};

template <>
struct Fields<FFmpegRunner::Probe> {
    static constexpr auto list = std::tuple{
        field("durationS", &FFmpegRunner::Probe::durationS),
        field("fps", &FFmpegRunner::Probe::fps),
        field("width", &FFmpegRunner::Probe::width),
        field("height", &FFmpegRunner::Probe::height),
        field("videoCodec", &FFmpegRunner::Probe::videoCodec),
        field("audioCodec", &FFmpegRunner::Probe::audioCodec),
        field("sampleRate", &FFmpegRunner::Probe::sampleRate),
        field("channels", &FFmpegRunner::Probe::channels),
        field("sizeBytes", &FFmpegRunner::Probe::sizeBytes),
        field("creationTime", &FFmpegRunner::Probe::creationTime),
        field("nbFrames", &FFmpegRunner::Probe::nbFrames),
        field("startTimecode", &FFmpegRunner::Probe::startTimecode),
    };
};

template <>
struct Fields<FFmpegRunner::DetectedCut> {
    static constexpr auto list = std::tuple{
        field("t", &FFmpegRunner::DetectedCut::t),
        field("score", &FFmpegRunner::DetectedCut::score),
        field("confidence", &FFmpegRunner::DetectedCut::confidence),
    };
};

template <>
struct Fields<FFmpegRunner::Silence> {
    static constexpr auto list = std::tuple{
        field("startS", &FFmpegRunner::Silence::startS),
        field("endS", &FFmpegRunner::Silence::endS),
    };
};

template <>
struct Fields<FFmpegRunner::DecodeIntegrity> {
    static constexpr auto list = std::tuple{
        field("decodedFrames", &FFmpegRunner::DecodeIntegrity::decodedFrames),
        field("expectedFrames", &FFmpegRunner::DecodeIntegrity::expectedFrames),
        field("decodeErrorLines", &FFmpegRunner::DecodeIntegrity::decodeErrorLines),
        field("sampledS", &FFmpegRunner::DecodeIntegrity::sampledS),
    };
};

} // namespace velum::json
