// velum-cli perceive PROJECT_DIR --a-roll FILE... [--external FILE]
//                   [--b-roll FILE...] --out FOLDER
//
// Everything Velum does on this machine before a project goes to the
// service: every file judged (c0), the takes placed against the external
// microphone and put in shooting order (c05), both documents written into
// PROJECT_DIR, then the measurements and their audio written into FOLDER.
// The project's id is PROJECT_DIR's name when that is a UUID; otherwise a
// new one, which is printed.

#include "Command.h"

#include "perception/MeasurementsExporter.h"
#include "perception/ProbeStage.h"
#include "perception/SyncStage.h"
#include "tools/WaitForTask.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

namespace velum::cli {
namespace {

constexpr const char *usage = "PROJECT_DIR --a-roll FILE... [--external FILE] [--b-roll FILE...] --out FOLDER";

struct Arguments {
    QString projectDir;
    QString out;
    std::vector<std::pair<QString, ProjectFileRole>> files;
};

// The arguments, or a usage error's status.
std::variant<Arguments, int> parse(const QStringList &arguments)
{
    Arguments parsed;
    std::optional<ProjectFileRole> role; // of the files that follow
    bool sawARoll = false;
    int externals = 0;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        if (a == QLatin1String("--a-roll")) {
            role = ProjectFileRole::aRoll;
        } else if (a == QLatin1String("--b-roll")) {
            role = ProjectFileRole::bRoll;
        } else if (a == QLatin1String("--external")) {
            role = ProjectFileRole::externalAudio;
        } else if (a == QLatin1String("--out")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--out needs a folder"));
            parsed.out = arguments[++i];
            role.reset();
        } else if (a.startsWith(QLatin1Char('-'))) {
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        } else if (role) {
            sawARoll = sawARoll || *role == ProjectFileRole::aRoll;
            if (*role == ProjectFileRole::externalAudio && ++externals > 1)
                return usageError(QStringLiteral("--external takes one file"));
            parsed.files.emplace_back(a, *role);
        } else if (parsed.projectDir.isEmpty()) {
            parsed.projectDir = a;
        } else {
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        }
    }
    if (parsed.projectDir.isEmpty() || parsed.out.isEmpty() || !sawARoll)
        return usageError(QStringLiteral("usage: velum-cli perceive %1").arg(QLatin1String(usage)));
    return parsed;
}

QString seconds(double value)
{
    return QString::number(value, 'f', 3);
}

void line(const QString &text)
{
    std::fprintf(stdout, "%s\n", qUtf8Printable(text));
}

QString fileSize(const QString &path)
{
    return QStringLiteral("%1 bytes").arg(QFileInfo(path).size());
}

int runPerceive(const QStringList &arguments)
{
    const auto parsed = parse(arguments);
    if (const int *status = std::get_if<int>(&parsed))
        return *status;
    const Arguments &args = std::get<Arguments>(parsed);

    const QFileInfo projectInfo(args.projectDir);
    if (projectInfo.exists() && !projectInfo.isDir())
        return failure(std::runtime_error(qPrintable(QStringLiteral("not a folder: %1").arg(args.projectDir))));
    if (!QDir().mkpath(projectInfo.absoluteFilePath()) || !QDir().mkpath(args.out))
        return failure(std::runtime_error("could not make the project or output folder"));
    const QString projectDir = QFileInfo(args.projectDir).canonicalFilePath();

    QUuid projectID = QUuid::fromString(QFileInfo(projectDir).fileName());
    const bool newID = projectID.isNull();
    if (newID)
        projectID = QUuid::createUuid();

    // The stages write into a project folder of a workspace; here that folder
    // is PROJECT_DIR itself, reached through a link named as the workspace
    // expects, whatever PROJECT_DIR is called.
    QTemporaryDir root(QDir::tempPath() + QStringLiteral("/velum-cli-perceive-XXXXXX"));
    if (!root.isValid()
        || !QFile::link(projectDir, root.filePath(ProjectWorkspace::folderName(projectID))))
        return failure(std::runtime_error("could not prepare a workspace for the project folder"));
    const ProjectWorkspace workspace{.overrideRoot = QUrl::fromLocalFile(root.path())};

    std::vector<ProjectFile> files;
    for (const auto &[path, role] : args.files)
        files.push_back(ProjectFile{.id = QUuid::createUuid(),
                                    .url = QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()),
                                    .role = role});

    line(QStringLiteral("project %1%2").arg(ProjectWorkspace::folderName(projectID),
                                            newID ? QStringLiteral(" (new id)") : QString()));
    try {
        const auto c0 = waitForTask(ProcessPipeline::runC0(projectID, files, workspace));
        line(QStringLiteral("c0: %1 file(s)").arg(c0.files.size()));
        for (const auto &clip : c0.document.clips)
            line(QStringLiteral("  %1  %2 %3%4")
                     .arg(clip.filename, json::text(clip.role), json::text(clip.state),
                          clip.note ? QStringLiteral(" — ") + *clip.note : QString()));

        const auto sync = waitForTask(ProcessPipeline::runC05(projectID, c0.document, workspace));
        const C0Probe::Clip *external = sync.externalClipId ? c0.document.clip(*sync.externalClipId) : nullptr;
        line(external ? QStringLiteral("c05: against %1").arg(external->filename)
                      : QStringLiteral("c05: no external audio"));
        for (const auto &clip : sync.clips) {
            QString state = clip.isSynced && clip.offsetS
                                ? QStringLiteral("at %1 s, confidence %2")
                                      .arg(seconds(*clip.offsetS),
                                           clip.confidence ? QString::number(*clip.confidence, 'g', 4) : QString())
                                : QStringLiteral("not synced");
            if (clip.note)
                state += QStringLiteral(" — ") + *clip.note;
            line(QStringLiteral("  #%1 %2  %3").arg(clip.shootingIndex).arg(clip.filename, state));
        }
        line(QStringLiteral("wrote %1 (%2)").arg(QDir(projectDir).filePath(artifact::c0Probe),
                                                 fileSize(QDir(projectDir).filePath(artifact::c0Probe))));
        line(QStringLiteral("wrote %1 (%2)").arg(QDir(projectDir).filePath(artifact::c05Sync),
                                                 fileSize(QDir(projectDir).filePath(artifact::c05Sync))));

        Project project{.id = projectID, .name = QFileInfo(projectDir).fileName(), .files = c0.files};
        const auto measured = waitForTask(MeasurementsExporter::exportProject(
            project, QUrl::fromLocalFile(QFileInfo(args.out).absoluteFilePath()), workspace));
        line(QStringLiteral("wrote %1 (%2 bytes)")
                 .arg(measured.measurementsURL.toLocalFile())
                 .arg(measured.measurementsBytes));
        for (const auto &audio : measured.audio)
            line(QStringLiteral("wrote %1 (%2 bytes)").arg(audio.url.toLocalFile()).arg(audio.bytes));
    } catch (const std::exception &e) {
        return toolFailure(e);
    }
    return exitOk;
}

const CommandRegistration registration{
    Command{"perceive", usage,
            "judge the files, sync the takes to the external audio (c0_probe.json, c05_sync.json in PROJECT_DIR) "
            "and write the measurements and speech audio into FOLDER",
            runPerceive}};

} // namespace
} // namespace velum::cli
