#include "model/AccountPartition.h"

#include "model/AppPaths.h"
#include "model/Json.h"

#include <QDir>
#include <QFileInfo>
#include <QTextBoundaryFinder>

#include <cstdio>
#include <mutex>

namespace velum::AccountPartition {

namespace {

std::mutex activeLock;
std::optional<QUrl> activeRoot; // guarded by activeLock

const QString accountsFolder = QStringLiteral("accounts");
const QString noneFolder = QStringLiteral("_none");
const QString migratedMarker = QStringLiteral(".migrated");

void logInfo(const QString &text)
{
    std::fprintf(stderr, "velum: %s\n", qUtf8Printable(text));
}

void logError(const QString &text)
{
    std::fprintf(stderr, "velum: error: %s\n", qUtf8Printable(text));
}

QString pathOf(const QUrl &folder)
{
    return folder.isLocalFile() ? folder.toLocalFile() : folder.path();
}

QString join(const QString &folder, const QString &name)
{
    return QDir::cleanPath(folder + QLatin1Char('/') + name);
}

QUrl folderURL(const QString &path)
{
    return QUrl::fromLocalFile(QDir::cleanPath(path));
}

// An entry of any kind, a dangling symbolic link included.
bool entryExists(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

// Moves a file or folder. Both paths are on the same volume here: the base
// and every partition in it.
bool moveEntry(const QString &from, const QString &to)
{
    return QDir().rename(from, to);
}

} // namespace

std::optional<QUrl> active()
{
    const std::lock_guard guard(activeLock);
    return activeRoot;
}

QUrl storeRoot()
{
    if (auto current = active())
        return *current;
    return folderURL(join(join(AppPaths::base(), accountsFolder), noneFolder));
}

QUrl root(const QString &sub, const QUrl &base)
{
    return folderURL(join(join(pathOf(base), accountsFolder), safeName(sub)));
}

void activate(const QString &sub)
{
    const QUrl base = folderURL(AppPaths::base());
    const QUrl partition = root(sub, base);
    adopt(partition, base);
    const std::lock_guard guard(activeLock);
    activeRoot = partition;
}

void deactivate()
{
    const std::lock_guard guard(activeLock);
    activeRoot.reset();
}

QString safeName(QStringView text)
{
    // A character is what the user sees as one: a base letter with its
    // combining marks is one letter and is kept whole.
    QString result;
    result.reserve(text.size());
    const QString whole = text.toString();
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, whole);
    qsizetype start = 0;
    while (start < whole.size()) {
        finder.setPosition(start);
        qsizetype end = finder.toNextBoundary();
        if (end <= start)
            end = whole.size();
        const QStringView cluster = QStringView(whole).sliced(start, end - start);
        const char32_t first = cluster.toUcs4().value(0);
        const bool keep = QChar::isLetter(first) || QChar::isNumber(first) || cluster == u"-";
        if (keep)
            result.append(cluster);
        else
            result.append(QLatin1Char('_'));
        start = end;
    }
    return result.isEmpty() ? QStringLiteral("_") : result;
}

void adopt(const QUrl &rootURL, const QUrl &baseURL)
{
    const QString base = pathOf(baseURL);
    const QString rootPath = QDir::cleanPath(pathOf(rootURL));
    if (entryExists(join(base, migratedMarker)))
        return;

    const QString parked = join(join(base, accountsFolder), noneFolder);
    if (QFileInfo(parked).isDir() && !entryExists(rootPath)) {
        QDir().mkpath(QFileInfo(rootPath).absolutePath());
        if (moveEntry(parked, rootPath))
            logInfo(QStringLiteral("adopted the parked pre-partition data into the first signed-in account"));
        else
            logError(QStringLiteral("could not move %1 to %2 — left where it was").arg(parked, rootPath));
    }

    QDir().mkpath(rootPath);
    for (const char *legacy : legacyNames) {
        const QString name = QString::fromLatin1(legacy);
        const QString from = join(base, name);
        if (!entryExists(from))
            continue;
        const QString to = join(rootPath, name);
        if (entryExists(to)) {
            logError(QStringLiteral("legacy %1 also exists in the partition — left at the top level").arg(name));
            continue;
        }
        if (!moveEntry(from, to))
            logError(QStringLiteral("could not move legacy %1 into the partition — left at the top level").arg(name));
    }

    try {
        writeFileAtomically(join(base, migratedMarker), QByteArray());
    } catch (const FileWriteError &e) {
        logError(QString::fromUtf8(e.what()));
    }
}

void parkLegacy(const QUrl &baseURL)
{
    const QString base = pathOf(baseURL);
    bool any = false;
    for (const char *legacy : legacyNames)
        any = any || entryExists(join(base, QString::fromLatin1(legacy)));
    if (!any)
        return;

    const QString parked = join(join(base, accountsFolder), noneFolder);
    QDir().mkpath(parked);
    for (const char *legacy : legacyNames) {
        const QString name = QString::fromLatin1(legacy);
        const QString from = join(base, name);
        const QString to = join(parked, name);
        if (!entryExists(from) || entryExists(to))
            continue;
        if (!moveEntry(from, to))
            logError(QStringLiteral("could not park legacy %1 — left at the top level").arg(name));
    }
    logInfo(QStringLiteral("parked pre-partition data for the first account that signs in"));
}

} // namespace velum::AccountPartition
