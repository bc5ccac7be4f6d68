#pragma once

// "c3_seams.json": exact seam lengths from the service, which replace the
// review's own estimate. Only schema 2 is read; a seam that does not decode
// makes the whole document unreadable, and the review falls back on its
// estimate.

#include "model/Json.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <optional>
#include <vector>

namespace velum {

struct C3Seams {
    static constexpr int acceptedSchemaVersion = 2;

    // Which side of the kept word the removal lies on.
    enum class Edge { leading, trailing };

    struct Seam {
        int wordIndex = 0; // the kept word beside the removal
        Edge edge = Edge::leading;
        // How far beyond the word the keep extends; a negative value means
        // none.
        double offsetS = 0;

        friend bool operator==(const Seam &, const Seam &) = default;

        // The extension in seconds, or none for a negative offset.
        std::optional<double> extensionS() const
        {
            return offsetS < 0 ? std::nullopt : std::optional<double>(offsetS);
        }
    };

    struct Clip {
        QString clipId;
        std::vector<Seam> seams;

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    int schemaVersion = acceptedSchemaVersion;
    QString projectId;
    QDateTime createdAt;
    std::vector<Clip> clips;
    analysis::Extraction extraction;

    friend bool operator==(const C3Seams &, const C3Seams &) = default;

    // The first clip with this identifier, pointing into this document.
    const Clip *clip(const QString &id) const &;
    const Clip *clip(const QString &id) const && = delete;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<C3Seams::Edge> {
    static constexpr std::array values{
        std::pair{C3Seams::Edge::leading, "leading"},
        std::pair{C3Seams::Edge::trailing, "trailing"},
    };
};

template <>
struct Fields<C3Seams::Seam> {
    static constexpr auto list = std::tuple{
        field("wordIndex", &C3Seams::Seam::wordIndex),
        field("edge", &C3Seams::Seam::edge),
        field("offsetS", &C3Seams::Seam::offsetS),
    };
};

template <>
struct Fields<C3Seams::Clip> {
    static constexpr auto list = std::tuple{
        field("clipId", &C3Seams::Clip::clipId),
        field("seams", &C3Seams::Clip::seams),
    };
};

template <>
struct Fields<C3Seams> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C3Seams::schemaVersion),
        field("projectId", &C3Seams::projectId),
        field("createdAt", &C3Seams::createdAt),
        field("clips", &C3Seams::clips),
        field("extraction", &C3Seams::extraction),
    };
};

} // namespace velum::json
