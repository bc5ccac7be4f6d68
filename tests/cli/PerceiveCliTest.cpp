#include "support/Cli.h"
#include "support/MediaSamples.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

using velum::test::MediaSamples;
using velum::test::runVelumCli;

namespace {

QJsonObject readJson(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return QJsonDocument::fromJson(file.readAll()).object();
}

// The stage documents go into the project folder itself, under the folder's
// own id when it is a UUID; the measurements and audio into the output
// folder.
TEST(PerceiveCommand, WritesBothDocumentsAndTheMeasurements)
{
    const auto &media = MediaSamples::get();
    velum::test::TempDir dir;
    const velum::test::PrivateTemporaryFolder temporary(dir);
    const QUuid id = QUuid::createUuid();
    const QString project = dir.file(id.toString(QUuid::WithoutBraces).toUpper());
    const QString out = dir.file(QStringLiteral("out"));

    const auto result = runVelumCli({"perceive", project, "--a-roll", media.videoWithAudio, media.textNamedMp4,
                                     "--b-roll", media.videoOnly, "--external", media.toneAndSilence, "--out", out});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    const QString printed = QString::fromUtf8(result.standardOutput);
    EXPECT_FALSE(printed.contains(QStringLiteral("new id")));
    EXPECT_TRUE(printed.contains(QStringLiteral("failed"))) << printed.toStdString();
    EXPECT_TRUE(printed.contains(QStringLiteral("No confident match in the external track"))) << printed.toStdString();

    const QJsonObject probe = readJson(QDir(project).filePath(QStringLiteral("c0_probe.json")));
    EXPECT_EQ(probe.value("project_id").toString(), id.toString(QUuid::WithoutBraces).toUpper());
    EXPECT_EQ(probe.value("clips").toArray().size(), 4);
    const QJsonObject sync = readJson(QDir(project).filePath(QStringLiteral("c05_sync.json")));
    EXPECT_EQ(sync.value("clips").toArray().size(), 1); // the readable A-roll only
    EXPECT_TRUE(sync.contains("external_clip_id"));

    const QJsonObject measurements = readJson(QDir(out).filePath(QStringLiteral("measurements.json")));
    EXPECT_EQ(measurements.value("schema").toString(), QStringLiteral("measurements/3"));
    EXPECT_EQ(measurements.value("clips").toArray().size(), 3); // the usable files
    EXPECT_FALSE(QDir(out).entryList({QStringLiteral("*.m4a")}).isEmpty());
}

TEST(PerceiveCommand, AFolderNotNamedByAUuidGetsANewIdAndArgumentsAreChecked)
{
    const auto &media = MediaSamples::get();
    velum::test::TempDir dir;
    const velum::test::PrivateTemporaryFolder temporary(dir);
    const QString project = dir.file(QStringLiteral("My shoot"));
    const auto result =
        runVelumCli({"perceive", project, "--a-roll", media.videoWithAudio, "--out", dir.file(QStringLiteral("m"))});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.toStdString();
    EXPECT_TRUE(QString::fromUtf8(result.standardOutput).contains(QStringLiteral("(new id)")));
    const QString written = readJson(QDir(project).filePath(QStringLiteral("c0_probe.json"))).value("project_id").toString();
    EXPECT_FALSE(QUuid::fromString(written).isNull());
    EXPECT_TRUE(QString::fromUtf8(result.standardOutput).contains(written));
    EXPECT_EQ(readJson(QDir(project).filePath(QStringLiteral("c05_sync.json"))).value("extraction").toObject()
                  .value("signals").toObject().value("sync").toObject().value("status").toString(),
              QStringLiteral("skipped"));

    EXPECT_EQ(runVelumCli({"perceive", project, "--out", dir.path()}).exitCode, 2); // no A-roll
    EXPECT_EQ(runVelumCli({"perceive", project, "--a-roll", media.videoWithAudio}).exitCode, 2);
    EXPECT_EQ(runVelumCli({"perceive", project, "--a-roll", media.videoWithAudio, "--external", media.audioOnly,
                           media.broadcastWave, "--out", dir.path()})
                  .exitCode,
              2);
}

} // namespace
