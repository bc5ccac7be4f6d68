#include "export/FCPXML.h"
#include "export/FCPXMLWriter.h"
#include "model/Json.h"
#include "support/TempDir.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <ostream>

using namespace velum;

// Readable failures: texts print as text.
static void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

// --- Building plans ----------------------------------------------------------

ClipMedia cameraMedia(const QString &clipId, double durationS, double fps = 25, int width = 1920, int height = 1080)
{
    ClipMedia media;
    media.clipId = clipId;
    media.durationS = durationS;
    media.fps = fps;
    media.width = width;
    media.height = height;
    media.videoCodec = QStringLiteral("h264");
    media.audioCodec = QStringLiteral("aac");
    media.audioSampleRate = 48000;
    media.audioChannels = 2;
    return media;
}

ExportPlan::Segment kept(double start, double end, double timelineStart = 0)
{
    return ExportPlan::Segment{start, end, timelineStart, std::nullopt};
}

ExportPlan::Segment removed(double start, double end, CutReason reason, double timelineStart = 0)
{
    return ExportPlan::Segment{start, end, timelineStart, reason};
}

ExportPlan::Clip planClip(const QString &clipId, const QString &filename, ClipMedia media,
                          std::vector<ExportPlan::Segment> segments)
{
    ExportPlan::Clip clip;
    clip.clipId = clipId;
    clip.filename = filename;
    clip.url = QUrl::fromLocalFile(QStringLiteral("/media/") + filename);
    clip.media = std::move(media);
    clip.segments = std::move(segments);
    return clip;
}

// Frame f of a rate as the plan holds it: the double nearest f x num / den.
double frame(qint64 f, qint64 num, qint64 den)
{
    return static_cast<double>(f * num) / static_cast<double>(den);
}

// --- Reading documents -------------------------------------------------------

void collect(const FCPXMLNode &node, const QString &name, std::vector<const FCPXMLNode *> &out)
{
    if (node.name == name)
        out.push_back(&node);
    for (const auto &child : node.children)
        collect(child, name, out);
}

std::vector<const FCPXMLNode *> all(const FCPXMLNode &root, const QString &name)
{
    std::vector<const FCPXMLNode *> out;
    collect(root, name, out);
    return out;
}

const FCPXMLNode &first(const FCPXMLNode &root, const QString &name)
{
    const auto found = all(root, name);
    if (found.empty())
        throw std::runtime_error("no element " + name.toStdString());
    return *found.front();
}

QString attr(const FCPXMLNode &node, const QString &name)
{
    return node.attribute(name).value_or(QStringLiteral("<absent>"));
}

QStringList attributeNames(const FCPXMLNode &node)
{
    QStringList names;
    for (const auto &a : node.attributes)
        names.push_back(a.name);
    return names;
}

QStringList childNames(const FCPXMLNode &node)
{
    QStringList names;
    for (const auto &c : node.children)
        names.push_back(c.name);
    return names;
}

const FCPXMLNode &spineOf(const FCPXMLDocument &doc)
{
    return first(doc.root, QStringLiteral("spine"));
}

const FCPXMLNode &resourcesOf(const FCPXMLDocument &doc)
{
    return first(doc.root, QStringLiteral("resources"));
}

// The lane clips hung on a storyline clip, in order.
std::vector<const FCPXMLNode *> rideAlongsOf(const FCPXMLNode &host)
{
    std::vector<const FCPXMLNode *> out;
    for (const auto &child : host.children) {
        if (child.name == QLatin1String("asset-clip") && child.attribute(QStringLiteral("enabled")))
            out.push_back(&child);
    }
    return out;
}

// Runs xmllint --noout on a file; an empty text means well-formed.
std::optional<QString> xmllintErrors(const QString &path)
{
    if (!QFileInfo::exists(QStringLiteral("/usr/bin/xmllint")))
        return std::nullopt;
    QProcess lint;
    lint.start(QStringLiteral("/usr/bin/xmllint"), {QStringLiteral("--noout"), path});
    if (!lint.waitForFinished(30000))
        return QStringLiteral("xmllint did not finish");
    const QString errors = QString::fromUtf8(lint.readAllStandardError());
    if (lint.exitStatus() != QProcess::NormalExit || lint.exitCode() != 0)
        return errors.isEmpty() ? QStringLiteral("xmllint failed") : errors;
    return QString();
}

// The kept and removed pieces of a one-clip plan at 25 fps, with a removed
// gap and a removed tail: frames 0-25 kept, 25-40 silence, 40-75 kept, 75-100
// filler, in a 4 s file.
ExportPlan smallPlan()
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Demo");
    plan.clips.push_back(planClip(QStringLiteral("c1"), QStringLiteral("take1.mov"), cameraMedia(QStringLiteral("c1"), 4.0),
                                  {kept(0, 1.0, 0), removed(1.0, 1.6, CutReason::silence, 1.0), kept(1.6, 3.0, 1.0),
                                   removed(3.0, 4.0, CutReason::filler, 2.4)}));
    return plan;
}

const char *const fadeLines = "                            <adjust-volume amount=\"0dB\">\n"
                              "                                <param name=\"amount\">\n"
                              "                                    <fadeIn type=\"easeIn\" duration=\"1440/48000s\"/>\n"
                              "                                    <fadeOut type=\"easeOut\" duration=\"1440/48000s\"/>\n"
                              "                                </param>\n"
                              "                            </adjust-volume>\n";

} // namespace

// --- The serialiser ------------------------------------------------------------

TEST(FCPXMLNodeTest, EscapesTheFourCharactersInOrderAndLeavesApostrophesAndLetters)
{
    EXPECT_EQ(FCPXMLNode::escaped(QStringLiteral("a&b<c>d\"e'f")), QStringLiteral("a&amp;b&lt;c&gt;d&quot;e'f"));
    // An entity already in the text is escaped again: "&" goes first.
    EXPECT_EQ(FCPXMLNode::escaped(QStringLiteral("&lt;")), QStringLiteral("&amp;lt;"));
    EXPECT_EQ(FCPXMLNode::escaped(QStringLiteral("Café — ü")), QStringLiteral("Café — ü"));
}

