#include "review/PlanSections.h"

#include "model/Json.h"

#include <gtest/gtest.h>

using namespace velum;
using PlanSections::Resolved;

namespace {

C1Plan planOf(std::vector<QString> clipOrder, std::vector<C1Plan::Section> sections)
{
    C1Plan plan;
    plan.clipOrder = std::move(clipOrder);
    plan.sections = std::move(sections);
    return plan;
}

C1Plan::Section section(int start, int end, const QString &name, std::optional<QString> about = std::nullopt)
{
    return C1Plan::Section{start, end, name, std::move(about)};
}

const QHash<QString, int> counts{{"first", 100}, {"second", 50}, {"empty", 0}};

TEST(PlanSectionsRefused, ASchemaOtherThanOneGivesNoSections)
{
    auto plan = planOf({"first"}, {section(0, 10, "Hook")});
    plan.schemaVersion = 2;
    std::vector<QString> notes{"earlier note"};
    EXPECT_TRUE(PlanSections::resolve(plan, counts, notes).empty());
    EXPECT_EQ(notes, (std::vector<QString>{"earlier note", "c1_plan: schema 2 is not 1 — no sections"}));
}

TEST(PlanSectionsRefused, ARefusedPlanGivesNoSections)
{
    auto plan = planOf({"first"}, {section(0, 10, "Hook")});
    plan.planFallback = true;
    std::vector<QString> notes;
    EXPECT_TRUE(PlanSections::resolve(plan, counts, notes).empty());
    EXPECT_EQ(notes, (std::vector<QString>{"c1_plan: the plan was refused — no sections"}));

    plan.planFallback = false;
    notes.clear();
    EXPECT_EQ(PlanSections::resolve(plan, counts, notes).size(), 1u);
    EXPECT_TRUE(notes.empty());
}

TEST(PlanSectionsRefused, AbsentFallbackCountsAsFalse)
{
    const auto plan = StageCoder::decode<C1Plan>(R"({"schema_version": 1, "clip_order": ["second"],
        "sections": [{"start": 0, "end": 5, "name": "Intro"}]})");
    ASSERT_FALSE(plan.planFallback);
    std::vector<QString> notes;
    const auto sections = PlanSections::resolve(plan, counts, notes);
    ASSERT_EQ(sections.size(), 1u);
    EXPECT_EQ(sections[0], (Resolved{"Intro", std::nullopt, 0, {{"second", {0, 5}}}}));
}

TEST(PlanSectionsRefused, AClipTheBuildLostGivesNoSectionsAndIsNamed)
{
    const auto plan = planOf({"first", "gone", "second"}, {section(0, 10, "Hook")});
    std::vector<QString> notes;
    EXPECT_TRUE(PlanSections::resolve(plan, counts, notes).empty());
    EXPECT_EQ(notes, (std::vector<QString>{"c1_plan: clip gone is not in this build — no sections"}));
}

TEST(PlanSectionsResolve, ASectionAcrossTwoClipsGivesASpanInEach)
{
    const auto plan = planOf({"first", "second"}, {section(90, 130, "Story", "How it began")});
    std::vector<QString> notes;
    const auto sections = PlanSections::resolve(plan, counts, notes);
    EXPECT_TRUE(notes.empty());
    ASSERT_EQ(sections.size(), 1u);
    EXPECT_EQ(sections[0].name, "Story");
    EXPECT_EQ(sections[0].about, "How it began");
    EXPECT_EQ(sections[0].order, 0);
    EXPECT_EQ(sections[0].spans,
              (std::vector<Resolved::Span>{{"first", IndexRange{90, 100}}, {"second", IndexRange{0, 30}}}));
}

