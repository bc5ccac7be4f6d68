// velum-cli plan PROJECT_DIR --json OUT [--name NAME] [--kept-only]
//
// Plans the export of a finished project folder exactly as an export from
// the review does: the review model with the stored edits laid over, the
// folder's "c0_probe.json" and "c05_sync.json", then the planner. NAME is the
// project's name in the plan, by default the folder's name; --kept-only
// writes the plan's kept-only copy, as a Final Cut export without restorable
// cuts does.
//
// The JSON has the plan's fields as keys, optional values left out:
//
//   { "projectName",
//     "clips": [ {"clipId", "filename", "url", "externalOffsetS"?, "media": {...},
//                 "segments": [ {"sourceStart", "sourceEnd", "timelineStart", "reason"?} ]} ],
//     "externalAudio"?: {"clipId", "filename", "url", "durationS", "sampleRate"?, "channels"?,
//                        "startTimecode"?: {"value", "timescale", "source", "text"?}},
//     "segmentCount", "enabledCount", "disabledCount", "keptDuration", "sourceDuration",
//     "dominantVideoSize"?: {"width", "height"} }
//
// The plan holds its times as seconds in doubles, each the double nearest a
// whole frame of its clip's rate, and they are written as they are held, in
// the shortest form that reads back as the same double.

#include "Command.h"
#include "ProjectPlan.h"

#include <QJsonObject>

#include <cstdio>

namespace velum::cli {
namespace {

QJsonObject planJson(const ExportPlan &plan)
{
    QJsonObject root = json::encode(plan, json::KeyStyle::fieldNames).toObject();
    root.insert(QLatin1String("segmentCount"), plan.segmentCount());
    root.insert(QLatin1String("enabledCount"), plan.enabledCount());
    root.insert(QLatin1String("disabledCount"), plan.disabledCount());
    root.insert(QLatin1String("keptDuration"), json::encode(plan.keptDuration(), json::KeyStyle::fieldNames));
    root.insert(QLatin1String("sourceDuration"), json::encode(plan.sourceDuration(), json::KeyStyle::fieldNames));
    if (const auto size = plan.dominantVideoSize())
        root.insert(QLatin1String("dominantVideoSize"),
                    QJsonObject{{QLatin1String("width"), size->width()}, {QLatin1String("height"), size->height()}});
    return root;
}

int runPlan(const QStringList &arguments)
{
    QString folder;
    QString out;
    std::optional<QString> name;
    bool keptOnly = false;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        if (a == QLatin1String("--json")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--json needs a file name"));
            out = arguments[++i];
        } else if (a == QLatin1String("--name")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--name needs a project name"));
            name = arguments[++i];
        } else if (a == QLatin1String("--kept-only")) {
            keptOnly = true;
        } else if (a.startsWith(QLatin1Char('-'))) {
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        } else if (folder.isEmpty()) {
            folder = a;
        } else {
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        }
    }
    if (folder.isEmpty() || out.isEmpty())
        return usageError(QStringLiteral("usage: velum-cli plan PROJECT_DIR --json OUT [--name NAME] [--kept-only]"));

    try {
        const auto plan = planProject(folder, name, keptOnly);
        if (!plan) {
            std::fprintf(stderr, "velum-cli: nothing to plan in %s\n", qUtf8Printable(folder));
            return exitFailure;
        }
        writeFileAtomically(out, json::serialize(planJson(*plan)));
    } catch (const std::exception &e) {
        return failure(e);
    }
    return exitOk;
}

const CommandRegistration registration{Command{
    "plan", "PROJECT_DIR --json OUT [--name NAME] [--kept-only]",
    "plan the export of a finished project folder in whole frames, stored edits laid over, and write it as JSON",
    runPlan}};

} // namespace
} // namespace velum::cli