TEST(FCPXMLNodeTest, RendersLeavesOnOneLineAndParentsAroundIndentedChildren)
{
    FCPXMLNode leaf{QStringLiteral("marker"), {}, {}};
    leaf.add(QStringLiteral("value"), QStringLiteral("a \"b\" & c")).add(QStringLiteral("start"), QStringLiteral("1s"));
    EXPECT_EQ(leaf.rendered(0), QStringLiteral("<marker value=\"a &quot;b&quot; &amp; c\" start=\"1s\"/>"));
    EXPECT_EQ(leaf.rendered(2), QStringLiteral("        <marker value=\"a &quot;b&quot; &amp; c\" start=\"1s\"/>"));

    FCPXMLNode bare{QStringLiteral("spine"), {}, {}};
    EXPECT_EQ(bare.rendered(1), QStringLiteral("    <spine/>"));

    FCPXMLNode inner{QStringLiteral("b"), {}, {bare}};
    FCPXMLNode outer{QStringLiteral("a"), {{QStringLiteral("x"), QStringLiteral("1")}}, {inner, leaf}};
    EXPECT_EQ(outer.rendered(1), QStringLiteral("    <a x=\"1\">\n"
                                                "        <b>\n"
                                                "            <spine/>\n"
                                                "        </b>\n"
                                                "        <marker value=\"a &quot;b&quot; &amp; c\" start=\"1s\"/>\n"
                                                "    </a>"));
}

TEST(FCPXMLDocumentTest, TextIsTheTwoHeaderLinesTheRootAndOneNewline)
{
    FCPXMLDocument doc{FCPXMLNode{QStringLiteral("fcpxml"), {{QStringLiteral("version"), QStringLiteral("1.13")}}, {}}};
    EXPECT_EQ(doc.text(), QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                         "<!DOCTYPE fcpxml>\n"
                                         "<fcpxml version=\"1.13\"/>\n"));
}

TEST(FCPXMLDocumentTest, WritesUtf8BytesAndReplacesAnEarlierFile)
{
    test::TempDir dir;
    const QString path = dir.file(QStringLiteral("output.fcpxml"));
    test::writeBytes(path, QByteArray("an older and much longer file that must not survive in part"));

    FCPXMLDocument doc{FCPXMLNode{QStringLiteral("fcpxml"), {{QStringLiteral("name"), QStringLiteral("Café")}}, {}}};
    doc.write(QUrl::fromLocalFile(path));

    const QByteArray expected = QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE fcpxml>\n<fcpxml name=\"Caf")
                                + QByteArray("\xC3\xA9", 2) + QByteArray("\"/>\n");
    EXPECT_EQ(test::readBytes(path), expected);
    // Nothing is left behind beside the file.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{QStringLiteral("output.fcpxml")});
}

TEST(FCPXMLDocumentTest, WriteRaisesTheFileSystemsError)
{
    test::TempDir dir;
    FCPXMLDocument doc{FCPXMLNode{QStringLiteral("fcpxml"), {}, {}}};
    EXPECT_THROW(doc.write(QUrl::fromLocalFile(dir.file(QStringLiteral("missing/output.fcpxml")))), FileWriteError);
    EXPECT_THROW(doc.write(QUrl(QStringLiteral("https://example.com/output.fcpxml"))), FileWriteError);
}

// --- Names, tokens and small pieces -------------------------------------------

TEST(FCPXMLWriterPiecesTest, RateTokensFollowTheTrueRate)
{
    using FCPXMLWriter::rateToken;
    // 23.976 and 24 round alike but are different rates.
    EXPECT_EQ(rateToken(FCPXMLFrameRate(23.976)), QStringLiteral("2398"));
    EXPECT_EQ(rateToken(FCPXMLFrameRate(24.0)), QStringLiteral("24"));
    EXPECT_EQ(rateToken(FCPXMLFrameRate(29.97)), QStringLiteral("2997"));
    EXPECT_EQ(rateToken(FCPXMLFrameRate(59.94)), QStringLiteral("5994"));
    EXPECT_EQ(rateToken(FCPXMLFrameRate(60.0)), QStringLiteral("60"));
    // Within 0.01 frames a second, not within 0.01 of a nominal figure.
    EXPECT_EQ(rateToken(FCPXMLFrameRate(1000, 24005)), QStringLiteral("24"));
    EXPECT_FALSE(rateToken(FCPXMLFrameRate(1000, 24010)).has_value());
    EXPECT_FALSE(rateToken(FCPXMLFrameRate(12.5)).has_value());
    EXPECT_FALSE(rateToken(FCPXMLFrameRate(48.0)).has_value());
}

TEST(FCPXMLWriterPiecesTest, FormatNamesCarrySizeAndToken)
{
    using FCPXMLWriter::formatName;
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), 1920, 1080), QStringLiteral("FFVideoFormat1080p25"));
    EXPECT_EQ(formatName(FCPXMLFrameRate(23.976), 1280, 720), QStringLiteral("FFVideoFormat720p2398"));
    EXPECT_EQ(formatName(FCPXMLFrameRate(30.0), 1080, 1920), QStringLiteral("FFVideoFormat1080x1920p30"));
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), 3840, 2160), QStringLiteral("FFVideoFormat3840x2160p25"));
    EXPECT_EQ(formatName(FCPXMLFrameRate(12.5), 1920, 1080), QStringLiteral("FFVideoFormatRateUndefined"));
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), std::nullopt, 1080), QStringLiteral("FFVideoFormatRateUndefined"));
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), 1920, 0), QStringLiteral("FFVideoFormatRateUndefined"));
}

TEST(FCPXMLWriterPiecesTest, FadesAreWholeSamplesAtMostHalfTheClip)
{
    const auto full = FCPXMLWriter::audioFade(0.03);
    ASSERT_TRUE(full.has_value());
    EXPECT_EQ(full->rendered(), QStringLiteral("<adjust-volume amount=\"0dB\">\n"
                                               "    <param name=\"amount\">\n"
                                               "        <fadeIn type=\"easeIn\" duration=\"1440/48000s\"/>\n"
                                               "        <fadeOut type=\"easeOut\" duration=\"1440/48000s\"/>\n"
                                               "    </param>\n"
                                               "</adjust-volume>"));
    // Half of one frame at 25 fps: 20 ms.
    EXPECT_EQ(attr(first(*FCPXMLWriter::audioFade(0.02), QStringLiteral("fadeOut")), QStringLiteral("duration")),
              QStringLiteral("960/48000s"));
    // One sample exactly is 1/48000 s; less than half a sample is no fade.
    EXPECT_EQ(attr(first(*FCPXMLWriter::audioFade(1.0 / 48000), QStringLiteral("fadeIn")), QStringLiteral("duration")),
              QStringLiteral("1/48000s"));
    EXPECT_FALSE(FCPXMLWriter::audioFade(0.4 / 48000).has_value());
    EXPECT_FALSE(FCPXMLWriter::audioFade(0).has_value());
}

