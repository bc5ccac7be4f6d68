#include "support/SharedFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace velum::test {

std::optional<QString> sharedFolder(const QString &name,
                                    const std::function<bool(const QString &folder, QString &error)> &make,
                                    QString &error)
{
    const QString shared = QDir(QDir::tempPath()).filePath(name);
    const QString marker = QStringLiteral("/.complete");
    if (QFileInfo::exists(shared + marker))
        return shared;

    auto dir = std::make_unique<QTemporaryDir>(shared + QStringLiteral("-XXXXXX"));
    if (!dir->isValid()) {
        error = QStringLiteral("cannot make a folder beside %1").arg(shared);
        return std::nullopt;
    }
    if (!make(dir->path(), error))
        return std::nullopt;
    QFile marked(dir->path() + marker);
    if (!marked.open(QIODevice::WriteOnly)) {
        error = QStringLiteral("cannot mark %1 complete").arg(dir->path());
        return std::nullopt;
    }
    marked.close();
    if (QDir().rename(dir->path(), shared)) {
        dir->setAutoRemove(false);
        return shared;
    }
    // Another process won the race: its copy is used and this one goes.
    if (QFileInfo::exists(shared + marker))
        return shared;
    // The place is taken by something else: this copy serves this process.
    static std::vector<std::unique_ptr<QTemporaryDir>> kept;
    kept.push_back(std::move(dir));
    return kept.back()->path();
}

bool runTool(const QString &name, const QStringList &arguments, QString &error)
{
    const QString program = QStandardPaths::findExecutable(name);
    if (program.isEmpty()) {
        error = name + QStringLiteral(" is not installed");
        return false;
    }
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(120000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        error = QStringLiteral("%1 %2 failed: %3")
                    .arg(name, arguments.join(QLatin1Char(' ')), QString::fromUtf8(process.readAll()));
        return false;
    }
    return true;
}

bool ffmpeg(const QStringList &arguments, QString &error)
{
    return runTool(QStringLiteral("ffmpeg"), QStringList{"-nostdin", "-v", "error", "-y"} + arguments, error);
}

} // namespace velum::test
