#pragma once

// What the user decided about the service's suggestions, kept in
// "suggestion_decisions.json" in the project folder and keyed by suggestion
// identifier. A new job's suggestions come with new identifiers and so with
// no decisions; the file is never cleared.

#include "model/Json.h"

#include <QString>

#include <optional>
#include <set>

namespace velum {

struct SuggestionDecisions {
    std::set<QString> accepted; // identifiers of suggestions accepted
    std::set<QString> rejected; // identifiers of suggestions rejected

    friend bool operator==(const SuggestionDecisions &, const SuggestionDecisions &) = default;

    bool isDecided(const QString &id) const { return accepted.contains(id) || rejected.contains(id); }
    // A suggestion is accepted or rejected, never both: each decision
    // replaces the other.
    void accept(const QString &id);
    void reject(const QString &id);
};

// Where the decisions are saved. Without a location nothing is saved.
struct SuggestionStore {
    std::optional<QString> path;

    friend bool operator==(const SuggestionStore &, const SuggestionStore &) = default;

    // The store of a project folder.
    static SuggestionStore in(const QString &projectFolder);

    // Writes the decisions atomically, making the folder; an empty record is
    // written too rather than deleting the file. Failures are swallowed.
    void save(const SuggestionDecisions &decisions) const;
    // The stored decisions; none when there is no location or the file
    // cannot be read or decoded.
    SuggestionDecisions load() const;
};

} // namespace velum

namespace velum::json {

// Both keys are required; each set is written as a sorted array, so that the
// file is stable.
template <>
struct Coding<SuggestionDecisions> {
    static QJsonValue encode(const SuggestionDecisions &decisions, KeyStyle style);
    static SuggestionDecisions decode(const QJsonValue &value, KeyStyle style);
};

} // namespace velum::json