TEST(FCPXMLWriterPiecesTest, CameraChannelsAreListedAndMuted)
{
    ClipMedia media;
    EXPECT_EQ(FCPXMLWriter::sourceChannels(media), QStringLiteral("1, 2"));
    media.audioChannels = 1;
    EXPECT_EQ(FCPXMLWriter::sourceChannels(media), QStringLiteral("1"));
    media.audioChannels = 0;
    EXPECT_EQ(FCPXMLWriter::sourceChannels(media), QStringLiteral("1"));
    media.audioChannels = 6;
    EXPECT_EQ(FCPXMLWriter::mutedCameraChannels(media).rendered(),
              QStringLiteral("<audio-channel-source srcCh=\"1, 2, 3, 4, 5, 6\" enabled=\"0\" active=\"0\"/>"));
}

TEST(FCPXMLWriterPiecesTest, MediaRepIsAnAbsolutePercentEncodedFileURL)
{
    EXPECT_EQ(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(QStringLiteral("/Volumes/Shoot Day/A001 & B.mov"))).rendered(),
              QStringLiteral("<media-rep kind=\"original-media\" src=\"file:///Volumes/Shoot%20Day/A001%20&amp;%20B.mov\"/>"));
    EXPECT_EQ(attr(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(QStringLiteral("/m/café.mov"))), QStringLiteral("src")),
              QStringLiteral("file:///m/caf%C3%A9.mov"));
    EXPECT_EQ(attr(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(QStringLiteral("/m/<a>#1.mov"))), QStringLiteral("src")),
              QStringLiteral("file:///m/%3Ca%3E%231.mov"));

    // A relative path is taken from the current folder.
    const QString src = attr(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(QStringLiteral("clip.mov"))), QStringLiteral("src"));
    EXPECT_EQ(QUrl(src).toLocalFile(), QDir::current().absoluteFilePath(QStringLiteral("clip.mov")));
    EXPECT_TRUE(src.startsWith(QStringLiteral("file:///")));
}

// --- Whole documents ----------------------------------------------------------

TEST(FCPXMLWriterDocumentTest, PlanWithoutClipsGivesAnEmptyStorylineAtTwentyFive)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Empty");
    EXPECT_EQ(FCPXMLWriter::document(plan).text(),
              QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                             "<!DOCTYPE fcpxml>\n"
                             "<fcpxml version=\"1.13\">\n"
                             "    <resources>\n"
                             "        <format id=\"r1\" name=\"FFVideoFormatRateUndefined\" frameDuration=\"100/2500s\" "
                             "colorSpace=\"1-1-1 (Rec. 709)\"/>\n"
                             "    </resources>\n"
                             "    <library>\n"
                             "        <event name=\"Velum\">\n"
                             "            <project name=\"Empty\">\n"
                             "                <sequence format=\"r1\" duration=\"0s\" tcStart=\"0s\" tcFormat=\"NDF\" "
                             "audioLayout=\"stereo\" audioRate=\"48k\">\n"
                             "                    <spine/>\n"
                             "                </sequence>\n"
                             "            </project>\n"
                             "        </event>\n"
                             "    </library>\n"
                             "</fcpxml>\n"));
}

// Worked out by hand from the rules for smallPlan(): 25 fps is 100/2500 s a
// frame; the kept clips are frames 0-25 and 40-75 and lie at sequence frames
// 0 and 25, so the sequence is 60 frames, 6000/2500 s. The silence (frames
// 25-40) hangs on the second kept clip at its start; the filler tail (75-100)
// hangs on it too, at its end, 7500/2500 = 3 s, and its position 2.4 s is
// past the silence's lane end 1.6 s, so both share lane 1.
TEST(FCPXMLWriterDocumentTest, SmallPlanIsWrittenByteForByte)
{
    const QString expected = QStringLiteral(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!DOCTYPE fcpxml>\n"
        "<fcpxml version=\"1.13\">\n"
        "    <resources>\n"
        "        <format id=\"r1\" name=\"FFVideoFormat1080p25\" frameDuration=\"100/2500s\" width=\"1920\" height=\"1080\" "
        "colorSpace=\"1-1-1 (Rec. 709)\"/>\n"
        "        <asset id=\"r2\" name=\"take1.mov\" start=\"0s\" duration=\"4s\" format=\"r1\" hasVideo=\"1\" "
        "videoSources=\"1\" hasAudio=\"1\" audioSources=\"1\" audioChannels=\"2\" audioRate=\"48000\">\n"
        "            <media-rep kind=\"original-media\" src=\"file:///media/take1.mov\"/>\n"
        "        </asset>\n"
        "    </resources>\n"
        "    <library>\n"
        "        <event name=\"Velum\">\n"
        "            <project name=\"Demo\">\n"
        "                <sequence format=\"r1\" duration=\"6000/2500s\" tcStart=\"0s\" tcFormat=\"NDF\" "
        "audioLayout=\"stereo\" audioRate=\"48k\">\n"
        "                    <spine>\n"
        "                        <asset-clip ref=\"r2\" offset=\"0s\" name=\"take1.mov\" start=\"0s\" duration=\"1s\" "
        "audioRole=\"dialogue\">\n")
        + QString::fromUtf8(fadeLines)
        + QStringLiteral("                        </asset-clip>\n"
                         "                        <asset-clip ref=\"r2\" offset=\"1s\" name=\"take1.mov\" start=\"4000/2500s\" "
                         "duration=\"3500/2500s\" audioRole=\"dialogue\">\n")
        + QString::fromUtf8(fadeLines)
        + QStringLiteral(
            "                            <asset-clip ref=\"r2\" lane=\"1\" offset=\"4000/2500s\" "
            "name=\"take1.mov — removed: silence\" start=\"1s\" duration=\"1500/2500s\" enabled=\"0\" format=\"r1\" "
            "audioRole=\"dialogue\">\n"
            "                                <marker start=\"1s\" duration=\"100/2500s\" value=\"Velum: silence\"/>\n"
            "                            </asset-clip>\n"
            "                            <asset-clip ref=\"r2\" lane=\"1\" offset=\"3s\" "
            "name=\"take1.mov — removed: filler\" start=\"3s\" duration=\"1s\" enabled=\"0\" format=\"r1\" "
            "audioRole=\"dialogue\">\n"
            "                                <marker start=\"3s\" duration=\"100/2500s\" value=\"Velum: filler\"/>\n"
            "                            </asset-clip>\n"
            "                        </asset-clip>\n"
            "                    </spine>\n"
            "                </sequence>\n"
            "            </project>\n"
            "        </event>\n"
            "    </library>\n"
            "</fcpxml>\n");

    const FCPXMLDocument doc = FCPXMLWriter::document(smallPlan());
    const QString text = doc.text();
    EXPECT_EQ(text, expected);
    // The same bytes, run after run.
    EXPECT_EQ(FCPXMLWriter::document(smallPlan()).data(), doc.data());
}

