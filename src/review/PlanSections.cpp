#include "review/PlanSections.h"

#include <QSet>

#include <algorithm>

namespace velum::PlanSections {

namespace {

struct Range {
    qint64 start = 0;
    qint64 end = 0;
};

bool overlaps(const Range &a, const Range &b)
{
    return a.start < b.end && b.start < a.end;
}

} // namespace

std::vector<Resolved> resolve(const C1Plan &plan, const QHash<QString, int> &counts, std::vector<QString> &notes)
{
    if (plan.schemaVersion != C1Plan::acceptedSchemaVersion) {
        notes.push_back(QStringLiteral("c1_plan: schema ") + QString::number(plan.schemaVersion)
                        + QStringLiteral(" is not ") + QString::number(C1Plan::acceptedSchemaVersion)
                        + QStringLiteral(" — no sections"));
        return {};
    }
    if (plan.planFallback.value_or(false)) {
        notes.push_back(QStringLiteral("c1_plan: the plan was refused — no sections"));
        return {};
    }

    // Each clip's first position in the plan's word stream. A clip named
    // twice keeps the base of its last appearance; both count in the total.
    QHash<QString, qint64> base;
    qint64 total = 0;
    for (const auto &clip : plan.clipOrder) {
        const auto count = counts.constFind(clip);
        if (count == counts.constEnd()) {
            notes.push_back(QStringLiteral("c1_plan: clip ") + clip
                            + QStringLiteral(" is not in this build — no sections"));
            return {};
        }
        base.insert(clip, total);
        total += *count;
    }
    if (plan.sections.empty())
        return {};

    std::vector<Resolved> resolved;
    std::vector<Range> taken;
    for (std::size_t i = 0; i < plan.sections.size(); ++i) {
        const auto &section = plan.sections[i];
        const auto drop = [&](const QString &cause) {
            notes.push_back(QStringLiteral("c1_plan: section ") + QString::number(i) + QStringLiteral(" (")
                            + section.name + QStringLiteral(") dropped — ") + cause);
        };
        const Range range{section.start, section.end};
        if (range.start >= range.end) {
            drop(QStringLiteral("it is empty"));
            continue;
        }
        if (range.start < 0 || range.end > total) {
            drop(QLatin1Char('[') + QString::number(section.start) + QStringLiteral(", ")
                 + QString::number(section.end) + QStringLiteral(") is outside the ") + QString::number(total)
                 + QStringLiteral(" words this build has"));
            continue;
        }
        if (std::any_of(taken.begin(), taken.end(), [&](const Range &r) { return overlaps(r, range); })) {
            drop(QStringLiteral("it overlaps a section already taken"));
            continue;
        }

        std::vector<Resolved::Span> spans;
        QSet<QString> visited; // a clip named twice has one base, and so one span
        for (const auto &clip : plan.clipOrder) {
            if (visited.contains(clip))
                continue;
            visited.insert(clip);
            const qint64 clipStart = base.value(clip);
            const qint64 lower = std::max(range.start, clipStart);
            const qint64 upper = std::min(range.end, clipStart + counts.value(clip));
            if (lower < upper)
                spans.push_back({clip, IndexRange{static_cast<int>(lower - clipStart),
                                                  static_cast<int>(upper - clipStart)}});
        }
        if (spans.empty()) {
            drop(QStringLiteral("it covers no clip's words"));
            continue;
        }
        taken.push_back(range);
        resolved.push_back(Resolved{section.name, section.about, static_cast<int>(i), std::move(spans)});
    }
    return resolved;
}

} // namespace velum::PlanSections
