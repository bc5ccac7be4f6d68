#pragma once

// "c4_suggestions.json": what the service suggests beyond the cut itself.
// The suggestions are read one by one: one that does not decode (a kind this
// build does not know, a wrong type) is dropped without a word and the rest
// of the document stands. Everything else in the document is strict.

#include "model/Json.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <map>
#include <optional>
#include <vector>

namespace velum {

struct C4Suggestions {
    enum class Kind {
        videoLength,
        hookLength,
        outroLength,
        ramble,
        sparseCuts,
        offScript,
        tinyCut,
        discourseFiller,
        hesitation,
        retake,
        shortIsland,
        pause,
    };

    struct Suggestion {
        QString id; // stable identity; decisions are stored against it
        Kind kind = Kind::pause;
        std::optional<QString> clipId; // whole-video suggestions have none
        std::optional<int> wordStart;
        std::optional<int> wordEnd;
        double startS = 0;
        double endS = 0;
        QString reason; // shown to the user
        std::map<QString, double> evidence; // the numbers behind it
        QString source;

        friend bool operator==(const Suggestion &, const Suggestion &) = default;
    };

    // One element of `suggestions` as read: the suggestion, or nothing when
    // the element did not decode. Decoding it never fails.
    struct Known {
        std::optional<Suggestion> value;

        friend bool operator==(const Known &, const Known &) = default;
    };

    int schemaVersion = 1;
    QString projectId;
    QDateTime createdAt;
    std::vector<Suggestion> suggestions; // those that decoded, in order
    analysis::Extraction extraction;

    friend bool operator==(const C4Suggestions &, const C4Suggestions &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<C4Suggestions::Kind> {
    static constexpr std::array values{
        std::pair{C4Suggestions::Kind::videoLength, "video_length"},
        std::pair{C4Suggestions::Kind::hookLength, "hook_length"},
        std::pair{C4Suggestions::Kind::outroLength, "outro_length"},
        std::pair{C4Suggestions::Kind::ramble, "ramble"},
        std::pair{C4Suggestions::Kind::sparseCuts, "sparse_cuts"},
        std::pair{C4Suggestions::Kind::offScript, "off_script"},
        std::pair{C4Suggestions::Kind::tinyCut, "tiny_cut"},
        std::pair{C4Suggestions::Kind::discourseFiller, "discourse_filler"},
        std::pair{C4Suggestions::Kind::hesitation, "hesitation"},
        std::pair{C4Suggestions::Kind::retake, "retake"},
        std::pair{C4Suggestions::Kind::shortIsland, "short_island"},
        std::pair{C4Suggestions::Kind::pause, "pause"},
    };
};

template <>
struct Fields<C4Suggestions::Suggestion> {
    static constexpr auto list = std::tuple{
        field("id", &C4Suggestions::Suggestion::id),
        field("kind", &C4Suggestions::Suggestion::kind),
        field("clipId", &C4Suggestions::Suggestion::clipId),
        field("wordStart", &C4Suggestions::Suggestion::wordStart),
        field("wordEnd", &C4Suggestions::Suggestion::wordEnd),
        field("startS", &C4Suggestions::Suggestion::startS),
        field("endS", &C4Suggestions::Suggestion::endS),
        field("reason", &C4Suggestions::Suggestion::reason),
        field("evidence", &C4Suggestions::Suggestion::evidence),
        field("source", &C4Suggestions::Suggestion::source),
    };
};

template <>
struct Coding<C4Suggestions::Known> {
    static QJsonValue encode(const C4Suggestions::Known &known, KeyStyle style);
    static C4Suggestions::Known decode(const QJsonValue &value, KeyStyle style) noexcept;
};

// Written by hand: `suggestions` is read through `Known`.
template <>
struct Coding<C4Suggestions> {
    static QJsonValue encode(const C4Suggestions &document, KeyStyle style);
    static C4Suggestions decode(const QJsonValue &value, KeyStyle style);
};

} // namespace velum::json
