// velum-cli profiles ACCOUNT_DIR
//
// Lists the style profiles kept in an account's folder (the folder that holds
// "profiles/index.json"), one line each:
//
//     <name> TAB <UUID> TAB <number of analysis documents>
//
// in the order of the profile list. An analysis document is a ".json" file in
// the profile's analysis folder other than the profile document
// "params.json". Nothing is created or changed; an unreadable list is empty.

#include "Command.h"

#include "style/ProfileStore.h"

#include <QDir>
#include <QFileInfo>

#include <cstdio>

namespace velum::cli {
namespace {

// A name on one line: tabs and line breaks would split the record.
QString oneLine(QString name)
{
    for (QChar &c : name) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator || c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    }
    return name;
}

qsizetype analysisCount(const ProfileStore &store, const QUuid &id)
{
    const QDir folder(store.analysisDirectory(id).toLocalFile());
    qsizetype count = 0;
    const auto entries = folder.entryInfoList({QStringLiteral("*.json")}, QDir::Files | QDir::Hidden);
    for (const QFileInfo &entry : entries) {
        if (entry.fileName() != QLatin1String("params.json"))
            ++count;
    }
    return count;
}

int runProfiles(const QStringList &arguments)
{
    QString folder;
    for (const QString &a : arguments) {
        if (a.startsWith(QLatin1Char('-')) && a.size() > 1)
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        if (!folder.isEmpty())
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        folder = a;
    }
    if (folder.isEmpty())
        return usageError(QStringLiteral("usage: velum-cli profiles ACCOUNT_DIR"));
    if (!QFileInfo(folder).isDir()) {
        std::fprintf(stderr, "velum-cli: %s is not a folder\n", qUtf8Printable(folder));
        return exitFailure;
    }

    const ProfileStore store{QUrl::fromLocalFile(QFileInfo(folder).absoluteFilePath())};
    for (const auto &profile : store.profiles()) {
        std::printf("%s\t%s\t%lld\n", qUtf8Printable(oneLine(profile.name)),
                    qUtf8Printable(profile.id.toString(QUuid::WithoutBraces).toUpper()),
                    static_cast<long long>(analysisCount(store, profile.id)));
    }
    std::fflush(stdout);
    return exitOk;
}

const CommandRegistration registration{Command{
    "profiles", "ACCOUNT_DIR",
    "list the style profiles of an account folder, one line each: NAME<TAB>UUID<TAB>number of analysis "
    "documents (params.json not counted); reads only",
    runProfiles}};

} // namespace
} // namespace velum::cli
