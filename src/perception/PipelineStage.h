#pragma once

// The stages of a project's pipeline, local and cloud, in the order they run,
// and the progress a running stage reports. A stage's raw value is
// `json::text(stage)`; `json::fromText<Stage>` gives no stage for any other
// text.

#include "model/Json.h"

#include <QString>

namespace velum::ProcessPipeline {

enum class Stage { c0, c05, c1, order, outline, labels, c2, c3, c4, c5 };

struct Progress {
    Stage stage = Stage::c0;
    double fraction = 0; // 0 to 1
    QString message;

    friend bool operator==(const Progress &, const Progress &) = default;
};

} // namespace velum::ProcessPipeline

namespace velum::json {

template <>
struct EnumTexts<ProcessPipeline::Stage> {
    static constexpr std::array values{
        std::pair{ProcessPipeline::Stage::c0, "c0"},         std::pair{ProcessPipeline::Stage::c05, "c05"},
        std::pair{ProcessPipeline::Stage::c1, "c1"},         std::pair{ProcessPipeline::Stage::order, "order"},
        std::pair{ProcessPipeline::Stage::outline, "outline"}, std::pair{ProcessPipeline::Stage::labels, "labels"},
        std::pair{ProcessPipeline::Stage::c2, "c2"},         std::pair{ProcessPipeline::Stage::c3, "c3"},
        std::pair{ProcessPipeline::Stage::c4, "c4"},         std::pair{ProcessPipeline::Stage::c5, "c5"},
    };
};

template <>
struct Fields<ProcessPipeline::Progress> {
    static constexpr auto list = std::tuple{
        field("stage", &ProcessPipeline::Progress::stage),
        field("fraction", &ProcessPipeline::Progress::fraction),
        field("message", &ProcessPipeline::Progress::message),
    };
};

} // namespace velum::json
