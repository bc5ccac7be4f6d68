#pragma once

// The user's changes, kept apart from the service's documents as a small
// difference document, "review_edits.json", laid over the model each time the
// review opens. Positions are a word's place in its clip's cut list
// (`TranscriptWord::clipIndex`), so a span can cover tokens as well as words.

#include "model/Json.h"
#include "model/Project.h"
#include "review/Transcript.h"

#include <QHash>
#include <QString>
#include <QUuid>

#include <optional>
#include <vector>

namespace velum {

// A removal the user made in a gap between two words, in clip seconds.
struct WordlessCut {
    QString clip;
    double startS = 0;
    double endS = 0;

    friend bool operator==(const WordlessCut &, const WordlessCut &) = default;
};

struct ReviewEdits {
    struct Span {
        QString clip;
        int wordStart = 0;
        int wordEnd = 0; // one past the last position
        std::optional<CutReason> reason;

        friend bool operator==(const Span &, const Span &) = default;

        // One position: (clip, position).
        struct Key {
            QString clip;
            int wordIndex = 0;
            friend bool operator==(const Key &, const Key &) = default;
        };
    };

    struct BoundaryOverride {
        enum class Edge { in, out };

        QString clip;
        int wordIndex = 0; // a position, counted as clipIndex
        Edge edge = Edge::in;
        double seconds = 0; // clip-local

        friend bool operator==(const BoundaryOverride &, const BoundaryOverride &) = default;

        struct Key {
            QString clip;
            int wordIndex = 0;
            Edge edge = Edge::in;
            friend bool operator==(const Key &, const Key &) = default;
        };
        Key key() const { return {clip, wordIndex, edge}; }
    };

    // What re-applying stored boundary overrides did to one clip.
    struct BoundaryApplication {
        std::vector<BoundaryOverride> applied;
        QHash<QUuid, WordBounds> pristine; // bounds of each moved word as they were
        std::vector<QString> notes;
    };

    int schema = 1;
    std::optional<QString> jobId;
    std::vector<Span> cuts;
    std::vector<Span> restores;
    std::vector<BoundaryOverride> boundaryOverrides;
    std::optional<std::vector<QString>> clipOrder;
    std::optional<std::vector<WordlessCut>> wordlessCuts;

    friend bool operator==(const ReviewEdits &, const ReviewEdits &) = default;

    // Nothing left to store: no cuts, restores or overrides, and no clip order
    // or wordless cuts.
    bool isEmpty() const;

    // Lays the stored restores and then cuts over the transcript; returns
    // the notes on positions this build does not have. Throws
    // BrokenDocumentError for a reversed span.
    std::vector<QString> apply(Transcript &transcript) const;

    // The document that takes the model as built (`baseline`: each word's
    // reason when the model was built) to the transcript as it is now.
    static ReviewEdits diff(const Transcript &transcript, const QHash<QUuid, std::optional<CutReason>> &baseline,
                            std::vector<BoundaryOverride> boundaryOverrides,
                            const std::optional<std::vector<QString>> &clipOrder,
                            std::vector<WordlessCut> wordlessCuts, const std::optional<QString> &jobId);

    // Re-applies the stored boundary overrides of one clip to its words in
    // place (words of that clip, in cut-list order).
    static BoundaryApplication applyBoundaryOverrides(const std::vector<BoundaryOverride> &overrides,
                                                      std::vector<TranscriptWord> &words, const QString &clip,
                                                      double timelineStart);
};

size_t qHash(const ReviewEdits::Span::Key &key, size_t seed = 0);
size_t qHash(const ReviewEdits::BoundaryOverride::Key &key, size_t seed = 0);

// Where "review_edits.json" is saved. Without a location nothing is saved.
struct ReviewEditsStore {
    std::optional<QString> path;

    // Deletes the file when nothing is left to store; otherwise writes it
    // atomically, making its folder. Failures are swallowed.
    void save(const ReviewEdits &edits) const;
};

namespace ProcessPipeline {
// The stored edits of a project folder, or none when the file is missing,
// unreadable, of another schema, or made against another job's artifacts (a
// line says so on standard output).
std::optional<ReviewEdits> loadReviewEdits(const QString &projectFolder);
} // namespace ProcessPipeline

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<ReviewEdits::BoundaryOverride::Edge> {
    static constexpr std::array values{
        std::pair{ReviewEdits::BoundaryOverride::Edge::in, "in"},
        std::pair{ReviewEdits::BoundaryOverride::Edge::out, "out"},
    };
};

template <>
struct Fields<WordlessCut> {
    static constexpr auto list = std::tuple{
        field("clip", &WordlessCut::clip),
        field("startS", &WordlessCut::startS),
        field("endS", &WordlessCut::endS),
    };
};

template <>
struct Fields<ReviewEdits::Span> {
    static constexpr auto list = std::tuple{
        field("clip", &ReviewEdits::Span::clip),
        field("wordStart", &ReviewEdits::Span::wordStart),
        field("wordEnd", &ReviewEdits::Span::wordEnd),
        field("reason", &ReviewEdits::Span::reason),
    };
};

template <>
struct Fields<ReviewEdits::BoundaryOverride> {
    static constexpr auto list = std::tuple{
        field("clip", &ReviewEdits::BoundaryOverride::clip),
        field("wordIndex", &ReviewEdits::BoundaryOverride::wordIndex),
        field("edge", &ReviewEdits::BoundaryOverride::edge),
        field("seconds", &ReviewEdits::BoundaryOverride::seconds),
    };
};

template <>
struct Fields<ReviewEdits> {
    static constexpr auto list = std::tuple{
        field("schema", &ReviewEdits::schema),
        field("jobId", &ReviewEdits::jobId),
        field("cuts", &ReviewEdits::cuts),
        field("restores", &ReviewEdits::restores),
        field("boundaryOverrides", &ReviewEdits::boundaryOverrides),
        field("clipOrder", &ReviewEdits::clipOrder),
        field("wordlessCuts", &ReviewEdits::wordlessCuts),
    };
};

} // namespace velum::json