TEST(FCPXMLWriterDocumentTest, WrittenFilesAreWellFormedXml)
{
    ExportPlan plan = smallPlan();
    plan.projectName = QStringLiteral("Tom & Jerry's <\"best\"> café — ü");
    plan.clips.front().filename = QStringLiteral("Take \"1\" & <b>'s — naïve.mov");
    plan.clips.front().url = QUrl::fromLocalFile(QStringLiteral("/media/Take \"1\" & <b>'s — naïve.mov"));

    test::TempDir dir;
    const QString path = dir.file(QStringLiteral("output.fcpxml"));
    FCPXMLWriter::document(plan).write(QUrl::fromLocalFile(path));

    if (const auto lint = xmllintErrors(path)) {
        EXPECT_EQ(*lint, QString());
    }

    // A general parser reads every name back as it was.
    QDomDocument dom;
    ASSERT_TRUE(static_cast<bool>(dom.setContent(test::readBytes(path))));
    const QDomElement project = dom.elementsByTagName(QStringLiteral("project")).item(0).toElement();
    EXPECT_EQ(project.attribute(QStringLiteral("name")), plan.projectName);
    const QDomElement asset = dom.elementsByTagName(QStringLiteral("asset")).item(0).toElement();
    EXPECT_EQ(asset.attribute(QStringLiteral("name")), plan.clips.front().filename);
    const QDomElement rep = dom.elementsByTagName(QStringLiteral("media-rep")).item(0).toElement();
    EXPECT_EQ(QUrl(rep.attribute(QStringLiteral("src"))).toLocalFile(), plan.clips.front().url.toLocalFile());
    const QDomNodeList markers = dom.elementsByTagName(QStringLiteral("marker"));
    ASSERT_EQ(markers.size(), 2);
    EXPECT_EQ(markers.item(0).parentNode().toElement().attribute(QStringLiteral("name")),
              plan.clips.front().filename + QStringLiteral(" — removed: silence"));
}

TEST(FCPXMLWriterDocumentTest, EscapesNamesInTheText)
{
    ExportPlan plan = smallPlan();
    plan.projectName = QStringLiteral("Q&A <live> \"raw\" it's");
    plan.clips.front().filename = QStringLiteral("a&b.mov");
    const QString text = FCPXMLWriter::document(plan).text();
    EXPECT_TRUE(text.contains(QStringLiteral("<project name=\"Q&amp;A &lt;live&gt; &quot;raw&quot; it's\">")));
    EXPECT_TRUE(text.contains(QStringLiteral("<asset id=\"r2\" name=\"a&amp;b.mov\" ")));
    EXPECT_TRUE(text.contains(QStringLiteral("name=\"a&amp;b.mov — removed: silence\"")));
    EXPECT_FALSE(text.contains(QStringLiteral("a&b")));
}

TEST(FCPXMLWriterDocumentTest, ClipsShareAFormatExactlyWhenRateAndSizeAgree)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Formats");
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 2), {kept(0, 2)}));
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), cameraMedia(QStringLiteral("b"), 2), {kept(0, 2)}));
    plan.clips.push_back(planClip(QStringLiteral("c"), QStringLiteral("c.mov"),
                                  cameraMedia(QStringLiteral("c"), 2, 25, 1280, 720), {kept(0, 2)}));
    plan.clips.push_back(planClip(QStringLiteral("d"), QStringLiteral("d.mov"), cameraMedia(QStringLiteral("d"), 2, 50),
                                  {kept(0, 2)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &resources = resourcesOf(doc);
    QStringList shape;
    for (const auto &node : resources.children)
        shape.push_back(node.name + QLatin1Char(' ') + attr(node, QStringLiteral("id")) + QLatin1Char(' ')
                        + (node.name == QLatin1String("format") ? attr(node, QStringLiteral("name"))
                                                                 : attr(node, QStringLiteral("format"))));
    EXPECT_EQ(shape, (QStringList{
                         QStringLiteral("format r1 FFVideoFormat1080p25"),
                         QStringLiteral("asset r2 r1"),
                         QStringLiteral("asset r3 r1"),
                         QStringLiteral("format r4 FFVideoFormat720p25"),
                         QStringLiteral("asset r5 r4"),
                         QStringLiteral("format r6 FFVideoFormat1080p50"),
                         QStringLiteral("asset r7 r6"),
                     }));
    EXPECT_EQ(attr(first(doc.root, QStringLiteral("sequence")), QStringLiteral("format")), QStringLiteral("r1"));
    EXPECT_EQ(attributeNames(resources.children[3]),
              (QStringList{QStringLiteral("id"), QStringLiteral("name"), QStringLiteral("frameDuration"),
                           QStringLiteral("width"), QStringLiteral("height"), QStringLiteral("colorSpace")}));
    EXPECT_EQ(attr(resources.children[5], QStringLiteral("frameDuration")), QStringLiteral("100/5000s"));

    // Four 2 s clips end to end; the 50 fps clip reads 100 of its own frames.
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 4u);
    EXPECT_EQ(attr(spine.children[3], QStringLiteral("offset")), QStringLiteral("6s"));
    EXPECT_EQ(attr(spine.children[3], QStringLiteral("duration")), QStringLiteral("2s"));
    EXPECT_EQ(attr(first(doc.root, QStringLiteral("sequence")), QStringLiteral("duration")), QStringLiteral("8s"));
}

TEST(FCPXMLWriterDocumentTest, RepeatedClipGetsOneAsset)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Twice");
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 4), {kept(0, 1)}));
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), cameraMedia(QStringLiteral("b"), 4), {kept(0, 1)}));
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 4), {kept(2, 3)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    EXPECT_EQ(all(resourcesOf(doc), QStringLiteral("asset")).size(), 2u);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 3u);
    EXPECT_EQ(attr(spine.children[0], QStringLiteral("ref")), QStringLiteral("r2"));
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("ref")), QStringLiteral("r3"));
    EXPECT_EQ(attr(spine.children[2], QStringLiteral("ref")), QStringLiteral("r2"));
    EXPECT_EQ(attr(spine.children[2], QStringLiteral("start")), QStringLiteral("2s"));
    EXPECT_EQ(attr(spine.children[2], QStringLiteral("offset")), QStringLiteral("2s"));
}

