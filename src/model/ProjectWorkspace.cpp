#include "model/ProjectWorkspace.h"

#include "model/AccountPartition.h"
#include "model/AppPaths.h"

#include <QDir>
#include <QFileInfo>

#include <filesystem>
#include <system_error>

namespace velum {

QString defaultStoreRoot()
{
    return AccountPartition::storeRoot().toLocalFile();
}

WorkspaceError::WorkspaceError(const QString &path, const QString &reason)
    : std::runtime_error(QStringLiteral("Could not create the folder %1: %2").arg(path, reason).toStdString())
    , m_path(path)
    , m_reason(reason)
{
}

namespace {

QString rootPath(const ProjectWorkspace &workspace)
{
    if (workspace.overrideRoot) {
        const QUrl &url = *workspace.overrideRoot;
        return QDir::cleanPath(url.isLocalFile() ? url.toLocalFile() : url.path());
    }
    return QDir::cleanPath(defaultStoreRoot() + QStringLiteral("/projects"));
}

std::filesystem::path fsPath(const QString &path)
{
    return std::filesystem::path(path.toStdU16String());
}

} // namespace

QString ProjectWorkspace::folderName(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

QUrl ProjectWorkspace::root() const
{
    return QUrl::fromLocalFile(rootPath(*this));
}

QString ProjectWorkspace::folderPath(const QUuid &id) const
{
    return rootPath(*this) + QLatin1Char('/') + folderName(id);
}

QString ProjectWorkspace::artifactPath(const QString &name, const QUuid &id) const
{
    return folderPath(id) + QLatin1Char('/') + name;
}

QUrl ProjectWorkspace::folderURL(const QUuid &id) const
{
    return QUrl::fromLocalFile(folderPath(id));
}

QUrl ProjectWorkspace::artifactURL(const QString &name, const QUuid &id) const
{
    return QUrl::fromLocalFile(artifactPath(name, id));
}

QUrl ProjectWorkspace::create(const QUuid &id) const
{
    const QString path = folderPath(id);
    std::error_code error;
    std::filesystem::create_directories(fsPath(path), error);
    if (error)
        throw WorkspaceError(path, QString::fromStdString(error.message()));
    // create_directories reports success when the last component already
    // exists as something other than a folder on some libraries; be sure.
    if (!QFileInfo(path).isDir())
        throw WorkspaceError(path, QString::fromStdString(std::make_error_code(std::errc::not_a_directory).message()));
    return QUrl::fromLocalFile(path);
}

void ProjectWorkspace::remove(const QUuid &id) const noexcept
{
    try {
        std::error_code error;
        std::filesystem::remove_all(fsPath(folderPath(id)), error);
    } catch (...) {
        // Removal is best effort: a folder that cannot go stays.
    }
}

} // namespace velum

namespace velum::ProcessPipeline {

void stampArtifactsJob(const QString &jobId, const QUuid &id, const ProjectWorkspace &workspace) noexcept
{
    try {
        workspace.create(id);
    } catch (const std::exception &) {
        // The write below fails on its own if the folder is really missing.
    }
    try {
        const ArtifactsJob stamp{.schema = 1, .jobId = jobId, .completedAt = json::nowWholeSeconds()};
        StageCoder::write(stamp, workspace.artifactPath(artifact::artifactsJob, id));
    } catch (const std::exception &) {
        // An unstamped folder only means that the edits check cannot tell
        // jobs apart.
    }
}

} // namespace velum::ProcessPipeline
