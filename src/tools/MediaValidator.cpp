#include "tools/MediaValidator.h"

#include "tools/ContentHash.h"

#include <QFileInfo>
#include <QStringList>

namespace velum::MediaValidator {

ClipMedia clipMedia(const FFmpegRunner::Probe &probe, const QString &clipId)
{
    ClipMedia media;
    media.clipId = clipId;
    media.durationS = probe.durationS;
    if (probe.videoCodec) {
        media.fps = probe.fps;
        media.width = probe.width;
        media.height = probe.height;
    }
    media.videoCodec = probe.videoCodec;
    media.audioCodec = probe.audioCodec;
    media.audioSampleRate = probe.sampleRate;
    media.audioChannels = probe.channels;
    media.startTimecode = probe.startTimecode;
    return media;
}

QCoro::Task<Outcome> validate(QUrl url, ProjectFileRole role, std::optional<QString> clipID, ProcessRunner runner,
                              Cancellation cancellation)
{
    FFmpegRunner::Probe probe;
    try {
        auto probing = FFmpegRunner::probe(url, runner, cancellation);
        probe = co_await std::move(probing);
    } catch (const CancelledError &) {
        throw;
    } catch (const std::exception &) {
        co_return Outcome{ProjectFileState::failed, QStringLiteral("Could not read this file"), std::nullopt};
    }

    if (probe.durationS < shortestUsableDurationS)
        co_return Outcome{ProjectFileState::failed, QStringLiteral("Too short to use"), std::nullopt};

    QString identifier;
    if (clipID) {
        identifier = *clipID;
    } else {
        try {
            auto hashing = ContentHash::videoID(url, cancellation);
            identifier = co_await std::move(hashing);
        } catch (const CancelledError &) {
            throw;
        } catch (const std::exception &) {
            identifier = QFileInfo(url.toLocalFile()).fileName();
        }
    }

    const ClipMedia media = clipMedia(probe, identifier);

    if (role == ProjectFileRole::externalAudio) {
        if (!probe.audioCodec)
            co_return Outcome{ProjectFileState::failed, QStringLiteral("No audio stream"), media};
    } else if (!probe.videoCodec) {
        co_return Outcome{ProjectFileState::failed, QStringLiteral("No video stream"), media};
    }

    std::optional<FFmpegRunner::DecodeIntegrity> report;
    if (probe.videoCodec && role != ProjectFileRole::externalAudio) {
        try {
            auto checking = FFmpegRunner::checkIntegrity(url, integritySampleS, probe, runner, cancellation);
            report = co_await std::move(checking);
        } catch (const CancelledError &) {
            throw;
        } catch (const std::exception &) {
            // A pass that cannot run found nothing.
        }
    }

    if (report && report->isDamaged())
        co_return Outcome{ProjectFileState::failed, report->message(), media};

    QStringList notes;
    if (report) {
        if (const auto note = report->note())
            notes << *note;
    }
    if (role == ProjectFileRole::aRoll && !probe.audioCodec)
        notes << QStringLiteral("No audio — will sync by order only");

    if (notes.isEmpty())
        co_return Outcome{ProjectFileState::ok, std::nullopt, media};
    co_return Outcome{ProjectFileState::warning, notes.join(noteSeparator), media};
}

} // namespace velum::MediaValidator
