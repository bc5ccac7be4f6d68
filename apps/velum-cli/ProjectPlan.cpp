#include "ProjectPlan.h"

#include "ReviewModel.h"

#include "export/ExportPlanner.h"
#include "stages/StageDocuments.h"

#include <QDir>
#include <QFileInfo>

namespace velum::cli {

QString folderName(const QString &folder)
{
    return QFileInfo(QDir::cleanPath(QDir(folder).absolutePath())).fileName();
}

std::optional<ExportPlan> planProject(const QString &folder, const std::optional<QString> &name, bool keptOnly)
{
    const auto model = loadReviewModel(folder);
    const auto probe = model ? StageDocuments::loadC0Probe(folder) : std::nullopt;
    if (!model || !probe)
        return std::nullopt;
    const auto sync = StageDocuments::loadC05Sync(folder);
    ExportPlan plan =
        ExportPlanner::plan(name.value_or(folderName(folder)), model->transcript, model->bundle.media, *probe, sync);
    if (keptOnly)
        plan = plan.keptOnly();
    return plan;
}

} // namespace velum::cli