TEST(FCPXMLWriterDocumentTest, AssetAttributesFollowWhatTheMediaHas)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Media");
    ClipMedia silent = cameraMedia(QStringLiteral("v"), 10);
    silent.audioCodec.reset();
    ClipMedia sound = cameraMedia(QStringLiteral("s"), 10);
    sound.videoCodec.reset();
    sound.audioChannels.reset();
    sound.audioSampleRate.reset();
    plan.clips.push_back(planClip(QStringLiteral("v"), QStringLiteral("v.mov"), silent, {kept(0, 1)}));
    plan.clips.push_back(planClip(QStringLiteral("s"), QStringLiteral("s.mov"), sound, {kept(0, 1)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const auto assets = all(resourcesOf(doc), QStringLiteral("asset"));
    ASSERT_EQ(assets.size(), 2u);
    EXPECT_EQ(attributeNames(*assets[0]),
              (QStringList{QStringLiteral("id"), QStringLiteral("name"), QStringLiteral("start"), QStringLiteral("duration"),
                           QStringLiteral("format"), QStringLiteral("hasVideo"), QStringLiteral("videoSources")}));
    EXPECT_EQ(attributeNames(*assets[1]),
              (QStringList{QStringLiteral("id"), QStringLiteral("name"), QStringLiteral("start"), QStringLiteral("duration"),
                           QStringLiteral("format"), QStringLiteral("hasAudio"), QStringLiteral("audioSources"),
                           QStringLiteral("audioChannels")}));
    EXPECT_EQ(attr(*assets[1], QStringLiteral("audioChannels")), QStringLiteral("2"));

    // A kept clip without camera sound and without external sound has no
    // role and nothing inside.
    const FCPXMLNode &spine = spineOf(doc);
    EXPECT_EQ(attributeNames(spine.children[0]),
              (QStringList{QStringLiteral("ref"), QStringLiteral("offset"), QStringLiteral("name"), QStringLiteral("start"),
                           QStringLiteral("duration")}));
    EXPECT_TRUE(spine.children[0].children.empty());
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("audioRole")), QStringLiteral("dialogue"));
}

TEST(FCPXMLWriterDocumentTest, AssetDurationIsWholeFramesOfTheFile)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Durations");
    // 10.01 s at 29.97: 10.01 x 30000/1001 = 300.0 frames -> 300 x 1001/30000.
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"),
                                  cameraMedia(QStringLiteral("a"), 10.01, 29.97), {kept(0, frame(30, 1001, 30000))}));
    // Shorter than a frame: still one frame.
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), cameraMedia(QStringLiteral("b"), 0.01),
                                  {kept(0, 0.04)}));
    // 2.039 s at 25 fps is 50.975 frames, truncated to 50.
    plan.clips.push_back(planClip(QStringLiteral("c"), QStringLiteral("c.mov"), cameraMedia(QStringLiteral("c"), 2.039),
                                  {kept(0, 2)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const auto assets = all(resourcesOf(doc), QStringLiteral("asset"));
    ASSERT_EQ(assets.size(), 3u);
    EXPECT_EQ(attr(*assets[0], QStringLiteral("duration")), QStringLiteral("300300/30000s"));
    EXPECT_EQ(attr(*assets[1], QStringLiteral("duration")), QStringLiteral("100/2500s"));
    EXPECT_EQ(attr(*assets[2], QStringLiteral("duration")), QStringLiteral("2s"));
}

TEST(FCPXMLWriterDocumentTest, TimecodedAssetsStartAtTheirTimecode)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Timecode");
    ClipMedia media = cameraMedia(QStringLiteral("t"), 10, 23.976);
    media.startTimecode = MediaTimecode{86400, 24000, MediaTimecode::Source::timecodeTrack, QStringLiteral("00:00:03:14")};
    // Frames 0-48 kept, 48-72 removed, 72-96 kept at 1001/24000 s a frame.
    plan.clips.push_back(planClip(QStringLiteral("t"), QStringLiteral("t.mov"), media,
                                  {kept(0, frame(48, 1001, 24000)),
                                   removed(frame(48, 1001, 24000), frame(72, 1001, 24000), CutReason::retake),
                                   kept(frame(72, 1001, 24000), frame(96, 1001, 24000))}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &asset = first(resourcesOf(doc), QStringLiteral("asset"));
    EXPECT_EQ(attr(asset, QStringLiteral("start")), QStringLiteral("86400/24000s"));
    EXPECT_EQ(attr(first(resourcesOf(doc), QStringLiteral("format")), QStringLiteral("name")),
              QStringLiteral("FFVideoFormat1080p2398"));
    EXPECT_EQ(attr(first(resourcesOf(doc), QStringLiteral("format")), QStringLiteral("frameDuration")),
              QStringLiteral("1001/24000s"));

    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    // Frame 0 plus the timecode is the timecode itself; frame 72 is
    // 72072/24000 s after it.
    EXPECT_EQ(attr(spine.children[0], QStringLiteral("start")), QStringLiteral("86400/24000s"));
    EXPECT_EQ(attr(spine.children[0], QStringLiteral("duration")), QStringLiteral("48048/24000s"));
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("start")), QStringLiteral("158472/24000s"));
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("offset")), QStringLiteral("48048/24000s"));
    EXPECT_EQ(attr(first(doc.root, QStringLiteral("sequence")), QStringLiteral("duration")),
              QStringLiteral("72072/24000s"));
    EXPECT_EQ(attr(first(doc.root, QStringLiteral("sequence")), QStringLiteral("tcFormat")), QStringLiteral("NDF"));

    const auto rides = rideAlongsOf(spine.children[1]);
    ASSERT_EQ(rides.size(), 1u);
    EXPECT_EQ(attr(*rides[0], QStringLiteral("start")), QStringLiteral("134448/24000s"));
    EXPECT_EQ(attr(*rides[0], QStringLiteral("offset")), QStringLiteral("158472/24000s"));
    EXPECT_EQ(attr(*rides[0], QStringLiteral("name")), QStringLiteral("t.mov — removed: retake"));
    EXPECT_EQ(attr(first(*rides[0], QStringLiteral("marker")), QStringLiteral("duration")), QStringLiteral("1001/24000s"));

    // A timecode of an hour at 24000 a second: clip starts are sums over
    // that timescale, shortened to seconds only where they divide evenly.
    plan.clips.front().media.startTimecode->value = 3600LL * 24000;
    const FCPXMLDocument hour = FCPXMLWriter::document(plan);
    EXPECT_EQ(attr(first(resourcesOf(hour), QStringLiteral("asset")), QStringLiteral("start")),
              QStringLiteral("86400000/24000s"));
    EXPECT_EQ(attr(spineOf(hour).children[0], QStringLiteral("start")), QStringLiteral("3600s"));
    EXPECT_EQ(attr(spineOf(hour).children[1], QStringLiteral("start")), QStringLiteral("86472072/24000s"));

    // A timecode that is zero or has no usable timescale counts as none.
    plan.clips.front().media.startTimecode = MediaTimecode{5, 0, MediaTimecode::Source::timecodeTrack, std::nullopt};
    const FCPXMLDocument none = FCPXMLWriter::document(plan);
    EXPECT_EQ(attr(first(resourcesOf(none), QStringLiteral("asset")), QStringLiteral("start")), QStringLiteral("0s"));
    EXPECT_EQ(attr(spineOf(none).children[0], QStringLiteral("start")), QStringLiteral("0s"));
}

