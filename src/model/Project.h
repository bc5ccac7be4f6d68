#pragma once

// The plain value records of a project and its media.

#include "model/Json.h"

#include <QDateTime>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <vector>

namespace velum {

enum class ProjectStatus { draft, processing, paused, ready };
enum class ProjectFileRole { aRoll, externalAudio, bRoll };
enum class ProjectFileState { pending, ok, warning, failed };

// Why a word or stretch is removed. No reason (an empty optional) means kept.
enum class CutReason { silence, filler, retake, noise, offScript, manual };

enum class TokenDirection { neutral, leftToRight, rightToLeft };

// A start time as an exact rational, with where it came from.
struct MediaTimecode {
    enum class Source { bwfTimeReference, timecodeTrack };

    qint64 value = 0;     // numerator; seconds = value / timescale
    qint64 timescale = 1; // denominator
    Source source = Source::timecodeTrack;
    std::optional<QString> text;

    friend bool operator==(const MediaTimecode &, const MediaTimecode &) = default;

    // "%02d:%02d:%02d.%03d" of hours, minutes, seconds and milliseconds.
    // Negative seconds count as 0; milliseconds are held at 999.
    static QString label(double seconds);
};

// What was measured about one clip.
struct ClipMedia {
    QString clipId;
    double durationS = 0;
    std::optional<double> fps;
    std::optional<int> width;
    std::optional<int> height;
    std::optional<QString> videoCodec;
    std::optional<QString> audioCodec; // none: the clip has no audio
    std::optional<int> audioSampleRate;
    std::optional<int> audioChannels;
    std::optional<MediaTimecode> startTimecode;

    friend bool operator==(const ClipMedia &, const ClipMedia &) = default;

    // "1920×1080"; none when either side is missing or below 1.
    std::optional<QString> resolution() const;
};

// A record that is also an error value: a cloud job stopped and waits for the
// user. It keeps its own snake-case keys under both coders, and every key may
// be missing so that old records stay readable.
struct JobPause {
    int schemaVersion = 1;
    QString stage = QStringLiteral("unknown");
    QString provider = QStringLiteral("unknown");
    QString model = QStringLiteral("unknown");
    int failedRequests = 0;
    QString message;
    std::optional<QString> detail;
    QDateTime pausedAt;
    std::optional<QString> jobName;

    friend bool operator==(const JobPause &, const JobPause &) = default;

    // What the user is shown. First-version messages were written for
    // engineers and are never shown.
    QString userMessage() const;
    // One paragraph for the logs.
    QString summary() const;
    // The text of the error.
    QString description() const;
};

size_t qHash(const JobPause &pause, size_t seed = 0);

// Thrown when a job pauses; what() is the pause's description.
class JobPausedError : public std::exception {
public:
    explicit JobPausedError(JobPause pause);
    const char *what() const noexcept override { return m_text.c_str(); }
    const JobPause &pause() const { return m_pause; }

private:
    JobPause m_pause;
    std::string m_text;
};

// Which kinds of cut are switched on. Lenient on reading: an absent key is
// true.
struct CutPolicy {
    bool silence = true;
    bool filler = true;
    bool retake = true;
    bool noise = true;
    bool offScript = true;

    friend bool operator==(const CutPolicy &, const CutPolicy &) = default;
};

struct ProjectFile {
    QUuid id;
    QUrl url;
    ProjectFileRole role = ProjectFileRole::aRoll;
    ProjectFileState state = ProjectFileState::pending;
    std::optional<QString> note;
    std::optional<ClipMedia> media;
    std::optional<bool> isConfirmed;

    friend bool operator==(const ProjectFile &, const ProjectFile &) = default;

    // In `warning` and not yet accepted by the user.
    bool needsConfirmation() const;
    // "M:SS" below one hour, "H:MM:SS" from one hour on.
    static QString duration(double seconds);
    // "1:05 · 1920×1080 · no audio"; none without media or when failed.
    std::optional<QString> facts() const;
};

struct Project {
    QUuid id;
    QString name;
    QString description;
    QDateTime createdAt;
    ProjectStatus status = ProjectStatus::draft;
    qint64 thumbnailSeed = 0;
    bool usedGenericSettings = false;
    std::optional<QUuid> profileID;
    std::optional<CutPolicy> cutPolicy;
    std::vector<ProjectFile> files;
    std::optional<double> progressFraction;
    std::optional<JobPause> pause;
    std::optional<QString> failureNote;

