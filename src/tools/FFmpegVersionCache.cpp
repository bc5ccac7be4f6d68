#include "tools/FFmpegVersionCache.h"

#include "tools/DetachedTask.h"

#include <QCoroFuture>
#include <QtConcurrent/QtConcurrentRun>

namespace velum {

FFmpegVersionCache::FFmpegVersionCache(Reader reader)
    : m_reader(std::move(reader))
{
}

FFmpegVersionCache::~FFmpegVersionCache()
{
    std::optional<QFuture<std::optional<QString>>> pending;
    {
        std::lock_guard lock(m_mutex);
        pending = m_pending;
    }
    if (pending)
        pending->waitForFinished();
}

FFmpegVersionCache &FFmpegVersionCache::shared()
{
    static FFmpegVersionCache *cache = new FFmpegVersionCache([] { return readBinaryVersion(); });
    return *cache;
}

QCoro::Task<std::optional<QString>> FFmpegVersionCache::version()
{
    QFuture<std::optional<QString>> pending;
    {
        std::lock_guard lock(m_mutex);
        if (m_resolved) {
            const std::optional<QString> stored = *m_resolved;
            co_return stored;
        }
        if (!m_pending) {
            m_pending = QtConcurrent::run(&utilityPool(), [this]() -> std::optional<QString> {
                std::optional<QString> read;
                try {
                    read = m_reader();
                } catch (...) {
                    // A reader that fails has read no version.
                }
                std::lock_guard innerLock(m_mutex);
                m_resolved = read;
                return read;
            });
        }
        pending = *m_pending;
    }
    co_return co_await pending;
}

std::optional<std::optional<QString>> FFmpegVersionCache::resolved() const
{
    std::lock_guard lock(m_mutex);
    return m_resolved;
}

std::optional<QString> FFmpegVersionCache::readBinaryVersion(const ProcessRunner &runner)
{
    const auto tool = runner.resolve(QStringLiteral("ffmpeg"));
    if (!tool)
        return std::nullopt;
    try {
        const auto output = ProcessRunner::runBlocking(tool->url, {QStringLiteral("-version")});
        return versionFromOutput(output.text);
    } catch (const ProcessRunner::LaunchError &) {
        return std::nullopt;
    }
}

std::optional<QString> FFmpegVersionCache::versionFromOutput(const QString &text)
{
    const qsizetype lineEnd = text.indexOf(QLatin1Char('\n'));
    const QString line = (lineEnd < 0 ? text : text.left(lineEnd)).trimmed();
    const QStringList tokens = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (tokens.size() >= 3 && tokens[0] == QLatin1String("ffmpeg") && tokens[1] == QLatin1String("version"))
        return tokens[2];
    if (!line.isEmpty())
        return line;
    return std::nullopt;
}

} // namespace velum
