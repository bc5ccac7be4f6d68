#pragma once

// "c1_plan.json": the sections of the video. Unlike the other documents it
// has no project, date or extraction trailer. Only schema 1 is understood;
// the reader that resolves sections refuses any other, with a note.

#include "model/Json.h"

#include <QString>

#include <optional>
#include <vector>

namespace velum {

struct C1Plan {
    static constexpr int acceptedSchemaVersion = 1;

    // A half-open range of positions over all the words of the plan, counted
    // through the clips in `clipOrder`.
    struct Section {
        int start = 0;
        int end = 0;
        QString name;
        std::optional<QString> about;

        friend bool operator==(const Section &, const Section &) = default;
    };

    int schemaVersion = acceptedSchemaVersion;
    std::vector<QString> clipOrder; // clip identifiers in timeline order
    std::optional<QString> subject;
    std::vector<Section> sections;
    std::optional<int> totalWords;
    // True: the service's planner gave up and the plan is not to be used.
    std::optional<bool> planFallback;

    friend bool operator==(const C1Plan &, const C1Plan &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct Fields<C1Plan::Section> {
    static constexpr auto list = std::tuple{
        field("start", &C1Plan::Section::start),
        field("end", &C1Plan::Section::end),
        field("name", &C1Plan::Section::name),
        field("about", &C1Plan::Section::about),
    };
};

template <>
struct Fields<C1Plan> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C1Plan::schemaVersion),
        field("clipOrder", &C1Plan::clipOrder),
        field("subject", &C1Plan::subject),
        field("sections", &C1Plan::sections),
        field("totalWords", &C1Plan::totalWords),
        field("planFallback", &C1Plan::planFallback),
    };
};

} // namespace velum::json