    friend bool operator==(const Project &, const Project &) = default;

    // The files of one role, in the order added (`files(in:)`).
    std::vector<ProjectFile> filesIn(ProjectFileRole role) const;
    bool canStartProcessing() const;
    // 25 MB for each minute of measured footage.
    double estimatedWorkingSpaceMB() const;
    // A-roll clips whose frame rates differ at a hundredth of a frame.
    bool mixedFrameRates() const;
};

// Free space at the application support folder in MB; none when the
// platform gives no figure.
std::optional<double> freeSpaceMB();

enum class SourceKind { video, externalAudio };

// One source as the review transcript sees it. It is never written.
struct SourceFile {
    QUuid id;
    QString filename;
    int colorIndex = 0;
    std::optional<QUrl> url;
    SourceKind kind = SourceKind::video;

    friend bool operator==(const SourceFile &, const SourceFile &) = default;

    struct Color {
        int red, green, blue; // 255ths
        friend bool operator==(const Color &, const Color &) = default;
    };
    // The palette colour of a colour index: |index| modulo 7.
    static Color color(int colorIndex);
};

enum class StyleVideoStatus { queued, analyzing, paused, analyzed, failed };

// One published video of a style profile.
struct StyleVideo {
    enum class NoteSeverity { warning, failure };

    QUuid id;
    QString filename;
    std::optional<QUrl> url;
    std::optional<QUuid> profileID;
    std::optional<QDateTime> publishedAt;
    StyleVideoStatus status = StyleVideoStatus::queued;
    std::optional<double> progress;
    std::optional<JobPause> pause;
    std::optional<QString> note;
    std::optional<NoteSeverity> noteSeverity;
    std::optional<QString> youtubeID;
    std::optional<QUrl> sourceURL;
    std::optional<QString> serverVideoID;

