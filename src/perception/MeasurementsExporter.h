#pragma once

// What the client hands to the cloud service instead of the footage: each
// clip reduced to a few numbers (probe facts, decode integrity, a loudness
// envelope, a motion envelope, silences and, for a published video, scene
// cuts) and a small speech-quality audio file, with one JSON document,
// "measurements.json", beside the audio files.
//
// Two jobs: a project (every usable clip of its probe document, measured at
// once) and one published video that a style profile learns from (ingest).
//
// The document is written by the stage coder like every stage document:
// snake-case keys throughout (the embedded probe and sync rows included),
// sorted, whole-second dates, shortest doubles, absent optionals left out.

#include "model/Json.h"
#include "model/Project.h"
#include "model/ProjectWorkspace.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "tools/Cancellation.h"
#include "tools/FFmpegRunner.h"
#include "tools/FFmpegVersionCache.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QDateTime>
#include <QLatin1StringView>
#include <QString>
#include <QUrl>

#include <exception>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace velum::MeasurementsExporter {

inline constexpr QLatin1StringView schema{"measurements/3"};
inline constexpr QLatin1StringView documentName{"measurements.json"};
// The folder of the temporary WAV files, under the system's temporary folder.
inline constexpr QLatin1StringView temporaryFolderName{"velum-measurements"};

enum class JobType { process, ingest };

struct Measurements {
    struct Meta {
        QString ffmpegVersion;

        friend bool operator==(const Meta &, const Meta &) = default;
    };

    struct Integrity {
        QString version = QStringLiteral("media-integrity/2");
        qint64 decodedFrames = 0;
        qint64 expectedFrames = 0;
        qint64 decodeErrorLines = 0;
        std::optional<double> sampledS;
        // (expected - decoded) / expected; 0 when fewer than one frame was
        // expected or more were decoded.
        double frameLossRatio = 0;
        FFmpegRunner::DecodeIntegrity::Verdict verdict = FFmpegRunner::DecodeIntegrity::Verdict::clean;

        friend bool operator==(const Integrity &, const Integrity &) = default;

        static Integrity of(const FFmpegRunner::DecodeIntegrity &report);
    };

    // Scene cuts; measured for ingest only.
    struct Cuts {
        QString version = QStringLiteral("scdet/3");
        double threshold = 3.5;
        std::vector<FFmpegRunner::DetectedCut> events;

        friend bool operator==(const Cuts &, const Cuts &) = default;
    };

    struct Silences {
        // Which sound was measured: the external microphone or the clip's own.
        enum class Source { external, clip };

        QString version = QStringLiteral("silencedetect/1");
        double noiseDb = -35;
        double minDurationS = 0.2;
        Source source = Source::clip;
        std::vector<FFmpegRunner::Silence> intervals;

        friend bool operator==(const Silences &, const Silences &) = default;
    };

    // Loudness: root mean square of every 5 ms, not normalised.
    struct Envelope {
        double rateHz = 200;
        qint64 frames = 0; // the number of values
        QString data;      // see encodeFloats

        friend bool operator==(const Envelope &, const Envelope &) = default;
    };

    // Frame-to-frame difference, one value a frame.
    struct Motion {
        QString version = QStringLiteral("motion-envelope/1");
        double fps = 0; // the clip's frame rate
        qint64 frames = 0;
        QString data;

        friend bool operator==(const Motion &, const Motion &) = default;
    };

    struct Clip {
        C0Probe::Clip clip;
        std::optional<qint64> sizeBytes;
        std::optional<Integrity> integrity;
        std::optional<C05Sync::Clip> sync; // this clip's row of the sync document
        std::optional<QDateTime> creationTime;
        std::optional<QDateTime> publishedAt; // ingest only
        std::optional<Cuts> cuts;             // ingest only
        std::optional<Silences> silences;
        std::optional<Envelope> envelope;
        std::optional<Motion> motion;
        std::optional<QString> audioName; // the audio file sent beside the document

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    QString schema = QString(MeasurementsExporter::schema);
    std::optional<Meta> meta;
    JobType jobType = JobType::process;
    std::optional<QString> projectId; // upper case; absent for ingest
    std::optional<QString> externalClipId;
    std::vector<Clip> clips; // in probe order

    friend bool operator==(const Measurements &, const Measurements &) = default;
};

// One audio file written beside the document.
struct AudioFile {
    QString clipId;
    QString name;
    QUrl url;
    qint64 bytes = 0;

    friend bool operator==(const AudioFile &, const AudioFile &) = default;
};

struct Result {
    Measurements document;
    QUrl measurementsURL;
    qint64 measurementsBytes = 0;
    std::vector<AudioFile> audio; // in clip order

