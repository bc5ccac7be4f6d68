#include "perception/SyncStage.h"

#include "perception/AudioSync.h"
#include "perception/ShootingOrder.h"

#include <QCoroFuture>
#include <QDir>
#include <QFile>
#include <QFuture>
#include <QThreadPool>
#include <QtConcurrent/QtConcurrentRun>

#include <algorithm>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

namespace velum::ProcessPipeline {

namespace {

using Envelope = std::vector<float>;
using Reference = std::shared_ptr<const Envelope>;

const QString referenceUnreadable = QStringLiteral("External audio could not be read");
const QString noConfidentMatch = QStringLiteral("No confident match in the external track");

// Where extractWAV puts the sound of a clip, so that what a failed run left
// behind can go too.
QString temporaryWAV(const QString &clipId)
{
    return QDir(QDir(QDir::tempPath()).filePath(AudioSync::temporaryFolderName))
        .filePath(clipId + QStringLiteral(".wav"));
}

// A temporary file that may already be gone; failures are of no interest.
void discard(const QString &path) { QFile::remove(path); }

// The whole sound of a clip as a 16 kHz WAV, or none when ffmpeg cannot make
// one. Cancellation passes.
QCoro::Task<std::optional<QString>> wavOf(C0Probe::Clip clip, ProcessRunner runner, Cancellation cancellation)
{
    std::optional<QString> wav;
    try {
        auto extraction = AudioSync::extractWAV(QUrl::fromLocalFile(clip.path), clip.clipId, std::nullopt,
                                                std::nullopt, runner, cancellation);
        wav = (co_await std::move(extraction)).toLocalFile();
    } catch (const CancelledError &) {
        discard(temporaryWAV(clip.clipId));
        throw;
    } catch (const std::exception &) {
        discard(temporaryWAV(clip.clipId));
    }
    co_return wav;
}

// The normalised envelope of the external track, or none when it cannot be
// read. Reading an hour of sound is work for the global pool, not the event
// loop.
QCoro::Task<std::optional<Envelope>> referenceEnvelope(C0Probe::Clip external, ProcessRunner runner,
                                                       Cancellation cancellation)
{
    auto extraction = wavOf(external, runner, cancellation);
    const std::optional<QString> wav = co_await std::move(extraction);
    if (!wav)
        co_return std::nullopt;
    QFuture<std::optional<Envelope>> reading =
        QtConcurrent::run(QThreadPool::globalInstance(), [path = *wav]() -> std::optional<Envelope> {
            try {
                return AudioSync::normalize(AudioSync::rawEnvelope(path));
            } catch (const std::exception &) {
                return std::nullopt;
            }
        });
    std::optional<Envelope> envelope = co_await reading;
    discard(*wav);
    co_return envelope;
}

// Where one clip sits against the reference, or none when its sound cannot
// be read or matched.
QCoro::Task<std::optional<AudioSync::Match>> matchClip(C0Probe::Clip clip, Reference reference, ProcessRunner runner,
                                                       Cancellation cancellation)
{
    auto extraction = wavOf(clip, runner, cancellation);
    const std::optional<QString> wav = co_await std::move(extraction);
    if (!wav)
        co_return std::nullopt;
    QFuture<std::optional<AudioSync::Match>> matching = QtConcurrent::run(
        QThreadPool::globalInstance(), [path = *wav, reference]() -> std::optional<AudioSync::Match> {
            try {
                const Envelope envelope = AudioSync::normalize(AudioSync::rawEnvelope(path));
                return AudioSync::match(envelope, *reference);
            } catch (const std::exception &) {
                return std::nullopt;
            }
        });
    std::optional<AudioSync::Match> result = co_await matching;
    discard(*wav);
    co_return result;
}

bool hasAudio(const C0Probe::Clip &clip) { return clip.media && clip.media->audioCodec; }

} // namespace

QCoro::Task<C05Sync> runC05(QUuid projectID, C0Probe probe, ProjectWorkspace workspace, ProcessRunner runner,
                            Cancellation cancellation)
{
    const std::vector<C0Probe::Clip> usable = probe.usableClips();
    std::optional<C0Probe::Clip> external;
    std::vector<C0Probe::Clip> aRoll;
    for (const auto &clip : usable) {
        if (clip.role == ProjectFileRole::externalAudio && !external)
            external = clip;
        else if (clip.role == ProjectFileRole::aRoll)
            aRoll.push_back(clip);
    }

    // The reference first, once.
    Reference reference = std::make_shared<const Envelope>();
    std::optional<QString> referenceError;
    if (external) {
        auto reading = referenceEnvelope(*external, runner, cancellation);
        if (std::optional<Envelope> envelope = co_await std::move(reading))
            reference = std::make_shared<const Envelope>(std::move(*envelope));
        else
            referenceError = referenceUnreadable;
    }

    // Then every clip with sound at once. Clips with one id hold the same
    // bytes, so each id is matched once.
    std::map<QString, AudioSync::Match> matches;
    if (!reference->empty()) {
        std::vector<QString> ids;
        std::vector<QCoro::Task<std::optional<AudioSync::Match>>> children;
        std::set<QString> started;
        for (const auto &clip : aRoll) {
            if (!hasAudio(clip) || !started.insert(clip.clipId).second)
                continue;
            ids.push_back(clip.clipId);
            children.push_back(matchClip(clip, reference, runner, cancellation));
        }
        // Every child is awaited, even after one was cancelled, so that none
        // outlives this frame.
        std::exception_ptr cancelled;
        for (std::size_t i = 0; i < children.size(); ++i) {
            try {
                if (std::optional<AudioSync::Match> found = co_await std::move(children[i]))
                    matches.emplace(ids[i], *found);
            } catch (const CancelledError &) {
                cancelled = std::current_exception();
            }
        }
        if (cancelled)
            std::rethrow_exception(cancelled);
    }

    std::vector<C05Sync::Clip> clips;
    clips.reserve(aRoll.size());
    for (const auto &clip : aRoll) {
        C05Sync::Clip row{.clipId = clip.clipId, .filename = clip.filename};
        const auto found = matches.find(clip.clipId);
        if (external && found != matches.end() && found->second.confidence >= AudioSync::acceptance) {
            row.offsetS = found->second.offsetS;
            row.confidence = found->second.confidence;
            row.syncSource = C05Sync::SyncSource::crossCorrelation;
            row.isSynced = true;
        } else {
            row.note = referenceError.value_or(noConfidentMatch);
            row.syncSource = clip.media ? C05Sync::SyncSource::creationTime : C05Sync::SyncSource::filename;
        }
        clips.push_back(std::move(row));
    }

    auto ordering = assignShootingOrder(std::move(clips), probe, runner, cancellation);
    clips = co_await std::move(ordering);
    cancellation.throwIfCancelled();

    const auto unsyncedCount = std::count_if(clips.begin(), clips.end(), [](const auto &c) { return !c.isSynced; });
    analysis::Extraction::Signal sync{.tool = QStringLiteral("envelope-xcorr"),
                                      .version = QStringLiteral("audio-sync/1")};
    if (!external) {
        sync.status = analysis::Extraction::Status::skipped;
        sync.note = QStringLiteral("no external audio");
    } else if (unsyncedCount > 0) {
        sync.status = analysis::Extraction::Status::fallback;
        sync.note = QStringLiteral("%1 clip(s) unsynced").arg(unsyncedCount);
    }

    C05Sync document{
        .schemaVersion = 1,
        .projectId = projectID.toString(QUuid::WithoutBraces).toUpper(),
        .createdAt = json::nowWholeSeconds(),
        .externalClipId = external ? std::optional(external->clipId) : std::nullopt,
        .clips = std::move(clips),
        .extraction = {.signals = {{QStringLiteral("sync"), sync}}},
    };
    workspace.create(projectID);
    StageCoder::write(document, workspace.artifactPath(artifact::c05Sync, projectID));
    co_return document;
}

} // namespace velum::ProcessPipeline