TEST(PlanSectionsResolve, PositionsFollowThePlansClipOrder)
{
    // The plan puts "second" first: position 0 is its first word.
    const auto plan = planOf({"second", "empty", "first"}, {section(40, 60, "Turn"), section(140, 150, "End")});
    std::vector<QString> notes;
    const auto sections = PlanSections::resolve(plan, counts, notes);
    EXPECT_TRUE(notes.empty());
    ASSERT_EQ(sections.size(), 2u);
    EXPECT_EQ(sections[0].spans,
              (std::vector<Resolved::Span>{{"second", IndexRange{40, 50}}, {"first", IndexRange{0, 10}}}));
    EXPECT_EQ(sections[1].spans, (std::vector<Resolved::Span>{{"first", IndexRange{90, 100}}}));
    EXPECT_EQ(sections[1].order, 1);
}

TEST(PlanSectionsResolve, OverlapsAreDroppedAndTheirNeighboursStand)
{
    const auto plan = planOf({"first", "second"},
                             {section(0, 10, "Hook"), section(5, 15, "Clash"), section(10, 20, "Touching"),
                              section(20, 20, "Nothing"), section(-1, 5, "Before"), section(140, 151, "After"),
                              section(30, 31, "Last")});
    std::vector<QString> notes;
    const auto sections = PlanSections::resolve(plan, counts, notes);
    ASSERT_EQ(sections.size(), 3u);
    EXPECT_EQ(sections[0].name, "Hook");
    EXPECT_EQ(sections[1].name, "Touching"); // half-open: 10..<20 does not overlap 0..<10
    EXPECT_EQ(sections[1].order, 2);
    EXPECT_EQ(sections[2].name, "Last");
    EXPECT_EQ(sections[2].order, 6);
    EXPECT_EQ(notes, (std::vector<QString>{
                         "c1_plan: section 1 (Clash) dropped — it overlaps a section already taken",
                         "c1_plan: section 3 (Nothing) dropped — it is empty",
                         "c1_plan: section 4 (Before) dropped — [-1, 5) is outside the 150 words this build has",
                         "c1_plan: section 5 (After) dropped — [140, 151) is outside the 150 words this build has",
                     }));
}

TEST(PlanSectionsResolve, ADroppedSectionTakesNoRange)
{
    // The first section is out of range; the second covers part of it and
    // still stands.
    const auto plan = planOf({"second"}, {section(40, 60, "Too long"), section(45, 50, "Fits")});
    std::vector<QString> notes;
    const auto sections = PlanSections::resolve(plan, counts, notes);
    ASSERT_EQ(sections.size(), 1u);
    EXPECT_EQ(sections[0].name, "Fits");
    EXPECT_EQ(notes.size(), 1u);
}

TEST(PlanSectionsResolve, AClipNamedTwiceKeepsItsLastBase)
{
    // Positions 0..50 and 150..200 both name "second"; its words are counted
    // from 150, so a section on the first appearance covers no clip's words.
    const auto plan = planOf({"second", "first", "second"}, {section(0, 10, "Ghost"), section(150, 160, "Real")});
    std::vector<QString> notes;
    const auto sections = PlanSections::resolve(plan, counts, notes);
    ASSERT_EQ(sections.size(), 1u);
    EXPECT_EQ(sections[0].spans, (std::vector<Resolved::Span>{{"second", IndexRange{0, 10}}}));
    EXPECT_EQ(notes, (std::vector<QString>{"c1_plan: section 0 (Ghost) dropped — it covers no clip's words"}));
}

TEST(PlanSectionsResolve, NoSectionsOrNoClips)
{
    std::vector<QString> notes;
    EXPECT_TRUE(PlanSections::resolve(planOf({"first"}, {}), counts, notes).empty());
    EXPECT_TRUE(notes.empty());
    const auto sections = PlanSections::resolve(planOf({}, {section(0, 1, "Alone")}), counts, notes);
    EXPECT_TRUE(sections.empty());
    EXPECT_EQ(notes, (std::vector<QString>{
                         "c1_plan: section 0 (Alone) dropped — [0, 1) is outside the 0 words this build has"}));
}

} // namespace
