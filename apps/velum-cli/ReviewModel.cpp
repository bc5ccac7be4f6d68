#include "ReviewModel.h"

#include <cstdio>

namespace velum::cli {

std::optional<ReviewModel> loadReviewModel(const QString &folder)
{
    auto bundle = ProcessPipeline::reviewBundle(folder);
    if (!bundle)
        return std::nullopt;
    ReviewModel model{.bundle = std::move(*bundle), .transcript = {}, .applyNotes = {}};
    model.transcript = model.bundle.transcript;
    model.applyNotes = model.bundle.edits.apply(model.transcript);
    for (const auto &note : model.applyNotes)
        std::fprintf(stdout, "%s\n", qUtf8Printable(note));
    std::fflush(stdout);
    return model;
}

} // namespace velum::cli
