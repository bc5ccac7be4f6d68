#pragma once

// Which of the tools that every project needs are missing. Checked at start
// and whenever the user asks again; a non-empty `missing` puts the toolkit
// notice in front of the user. yt-dlp is not part of it: it is looked for
// only when a YouTube link is used.

#include "tools/ProcessRunner.h"

#include <QString>
#include <QStringList>

#include <map>

namespace velum {

struct ToolPreflight {
    // Tool names in the order checked: "ffmpeg", then "ffprobe".
    QStringList missing;
    // Where each tool that was found comes from.
    std::map<QString, ProcessRunner::ToolSource> sources;

    friend bool operator==(const ToolPreflight &, const ToolPreflight &) = default;

    bool isComplete() const { return missing.isEmpty(); }

    // The tools that are checked, in order.
    static QStringList requiredTools();

    // Resolves each required tool with the runner's locations (by default the
    // application's bundled folder, "PATH" and the standard extra folders).
    static ToolPreflight check(const ProcessRunner &runner = ProcessRunner());
};

} // namespace velum
