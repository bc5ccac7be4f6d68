// velum-cli fcpxml and validate-fcpxml, run as the built program on a small
// project folder whose media files sit beside it.

#include "export/FCPXMLValidation.h"
#include "review/ReviewEdits.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "stages/C1Transcript.h"
#include "stages/C3Cuts.h"
#include "support/Cli.h"
#include "support/SmallProject.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

#include <map>
#include <set>

using namespace velum;

namespace {

// The small project with camera sound on clip "a"; its media files are
// placeholders in the folder's "media" subfolder unless `withMedia` is false.
void writeProject(const test::TempDir &dir, bool withMedia = true)
{
    test::writeSmallProject(dir, {.mediaFolder = dir.file(QStringLiteral("media")), .cameraSound = true,
                                  .placeholders = withMedia});
}

QJsonObject readJson(const QString &path) { return json::parse(test::readBytes(path)).toObject(); }

// Sets an environment variable for the programs a test runs, and puts the
// previous state back afterwards.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char *name, const QString &value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_previous(qgetenv(name))
    {
        qputenv(name, QFile::encodeName(value));
    }
    ~ScopedEnvironment()
    {
        if (m_had)
            qputenv(m_name, m_previous);
        else
            qunsetenv(m_name);
    }
    ScopedEnvironment(const ScopedEnvironment &) = delete;
    ScopedEnvironment &operator=(const ScopedEnvironment &) = delete;

private:
    const char *m_name;
    bool m_had;
    QByteArray m_previous;
};

class FcpxmlCli : public ::testing::Test {
protected:
    test::TempDir dir;
    // No editor DTD unless a test supplies one.
    ScopedEnvironment noDTD{FCPXMLValidation::dtdEnvironmentVariable, dir.file("absent.dtd")};
};

// Check name -> (passed, detail or "<none>").
std::map<QString, std::pair<bool, QString>> checksOf(const QJsonObject &report)
{
    std::map<QString, std::pair<bool, QString>> checks;
    for (const auto &value : report["checks"].toArray()) {
        const QJsonObject check = value.toObject();
        checks[check["name"].toString()] = {check["passed"].toBool(),
                                            check.contains("detail") ? check["detail"].toString() : "<none>"};
    }
    return checks;
}

QStringList failedChecks(const QJsonObject &report)
{
    QStringList names;
    for (const auto &[name, result] : checksOf(report)) {
        if (!result.first)
            names.push_back(name);
    }
    return names;
}

int disabledClips(const QString &fcpxml)
{
    return static_cast<int>(test::readBytes(fcpxml).count("enabled=\"0\" format="));
}

TEST_F(FcpxmlCli, ExportsAValidTimelineAndItsReport)
{
    writeProject(dir);
    const QString out = dir.file("exports/Launch/out.fcpxml");
    const QString reportPath = dir.file("report.json");
    const auto result = test::runVelumCli({"fcpxml", dir.path(), out, "--json", reportPath, "--name", "Launch"});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.constData();
    EXPECT_EQ(result.standardError, QByteArray());

    const QJsonObject report = readJson(reportPath);
    EXPECT_EQ(report.keys(), (QStringList{"checks", "dtdValidated", "valid"}));
    EXPECT_TRUE(report["valid"].toBool()) << failedChecks(report).join(", ").toStdString();
    EXPECT_FALSE(report["dtdValidated"].toBool());
    const QJsonArray checks = report["checks"].toArray();
    ASSERT_EQ(checks.size(), 21);
    EXPECT_EQ(checks.first().toObject(), (QJsonObject{{"name", "well-formed XML"}, {"passed", true}}));
    EXPECT_EQ(checks.last().toObject()["detail"].toString(), FCPXMLValidation::dtdUnavailableDetail);

    // The file is the project's timeline, with the removed pieces riding
    // along: the filler, the stored cut and whatever silences the planner
    // left between words.
    QDomDocument document;
    ASSERT_TRUE(document.setContent(test::readBytes(out)));
    EXPECT_EQ(document.documentElement().attribute("version"), "1.13");
    EXPECT_EQ(document.elementsByTagName("project").item(0).toElement().attribute("name"), "Launch");
    EXPECT_GE(disabledClips(out), 2);
    const auto details = checksOf(report);
    EXPECT_EQ(details.at("ride-along count matches plan").second,
              QStringLiteral("xml %1 vs plan %1").arg(disabledClips(out)));
}

