#include "perception/MeasurementsExporter.h"

#include "perception/AudioSync.h"
#include "perception/ProbeStage.h"
#include "perception/ShootingOrder.h"
#include "tools/ContentHash.h"
#include "tools/MediaValidator.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <cstdio>
#include <cstring>

namespace velum::MeasurementsExporter {

namespace {

using Clip = Measurements::Clip;
using Source = Measurements::Silences::Source;

// The decode that judges a clip's pictures covers its first minute.
constexpr double integritySampleS = 60;
// Scene cuts of a published video.
constexpr double cutThreshold = 3.5;
constexpr double cutMinSeparationS = 0.25;
// Silences of speech.
constexpr double silenceNoiseDB = -35;
constexpr double silenceMinDurationS = 0.2;

void logWarning(const QString &text) { std::fprintf(stderr, "measurements: %s\n", qUtf8Printable(text)); }

// Which sound measures a clip, and how much of it.
struct AudioPass {
    QUrl url;
    std::optional<double> startS;
    std::optional<double> durationS;
    Source source = Source::clip;
    bool measuresSilence = false;
};

// What one clip's child gives back.
struct Measured {
    Clip clip;
    std::optional<AudioFile> audio;
};

// What the sound of a pass gave.
struct Sound {
    std::optional<Measurements::Envelope> envelope;
    std::optional<Measurements::Silences> silences;
    AudioFile audio;
};

QUrl fileURL(const QString &path) { return QUrl::fromLocalFile(path); }

std::optional<qint64> fileSize(const QString &path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return std::nullopt;
    return info.size();
}

// The external microphone's sound when this A-roll clip is synced to it; the
// clip's own sound otherwise; nothing for a clip without sound.
std::optional<AudioPass> audioPass(const C0Probe::Clip &clip, const C0Probe &probe, const std::optional<C05Sync> &sync)
{
    if (!clip.media || !clip.media->audioCodec)
        return std::nullopt;
    const bool aRoll = clip.role == ProjectFileRole::aRoll;
    if (aRoll && sync && sync->externalClipId) {
        const C0Probe::Clip *external = probe.clip(*sync->externalClipId);
        const C05Sync::Clip *row = sync->clip(clip.clipId);
        if (external && row && row->isSynced && row->offsetS)
            return AudioPass{fileURL(external->path), row->offsetS, clip.media->durationS, Source::external, true};
    }
    return AudioPass{fileURL(clip.path), std::nullopt, aRoll ? std::optional(clip.media->durationS) : std::nullopt,
                     Source::clip, aRoll};
}

// ffmpeg's arguments up to the input: the same for the WAV and the m4a, so
// both hold the same stretch of sound.
QStringList audioHead(const AudioPass &pass)
{
    QStringList arguments{QStringLiteral("-nostdin"), QStringLiteral("-y"), QStringLiteral("-v"),
                          QStringLiteral("error")};
    if (pass.startS)
        arguments << QStringLiteral("-ss") << QString::asprintf("%.3f", *pass.startS);
    if (pass.durationS)
        arguments << QStringLiteral("-t") << QString::asprintf("%.3f", *pass.durationS);
    return arguments;
}

// Removes the temporary WAV however the clip's work ends.
struct RemoveOnExit {
    QString path;
    ~RemoveOnExit() { QFile::remove(path); }
};

QCoro::Task<Sound> envelopeAndAudio(AudioPass pass, QString clipId, QString outputDirectory, ProcessRunner runner,
                                    Cancellation cancellation)
{
    const QUrl ffmpeg = runner.require(QStringLiteral("ffmpeg")).url;
    const QString input = pass.url.toLocalFile();

    const QString temporary = QDir::tempPath() + QLatin1Char('/') + temporaryFolderName;
    QDir().mkpath(temporary);
    const RemoveOnExit wav{temporary + QLatin1Char('/') + clipId + QStringLiteral(".wav")};
    auto extracting = ProcessRunner::run(ffmpeg,
                                         audioHead(pass) << QStringLiteral("-i") << input << QStringLiteral("-vn")
                                                         << QStringLiteral("-ac") << QStringLiteral("1")
                                                         << QStringLiteral("-ar") << QStringLiteral("16000")
                                                         << QStringLiteral("-c:a") << QStringLiteral("pcm_s16le")
                                                         << wav.path,
                                         std::nullopt, cancellation);
    const ProcessRunner::Output extracted = co_await std::move(extracting);
    ProcessRunner::requireSuccess(QStringLiteral("ffmpeg -i … wav"), extracted.status, extracted.text);

    Sound sound;
    sound.audio.clipId = clipId;
    sound.audio.name = clipId + QStringLiteral(".m4a");
    const QString m4a = outputDirectory + QLatin1Char('/') + sound.audio.name;
    sound.audio.url = fileURL(m4a);
    auto compressing = ProcessRunner::run(
        ffmpeg,
        audioHead(pass) << QStringLiteral("-i") << input << QStringLiteral("-vn") << QStringLiteral("-ac")
                        << QStringLiteral("1") << QStringLiteral("-ar") << QStringLiteral("16000")
                        << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-b:a")
                        << QStringLiteral("48k") << QStringLiteral("-movflags") << QStringLiteral("+faststart") << m4a,
        std::nullopt, cancellation);
    const ProcessRunner::Output compressed = co_await std::move(compressing);
    ProcessRunner::requireSuccess(QStringLiteral("ffmpeg -i … m4a"), compressed.status, compressed.text);
    sound.audio.bytes = fileSize(m4a).value_or(0);

    try {
        const std::vector<float> values = AudioSync::rawEnvelope(wav.path);
        sound.envelope = Measurements::Envelope{double(AudioSync::envelopeRate), qint64(values.size()),
                                                encodeFloats(values)};
    } catch (const AudioSync::AudioReadError &) {
        // No envelope block; the job goes on.
    }

    if (pass.measuresSilence) {
        auto detecting =
            FFmpegRunner::detectSilences(fileURL(wav.path), silenceNoiseDB, silenceMinDurationS, runner, cancellation);
        Measurements::Silences silences;
        silences.noiseDb = silenceNoiseDB;
        silences.minDurationS = silenceMinDurationS;
        silences.source = pass.source;
        silences.intervals = co_await std::move(detecting);
        sound.silences = std::move(silences);
    }
    co_return sound;
}

void addSound(Measured &measured, Sound sound)
{
    measured.clip.envelope = std::move(sound.envelope);
    measured.clip.silences = std::move(sound.silences);
    measured.clip.audioName = sound.audio.name;
    measured.audio = std::move(sound.audio);
}

QCoro::Task<std::optional<Measurements::Motion>> motionPass(QUrl url, double fps, ProcessRunner runner,
                                                            Cancellation cancellation)
{
    const QString name = QFileInfo(url.toLocalFile()).fileName();
    try {
        auto measuring = FFmpegRunner::motionEnvelope(url, runner, cancellation);
        const std::vector<float> values = co_await std::move(measuring);
        if (values.empty()) {
            logWarning(QStringLiteral("motion pass decoded no frames of %1").arg(name));
            co_return std::nullopt;
        }
        Measurements::Motion motion;
        motion.fps = fps;
        motion.frames = qint64(values.size());
        motion.data = encodeFloats(values);
        co_return motion;
    } catch (const CancelledError &) {
        throw;
    } catch (const std::exception &e) {
        logWarning(QStringLiteral("motion pass failed on %1: %2").arg(name, QString::fromUtf8(e.what())));
        co_return std::nullopt;
    }
}

// One clip of a project, its tools one after another.
QCoro::Task<Measured> measureClip(C0Probe::Clip clip, C0Probe probe, std::optional<C05Sync> sync,
                                  QString outputDirectory, ProcessRunner runner, Cancellation cancellation)
{
    const QUrl url = fileURL(clip.path);
    Measured measured;
    measured.clip.clip = clip;

    std::optional<FFmpegRunner::Probe> facts;
    try {
        auto probing = FFmpegRunner::probe(url, runner, cancellation);
        facts = co_await std::move(probing);
    } catch (const CancelledError &) {
        throw;
    } catch (const std::exception &) {
        // What needs the probe stays absent.
    }
    measured.clip.sizeBytes = fileSize(clip.path);
    if (facts)
        measured.clip.creationTime = facts->creationTime;
    if (sync) {
        if (const C05Sync::Clip *row = sync->clip(clip.clipId))
            measured.clip.sync = *row;
    }

    if (clip.role != ProjectFileRole::externalAudio && clip.media) {
        try {
            auto checking = FFmpegRunner::checkIntegrity(url, integritySampleS, facts, runner, cancellation);
            const FFmpegRunner::DecodeIntegrity report = co_await std::move(checking);
            measured.clip.integrity = Measurements::Integrity::of(report);
        } catch (const CancelledError &) {
            throw;
        } catch (const std::exception &) {
            // No integrity block; the job goes on.
        }
    }

    if (clip.media && clip.media->videoCodec && clip.media->fps.value_or(0) > 0) {
        auto moving = motionPass(url, *clip.media->fps, runner, cancellation);
        measured.clip.motion = co_await std::move(moving);
    }

    if (const auto pass = audioPass(clip, probe, sync)) {
        auto sounding = envelopeAndAudio(*pass, clip.clipId, outputDirectory, runner, cancellation);
        addSound(measured, co_await std::move(sounding));
    }
    co_return measured;
}

// The probe document of the project, made afresh file by file and not
// written.
QCoro::Task<C0Probe> freshProbe(Project project, ProcessRunner runner, Cancellation cancellation)
{
    std::vector<MediaValidator::Outcome> outcomes;
    outcomes.reserve(project.files.size());
    for (const ProjectFile &file : project.files) {
        std::optional<QString> clipID;
        if (file.media)
            clipID = file.media->clipId;
        auto validating = MediaValidator::validate(file.url, file.role, clipID, runner, cancellation);
        outcomes.push_back(co_await std::move(validating));
    }
    co_return ProcessPipeline::probeDocument(project.id, project.files, outcomes, json::nowWholeSeconds());
}

Result writeDocument(Measurements document, std::vector<AudioFile> audio, const QString &outputDirectory)
{
    const QString path = outputDirectory + QLatin1Char('/') + documentName;
    const QByteArray bytes = StageCoder::encode(document);
    writeFileAtomically(path, bytes);
    return Result{std::move(document), fileURL(path), qint64(bytes.size()), std::move(audio)};
}

QString preparedFolder(const QUrl &outputDirectory)
{
    const QString path = outputDirectory.toLocalFile();
    QDir().mkpath(path);
    return path;
}

} // namespace

Measurements::Integrity Measurements::Integrity::of(const FFmpegRunner::DecodeIntegrity &report)
{
    Integrity integrity;
    integrity.decodedFrames = report.decodedFrames;
    integrity.expectedFrames = report.expectedFrames;
    integrity.decodeErrorLines = report.decodeErrorLines;
    integrity.sampledS = report.sampledS;
    integrity.frameLossRatio = report.loss().value_or(0);
    integrity.verdict = report.verdict();
    return integrity;
}

namespace {
QString describe(const Failure &failure)
{
    if (const auto *unreadable = std::get_if<Unreadable>(&failure))
        return unreadable->note;
    return QStringLiteral("No usable clips to export");
}
} // namespace

ExportError::ExportError(Failure failure)
    : m_failure(std::move(failure)), m_text(describe(m_failure).toStdString())
{
}

QString encodeFloats(std::span<const float> values)
{
    QByteArray bytes(qsizetype(values.size() * sizeof(float)), Qt::Uninitialized);
    char *out = bytes.data();
    for (const float value : values) {
        qToLittleEndian(value, out);
        out += sizeof(float);
    }
    return QString::fromLatin1(bytes.toBase64());
}

QCoro::Task<std::optional<Measurements::Meta>> metaBlock(FFmpegVersionCache &cache)
{
    auto asking = cache.version();
    const std::optional<QString> version = co_await std::move(asking);
    if (!version)
        co_return std::nullopt;
    co_return Measurements::Meta{*version};
}

QCoro::Task<Result> exportProject(Project project, QUrl outputDirectory, ProjectWorkspace workspace,
                                  ProcessRunner runner, Cancellation cancellation)
{
    std::optional<C0Probe> probe =
        StageCoder::read<C0Probe>(workspace.artifactPath(artifact::c0Probe, project.id));
    if (!probe || probe->schemaVersion != C0Probe::currentSchemaVersion) {
        auto probing = freshProbe(project, runner, cancellation);
        probe = co_await std::move(probing);
    }
    const std::optional<C05Sync> sync = StageCoder::read<C05Sync>(workspace.artifactPath(artifact::c05Sync, project.id));

    const std::vector<C0Probe::Clip> usable = probe->usableClips();
    if (usable.empty())
        throw ExportError(NoUsableClips{});

    auto asking = metaBlock();
    const std::optional<Measurements::Meta> meta = co_await std::move(asking);
    const QString folder = preparedFolder(outputDirectory);

    // One child a clip, all running at once. The first failure cancels the
    // others (through a cancellation of their own, which the caller's also
    // sets) and is the job's; every child is awaited before it is thrown.
    const Cancellation children;
    const auto forward = cancellation.onCancel([children] { children.cancel(); });
    std::vector<QCoro::Task<Measured>> tasks;
    tasks.reserve(usable.size());
    for (const C0Probe::Clip &clip : usable)
        tasks.push_back(measureClip(clip, *probe, sync, folder, runner, children));

    std::vector<Measured> results;
    results.reserve(tasks.size());
    std::exception_ptr failure;
    for (auto &task : tasks) {
        try {
            results.push_back(co_await std::move(task));
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
            children.cancel();
        }
    }
    if (failure)
        std::rethrow_exception(failure);
    cancellation.throwIfCancelled();

    Measurements document;
    document.meta = meta;
    document.jobType = JobType::process;
    document.projectId = ProjectWorkspace::folderName(project.id);
    if (sync)
        document.externalClipId = sync->externalClipId;
    std::vector<AudioFile> audio;
    for (Measured &measured : results) {
        document.clips.push_back(std::move(measured.clip));
        if (measured.audio)
            audio.push_back(std::move(*measured.audio));
    }
    co_return writeDocument(std::move(document), std::move(audio), folder);
}

QCoro::Task<Result> exportIngest(QUrl videoURL, std::optional<QDateTime> publishedAt, QUrl outputDirectory,
                                 ProcessRunner runner, Cancellation cancellation)
{
    const QString path = videoURL.toLocalFile();
    const QString filename = QFileInfo(path).fileName();

    // A file that cannot be hashed is named by the validator, which then
    // tells what is wrong with it.
    std::optional<QString> videoID;
    try {
        auto hashing = ContentHash::videoID(videoURL, cancellation);
        videoID = co_await std::move(hashing);
    } catch (const ContentHash::ReadError &) {
    }

    auto validating = MediaValidator::validate(videoURL, ProjectFileRole::aRoll, videoID, runner, cancellation);
    const MediaValidator::Outcome outcome = co_await std::move(validating);
    if (outcome.state == ProjectFileState::failed || !outcome.media)
        throw ExportError(Unreadable{outcome.note.value_or(QStringLiteral("Could not read this file"))});

    auto probing = FFmpegRunner::probe(videoURL, runner, cancellation);
    const FFmpegRunner::Probe facts = co_await std::move(probing);

    auto detecting = FFmpegRunner::detectCutsWithIntegrity(videoURL, cutThreshold, cutMinSeparationS, facts.durationS,
                                                           facts.expectedVideoFrames(), runner, cancellation);
    const FFmpegRunner::CutsWithIntegrity found = co_await std::move(detecting);

    C0Probe::Clip clip;
    clip.clipId = outcome.media->clipId;
    clip.filename = filename;
    clip.path = path;
    clip.role = ProjectFileRole::aRoll;
    clip.state = outcome.state;
    clip.note = outcome.note;
    clip.media = outcome.media;

    Measured measured;
    measured.clip.clip = clip;
    measured.clip.integrity = Measurements::Integrity::of(found.integrity);
    Measurements::Cuts cuts;
    cuts.threshold = cutThreshold;
    cuts.events = found.cuts;
    measured.clip.cuts = std::move(cuts);
    measured.clip.sizeBytes = fileSize(path);
    measured.clip.publishedAt = publishedAt ? publishedAt : FilenameDate::publishedAt(filename);
    measured.clip.creationTime = facts.creationTime;

    const QString folder = preparedFolder(outputDirectory);
    if (const auto pass = audioPass(clip, C0Probe{}, std::nullopt)) {
        auto sounding = envelopeAndAudio(*pass, clip.clipId, folder, runner, cancellation);
        addSound(measured, co_await std::move(sounding));
    }

    auto asking = metaBlock();
    Measurements document;
    document.meta = co_await std::move(asking);
    document.jobType = JobType::ingest;
    document.clips.push_back(std::move(measured.clip));
    std::vector<AudioFile> audio;
    if (measured.audio)
        audio.push_back(std::move(*measured.audio));
    co_return writeDocument(std::move(document), std::move(audio), folder);
}

} // namespace velum::MeasurementsExporter
