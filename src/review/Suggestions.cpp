#include "review/Suggestions.h"

#include "model/ProjectWorkspace.h"
#include "stages/StageCoding.h"

#include <QDir>
#include <QFileInfo>

#include <vector>

namespace velum {

void SuggestionDecisions::accept(const QString &id)
{
    rejected.erase(id);
    accepted.insert(id);
}

void SuggestionDecisions::reject(const QString &id)
{
    accepted.erase(id);
    rejected.insert(id);
}

SuggestionStore SuggestionStore::in(const QString &projectFolder)
{
    return SuggestionStore{QDir(projectFolder).filePath(artifact::suggestionDecisions)};
}

void SuggestionStore::save(const SuggestionDecisions &decisions) const
{
    if (!path)
        return;
    try {
        QDir().mkpath(QFileInfo(*path).absolutePath());
        StageCoder::write(decisions, *path);
    } catch (const std::exception &) {
        // The previous file stands; the next decision saves again.
    }
}

SuggestionDecisions SuggestionStore::load() const
{
    if (!path)
        return {};
    return StageCoder::read<SuggestionDecisions>(*path).value_or(SuggestionDecisions{});
}

} // namespace velum

namespace velum::json {

QJsonValue Coding<SuggestionDecisions>::encode(const SuggestionDecisions &decisions, KeyStyle style)
{
    QJsonObject o;
    encodeInto(o, "accepted", std::vector<QString>(decisions.accepted.begin(), decisions.accepted.end()), style);
    encodeInto(o, "rejected", std::vector<QString>(decisions.rejected.begin(), decisions.rejected.end()), style);
    return o;
}

SuggestionDecisions Coding<SuggestionDecisions>::decode(const QJsonValue &value, KeyStyle style)
{
    const QJsonObject o = requireObject(value);
    const auto accepted = decodeRequired<std::vector<QString>>(o, "accepted", style);
    const auto rejected = decodeRequired<std::vector<QString>>(o, "rejected", style);
    return SuggestionDecisions{{accepted.begin(), accepted.end()}, {rejected.begin(), rejected.end()}};
}

} // namespace velum::json
