#include "tools/ToolPreflight.h"

namespace velum {

QStringList ToolPreflight::requiredTools()
{
    return {QStringLiteral("ffmpeg"), QStringLiteral("ffprobe")};
}

ToolPreflight ToolPreflight::check(const ProcessRunner &runner)
{
    ToolPreflight result;
    for (const QString &name : requiredTools()) {
        if (const auto tool = runner.resolve(name))
            result.sources.emplace(name, tool->source);
        else
            result.missing.append(name);
    }
    return result;
}

} // namespace velum