TEST_F(FcpxmlCli, KeptOnlyLeavesTheRemovedPiecesOut)
{
    writeProject(dir);
    const QString out = dir.file("kept.fcpxml");
    const QString reportPath = dir.file("kept.json");
    ASSERT_EQ(test::runVelumCli({"fcpxml", "--kept-only", dir.path(), out, "--json", reportPath}).exitCode, 0);
    EXPECT_EQ(disabledClips(out), 0);
    const QJsonObject report = readJson(reportPath);
    EXPECT_TRUE(report["valid"].toBool()) << failedChecks(report).join(", ").toStdString();
    EXPECT_EQ(checksOf(report).at("removed segments ride above the storyline").second, "0 ride-along(s) on lane(s) ");

    // The kept-only file against the full plan misses every ride-along.
    const QString againstFull = dir.file("against-full.json");
    ASSERT_EQ(test::runVelumCli({"validate-fcpxml", out, dir.path(), "--json", againstFull}).exitCode, 0);
    const QStringList failed = failedChecks(readJson(againstFull));
    EXPECT_TRUE(failed.contains("ride-along count matches plan")) << failed.join(", ").toStdString();
    EXPECT_TRUE(failed.contains("segment count matches plan")) << failed.join(", ").toStdString();
}

TEST_F(FcpxmlCli, AnInvalidExportIsStillWritten)
{
    // The folder's media files are missing: the timeline cannot relink.
    writeProject(dir, false);
    const QString out = dir.file("out.fcpxml");
    const QString reportPath = dir.file("report.json");
    const auto result = test::runVelumCli({"fcpxml", dir.path(), out, "--json", reportPath});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardError, "velum: export: FCPXML validation failed for out.fcpxml\n");
    EXPECT_TRUE(QFileInfo(out).isFile());
    const QJsonObject report = readJson(reportPath);
    EXPECT_FALSE(report["valid"].toBool());
    EXPECT_EQ(failedChecks(report), QStringList{"every asset relinks to media on disk"});
    EXPECT_TRUE(checksOf(report).at("every asset relinks to media on disk").second.startsWith(
        "a take.mov: media missing at " + dir.file("media/a take.mov")));
}

TEST_F(FcpxmlCli, ValidatesAnExistingFile)
{
    writeProject(dir);
    const QString out = dir.file("out.fcpxml");
    ASSERT_EQ(test::runVelumCli({"fcpxml", dir.path(), out, "--json", dir.file("first.json")}).exitCode, 0);

    const QString reportPath = dir.file("check.json");
    auto result = test::runVelumCli({"validate-fcpxml", out, dir.path(), "--json", reportPath});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.constData();
    EXPECT_EQ(readJson(reportPath), readJson(dir.file("first.json")));

    // A file moved after the export no longer relinks.
    ASSERT_TRUE(QFile::rename(dir.file("media/b.mov"), dir.file("b moved.mov")));
    result = test::runVelumCli({"validate-fcpxml", out, dir.path(), "--json", reportPath});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(failedChecks(readJson(reportPath)), QStringList{"every asset relinks to media on disk"});

    // Text that is not XML fails the first check and nothing else runs.
    test::writeBytes(dir.file("broken.fcpxml"), "<fcpxml version=\"1.13\"><resources>");
    ASSERT_EQ(test::runVelumCli({"validate-fcpxml", dir.file("broken.fcpxml"), dir.path(), "--json", reportPath})
                  .exitCode,
              0);
    const QJsonObject broken = readJson(reportPath);
    EXPECT_FALSE(broken["valid"].toBool());
    ASSERT_EQ(broken["checks"].toArray().size(), 1);
    EXPECT_EQ(broken["checks"].toArray()[0].toObject()["name"].toString(), "well-formed XML");
}

