#pragma once

// "c2_takes.json": the retakes. Takes of the same line are grouped in
// clusters; the spans that a later take replaces are the cuts. Only schema 2
// is read.

#include "model/Json.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <optional>
#include <vector>

namespace velum {

struct C2Takes {
    static constexpr int acceptedSchemaVersion = 2;

    enum class Confirmation { confirmed, rejected, skipped };

    struct Take {
        QString takeId;
        QString clipId;
        int shootingIndex = 0;
        int wordStart = 0;
        int wordEnd = 0; // one past the last word
        double startS = 0;
        double endS = 0;
        QString excerpt;

        friend bool operator==(const Take &, const Take &) = default;
    };

    // A group of takes of the same line.
    struct Cluster {
        int clusterId = 0;
        std::vector<Take> takes;
        QString winnerByRule; // the `takeId` that stays
        double similarity = 0;
        std::optional<QString> anchor;
        std::optional<bool> selfCheckPassed;
        std::optional<QString> selfCheckNote;
        std::optional<bool> crossClip; // the takes span clips
        std::optional<Confirmation> confirmation;
        std::optional<QString> confirmationReason;
        std::optional<double> confirmationConfidence;

        friend bool operator==(const Cluster &, const Cluster &) = default;
    };

    // A span of words to remove because a later take replaces it. A cut whose
    // `wordEnd` is below its `wordStart` does not decode.
    struct Cut {
        QString clipId;
        int wordStart = 0;
        int wordEnd = 0; // one past the last word
        double startS = 0;
        double endS = 0;
        QString reason;
        int clusterId = 0;

        friend bool operator==(const Cut &, const Cut &) = default;
    };

    int schemaVersion = acceptedSchemaVersion;
    QString projectId;
    QDateTime createdAt;
    std::vector<Cluster> clusters;
    std::vector<Cut> cuts;
    analysis::Extraction extraction;
    std::vector<Cluster> rejectedRegions;

    friend bool operator==(const C2Takes &, const C2Takes &) = default;

    // All cuts of one clip, in document order.
    std::vector<Cut> cutsFor(const QString &clipId) const;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<C2Takes::Confirmation> {
    static constexpr std::array values{
        std::pair{C2Takes::Confirmation::confirmed, "confirmed"},
        std::pair{C2Takes::Confirmation::rejected, "rejected"},
        std::pair{C2Takes::Confirmation::skipped, "skipped"},
    };
};

template <>
struct Fields<C2Takes::Take> {
    static constexpr auto list = std::tuple{
        field("takeId", &C2Takes::Take::takeId),
        field("clipId", &C2Takes::Take::clipId),
        field("shootingIndex", &C2Takes::Take::shootingIndex),
        field("wordStart", &C2Takes::Take::wordStart),
        field("wordEnd", &C2Takes::Take::wordEnd),
        field("startS", &C2Takes::Take::startS),
        field("endS", &C2Takes::Take::endS),
        field("excerpt", &C2Takes::Take::excerpt),
    };
};

template <>
struct Fields<C2Takes::Cluster> {
    static constexpr auto list = std::tuple{
        field("clusterId", &C2Takes::Cluster::clusterId),
        field("takes", &C2Takes::Cluster::takes),
        field("winnerByRule", &C2Takes::Cluster::winnerByRule),
        field("similarity", &C2Takes::Cluster::similarity),
        field("anchor", &C2Takes::Cluster::anchor),
        field("selfCheckPassed", &C2Takes::Cluster::selfCheckPassed),
        field("selfCheckNote", &C2Takes::Cluster::selfCheckNote),
        field("crossClip", &C2Takes::Cluster::crossClip),
        field("confirmation", &C2Takes::Cluster::confirmation),
        field("confirmationReason", &C2Takes::Cluster::confirmationReason),
        field("confirmationConfidence", &C2Takes::Cluster::confirmationConfidence),
    };
};

// Written by hand for the range check.
template <>
struct Coding<C2Takes::Cut> {
    static QJsonValue encode(const C2Takes::Cut &cut, KeyStyle style);
    static C2Takes::Cut decode(const QJsonValue &value, KeyStyle style);
};

template <>
struct Fields<C2Takes> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C2Takes::schemaVersion),
        field("projectId", &C2Takes::projectId),
        field("createdAt", &C2Takes::createdAt),
        field("clusters", &C2Takes::clusters),
        field("cuts", &C2Takes::cuts),
        field("extraction", &C2Takes::extraction),
        field("rejectedRegions", &C2Takes::rejectedRegions),
    };
};

} // namespace velum::json