    friend bool operator==(const Result &, const Result &) = default;
};

// Why an export could not be made.
struct Unreadable {
    QString note;
    friend bool operator==(const Unreadable &, const Unreadable &) = default;
};
struct NoUsableClips {
    friend bool operator==(const NoUsableClips &, const NoUsableClips &) = default;
};
using Failure = std::variant<Unreadable, NoUsableClips>;

// Carries a Failure; what() is "No usable clips to export", or the note of
// the unreadable file.
class ExportError : public std::exception {
public:
    explicit ExportError(Failure failure);
    const char *what() const noexcept override { return m_text.c_str(); }
    const Failure &failure() const { return m_failure; }
    QString description() const { return QString::fromStdString(m_text); }

private:
    Failure m_failure;
    std::string m_text;
};

// The values as 32-bit floats in little-endian byte order, one after
// another, in base64; "" for none.
QString encodeFloats(std::span<const float> values);

// The document's "meta": the ffmpeg version, read once by the cache; none
// when no version can be read.
QCoro::Task<std::optional<Measurements::Meta>> metaBlock(FFmpegVersionCache &cache = FFmpegVersionCache::shared());

// Measures every usable clip of the project at once and writes the document
// and one "<clipId>.m4a" a clip with sound into `outputDirectory` (made when
// missing). The probe document is read from the workspace, or made afresh
// without being written when it is missing or of another schema; the sync
// document is read when there is one. Throws ExportError (no usable clips),
// ProcessRunner::FailureError and LaunchError when the sound cannot be
// extracted, FileWriteError, and CancelledError. Failed integrity or motion
// passes and unreadable envelopes leave their blocks out.
QCoro::Task<Result> exportProject(Project project, QUrl outputDirectory, ProjectWorkspace workspace,
                                  ProcessRunner runner = ProcessRunner(), Cancellation cancellation = Cancellation());

// The same for one published video, with its scene cuts; `publishedAt`
// defaults to the date its file name starts with. Throws ExportError
// (unreadable, with the validator's note) and everything exportProject
// throws; a failed scene-cut decode fails the job.
QCoro::Task<Result> exportIngest(QUrl videoURL, std::optional<QDateTime> publishedAt, QUrl outputDirectory,
                                 ProcessRunner runner = ProcessRunner(), Cancellation cancellation = Cancellation());

} // namespace velum::MeasurementsExporter

namespace velum::json {

template <>
struct EnumTexts<MeasurementsExporter::JobType> {
    static constexpr std::array values{
        std::pair{MeasurementsExporter::JobType::process, "process"},
        std::pair{MeasurementsExporter::JobType::ingest, "ingest"},
    };
};

template <>
struct EnumTexts<MeasurementsExporter::Measurements::Silences::Source> {
    static constexpr std::array values{
        std::pair{MeasurementsExporter::Measurements::Silences::Source::external, "external"},
        std::pair{MeasurementsExporter::Measurements::Silences::Source::clip, "clip"},
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Meta> {
    static constexpr auto list = std::tuple{
        field("ffmpegVersion", &MeasurementsExporter::Measurements::Meta::ffmpegVersion),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Integrity> {
    using I = MeasurementsExporter::Measurements::Integrity;
    static constexpr auto list = std::tuple{
        field("version", &I::version),
        field("decodedFrames", &I::decodedFrames),
        field("expectedFrames", &I::expectedFrames),
        field("decodeErrorLines", &I::decodeErrorLines),
        field("sampledS", &I::sampledS),
        field("frameLossRatio", &I::frameLossRatio),
        field("verdict", &I::verdict),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Cuts> {
    using C = MeasurementsExporter::Measurements::Cuts;
    static constexpr auto list = std::tuple{
        field("version", &C::version),
        field("threshold", &C::threshold),
        field("events", &C::events),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Silences> {
    using S = MeasurementsExporter::Measurements::Silences;
    static constexpr auto list = std::tuple{
        field("version", &S::version),
        field("noiseDb", &S::noiseDb),
        field("minDurationS", &S::minDurationS),
        field("source", &S::source),
        field("intervals", &S::intervals),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Envelope> {
    using E = MeasurementsExporter::Measurements::Envelope;
    static constexpr auto list = std::tuple{
        field("rateHz", &E::rateHz),
        field("frames", &E::frames),
        field("data", &E::data),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Motion> {
    using M = MeasurementsExporter::Measurements::Motion;
    static constexpr auto list = std::tuple{
        field("version", &M::version),
        field("fps", &M::fps),
        field("frames", &M::frames),
        field("data", &M::data),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements::Clip> {
    using C = MeasurementsExporter::Measurements::Clip;
    static constexpr auto list = std::tuple{
        field("clip", &C::clip),
        field("sizeBytes", &C::sizeBytes),
        field("integrity", &C::integrity),
        field("sync", &C::sync),
        field("creationTime", &C::creationTime),
        field("publishedAt", &C::publishedAt),
        field("cuts", &C::cuts),
        field("silences", &C::silences),
        field("envelope", &C::envelope),
        field("motion", &C::motion),
        field("audioName", &C::audioName),
    };
};

template <>
struct Fields<MeasurementsExporter::Measurements> {
    using M = MeasurementsExporter::Measurements;
    static constexpr auto list = std::tuple{
        field("schema", &M::schema),
        field("meta", &M::meta),
        field("jobType", &M::jobType),
        field("projectId", &M::projectId),
        field("externalClipId", &M::externalClipId),
        field("clips", &M::clips),
    };
};

} // namespace velum::json