TEST(FCPXMLWriterDocumentTest, SequenceRunsAtTheFirstClipsRate)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Mixed");
    // 1 s at 25 fps, then 1001 frames' worth at 29.97.
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 2), {kept(0, 1)}));
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), cameraMedia(QStringLiteral("b"), 60, 29.97),
                                  {kept(0, frame(30, 1001, 30000))}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("offset")), QStringLiteral("1s"));
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("duration")), QStringLiteral("30030/30000s"));
    // 1.001 s at 25 fps rounds to 25 sequence frames: 50 in all.
    EXPECT_EQ(attr(first(doc.root, QStringLiteral("sequence")), QStringLiteral("duration")), QStringLiteral("2s"));
}

TEST(FCPXMLWriterDocumentTest, SyncedClipsPlayTheExternalRecordingUnderMutedCamera)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Synced");
    ClipMedia media = cameraMedia(QStringLiteral("cam"), 10, 23.976);
    media.startTimecode = MediaTimecode{3600LL * 24000, 24000, MediaTimecode::Source::timecodeTrack, std::nullopt};
    ExportPlan::Clip clip = planClip(QStringLiteral("cam"), QStringLiteral("cam.mov"), media,
                                     {kept(0, frame(48, 1001, 24000)),
                                      removed(frame(48, 1001, 24000), frame(72, 1001, 24000), CutReason::retake),
                                      kept(frame(72, 1001, 24000), frame(120, 1001, 24000))});
    clip.externalOffsetS = -0.5;
    plan.clips.push_back(clip);
    plan.externalAudio = ExportPlan::ExternalAudio{
        QStringLiteral("mic"), QStringLiteral("mic.wav"), QUrl::fromLocalFile(QStringLiteral("/media/mic.wav")), 20.0,
        48000, std::nullopt,
        MediaTimecode{480000, 48000, MediaTimecode::Source::bwfTimeReference, std::nullopt}};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &resources = resourcesOf(doc);
    ASSERT_EQ(resources.children.size(), 4u);
    EXPECT_EQ(resources.children[2].rendered(),
              QStringLiteral("<asset id=\"r3\" name=\"mic.wav\" start=\"480000/48000s\" duration=\"20s\" hasAudio=\"1\" "
                             "audioSources=\"1\" audioChannels=\"1\" audioRate=\"48000\">\n"
                             "    <media-rep kind=\"original-media\" src=\"file:///media/mic.wav\"/>\n"
                             "</asset>"));
    // The rate-undefined format is made when the first synced clip needs it,
    // after every asset.
    EXPECT_EQ(resources.children[3].rendered(), QStringLiteral("<format id=\"r4\" name=\"FFVideoFormatRateUndefined\"/>"));

    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    const FCPXMLNode &firstClip = spine.children[0];
    EXPECT_EQ(attributeNames(firstClip),
              (QStringList{QStringLiteral("ref"), QStringLiteral("offset"), QStringLiteral("name"), QStringLiteral("start"),
                           QStringLiteral("duration"), QStringLiteral("srcEnable")}));
    EXPECT_EQ(attr(firstClip, QStringLiteral("srcEnable")), QStringLiteral("video"));
    EXPECT_EQ(childNames(firstClip), (QStringList{QStringLiteral("asset-clip"), QStringLiteral("audio-channel-source")}));
    // The first kept stretch would read the recording at -0.5 s: held at its
    // beginning, which is its timecode.
    EXPECT_EQ(firstClip.children[0].rendered(1),
              QStringLiteral("    <asset-clip ref=\"r3\" lane=\"-1\" offset=\"3600s\" name=\"mic.wav\" start=\"10s\" "
                             "duration=\"48048/24000s\" format=\"r4\" audioRole=\"dialogue\">\n"
                             "        <adjust-volume amount=\"0dB\">\n"
                             "            <param name=\"amount\">\n"
                             "                <fadeIn type=\"easeIn\" duration=\"1440/48000s\"/>\n"
                             "                <fadeOut type=\"easeOut\" duration=\"1440/48000s\"/>\n"
                             "            </param>\n"
                             "        </adjust-volume>\n"
                             "    </asset-clip>"));
    EXPECT_EQ(firstClip.children[1].rendered(),
              QStringLiteral("<audio-channel-source srcCh=\"1, 2\" enabled=\"0\" active=\"0\"/>"));

    // Frame 72 is 3.003 s: the recording at 2.503 s is sample 120144, after
    // its own 10 s timecode. The offset counts in the camera asset's time.
    const FCPXMLNode &second = spine.children[1];
    EXPECT_EQ(attr(second, QStringLiteral("start")), QStringLiteral("86472072/24000s"));
    EXPECT_EQ(childNames(second), (QStringList{QStringLiteral("asset-clip"), QStringLiteral("asset-clip"),
                                               QStringLiteral("audio-channel-source")}));
    const FCPXMLNode &sound = second.children[0];
    EXPECT_EQ(attr(sound, QStringLiteral("offset")), QStringLiteral("86472072/24000s"));
    EXPECT_EQ(attr(sound, QStringLiteral("start")), QStringLiteral("600144/48000s"));
    EXPECT_EQ(attr(sound, QStringLiteral("duration")), QStringLiteral("48048/24000s"));
    // The removed retake hangs between the sound and the muted channels.
    const FCPXMLNode &ride = second.children[1];
    EXPECT_EQ(attr(ride, QStringLiteral("enabled")), QStringLiteral("0"));
    EXPECT_EQ(attr(ride, QStringLiteral("lane")), QStringLiteral("1"));
    EXPECT_EQ(attr(ride, QStringLiteral("ref")), QStringLiteral("r2"));
    EXPECT_EQ(attr(ride, QStringLiteral("format")), QStringLiteral("r1"));
    EXPECT_EQ(attr(first(ride, QStringLiteral("marker")), QStringLiteral("value")), QStringLiteral("Velum: retake"));
}