TEST_F(FcpxmlCli, ValidatesAgainstADTDWhenGivenOne)
{
    writeProject(dir);
    const QString out = dir.file("out.fcpxml");
    ASSERT_EQ(test::runVelumCli({"fcpxml", dir.path(), out, "--json", dir.file("first.json")}).exitCode, 0);

    // A DTD that declares every element and attribute the file uses.
    QDomDocument document;
    ASSERT_TRUE(document.setContent(test::readBytes(out)));
    std::map<QString, std::set<QString>> declared;
    for (const auto &element : FCPXMLValidation::flatten(document.documentElement())) {
        auto &attributes = declared[element.tagName()];
        for (int i = 0; i < element.attributes().count(); ++i)
            attributes.insert(element.attributes().item(i).nodeName());
    }
    QByteArray dtd;
    for (const auto &[element, attributes] : declared) {
        dtd += "<!ELEMENT " + element.toUtf8() + " ANY>\n";
        for (const auto &attribute : attributes)
            dtd += "<!ATTLIST " + element.toUtf8() + " " + attribute.toUtf8() + " CDATA #IMPLIED>\n";
    }
    const QString dtdPath = dir.file("FCPXMLv1_13.dtd");
    test::writeBytes(dtdPath, dtd);
    ScopedEnvironment useDTD(FCPXMLValidation::dtdEnvironmentVariable, dtdPath);

    const QString reportPath = dir.file("dtd.json");
    ASSERT_EQ(test::runVelumCli({"validate-fcpxml", out, dir.path(), "--json", reportPath}).exitCode, 0);
    const QJsonObject report = readJson(reportPath);
    EXPECT_TRUE(report["valid"].toBool());
    EXPECT_TRUE(report["dtdValidated"].toBool());
    EXPECT_EQ(checksOf(report).at("DTD validation (FCPXML v1.13)").second, "validated against FCPXMLv1_13.dtd");
}

TEST_F(FcpxmlCli, NothingToPlanAndUsageErrors)
{
    const QString out = dir.file("o.fcpxml");
    const QString reportPath = dir.file("r.json");
    for (const QStringList &arguments :
         {QStringList{"fcpxml", dir.path(), out, "--json", reportPath},
          QStringList{"validate-fcpxml", dir.file("c0_probe.json"), dir.path(), "--json", reportPath}}) {
        test::writeBytes(dir.file("c0_probe.json"), "{}");
        const auto result = test::runVelumCli(arguments);
        EXPECT_EQ(result.exitCode, 1) << arguments.join(' ').toStdString();
        EXPECT_TRUE(result.standardError.startsWith("velum-cli: nothing to plan in ")) << result.standardError.constData();
        EXPECT_EQ(result.standardError.count('\n'), 1);
        EXPECT_FALSE(QFileInfo::exists(out));
        EXPECT_FALSE(QFileInfo::exists(reportPath));
    }

    writeProject(dir);
    const auto missing = test::runVelumCli({"validate-fcpxml", dir.file("none.fcpxml"), dir.path(), "--json", reportPath});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.standardError, "velum-cli: cannot read " + dir.file("none.fcpxml").toUtf8() + "\n");

    for (const QString command : {"fcpxml", "validate-fcpxml"}) {
        EXPECT_EQ(test::runVelumCli({command, dir.path(), out}).exitCode, 2);
        EXPECT_EQ(test::runVelumCli({command, dir.path(), "--json", reportPath}).exitCode, 2);
        EXPECT_EQ(test::runVelumCli({command, dir.path(), out, "--json"}).exitCode, 2);
        EXPECT_EQ(test::runVelumCli({command, dir.path(), out, "--json", reportPath, "--name"}).exitCode, 2);
        EXPECT_EQ(test::runVelumCli({command, dir.path(), out, "--json", reportPath, "--all"}).exitCode, 2);
        EXPECT_EQ(test::runVelumCli({command, dir.path(), out, out, "--json", reportPath}).exitCode, 2);
    }
    EXPECT_FALSE(QFileInfo::exists(out));
    EXPECT_FALSE(QFileInfo::exists(reportPath));
}

} // namespace
