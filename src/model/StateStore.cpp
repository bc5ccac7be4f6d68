#include "model/StateStore.h"

#include "model/AccountPartition.h"
#include "model/Json.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace velum {

namespace {

const QString stateFileName = QStringLiteral("state.json");

QString localPath(const QUrl &url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

bool fileExists(const QUrl &url)
{
    const QString path = localPath(url);
    return !path.isEmpty() && QFileInfo::exists(path);
}

} // namespace

QUrl StateStore::fileURL() const
{
    const QUrl folder = override ? *override : AccountPartition::storeRoot();
    return QUrl::fromLocalFile(QDir::cleanPath(localPath(folder) + QLatin1Char('/') + stateFileName));
}

PersistedState StateStore::load() const
{
    return load(localPath(fileURL()));
}

PersistedState StateStore::load(const QString &path)
{
    std::optional<PersistedState> stored = StateCoder::read<PersistedState>(path);
    if (!stored)
        return PersistedState::fresh();
    repair(*stored);
    return std::move(*stored);
}

void StateStore::repair(PersistedState &state)
{
    for (auto &project : state.projects) {
        if (project.status == ProjectStatus::processing)
            project.status = ProjectStatus::draft;
        for (auto &file : project.files) {
            if (!fileExists(file.url))
                file.state = ProjectFileState::failed;
        }
    }
    for (auto &video : state.styleVideos) {
        if (video.status == StyleVideoStatus::analyzing) {
            video.status = StyleVideoStatus::queued;
            video.progress.reset();
        }
        if (video.url && !fileExists(*video.url))
            video.status = StyleVideoStatus::failed;
    }
}

void StateStore::save(const PersistedState &state) const
{
    const QString path = localPath(fileURL());
    try {
        const QByteArray bytes = StateCoder::encode(state);
        if (!QDir().mkpath(QFileInfo(path).absolutePath()))
            throw FileWriteError(QStringLiteral("cannot make the folder of %1").arg(path).toStdString());
        writeFileAtomically(path, bytes);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "velum: error: state not saved: %s\n", e.what());
    }
}

} // namespace velum