TEST(FCPXMLWriterDocumentTest, ExternalAudioWithoutTimecodeAndUnsyncedClips)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Partly synced");
    ExportPlan::Clip synced = planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 4),
                                       {kept(0.4, 1.0)});
    synced.media.audioCodec.reset();
    synced.externalOffsetS = 1.25;
    plan.clips.push_back(synced);
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), cameraMedia(QStringLiteral("b"), 4), {kept(0, 1)}));
    plan.externalAudio = ExportPlan::ExternalAudio{QStringLiteral("mic"), QStringLiteral("mic.wav"),
                                                   QUrl::fromLocalFile(QStringLiteral("/media/mic.wav")), 12.3456789,
                                                   std::nullopt, 2, std::nullopt};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &mic = *all(resourcesOf(doc), QStringLiteral("asset")).back();
    EXPECT_EQ(attributeNames(mic),
              (QStringList{QStringLiteral("id"), QStringLiteral("name"), QStringLiteral("start"), QStringLiteral("duration"),
                           QStringLiteral("hasAudio"), QStringLiteral("audioSources"), QStringLiteral("audioChannels")}));
    EXPECT_EQ(attr(mic, QStringLiteral("start")), QStringLiteral("0s"));
    // 12.3456789 x 48000 = 592592.5872, rounded.
    EXPECT_EQ(attr(mic, QStringLiteral("duration")), QStringLiteral("592593/48000s"));
    EXPECT_EQ(attr(mic, QStringLiteral("audioChannels")), QStringLiteral("2"));

    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    // A synced camera without sound of its own has nothing to mute.
    EXPECT_EQ(childNames(spine.children[0]), QStringList{QStringLiteral("asset-clip")});
    EXPECT_EQ(attr(spine.children[0].children[0], QStringLiteral("start")), QStringLiteral("79200/48000s"));
    EXPECT_EQ(attr(spine.children[0].children[0], QStringLiteral("offset")), QStringLiteral("1000/2500s"));
    // The unsynced clip keeps its own sound.
    EXPECT_EQ(attr(spine.children[1], QStringLiteral("audioRole")), QStringLiteral("dialogue"));
    EXPECT_FALSE(spine.children[1].attribute(QStringLiteral("srcEnable")).has_value());
    EXPECT_EQ(childNames(spine.children[1]), QStringList{QStringLiteral("adjust-volume")});
}

TEST(FCPXMLWriterDocumentTest, NoRateUndefinedFormatWhenNothingNeedsIt)
{
    // A synced clip whose every piece was removed lays down no sound clip,
    // so no rate-undefined format would be left unused.
    ExportPlan plan;
    plan.projectName = QStringLiteral("All gone");
    ExportPlan::Clip clip = planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 2),
                                     {removed(0, 2, CutReason::manual)});
    clip.externalOffsetS = 0.0;
    plan.clips.push_back(clip);
    plan.externalAudio = ExportPlan::ExternalAudio{QStringLiteral("mic"), QStringLiteral("mic.wav"),
                                                   QUrl::fromLocalFile(QStringLiteral("/media/mic.wav")), 2, 48000, 1,
                                                   std::nullopt};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    EXPECT_EQ(all(resourcesOf(doc), QStringLiteral("format")).size(), 1u);
    EXPECT_TRUE(spineOf(doc).children.empty());
    EXPECT_EQ(attr(first(doc.root, QStringLiteral("sequence")), QStringLiteral("duration")), QStringLiteral("0s"));
}

