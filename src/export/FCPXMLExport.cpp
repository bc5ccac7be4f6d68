#include "export/FCPXMLExport.h"

#include "export/FCPXMLWriter.h"
#include "model/Json.h"

#include <QDir>
#include <QFileInfo>

#include <utility>

namespace velum::ProcessPipeline {

namespace {

// The file's bytes when they read back whole as UTF-8 (a byte order mark
// dropped), otherwise empty.
QByteArray readBack(const QString &path)
{
    auto bytes = readFile(path);
    if (!bytes || !bytes->isValidUtf8())
        return QByteArray();
    if (bytes->startsWith("\xEF\xBB\xBF"))
        bytes->remove(0, 3);
    return *std::move(bytes);
}

} // namespace

ExportResult write(const ExportPlan &plan, const QUrl &destination)
{
    if (!destination.isLocalFile())
        throw FileWriteError(QStringLiteral("cannot write the timeline to %1: not a local file")
                                 .arg(destination.toDisplayString())
                                 .toStdString());
    const QString path = QFileInfo(destination.toLocalFile()).absoluteFilePath();
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        throw FileWriteError(QStringLiteral("cannot create the folder %1").arg(folder).toStdString());

    FCPXMLWriter::document(plan).write(QUrl::fromLocalFile(path));

    ExportResult result;
    result.url = QUrl::fromLocalFile(path);
    result.report = FCPXMLValidation::validate(readBack(path), plan);
    result.plan = plan;
    return result;
}

} // namespace velum::ProcessPipeline
