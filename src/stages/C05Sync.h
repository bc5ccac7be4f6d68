#pragma once

// "c05_sync.json": where each A-roll clip sits against the external audio,
// and the order in which the clips were shot. Made on this machine.

#include "model/Json.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <optional>
#include <vector>

namespace velum {

struct C05Sync {
    static constexpr int currentSchemaVersion = 1;

    enum class SyncSource { crossCorrelation, creationTime, filename };

    struct Clip {
        QString clipId;
        QString filename;
        // Where the clip sits against the external track, in seconds. It
        // counts only when `isSynced` is true.
        std::optional<double> offsetS;
        // Match confidence. A unique match may be infinite; it is written as
        // the largest finite double, which reads back as just as confident.
        std::optional<double> confidence;
        SyncSource syncSource = SyncSource::filename;
        bool isSynced = false;
        int shootingIndex = 0; // place in the shooting order
        std::optional<QString> note;

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    int schemaVersion = currentSchemaVersion;
    QString projectId;
    QDateTime createdAt;
    std::optional<QString> externalClipId; // the external audio's clip
    std::vector<Clip> clips;
    analysis::Extraction extraction;

    friend bool operator==(const C05Sync &, const C05Sync &) = default;

    // The first clip with this identifier, pointing into this document.
    const Clip *clip(const QString &id) const &;
    const Clip *clip(const QString &id) const && = delete;

    // The clip identifiers, stably sorted by ascending shooting index.
    QStringList shootingOrder() const;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<C05Sync::SyncSource> {
    static constexpr std::array values{
        std::pair{C05Sync::SyncSource::crossCorrelation, "cross_correlation"},
        std::pair{C05Sync::SyncSource::creationTime, "creation_time"},
        std::pair{C05Sync::SyncSource::filename, "filename"},
    };
};

// Written by hand for the capped confidence; keys and rules are otherwise
// those of a described record.
template <>
struct Coding<C05Sync::Clip> {
    static QJsonValue encode(const C05Sync::Clip &clip, KeyStyle style);
    static C05Sync::Clip decode(const QJsonValue &value, KeyStyle style);
};

template <>
struct Fields<C05Sync> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C05Sync::schemaVersion),
        field("projectId", &C05Sync::projectId),
        field("createdAt", &C05Sync::createdAt),
        field("externalClipId", &C05Sync::externalClipId),
        field("clips", &C05Sync::clips),
        field("extraction", &C05Sync::extraction),
    };
};

} // namespace velum::json
