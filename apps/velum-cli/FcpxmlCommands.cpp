// velum-cli fcpxml PROJECT_DIR OUT.fcpxml --json REPORT [--name NAME] [--kept-only]
// velum-cli validate-fcpxml FILE PROJECT_DIR --json REPORT [--name NAME] [--kept-only]
//
// `fcpxml` exports the Final Cut timeline of a finished project folder as the
// review's export does: the plan of `velum-cli plan` (same NAME and
// --kept-only), the FCPXML file written with its folder, read back and
// checked. It succeeds whenever the file was written, valid or not; an
// invalid file stays in place and the line "velum: export: FCPXML validation
// failed for NAME" goes to standard error, as in the application.
//
// `validate-fcpxml` runs the same checks on an existing file against the plan
// of a folder, for a file edited or moved since it was written. It succeeds
// whenever the checks ran; the report says whether they passed.
//
// Both write the report as JSON, field names as keys, a check without a
// detail leaving it out:
//
//   { "valid", "dtdValidated", "checks": [ {"name", "passed", "detail"?} ] }
//
// "valid" is true when every check passed; a DTD check skipped for want of
// the editor's DTD or xmllint passes and leaves "dtdValidated" false.

#include "Command.h"
#include "ProjectPlan.h"

#include "export/FCPXMLExport.h"
#include "export/FCPXMLValidation.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QStringDecoder>
#include <QUrl>

#include <cstdio>
#include <optional>
#include <variant>

namespace velum::cli {
namespace {

struct Arguments {
    QString first;  // PROJECT_DIR for fcpxml, FILE for validate-fcpxml
    QString second; // OUT.fcpxml for fcpxml, PROJECT_DIR for validate-fcpxml
    QString report;
    std::optional<QString> name;
    bool keptOnly = false;
};

// The arguments, or the exit status of a usage error already reported.
std::variant<Arguments, int> parseArguments(const QStringList &arguments, const char *command, const char *usage)
{
    Arguments parsed;
    int positional = 0;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &a = arguments[i];
        if (a == QLatin1String("--json")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--json needs a file name"));
            parsed.report = arguments[++i];
        } else if (a == QLatin1String("--name")) {
            if (i + 1 >= arguments.size())
                return usageError(QStringLiteral("--name needs a project name"));
            parsed.name = arguments[++i];
        } else if (a == QLatin1String("--kept-only")) {
            parsed.keptOnly = true;
        } else if (a.startsWith(QLatin1Char('-'))) {
            return usageError(QStringLiteral("unknown option \"%1\"").arg(a));
        } else if (positional == 0) {
            parsed.first = a;
            ++positional;
        } else if (positional == 1) {
            parsed.second = a;
            ++positional;
        } else {
            return usageError(QStringLiteral("unexpected argument \"%1\"").arg(a));
        }
    }
    if (positional < 2 || parsed.report.isEmpty() || parsed.first.isEmpty() || parsed.second.isEmpty())
        return usageError(QStringLiteral("usage: velum-cli %1 %2").arg(QString::fromUtf8(command), QString::fromUtf8(usage)));
    return parsed;
}

QJsonObject reportJson(const FCPXMLValidation::Report &report)
{
    QJsonObject root = json::encode(report, json::KeyStyle::fieldNames).toObject();
    root.insert(QLatin1String("valid"), report.isValid());
    return root;
}

void writeReport(const QString &path, const FCPXMLValidation::Report &report)
{
    writeFileAtomically(path, json::serialize(reportJson(report)));
}

void reportNothingToPlan(const QString &folder)
{
    std::fprintf(stderr, "velum-cli: nothing to plan in %s\n", qUtf8Printable(folder));
}

constexpr char fcpxmlUsage[] = "PROJECT_DIR OUT.fcpxml --json REPORT [--name NAME] [--kept-only]";
constexpr char validateUsage[] = "FILE PROJECT_DIR --json REPORT [--name NAME] [--kept-only]";

int runFcpxml(const QStringList &arguments)
{
    const auto parsed = parseArguments(arguments, "fcpxml", fcpxmlUsage);
    if (const int *status = std::get_if<int>(&parsed))
        return *status;
    const Arguments &a = std::get<Arguments>(parsed);
    const QString &folder = a.first;
    try {
        const auto plan = planProject(folder, a.name, a.keptOnly);
        if (!plan) {
            reportNothingToPlan(folder);
            return exitFailure;
        }
        const auto result =
            ProcessPipeline::write(*plan, QUrl::fromLocalFile(QFileInfo(a.second).absoluteFilePath()));
        writeReport(a.report, result.report);
        if (!result.report.isValid())
            std::fprintf(stderr, "velum: export: FCPXML validation failed for %s\n",
                         qUtf8Printable(QFileInfo(result.url.toLocalFile()).fileName()));
    } catch (const std::exception &e) {
        return failure(e);
    }
    return exitOk;
}

int runValidate(const QStringList &arguments)
{
    const auto parsed = parseArguments(arguments, "validate-fcpxml", validateUsage);
    if (const int *status = std::get_if<int>(&parsed))
        return *status;
    const Arguments &a = std::get<Arguments>(parsed);
    const QString &file = a.first;
    const QString &folder = a.second;
    try {
        const auto bytes = readFile(file);
        if (!bytes) {
            std::fprintf(stderr, "velum-cli: cannot read %s\n", qUtf8Printable(file));
            return exitFailure;
        }
        const auto plan = planProject(folder, a.name, a.keptOnly);
        if (!plan) {
            reportNothingToPlan(folder);
            return exitFailure;
        }
        // Text that is not UTF-8 is checked as empty, as an export reads
        // its file back.
        QStringDecoder decoder(QStringDecoder::Utf8);
        QString text = decoder.decode(*bytes);
        if (decoder.hasError())
            text.clear();
        writeReport(a.report, FCPXMLValidation::validate(text, *plan));
    } catch (const std::exception &e) {
        return failure(e);
    }
    return exitOk;
}

const CommandRegistration fcpxmlRegistration{Command{
    "fcpxml", fcpxmlUsage,
    "export the Final Cut timeline of a finished project folder, stored edits laid over, check the written file "
    "and write the report as JSON",
    runFcpxml}};

const CommandRegistration validateRegistration{Command{
    "validate-fcpxml", validateUsage,
    "check an FCPXML file against the export plan of a project folder and write the report as JSON", runValidate}};

} // namespace
} // namespace velum::cli
