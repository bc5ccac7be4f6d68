#include "stages/StageDocuments.h"

#include "model/ProjectWorkspace.h"

namespace velum::StageDocuments {

namespace {

template <class T>
std::optional<T> read(const QString &folder, QLatin1StringView name)
{
    return StageCoder::read<T>(folder + QLatin1Char('/') + name);
}

// A document whose schema this build does not read counts as absent.
template <class T>
std::optional<T> readSchema(const QString &folder, QLatin1StringView name, int accepted)
{
    auto document = read<T>(folder, name);
    if (document && document->schemaVersion != accepted)
        return std::nullopt;
    return document;
}

} // namespace

std::optional<C0Probe> loadC0Probe(const QString &folder)
{
    return readSchema<C0Probe>(folder, artifact::c0Probe, C0Probe::currentSchemaVersion);
}

std::optional<C05Sync> loadC05Sync(const QString &folder)
{
    return read<C05Sync>(folder, artifact::c05Sync);
}

std::optional<C1Transcript> loadC1Transcript(const QString &folder)
{
    return read<C1Transcript>(folder, artifact::c1Transcript);
}

std::optional<C1Plan> loadC1Plan(const QString &folder)
{
    return read<C1Plan>(folder, artifact::c1Plan);
}

std::optional<ClipOrder> loadClipOrder(const QString &folder)
{
    return read<ClipOrder>(folder, artifact::c15Order);
}

std::optional<C2Takes> loadC2Takes(const QString &folder)
{
    return readSchema<C2Takes>(folder, artifact::c2Takes, C2Takes::acceptedSchemaVersion);
}

std::optional<C3Cuts> loadC3Cuts(const QString &folder)
{
    return read<C3Cuts>(folder, artifact::c3Cuts);
}

std::optional<C3Seams> loadC3Seams(const QString &folder)
{
    return readSchema<C3Seams>(folder, artifact::c3Seams, C3Seams::acceptedSchemaVersion);
}

std::optional<C4Suggestions> loadC4Suggestions(const QString &folder)
{
    return read<C4Suggestions>(folder, artifact::c4Suggestions);
}

} // namespace velum::StageDocuments
