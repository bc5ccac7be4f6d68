#pragma once

// The tools shipped inside the application. The application's resource folder
// is "../share/velum" beside the folder of the running executable (for
// /usr/bin/velum, /usr/share/velum); its "ffmpeg" folder holds the bundled
// ffmpeg and ffprobe, a "VERSION" file naming their version, and each bundled
// component's licence under "<component>/LICENSE.md".

#include <QString>
#include <QUrl>

#include <optional>

namespace velum::BundledTools {

// The application's resource folder; absent when there is no application
// object to place it by, or when the folder does not exist.
std::optional<QString> resourceDirectory();

// The resource folder with "ffmpeg" appended; absent without a resource folder.
std::optional<QString> directory();

// `directory` with `name` appended, only if that path is an executable file.
std::optional<QUrl> url(const QString &name);
// The same inside a given tools folder.
std::optional<QUrl> url(const QString &name, const QString &toolsDirectory);

// The version in the first line of "VERSION", which reads "ffmpeg <version>
// [more words]". Absent without the file, when it is not UTF-8, or when the
// first word is not exactly "ffmpeg" or no second word follows.
std::optional<QString> bundledVersion();
std::optional<QString> bundledVersion(const QString &toolsDirectory);

// "<resource folder>/<name>/LICENSE.md", only if that file exists.
std::optional<QUrl> licenseURL(const QString &resourceDirectoryName);

// True when `path` is a regular file (or a link to one) that this process may
// execute.
bool isExecutableFile(const QString &path);

} // namespace velum::BundledTools
