#include "model/Project.h"

#include "model/AppPaths.h"

#include <QDir>
#include <QStorageInfo>

#include <cmath>
#include <set>

namespace velum {

QString MediaTimecode::label(double seconds)
{
    if (!(seconds > 0))
        seconds = 0;
    const double whole = std::floor(seconds);
    const auto total = static_cast<qint64>(whole);
    const int millis = std::min(999, static_cast<int>(std::lround((seconds - whole) * 1000)));
    return QString::asprintf("%02lld:%02lld:%02lld.%03d", total / 3600, (total / 60) % 60, total % 60, millis);
}

std::optional<QString> ClipMedia::resolution() const
{
    if (!width || !height || *width < 1 || *height < 1)
        return std::nullopt;
    return QStringLiteral("%1×%2").arg(*width).arg(*height);
}

QString JobPause::userMessage() const
{
    const QString trimmed = message.trimmed();
    if (schemaVersion < 2 || trimmed.isEmpty())
        return QStringLiteral("Velum stopped partway through. Nothing you’ve done is lost.");
    return trimmed;
}

QString JobPause::summary() const
{
    QString text = QStringLiteral("%1 request(s) to %2 (%3) failed during %4.\n\n%5")
                       .arg(failedRequests)
                       .arg(provider, model, stage, message);
    if (detail && !detail->isEmpty())
        text += QStringLiteral("\n\n") + *detail;
    return text;
}

QString JobPause::description() const
{
    return userMessage() + QStringLiteral("\n\nResume picks the job up where it stopped: everything already done is kept.");
}

size_t qHash(const JobPause &p, size_t seed)
{
    return qHashMulti(seed, p.schemaVersion, p.stage, p.provider, p.model, p.failedRequests, p.message,
                      p.detail.value_or(QString()), p.detail.has_value(), p.pausedAt.toSecsSinceEpoch(),
                      p.jobName.value_or(QString()), p.jobName.has_value());
}

JobPausedError::JobPausedError(JobPause pause)
    : m_pause(std::move(pause))
    , m_text(m_pause.description().toStdString())
{
}

bool ProjectFile::needsConfirmation() const
{
    return state == ProjectFileState::warning && isConfirmed != true;
}

QString ProjectFile::duration(double seconds)
{
    const auto total = static_cast<qint64>(std::llround(seconds));
    if (total < 3600)
        return QString::asprintf("%lld:%02lld", total / 60, total % 60);
    return QString::asprintf("%lld:%02lld:%02lld", total / 3600, (total / 60) % 60, total % 60);
}

std::optional<QString> ProjectFile::facts() const
{
    if (!media || state == ProjectFileState::failed)
        return std::nullopt;
    QStringList parts{duration(media->durationS)};
    if (const auto r = media->resolution())
        parts << *r;
    if (!media->audioCodec)
        parts << QStringLiteral("no audio");
    return parts.join(QStringLiteral(" · "));
}

std::vector<ProjectFile> Project::filesIn(ProjectFileRole role) const
{
    std::vector<ProjectFile> result;
    for (const auto &f : files) {
        if (f.role == role)
            result.push_back(f);
    }
    return result;
}

bool Project::canStartProcessing() const
{
    for (const auto &f : files) {
        if (f.state == ProjectFileState::pending || f.state == ProjectFileState::failed)
            return false;
        if (f.needsConfirmation())
            return false;
    }
    const auto aRoll = filesIn(ProjectFileRole::aRoll);
    if (aRoll.empty())
        return false;
    for (const auto &f : aRoll) {
        if (f.state == ProjectFileState::ok || f.isConfirmed == true)
            return true;
    }
    return false;
}

double Project::estimatedWorkingSpaceMB() const
{
    double seconds = 0;
    for (const auto &f : files) {
        if (f.media)
            seconds += f.media->durationS;
    }
    return seconds / 60 * 25;
}

bool Project::mixedFrameRates() const
{
    std::set<long long> rates;
    for (const auto &f : files) {
        if (f.role == ProjectFileRole::aRoll && f.media && f.media->fps)
            rates.insert(std::llround(*f.media->fps * 100));
    }
    return rates.size() > 1;
}

std::optional<double> freeSpaceMB()
{
    // The folder may not exist yet: measure the nearest one that does.
    QDir dir(AppPaths::base());
    while (!dir.exists() && !dir.isRoot()) {
        if (!dir.cdUp())
            break;
    }
    const QStorageInfo storage(dir.absolutePath());
    if (!storage.isValid() || !storage.isReady() || storage.bytesAvailable() < 0)
        return std::nullopt;
    return static_cast<double>(storage.bytesAvailable()) / 1e6;
}

SourceFile::Color SourceFile::color(int colorIndex)
{
    static constexpr Color palette[7] = {
        {94, 155, 168}, {140, 155, 94}, {168, 121, 94}, {110, 123, 168},
        {155, 110, 168}, {94, 168, 126}, {168, 160, 94},
    };
    const long long index = std::llabs(static_cast<long long>(colorIndex)) % 7;
    return palette[index];
}

} // namespace velum

namespace velum::json {

QJsonValue Coding<JobPause>::encode(const JobPause &p, KeyStyle)
{
    QJsonObject o;
    o.insert(QStringLiteral("schema_version"), p.schemaVersion);
    o.insert(QStringLiteral("stage"), p.stage);
    o.insert(QStringLiteral("provider"), p.provider);
    o.insert(QStringLiteral("model"), p.model);
    o.insert(QStringLiteral("failed_requests"), p.failedRequests);
    o.insert(QStringLiteral("message"), p.message);
    if (p.detail)
        o.insert(QStringLiteral("detail"), *p.detail);
    o.insert(QStringLiteral("paused_at"), json::encode(p.pausedAt, KeyStyle::snakeCase));
    if (p.jobName)
        o.insert(QStringLiteral("job_name"), *p.jobName);
    return o;
}

JobPause Coding<JobPause>::decode(const QJsonValue &value, KeyStyle)
{
    if (!value.isObject())
        detail::typeMismatch("an object", value);
    const QJsonObject o = value.toObject();
    constexpr auto style = KeyStyle::snakeCase;
    JobPause p;
    p.schemaVersion = decodeKey<int>(o, QStringLiteral("schema_version"), style).value_or(1);
    p.stage = decodeKey<QString>(o, QStringLiteral("stage"), style).value_or(QStringLiteral("unknown"));
    p.provider = decodeKey<QString>(o, QStringLiteral("provider"), style).value_or(QStringLiteral("unknown"));
    p.model = decodeKey<QString>(o, QStringLiteral("model"), style).value_or(QStringLiteral("unknown"));
    p.failedRequests = decodeKey<int>(o, QStringLiteral("failed_requests"), style).value_or(0);
    p.message = decodeKey<QString>(o, QStringLiteral("message"), style).value_or(QString());
    p.detail = decodeKey<QString>(o, QStringLiteral("detail"), style);
    p.pausedAt = decodeKey<QDateTime>(o, QStringLiteral("paused_at"), style).value_or(nowWholeSeconds());
    p.jobName = decodeKey<QString>(o, QStringLiteral("job_name"), style);
    return p;
}

} // namespace velum::json
