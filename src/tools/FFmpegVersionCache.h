#pragma once

// The version of the ffmpeg in use, for the meta block of the measurements
// document. One process-wide instance reads it once per run of the
// application: the first caller starts the read, callers that arrive while it
// runs wait for the same read, and everyone after gets the stored answer,
// which may be that no version could be read. Safe from any thread.

#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QFuture>
#include <QString>

#include <functional>
#include <mutex>
#include <optional>

namespace velum {

class FFmpegVersionCache {
public:
    // Reads the version, blocking; runs on the utility pool.
    using Reader = std::function<std::optional<QString>()>;

    // A cache with its own reader (the shared instance reads with
    // readBinaryVersion and the application's tool locations).
    explicit FFmpegVersionCache(Reader reader);
    // Waits for a read under way.
    ~FFmpegVersionCache();
    FFmpegVersionCache(const FFmpegVersionCache &) = delete;
    FFmpegVersionCache &operator=(const FFmpegVersionCache &) = delete;

    static FFmpegVersionCache &shared();

    // The version, reading it if nobody has yet.
    QCoro::Task<std::optional<QString>> version();

    // What is stored. Outer absent: not asked yet, or the first read is still
    // running. Inner absent: asked, and no version could be read.
    std::optional<std::optional<QString>> resolved() const;

    // Resolves "ffmpeg" and runs it with "-version"; absent when it cannot be
    // resolved or started.
    static std::optional<QString> readBinaryVersion(const ProcessRunner &runner = ProcessRunner());
    // The version in the output of "ffmpeg -version": the first line, trimmed,
    // split on blanks; "ffmpeg version <v> ..." gives <v>, any other non-empty
    // line is the version as a whole, an empty one gives none.
    static std::optional<QString> versionFromOutput(const QString &text);

private:
    Reader m_reader;
    mutable std::mutex m_mutex;
    std::optional<std::optional<QString>> m_resolved;
    std::optional<QFuture<std::optional<QString>>> m_pending;
};

} // namespace velum