TEST(FCPXMLWriterDocumentTest, RemovedPiecesAtOnePositionStackUpward)
{
    // Clip a is removed whole; clip b starts with a removed second. Both
    // pieces wait for b's kept clip at sequence 0 s, so they take lanes 1 and
    // 2. A later removed piece of c starts after lane 1 has ended and goes
    // back to lane 1.
    ExportPlan plan;
    plan.projectName = QStringLiteral("Stack");
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 3),
                                  {removed(0, 3, CutReason::offScript)}));
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), cameraMedia(QStringLiteral("b"), 5),
                                  {removed(0, 1, CutReason::noise), kept(1, 5)}));
    plan.clips.push_back(planClip(QStringLiteral("c"), QStringLiteral("c.mov"), cameraMedia(QStringLiteral("c"), 2),
                                  {removed(0, 0.48, CutReason::manual), kept(0.48, 2)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);

    const auto onB = rideAlongsOf(spine.children[0]);
    ASSERT_EQ(onB.size(), 2u);
    EXPECT_EQ(attr(*onB[0], QStringLiteral("lane")), QStringLiteral("1"));
    EXPECT_EQ(attr(*onB[0], QStringLiteral("name")), QStringLiteral("a.mov — removed: off-script"));
    EXPECT_EQ(attr(*onB[0], QStringLiteral("ref")), QStringLiteral("r2"));
    EXPECT_EQ(attr(*onB[0], QStringLiteral("offset")), QStringLiteral("1s"));
    EXPECT_EQ(attr(*onB[0], QStringLiteral("duration")), QStringLiteral("3s"));
    EXPECT_EQ(attr(*onB[1], QStringLiteral("lane")), QStringLiteral("2"));
    EXPECT_EQ(attr(*onB[1], QStringLiteral("name")), QStringLiteral("b.mov — removed: noise"));
    EXPECT_EQ(attr(*onB[1], QStringLiteral("start")), QStringLiteral("0s"));

    // c's kept clip sits at 4 s; lane 1 ended at 3 s.
    const auto onC = rideAlongsOf(spine.children[1]);
    ASSERT_EQ(onC.size(), 1u);
    EXPECT_EQ(attr(*onC[0], QStringLiteral("lane")), QStringLiteral("1"));
    EXPECT_EQ(attr(*onC[0], QStringLiteral("offset")), QStringLiteral("1200/2500s"));
    EXPECT_EQ(attr(first(*onC[0], QStringLiteral("marker")), QStringLiteral("value")), QStringLiteral("Velum: your cut"));
    EXPECT_EQ(attributeNames(*onC[0]),
              (QStringList{QStringLiteral("ref"), QStringLiteral("lane"), QStringLiteral("offset"), QStringLiteral("name"),
                           QStringLiteral("start"), QStringLiteral("duration"), QStringLiteral("enabled"),
                           QStringLiteral("format"), QStringLiteral("audioRole")}));
}

TEST(FCPXMLWriterDocumentTest, RemovedTailHangsOnTheEndOfTheLastKeptClip)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Tail");
    ClipMedia quiet = cameraMedia(QStringLiteral("a"), 6);
    quiet.audioCodec.reset();
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), quiet,
                                  {kept(0, 2), removed(2, 6, CutReason::silence)}));
    plan.clips.push_back(planClip(QStringLiteral("b"), QStringLiteral("b.mov"), quiet, {removed(0, 1, CutReason::filler)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 1u);
    const auto rides = rideAlongsOf(spine.children[0]);
    ASSERT_EQ(rides.size(), 2u);
    // Both sit at the end of the storyline, 2 s; the first runs to 6 s, so
    // the second cannot share its lane.
    EXPECT_EQ(attr(*rides[0], QStringLiteral("offset")), QStringLiteral("2s"));
    EXPECT_EQ(attr(*rides[0], QStringLiteral("lane")), QStringLiteral("1"));
    EXPECT_EQ(attr(*rides[1], QStringLiteral("offset")), QStringLiteral("2s"));
    EXPECT_EQ(attr(*rides[1], QStringLiteral("lane")), QStringLiteral("2"));
    EXPECT_EQ(attr(*rides[1], QStringLiteral("ref")), QStringLiteral("r3"));
    // Without camera sound there is no role.
    EXPECT_FALSE(rides[0]->attribute(QStringLiteral("audioRole")).has_value());
    EXPECT_EQ(attr(first(*rides[1], QStringLiteral("marker")), QStringLiteral("start")), QStringLiteral("0s"));
}

TEST(FCPXMLWriterDocumentTest, KeptOnlyPlanHasNoLanesMarkersOrDisabledClips)
{
    const ExportPlan full = smallPlan();
    const FCPXMLDocument doc = FCPXMLWriter::document(full.keptOnly());
    const QString text = doc.text();
    EXPECT_FALSE(text.contains(QStringLiteral("lane=")));
    EXPECT_FALSE(text.contains(QStringLiteral("<marker")));
    EXPECT_FALSE(text.contains(QStringLiteral("enabled=")));
    // The storyline is the same as the full plan's.
    const FCPXMLDocument fullDoc = FCPXMLWriter::document(full);
    ASSERT_EQ(spineOf(doc).children.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(spineOf(doc).children[i].attributes, spineOf(fullDoc).children[i].attributes);
    }
    EXPECT_EQ(first(doc.root, QStringLiteral("sequence")).attributes, first(fullDoc.root, QStringLiteral("sequence")).attributes);
}

TEST(FCPXMLWriterDocumentTest, StorylineDurationsMatchThePlanAndFadesShrinkForShortClips)
{
    ExportPlan plan;
    plan.projectName = QStringLiteral("Short");
    // A single kept frame at 25 fps and an empty segment the writer skips.
    plan.clips.push_back(planClip(QStringLiteral("a"), QStringLiteral("a.mov"), cameraMedia(QStringLiteral("a"), 1),
                                  {kept(0, 0.04), kept(0.04, 0.04), removed(0.04, 1, CutReason::silence)}));
    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 1u);
    EXPECT_EQ(attr(spine.children[0], QStringLiteral("duration")), QStringLiteral("100/2500s"));
    EXPECT_EQ(attr(first(spine.children[0], QStringLiteral("fadeIn")), QStringLiteral("duration")),
              QStringLiteral("960/48000s"));
    EXPECT_EQ(rideAlongsOf(spine.children[0]).size(), 1u);
}

// --- Attaching ride-alongs directly -----------------------------------------

TEST(FCPXMLWriterAttachTest, DoesNothingWithoutStorylineOrRideAlongs)
{
    FCPXMLNode spine{QStringLiteral("spine"), {}, {}};
    const FCPXMLWriter::RideAlong ride{0, QStringLiteral("r2"), QStringLiteral("r1"), QStringLiteral("x"),
                                       FCPXMLTime{0, 1}, FCPXMLTime{1, 1}, FCPXMLTime{100, 2500}, true, CutReason::silence};
    FCPXMLWriter::attach({ride}, spine, {}, 0);
    EXPECT_TRUE(spine.children.empty());

    FCPXMLNode host{QStringLiteral("asset-clip"), {}, {}};
    spine.children.push_back(host);
    FCPXMLWriter::attach({}, spine, {FCPXMLWriter::SpineClip{FCPXMLTime{0, 1}, FCPXMLTime{1, 1}, 0}}, 1);
    EXPECT_TRUE(spine.children[0].children.empty());
}

TEST(FCPXMLWriterAttachTest, RideAlongWithoutReasonHasNoMarkerAndGoesBeforeMutedChannels)
{
    FCPXMLNode host{QStringLiteral("asset-clip"), {}, {}};
    host.children.push_back(FCPXMLNode{QStringLiteral("asset-clip"), {{QStringLiteral("lane"), QStringLiteral("-1")}}, {}});
    host.children.push_back(FCPXMLWriter::mutedCameraChannels(ClipMedia{}));
    FCPXMLNode spine{QStringLiteral("spine"), {}, {host}};

    const FCPXMLWriter::RideAlong ride{5,           QStringLiteral("r2"),  QStringLiteral("r1"),
                                       QStringLiteral("x"), FCPXMLTime{50, 25}, FCPXMLTime{1001, 24000},
                                       FCPXMLTime{1001, 24000}, false, std::nullopt};
    FCPXMLWriter::attach({ride}, spine, {FCPXMLWriter::SpineClip{FCPXMLTime{3, 1}, FCPXMLTime{2, 1}, 7.0}}, 9.0);

    ASSERT_EQ(childNames(spine.children[0]),
              (QStringList{QStringLiteral("asset-clip"), QStringLiteral("asset-clip"), QStringLiteral("audio-channel-source")}));
    EXPECT_EQ(spine.children[0].children[1].rendered(),
              QStringLiteral("<asset-clip ref=\"r2\" lane=\"1\" offset=\"5s\" name=\"x\" start=\"2s\" "
                             "duration=\"1001/24000s\" enabled=\"0\" format=\"r1\"/>"));
}