    friend bool operator==(const StyleVideo &, const StyleVideo &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<ProjectStatus> {
    static constexpr std::array values{
        std::pair{ProjectStatus::draft, "draft"},
        std::pair{ProjectStatus::processing, "processing"},
        std::pair{ProjectStatus::paused, "paused"},
        std::pair{ProjectStatus::ready, "ready"},
    };
};

template <>
struct EnumTexts<ProjectFileRole> {
    static constexpr std::array values{
        std::pair{ProjectFileRole::aRoll, "a_roll"},
        std::pair{ProjectFileRole::externalAudio, "external_audio"},
        std::pair{ProjectFileRole::bRoll, "b_roll"},
    };
};

template <>
struct EnumTexts<ProjectFileState> {
    static constexpr std::array values{
        std::pair{ProjectFileState::pending, "pending"},
        std::pair{ProjectFileState::ok, "ok"},
        std::pair{ProjectFileState::warning, "warning"},
        std::pair{ProjectFileState::failed, "failed"},
    };
};

template <>
struct EnumTexts<CutReason> {
    static constexpr std::array values{
        std::pair{CutReason::silence, "silence"},
        std::pair{CutReason::filler, "filler"},
        std::pair{CutReason::retake, "retake"},
        std::pair{CutReason::noise, "noise"},
        std::pair{CutReason::offScript, "off_script"},
        std::pair{CutReason::manual, "manual"},
    };
};

template <>
struct EnumTexts<MediaTimecode::Source> {
    static constexpr std::array values{
        std::pair{MediaTimecode::Source::bwfTimeReference, "bwf_time_reference"},
        std::pair{MediaTimecode::Source::timecodeTrack, "timecode_track"},
    };
};

template <>
struct EnumTexts<SourceKind> {
    static constexpr std::array values{
        std::pair{SourceKind::video, "video"},
        std::pair{SourceKind::externalAudio, "externalAudio"},
    };
};

template <>
struct EnumTexts<StyleVideoStatus> {
    static constexpr std::array values{
        std::pair{StyleVideoStatus::queued, "queued"},
        std::pair{StyleVideoStatus::analyzing, "analyzing"},
        std::pair{StyleVideoStatus::paused, "paused"},
        std::pair{StyleVideoStatus::analyzed, "analyzed"},
        std::pair{StyleVideoStatus::failed, "failed"},
    };
};

template <>
struct EnumTexts<StyleVideo::NoteSeverity> {
    static constexpr std::array values{
        std::pair{StyleVideo::NoteSeverity::warning, "warning"},
        std::pair{StyleVideo::NoteSeverity::failure, "failure"},
    };
};

template <>
struct Fields<MediaTimecode> {
    static constexpr auto list = std::tuple{
        field("value", &MediaTimecode::value),
        field("timescale", &MediaTimecode::timescale),
        field("source", &MediaTimecode::source),
        field("text", &MediaTimecode::text),
    };
};

template <>
struct Fields<ClipMedia> {
    static constexpr auto list = std::tuple{
        field("clipId", &ClipMedia::clipId),
        field("durationS", &ClipMedia::durationS),
        field("fps", &ClipMedia::fps),
        field("width", &ClipMedia::width),
        field("height", &ClipMedia::height),
        field("videoCodec", &ClipMedia::videoCodec),
        field("audioCodec", &ClipMedia::audioCodec),
        field("audioSampleRate", &ClipMedia::audioSampleRate),
        field("audioChannels", &ClipMedia::audioChannels),
        field("startTimecode", &ClipMedia::startTimecode),
    };
};

// Every key may be absent and then reads as true.
template <>
struct Fields<CutPolicy> {
    static constexpr auto list = std::tuple{
        field("silence", &CutPolicy::silence, Absent::keepDefault),
        field("filler", &CutPolicy::filler, Absent::keepDefault),
        field("retake", &CutPolicy::retake, Absent::keepDefault),
        field("noise", &CutPolicy::noise, Absent::keepDefault),
        field("offScript", &CutPolicy::offScript, Absent::keepDefault),
    };
};

// Fixed snake-case keys under both coders; absent keys take their defaults,
// and an absent "paused_at" is the moment of reading.
template <>
struct Coding<JobPause> {
    static QJsonValue encode(const JobPause &pause, KeyStyle);
    static JobPause decode(const QJsonValue &value, KeyStyle);
};

template <>
struct Fields<ProjectFile> {
    static constexpr auto list = std::tuple{
        field("id", &ProjectFile::id),
        field("url", &ProjectFile::url),
        field("role", &ProjectFile::role),
        field("state", &ProjectFile::state),
        field("note", &ProjectFile::note),
        field("media", &ProjectFile::media),
        field("isConfirmed", &ProjectFile::isConfirmed),
    };
};

template <>
struct Fields<Project> {
    static constexpr auto list = std::tuple{
        field("id", &Project::id),
        field("name", &Project::name),
        field("description", &Project::description),
        field("createdAt", &Project::createdAt),
        field("status", &Project::status),
        field("thumbnailSeed", &Project::thumbnailSeed),
        field("usedGenericSettings", &Project::usedGenericSettings),
        field("profileID", &Project::profileID),
        field("cutPolicy", &Project::cutPolicy),
        field("files", &Project::files),
        field("progressFraction", &Project::progressFraction),
        field("pause", &Project::pause),
        field("failureNote", &Project::failureNote),
    };
};

template <>
struct Fields<StyleVideo> {
    static constexpr auto list = std::tuple{
        field("id", &StyleVideo::id),
        field("filename", &StyleVideo::filename),
        field("url", &StyleVideo::url),
        field("profileID", &StyleVideo::profileID),
        field("publishedAt", &StyleVideo::publishedAt),
        field("status", &StyleVideo::status),
        field("progress", &StyleVideo::progress),
        field("pause", &StyleVideo::pause),
        field("note", &StyleVideo::note),
        field("noteSeverity", &StyleVideo::noteSeverity),
        field("youtubeID", &StyleVideo::youtubeID),
        field("sourceURL", &StyleVideo::sourceURL),
        field("serverVideoID", &StyleVideo::serverVideoID),
    };
};

} // namespace velum::json
