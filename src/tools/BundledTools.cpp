#include "tools/BundledTools.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <unistd.h>

namespace velum::BundledTools {

std::optional<QString> resourceDirectory()
{
    if (!QCoreApplication::instance())
        return std::nullopt;
    const QString executableFolder = QCoreApplication::applicationDirPath();
    if (executableFolder.isEmpty())
        return std::nullopt;
    const QString folder = QDir::cleanPath(executableFolder + QStringLiteral("/../share/velum"));
    if (!QFileInfo(folder).isDir())
        return std::nullopt;
    return folder;
}

std::optional<QString> directory()
{
    const auto resources = resourceDirectory();
    if (!resources)
        return std::nullopt;
    return *resources + QStringLiteral("/ffmpeg");
}

bool isExecutableFile(const QString &path)
{
    if (path.isEmpty())
        return false;
    const QFileInfo info(path);
    if (!info.isFile())
        return false;
    // access() asks the kernel with this process's real identity, which is
    // what decides whether a spawn may execute it.
    return ::access(QFile::encodeName(path).constData(), X_OK) == 0;
}

std::optional<QUrl> url(const QString &name, const QString &toolsDirectory)
{
    if (name.isEmpty() || toolsDirectory.isEmpty())
        return std::nullopt;
    const QString path = QDir(toolsDirectory).absoluteFilePath(name);
    if (!isExecutableFile(path))
        return std::nullopt;
    return QUrl::fromLocalFile(path);
}

std::optional<QUrl> url(const QString &name)
{
    const auto folder = directory();
    if (!folder)
        return std::nullopt;
    return url(name, *folder);
}

std::optional<QString> bundledVersion(const QString &toolsDirectory)
{
    QFile file(QDir(toolsDirectory).filePath(QStringLiteral("VERSION")));
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8);
    const QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;

    qsizetype end = 0;
    while (end < text.size() && text[end] != QLatin1Char('\n') && text[end] != QLatin1Char('\r'))
        ++end;
    const QStringList tokens = text.left(end).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (tokens.size() < 2 || tokens[0] != QLatin1String("ffmpeg"))
        return std::nullopt;
    return tokens[1];
}

std::optional<QString> bundledVersion()
{
    const auto folder = directory();
    if (!folder)
        return std::nullopt;
    return bundledVersion(*folder);
}

std::optional<QUrl> licenseURL(const QString &resourceDirectoryName)
{
    const auto resources = resourceDirectory();
    if (!resources)
        return std::nullopt;
    const QString path = QDir(*resources).filePath(resourceDirectoryName + QStringLiteral("/LICENSE.md"));
    if (!QFileInfo::exists(path))
        return std::nullopt;
    return QUrl::fromLocalFile(path);
}

} // namespace velum::BundledTools
