#include "export/FCPXML.h"
#include "export/FCPXMLWriter.h"
#include "model/Json.h"
#include "support/SmallProject.h"
#include "support/TempDir.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <ostream>

using namespace velum;
using namespace Qt::StringLiterals;

// Readable failures: texts print as text.
static void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

// --- Building plans ----------------------------------------------------------

using velum::test::cameraMedia;

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
    clip.url = QUrl::fromLocalFile(u"/media/"_s + filename);
    clip.media = std::move(media);
    clip.segments = std::move(segments);
    return clip;
}

// A camera clip "<id>.mov" of the given length and rate.
ExportPlan::Clip camera(const QString &id, double durationS, std::vector<ExportPlan::Segment> segments,
                        double fps = 25, int width = 1920, int height = 1080)
{
    return planClip(id, id + u".mov"_s, cameraMedia(id, durationS, fps, width, height), std::move(segments));
}

ExportPlan named(const QString &projectName)
{
    ExportPlan plan;
    plan.projectName = projectName;
    return plan;
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
    return node.attribute(name).value_or(u"<absent>"_s);
}

// Attribute or child names in order, blank-separated.
QString attributeNames(const FCPXMLNode &node)
{
    QStringList names;
    for (const auto &a : node.attributes)
        names.push_back(a.name);
    return names.join(u' ');
}

QString childNames(const FCPXMLNode &node)
{
    QStringList names;
    for (const auto &c : node.children)
        names.push_back(c.name);
    return names.join(u' ');
}

const FCPXMLNode &spineOf(const FCPXMLDocument &doc)
{
    return first(doc.root, u"spine"_s);
}

const FCPXMLNode &resourcesOf(const FCPXMLDocument &doc)
{
    return first(doc.root, u"resources"_s);
}

// The lane clips hung on a storyline clip, in order.
std::vector<const FCPXMLNode *> rideAlongsOf(const FCPXMLNode &host)
{
    std::vector<const FCPXMLNode *> out;
    for (const auto &child : host.children) {
        if (child.name == QLatin1String("asset-clip") && child.attribute(u"enabled"_s))
            out.push_back(&child);
    }
    return out;
}

// Runs xmllint --noout on a file; an empty text means well-formed.
std::optional<QString> xmllintErrors(const QString &path)
{
    if (!QFileInfo::exists(u"/usr/bin/xmllint"_s))
        return std::nullopt;
    QProcess lint;
    lint.start(u"/usr/bin/xmllint"_s, {u"--noout"_s, path});
    if (!lint.waitForFinished(30000))
        return u"xmllint did not finish"_s;
    const QString errors = QString::fromUtf8(lint.readAllStandardError());
    if (lint.exitStatus() != QProcess::NormalExit || lint.exitCode() != 0)
        return errors.isEmpty() ? u"xmllint failed"_s : errors;
    return QString();
}

// The kept and removed pieces of a one-clip plan at 25 fps, with a removed
// gap and a removed tail: frames 0-25 kept, 25-40 silence, 40-75 kept, 75-100
// filler, in a 4 s file.
ExportPlan smallPlan()
{
    ExportPlan plan = named(u"Demo"_s);
    plan.clips.push_back(planClip(u"c1"_s, u"take1.mov"_s, cameraMedia(u"c1"_s, 4.0),
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
    EXPECT_EQ(FCPXMLNode::escaped(u"a&b<c>d\"e'f"_s), u"a&amp;b&lt;c&gt;d&quot;e'f"_s);
    // An entity already in the text is escaped again: "&" goes first.
    EXPECT_EQ(FCPXMLNode::escaped(u"&lt;"_s), u"&amp;lt;"_s);
    EXPECT_EQ(FCPXMLNode::escaped(u"Café — ü"_s), u"Café — ü"_s);
}

TEST(FCPXMLNodeTest, RendersLeavesOnOneLineAndParentsAroundIndentedChildren)
{
    FCPXMLNode leaf{u"marker"_s, {}, {}};
    leaf.add(u"value"_s, u"a \"b\" & c"_s).add(u"start"_s, u"1s"_s);
    EXPECT_EQ(leaf.rendered(0), u"<marker value=\"a &quot;b&quot; &amp; c\" start=\"1s\"/>"_s);
    EXPECT_EQ(leaf.rendered(2), u"        <marker value=\"a &quot;b&quot; &amp; c\" start=\"1s\"/>"_s);

    FCPXMLNode bare{u"spine"_s, {}, {}};
    EXPECT_EQ(bare.rendered(1), u"    <spine/>"_s);

    FCPXMLNode inner{u"b"_s, {}, {bare}};
    FCPXMLNode outer{u"a"_s, {{u"x"_s, u"1"_s}}, {inner, leaf}};
    EXPECT_EQ(outer.rendered(1), u"    <a x=\"1\">\n"
                                                "        <b>\n"
                                                "            <spine/>\n"
                                                "        </b>\n"
                                                "        <marker value=\"a &quot;b&quot; &amp; c\" start=\"1s\"/>\n"
                                                "    </a>"_s);
}

TEST(FCPXMLDocumentTest, TextIsTwoHeaderLinesAndTheRootAndIsWrittenAsUtf8InPlaceOfAnEarlierFile)
{
    const FCPXMLDocument bare{FCPXMLNode{u"fcpxml"_s, {{u"version"_s, u"1.13"_s}}, {}}};
    EXPECT_EQ(bare.text(), u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE fcpxml>\n<fcpxml version=\"1.13\"/>\n"_s);

    test::TempDir dir;
    const QString path = dir.file(u"output.fcpxml"_s);
    test::writeBytes(path, QByteArray("an older and much longer file that must not survive in part"));

    FCPXMLDocument doc{FCPXMLNode{u"fcpxml"_s, {{u"name"_s, u"Café"_s}}, {}}};
    doc.write(QUrl::fromLocalFile(path));

    const QByteArray expected = QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE fcpxml>\n<fcpxml name=\"Caf")
                                + QByteArray("\xC3\xA9", 2) + QByteArray("\"/>\n");
    EXPECT_EQ(test::readBytes(path), expected);
    // Nothing is left behind beside the file.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList{u"output.fcpxml"_s});

    // Where it cannot write, the file system's error is raised.
    EXPECT_THROW(doc.write(QUrl::fromLocalFile(dir.file(u"missing/output.fcpxml"_s))), FileWriteError);
    EXPECT_THROW(doc.write(QUrl(u"https://example.com/output.fcpxml"_s)), FileWriteError);
}

// --- Names, tokens and small pieces -------------------------------------------

TEST(FCPXMLWriterPiecesTest, RateTokensFollowTheTrueRate)
{
    using FCPXMLWriter::rateToken;
    // 23.976 and 24 round alike but are different rates.
    EXPECT_EQ(rateToken(FCPXMLFrameRate(23.976)), u"2398"_s);
    EXPECT_EQ(rateToken(FCPXMLFrameRate(24.0)), u"24"_s);
    EXPECT_EQ(rateToken(FCPXMLFrameRate(29.97)), u"2997"_s);
    EXPECT_EQ(rateToken(FCPXMLFrameRate(59.94)), u"5994"_s);
    EXPECT_EQ(rateToken(FCPXMLFrameRate(60.0)), u"60"_s);
    // Within 0.01 frames a second, not within 0.01 of a nominal figure.
    EXPECT_EQ(rateToken(FCPXMLFrameRate(1000, 24005)), u"24"_s);
    EXPECT_FALSE(rateToken(FCPXMLFrameRate(1000, 24010)).has_value());
    EXPECT_FALSE(rateToken(FCPXMLFrameRate(12.5)).has_value());
    EXPECT_FALSE(rateToken(FCPXMLFrameRate(48.0)).has_value());
}

TEST(FCPXMLWriterPiecesTest, FormatNamesCarrySizeAndToken)
{
    using FCPXMLWriter::formatName;
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), 1920, 1080), u"FFVideoFormat1080p25"_s);
    EXPECT_EQ(formatName(FCPXMLFrameRate(23.976), 1280, 720), u"FFVideoFormat720p2398"_s);
    EXPECT_EQ(formatName(FCPXMLFrameRate(30.0), 1080, 1920), u"FFVideoFormat1080x1920p30"_s);
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), 3840, 2160), u"FFVideoFormat3840x2160p25"_s);
    EXPECT_EQ(formatName(FCPXMLFrameRate(12.5), 1920, 1080), u"FFVideoFormatRateUndefined"_s);
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), std::nullopt, 1080), u"FFVideoFormatRateUndefined"_s);
    EXPECT_EQ(formatName(FCPXMLFrameRate(25.0), 1920, 0), u"FFVideoFormatRateUndefined"_s);
}

TEST(FCPXMLWriterPiecesTest, FadesAreWholeSamplesAtMostHalfTheClip)
{
    const auto full = FCPXMLWriter::audioFade(0.03);
    ASSERT_TRUE(full.has_value());
    EXPECT_EQ(full->rendered(), u"<adjust-volume amount=\"0dB\">\n"
                                               "    <param name=\"amount\">\n"
                                               "        <fadeIn type=\"easeIn\" duration=\"1440/48000s\"/>\n"
                                               "        <fadeOut type=\"easeOut\" duration=\"1440/48000s\"/>\n"
                                               "    </param>\n"
                                               "</adjust-volume>"_s);
    // Half of one frame at 25 fps: 20 ms.
    EXPECT_EQ(attr(first(*FCPXMLWriter::audioFade(0.02), u"fadeOut"_s), u"duration"_s), u"960/48000s"_s);
    // One sample exactly is 1/48000 s; less than half a sample is no fade.
    EXPECT_EQ(attr(first(*FCPXMLWriter::audioFade(1.0 / 48000), u"fadeIn"_s), u"duration"_s), u"1/48000s"_s);
    EXPECT_FALSE(FCPXMLWriter::audioFade(0.4 / 48000).has_value());
    EXPECT_FALSE(FCPXMLWriter::audioFade(0).has_value());
}

TEST(FCPXMLWriterPiecesTest, CameraChannelsAreListedAndMuted)
{
    ClipMedia media;
    EXPECT_EQ(FCPXMLWriter::sourceChannels(media), u"1, 2"_s);
    media.audioChannels = 1;
    EXPECT_EQ(FCPXMLWriter::sourceChannels(media), u"1"_s);
    media.audioChannels = 0;
    EXPECT_EQ(FCPXMLWriter::sourceChannels(media), u"1"_s);
    media.audioChannels = 6;
    EXPECT_EQ(FCPXMLWriter::mutedCameraChannels(media).rendered(),
              u"<audio-channel-source srcCh=\"1, 2, 3, 4, 5, 6\" enabled=\"0\" active=\"0\"/>"_s);
}

TEST(FCPXMLWriterPiecesTest, MediaRepIsAnAbsolutePercentEncodedFileURL)
{
    EXPECT_EQ(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(u"/Volumes/Shoot Day/A001 & B.mov"_s)).rendered(),
              u"<media-rep kind=\"original-media\" src=\"file:///Volumes/Shoot%20Day/A001%20&amp;%20B.mov\"/>"_s);
    EXPECT_EQ(attr(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(u"/m/café.mov"_s)), u"src"_s),
              u"file:///m/caf%C3%A9.mov"_s);
    EXPECT_EQ(attr(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(u"/m/<a>#1.mov"_s)), u"src"_s),
              u"file:///m/%3Ca%3E%231.mov"_s);

    // A relative path is taken from the current folder.
    const QString src = attr(FCPXMLWriter::mediaRep(QUrl::fromLocalFile(u"clip.mov"_s)), u"src"_s);
    EXPECT_EQ(QUrl(src).toLocalFile(), QDir::current().absoluteFilePath(u"clip.mov"_s));
    EXPECT_TRUE(src.startsWith(u"file:///"_s));
}

// --- Whole documents ----------------------------------------------------------

TEST(FCPXMLWriterDocumentTest, PlanWithoutClipsGivesAnEmptyStorylineAtTwentyFive)
{
    ExportPlan plan = named(u"Empty"_s);
    EXPECT_EQ(FCPXMLWriter::document(plan).text(),
              u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
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
                             "</fcpxml>\n"_s);
}

// Worked out by hand from the rules for smallPlan(): 25 fps is 100/2500 s a
// frame; the kept clips are frames 0-25 and 40-75 and lie at sequence frames
// 0 and 25, so the sequence is 60 frames, 6000/2500 s. The silence (frames
// 25-40) hangs on the second kept clip at its start; the filler tail (75-100)
// hangs on it too, at its end, 7500/2500 = 3 s, and its position 2.4 s is
// past the silence's lane end 1.6 s, so both share lane 1.
TEST(FCPXMLWriterDocumentTest, SmallPlanIsWrittenByteForByte)
{
    const QString expected = u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
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
        "audioRole=\"dialogue\">\n"_s
        + QString::fromUtf8(fadeLines)
        + u"                        </asset-clip>\n"
                         "                        <asset-clip ref=\"r2\" offset=\"1s\" name=\"take1.mov\" start=\"4000/2500s\" "
                         "duration=\"3500/2500s\" audioRole=\"dialogue\">\n"_s
        + QString::fromUtf8(fadeLines)
        + u"                            <asset-clip ref=\"r2\" lane=\"1\" offset=\"4000/2500s\" "
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
            "</fcpxml>\n"_s;

    const FCPXMLDocument doc = FCPXMLWriter::document(smallPlan());
    const QString text = doc.text();
    EXPECT_EQ(text, expected);
    // The same bytes, run after run.
    EXPECT_EQ(FCPXMLWriter::document(smallPlan()).data(), doc.data());
}

TEST(FCPXMLWriterDocumentTest, NamesAreEscapedAndWrittenFilesAreWellFormedXml)
{
    ExportPlan plan = smallPlan();
    plan.projectName = u"Tom & Jerry's <\"best\"> café — ü"_s;
    plan.clips.front().filename = u"Take \"1\" & <b>'s — naïve.mov"_s;
    plan.clips.front().url = QUrl::fromLocalFile(u"/media/Take \"1\" & <b>'s — naïve.mov"_s);

    const QString text = FCPXMLWriter::document(plan).text();
    EXPECT_TRUE(text.contains(u"<project name=\"Tom &amp; Jerry's &lt;&quot;best&quot;&gt; café — ü\">"_s));
    EXPECT_TRUE(text.contains(u"<asset id=\"r2\" name=\"Take &quot;1&quot; &amp; &lt;b&gt;'s — naïve.mov\" "_s));
    EXPECT_TRUE(text.contains(u"name=\"Take &quot;1&quot; &amp; &lt;b&gt;'s — naïve.mov — removed: silence\""_s));
    EXPECT_FALSE(text.contains(u"& <"_s));

    test::TempDir dir;
    const QString path = dir.file(u"output.fcpxml"_s);
    FCPXMLWriter::document(plan).write(QUrl::fromLocalFile(path));

    if (const auto lint = xmllintErrors(path)) {
        EXPECT_EQ(*lint, QString());
    }

    // A general parser reads every name back as it was.
    QDomDocument dom;
    ASSERT_TRUE(static_cast<bool>(dom.setContent(test::readBytes(path))));
    const QDomElement project = dom.elementsByTagName(u"project"_s).item(0).toElement();
    EXPECT_EQ(project.attribute(u"name"_s), plan.projectName);
    const QDomElement asset = dom.elementsByTagName(u"asset"_s).item(0).toElement();
    EXPECT_EQ(asset.attribute(u"name"_s), plan.clips.front().filename);
    const QDomElement rep = dom.elementsByTagName(u"media-rep"_s).item(0).toElement();
    EXPECT_EQ(QUrl(rep.attribute(u"src"_s)).toLocalFile(), plan.clips.front().url.toLocalFile());
    const QDomNodeList markers = dom.elementsByTagName(u"marker"_s);
    ASSERT_EQ(markers.size(), 2);
    EXPECT_EQ(markers.item(0).parentNode().toElement().attribute(u"name"_s),
              plan.clips.front().filename + u" — removed: silence"_s);
}

TEST(FCPXMLWriterDocumentTest, ClipsShareAFormatExactlyWhenRateAndSizeAgreeAndAFileOneAsset)
{
    ExportPlan plan = named(u"Formats"_s);
    plan.clips = {camera(u"a"_s, 2, {kept(0, 2)}), camera(u"b"_s, 2, {kept(0, 2)}),
                  camera(u"c"_s, 2, {kept(0, 2)}, 25, 1280, 720), camera(u"d"_s, 2, {kept(0, 2)}, 50),
                  camera(u"a"_s, 2, {kept(1, 2)})};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &resources = resourcesOf(doc);
    QStringList shape;
    for (const auto &node : resources.children)
        shape.push_back(node.name + u' ' + attr(node, u"id"_s) + u' '
                        + attr(node, node.name == QLatin1String("format") ? u"name"_s : u"format"_s));
    EXPECT_EQ(shape, (QStringList{u"format r1 FFVideoFormat1080p25"_s, u"asset r2 r1"_s, u"asset r3 r1"_s,
                                  u"format r4 FFVideoFormat720p25"_s, u"asset r5 r4"_s,
                                  u"format r6 FFVideoFormat1080p50"_s, u"asset r7 r6"_s}));
    EXPECT_EQ(attr(first(doc.root, u"sequence"_s), u"format"_s), u"r1"_s);
    EXPECT_EQ(attributeNames(resources.children[3]), u"id name frameDuration width height colorSpace"_s);
    EXPECT_EQ(attr(resources.children[5], u"frameDuration"_s), u"100/5000s"_s);

    // Four 2 s clips end to end, the 50 fps one reading 100 of its own
    // frames, then the first file again from its second second.
    const FCPXMLNode &spine = spineOf(doc);
    QStringList refs;
    for (const auto &clip : spine.children)
        refs.push_back(attr(clip, u"ref"_s));
    EXPECT_EQ(refs.join(u' '), u"r2 r3 r5 r7 r2"_s);
    EXPECT_EQ(attr(spine.children[3], u"offset"_s), u"6s"_s);
    EXPECT_EQ(attr(spine.children[3], u"duration"_s), u"2s"_s);
    EXPECT_EQ(attr(spine.children[4], u"offset"_s), u"8s"_s);
    EXPECT_EQ(attr(spine.children[4], u"start"_s), u"1s"_s);
    EXPECT_EQ(attr(first(doc.root, u"sequence"_s), u"duration"_s), u"9s"_s);
}

TEST(FCPXMLWriterDocumentTest, AssetsFollowWhatTheMediaHasInWholeFramesOfTheFile)
{
    ExportPlan plan = named(u"Media"_s);
    ClipMedia silent = cameraMedia(u"v"_s, 10);
    silent.audioCodec.reset();
    ClipMedia sound = cameraMedia(u"s"_s, 10);
    sound.videoCodec.reset();
    sound.audioChannels.reset();
    sound.audioSampleRate.reset();
    // 10.01 s at 29.97 is 300.0 frames of 1001/30000 s; shorter than a frame
    // is still one frame; 2.039 s at 25 fps is 50.975 frames, truncated to 50.
    plan.clips = {planClip(u"v"_s, u"v.mov"_s, silent, {kept(0, 1)}), planClip(u"s"_s, u"s.mov"_s, sound, {kept(0, 1)}),
                  camera(u"a"_s, 10.01, {kept(0, frame(30, 1001, 30000))}, 29.97),
                  camera(u"b"_s, 0.01, {kept(0, 0.04)}), camera(u"c"_s, 2.039, {kept(0, 2)})};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const auto assets = all(resourcesOf(doc), u"asset"_s);
    ASSERT_EQ(assets.size(), 5u);
    EXPECT_EQ(attributeNames(*assets[0]), u"id name start duration format hasVideo videoSources"_s);
    EXPECT_EQ(attributeNames(*assets[1]), u"id name start duration format hasAudio audioSources audioChannels"_s);
    EXPECT_EQ(attr(*assets[1], u"audioChannels"_s), u"2"_s);
    EXPECT_EQ(attr(*assets[2], u"duration"_s), u"300300/30000s"_s);
    EXPECT_EQ(attr(*assets[3], u"duration"_s), u"100/2500s"_s);
    EXPECT_EQ(attr(*assets[4], u"duration"_s), u"2s"_s);

    // A kept clip without camera sound and without external sound has no
    // role and nothing inside.
    const FCPXMLNode &spine = spineOf(doc);
    EXPECT_EQ(attributeNames(spine.children[0]), u"ref offset name start duration"_s);
    EXPECT_TRUE(spine.children[0].children.empty());
    EXPECT_EQ(attr(spine.children[1], u"audioRole"_s), u"dialogue"_s);
}

TEST(FCPXMLWriterDocumentTest, TimecodedAssetsStartAtTheirTimecode)
{
    ExportPlan plan = named(u"Timecode"_s);
    ClipMedia media = cameraMedia(u"t"_s, 10, 23.976);
    media.startTimecode = MediaTimecode{86400, 24000, MediaTimecode::Source::timecodeTrack, u"00:00:03:14"_s};
    // Frames 0-48 kept, 48-72 removed, 72-96 kept at 1001/24000 s a frame.
    plan.clips.push_back(planClip(u"t"_s, u"t.mov"_s, media, {kept(0, frame(48, 1001, 24000)),
                                   removed(frame(48, 1001, 24000), frame(72, 1001, 24000), CutReason::retake),
                                   kept(frame(72, 1001, 24000), frame(96, 1001, 24000))}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &asset = first(resourcesOf(doc), u"asset"_s);
    EXPECT_EQ(attr(asset, u"start"_s), u"86400/24000s"_s);
    EXPECT_EQ(attr(first(resourcesOf(doc), u"format"_s), u"name"_s), u"FFVideoFormat1080p2398"_s);
    EXPECT_EQ(attr(first(resourcesOf(doc), u"format"_s), u"frameDuration"_s), u"1001/24000s"_s);

    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    // Frame 0 plus the timecode is the timecode itself; frame 72 is
    // 72072/24000 s after it.
    EXPECT_EQ(attr(spine.children[0], u"start"_s), u"86400/24000s"_s);
    EXPECT_EQ(attr(spine.children[0], u"duration"_s), u"48048/24000s"_s);
    EXPECT_EQ(attr(spine.children[1], u"start"_s), u"158472/24000s"_s);
    EXPECT_EQ(attr(spine.children[1], u"offset"_s), u"48048/24000s"_s);
    EXPECT_EQ(attr(first(doc.root, u"sequence"_s), u"duration"_s), u"72072/24000s"_s);
    EXPECT_EQ(attr(first(doc.root, u"sequence"_s), u"tcFormat"_s), u"NDF"_s);

    const auto rides = rideAlongsOf(spine.children[1]);
    ASSERT_EQ(rides.size(), 1u);
    EXPECT_EQ(attr(*rides[0], u"start"_s), u"134448/24000s"_s);
    EXPECT_EQ(attr(*rides[0], u"offset"_s), u"158472/24000s"_s);
    EXPECT_EQ(attr(*rides[0], u"name"_s), u"t.mov — removed: retake"_s);
    EXPECT_EQ(attr(first(*rides[0], u"marker"_s), u"duration"_s), u"1001/24000s"_s);

    // A timecode of an hour at 24000 a second: clip starts are sums over
    // that timescale, shortened to seconds only where they divide evenly.
    plan.clips.front().media.startTimecode->value = 3600LL * 24000;
    const FCPXMLDocument hour = FCPXMLWriter::document(plan);
    EXPECT_EQ(attr(first(resourcesOf(hour), u"asset"_s), u"start"_s), u"86400000/24000s"_s);
    EXPECT_EQ(attr(spineOf(hour).children[0], u"start"_s), u"3600s"_s);
    EXPECT_EQ(attr(spineOf(hour).children[1], u"start"_s), u"86472072/24000s"_s);

    // A timecode that is zero or has no usable timescale counts as none.
    plan.clips.front().media.startTimecode = MediaTimecode{5, 0, MediaTimecode::Source::timecodeTrack, std::nullopt};
    const FCPXMLDocument none = FCPXMLWriter::document(plan);
    EXPECT_EQ(attr(first(resourcesOf(none), u"asset"_s), u"start"_s), u"0s"_s);
    EXPECT_EQ(attr(spineOf(none).children[0], u"start"_s), u"0s"_s);
}

TEST(FCPXMLWriterDocumentTest, SequenceRunsAtTheFirstClipsRate)
{
    ExportPlan plan = named(u"Mixed"_s);
    // 1 s at 25 fps, then 1001 frames' worth at 29.97.
    plan.clips.push_back(camera(u"a"_s, 2, {kept(0, 1)}));
    plan.clips.push_back(camera(u"b"_s, 60, {kept(0, frame(30, 1001, 30000))}, 29.97));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    EXPECT_EQ(attr(spine.children[1], u"offset"_s), u"1s"_s);
    EXPECT_EQ(attr(spine.children[1], u"duration"_s), u"30030/30000s"_s);
    // 1.001 s at 25 fps rounds to 25 sequence frames: 50 in all.
    EXPECT_EQ(attr(first(doc.root, u"sequence"_s), u"duration"_s), u"2s"_s);
}

TEST(FCPXMLWriterDocumentTest, SyncedClipsPlayTheExternalRecordingUnderMutedCamera)
{
    ExportPlan plan = named(u"Synced"_s);
    ClipMedia media = cameraMedia(u"cam"_s, 10, 23.976);
    media.startTimecode = MediaTimecode{3600LL * 24000, 24000, MediaTimecode::Source::timecodeTrack, std::nullopt};
    ExportPlan::Clip clip = planClip(u"cam"_s, u"cam.mov"_s, media, {kept(0, frame(48, 1001, 24000)),
                                      removed(frame(48, 1001, 24000), frame(72, 1001, 24000), CutReason::retake),
                                      kept(frame(72, 1001, 24000), frame(120, 1001, 24000))});
    clip.externalOffsetS = -0.5;
    plan.clips.push_back(clip);
    plan.externalAudio = ExportPlan::ExternalAudio{
        u"mic"_s, u"mic.wav"_s, QUrl::fromLocalFile(u"/media/mic.wav"_s), 20.0,
        48000, std::nullopt,
        MediaTimecode{480000, 48000, MediaTimecode::Source::bwfTimeReference, std::nullopt}};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &resources = resourcesOf(doc);
    ASSERT_EQ(resources.children.size(), 4u);
    EXPECT_EQ(resources.children[2].rendered(),
              u"<asset id=\"r3\" name=\"mic.wav\" start=\"480000/48000s\" duration=\"20s\" hasAudio=\"1\" "
                             "audioSources=\"1\" audioChannels=\"1\" audioRate=\"48000\">\n"
                             "    <media-rep kind=\"original-media\" src=\"file:///media/mic.wav\"/>\n"
                             "</asset>"_s);
    // The rate-undefined format is made when the first synced clip needs it,
    // after every asset.
    EXPECT_EQ(resources.children[3].rendered(), u"<format id=\"r4\" name=\"FFVideoFormatRateUndefined\"/>"_s);

    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    const FCPXMLNode &firstClip = spine.children[0];
    EXPECT_EQ(attributeNames(firstClip), u"ref offset name start duration srcEnable"_s);
    EXPECT_EQ(attr(firstClip, u"srcEnable"_s), u"video"_s);
    EXPECT_EQ(childNames(firstClip), u"asset-clip audio-channel-source"_s);
    // The first kept stretch would read the recording at -0.5 s: held at its
    // beginning, which is its timecode.
    EXPECT_EQ(firstClip.children[0].rendered(1),
              u"    <asset-clip ref=\"r3\" lane=\"-1\" offset=\"3600s\" name=\"mic.wav\" start=\"10s\" "
                             "duration=\"48048/24000s\" format=\"r4\" audioRole=\"dialogue\">\n"
                             "        <adjust-volume amount=\"0dB\">\n"
                             "            <param name=\"amount\">\n"
                             "                <fadeIn type=\"easeIn\" duration=\"1440/48000s\"/>\n"
                             "                <fadeOut type=\"easeOut\" duration=\"1440/48000s\"/>\n"
                             "            </param>\n"
                             "        </adjust-volume>\n"
                             "    </asset-clip>"_s);
    EXPECT_EQ(firstClip.children[1].rendered(), u"<audio-channel-source srcCh=\"1, 2\" enabled=\"0\" active=\"0\"/>"_s);

    // Frame 72 is 3.003 s: the recording at 2.503 s is sample 120144, after
    // its own 10 s timecode. The offset counts in the camera asset's time.
    const FCPXMLNode &second = spine.children[1];
    EXPECT_EQ(attr(second, u"start"_s), u"86472072/24000s"_s);
    EXPECT_EQ(childNames(second), u"asset-clip asset-clip audio-channel-source"_s);
    const FCPXMLNode &sound = second.children[0];
    EXPECT_EQ(attr(sound, u"offset"_s), u"86472072/24000s"_s);
    EXPECT_EQ(attr(sound, u"start"_s), u"600144/48000s"_s);
    EXPECT_EQ(attr(sound, u"duration"_s), u"48048/24000s"_s);
    // The removed retake hangs between the sound and the muted channels.
    const FCPXMLNode &ride = second.children[1];
    EXPECT_EQ(attr(ride, u"enabled"_s), u"0"_s);
    EXPECT_EQ(attr(ride, u"lane"_s), u"1"_s);
    EXPECT_EQ(attr(ride, u"ref"_s), u"r2"_s);
    EXPECT_EQ(attr(ride, u"format"_s), u"r1"_s);
    EXPECT_EQ(attr(first(ride, u"marker"_s), u"value"_s), u"Velum: retake"_s);
}

TEST(FCPXMLWriterDocumentTest, ExternalAudioWithoutTimecodeAndUnsyncedClips)
{
    ExportPlan plan = named(u"Partly synced"_s);
    ExportPlan::Clip synced = camera(u"a"_s, 4, {kept(0.4, 1.0)});
    synced.media.audioCodec.reset();
    synced.externalOffsetS = 1.25;
    plan.clips.push_back(synced);
    plan.clips.push_back(camera(u"b"_s, 4, {kept(0, 1)}));
    plan.externalAudio = ExportPlan::ExternalAudio{u"mic"_s, u"mic.wav"_s,
                                                   QUrl::fromLocalFile(u"/media/mic.wav"_s), 12.3456789,
                                                   std::nullopt, 2, std::nullopt};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &mic = *all(resourcesOf(doc), u"asset"_s).back();
    EXPECT_EQ(attributeNames(mic), u"id name start duration hasAudio audioSources audioChannels"_s);
    EXPECT_EQ(attr(mic, u"start"_s), u"0s"_s);
    // 12.3456789 x 48000 = 592592.5872, rounded.
    EXPECT_EQ(attr(mic, u"duration"_s), u"592593/48000s"_s);
    EXPECT_EQ(attr(mic, u"audioChannels"_s), u"2"_s);

    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);
    // A synced camera without sound of its own has nothing to mute.
    EXPECT_EQ(childNames(spine.children[0]), u"asset-clip"_s);
    EXPECT_EQ(attr(spine.children[0].children[0], u"start"_s), u"79200/48000s"_s);
    EXPECT_EQ(attr(spine.children[0].children[0], u"offset"_s), u"1000/2500s"_s);
    // The unsynced clip keeps its own sound.
    EXPECT_EQ(attr(spine.children[1], u"audioRole"_s), u"dialogue"_s);
    EXPECT_FALSE(spine.children[1].attribute(u"srcEnable"_s).has_value());
    EXPECT_EQ(childNames(spine.children[1]), u"adjust-volume"_s);
}

TEST(FCPXMLWriterDocumentTest, NoRateUndefinedFormatWhenNothingNeedsIt)
{
    // A synced clip whose every piece was removed lays down no sound clip,
    // so no rate-undefined format would be left unused.
    ExportPlan plan = named(u"All gone"_s);
    ExportPlan::Clip clip = camera(u"a"_s, 2, {removed(0, 2, CutReason::manual)});
    clip.externalOffsetS = 0.0;
    plan.clips.push_back(clip);
    plan.externalAudio = ExportPlan::ExternalAudio{u"mic"_s, u"mic.wav"_s,
                                                   QUrl::fromLocalFile(u"/media/mic.wav"_s), 2, 48000, 1,
                                                   std::nullopt};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    EXPECT_EQ(all(resourcesOf(doc), u"format"_s).size(), 1u);
    EXPECT_TRUE(spineOf(doc).children.empty());
    EXPECT_EQ(attr(first(doc.root, u"sequence"_s), u"duration"_s), u"0s"_s);
}

TEST(FCPXMLWriterDocumentTest, RemovedPiecesAtOnePositionStackUpward)
{
    // Clip a is removed whole; clip b starts with a removed second. Both
    // pieces wait for b's kept clip at sequence 0 s, so they take lanes 1 and
    // 2. A later removed piece of c starts after lane 1 has ended and goes
    // back to lane 1.
    ExportPlan plan = named(u"Stack"_s);
    plan.clips = {camera(u"a"_s, 3, {removed(0, 3, CutReason::offScript)}),
                  camera(u"b"_s, 5, {removed(0, 1, CutReason::noise), kept(1, 5)}),
                  camera(u"c"_s, 2, {removed(0, 0.48, CutReason::manual), kept(0.48, 2)})};

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 2u);

    const auto onB = rideAlongsOf(spine.children[0]);
    ASSERT_EQ(onB.size(), 2u);
    EXPECT_EQ(attr(*onB[0], u"lane"_s), u"1"_s);
    EXPECT_EQ(attr(*onB[0], u"name"_s), u"a.mov — removed: off-script"_s);
    EXPECT_EQ(attr(*onB[0], u"ref"_s), u"r2"_s);
    EXPECT_EQ(attr(*onB[0], u"offset"_s), u"1s"_s);
    EXPECT_EQ(attr(*onB[0], u"duration"_s), u"3s"_s);
    EXPECT_EQ(attr(*onB[1], u"lane"_s), u"2"_s);
    EXPECT_EQ(attr(*onB[1], u"name"_s), u"b.mov — removed: noise"_s);
    EXPECT_EQ(attr(*onB[1], u"start"_s), u"0s"_s);

    // c's kept clip sits at 4 s; lane 1 ended at 3 s.
    const auto onC = rideAlongsOf(spine.children[1]);
    ASSERT_EQ(onC.size(), 1u);
    EXPECT_EQ(attr(*onC[0], u"lane"_s), u"1"_s);
    EXPECT_EQ(attr(*onC[0], u"offset"_s), u"1200/2500s"_s);
    EXPECT_EQ(attr(first(*onC[0], u"marker"_s), u"value"_s), u"Velum: your cut"_s);
    EXPECT_EQ(attributeNames(*onC[0]), u"ref lane offset name start duration enabled format audioRole"_s);
}

TEST(FCPXMLWriterDocumentTest, RemovedTailHangsOnTheEndOfTheLastKeptClip)
{
    ExportPlan plan = named(u"Tail"_s);
    ClipMedia quiet = cameraMedia(u"a"_s, 6);
    quiet.audioCodec.reset();
    plan.clips.push_back(planClip(u"a"_s, u"a.mov"_s, quiet, {kept(0, 2), removed(2, 6, CutReason::silence)}));
    plan.clips.push_back(planClip(u"b"_s, u"b.mov"_s, quiet, {removed(0, 1, CutReason::filler)}));

    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 1u);
    const auto rides = rideAlongsOf(spine.children[0]);
    ASSERT_EQ(rides.size(), 2u);
    // Both sit at the end of the storyline, 2 s; the first runs to 6 s, so
    // the second cannot share its lane.
    EXPECT_EQ(attr(*rides[0], u"offset"_s), u"2s"_s);
    EXPECT_EQ(attr(*rides[0], u"lane"_s), u"1"_s);
    EXPECT_EQ(attr(*rides[1], u"offset"_s), u"2s"_s);
    EXPECT_EQ(attr(*rides[1], u"lane"_s), u"2"_s);
    EXPECT_EQ(attr(*rides[1], u"ref"_s), u"r3"_s);
    // Without camera sound there is no role.
    EXPECT_FALSE(rides[0]->attribute(u"audioRole"_s).has_value());
    EXPECT_EQ(attr(first(*rides[1], u"marker"_s), u"start"_s), u"0s"_s);
}

TEST(FCPXMLWriterDocumentTest, KeptOnlyPlanHasNoLanesMarkersOrDisabledClips)
{
    const ExportPlan full = smallPlan();
    const FCPXMLDocument doc = FCPXMLWriter::document(full.keptOnly());
    const QString text = doc.text();
    EXPECT_FALSE(text.contains(u"lane="_s));
    EXPECT_FALSE(text.contains(u"<marker"_s));
    EXPECT_FALSE(text.contains(u"enabled="_s));
    // The storyline is the same as the full plan's.
    const FCPXMLDocument fullDoc = FCPXMLWriter::document(full);
    ASSERT_EQ(spineOf(doc).children.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(spineOf(doc).children[i].attributes, spineOf(fullDoc).children[i].attributes);
    }
    EXPECT_EQ(first(doc.root, u"sequence"_s).attributes, first(fullDoc.root, u"sequence"_s).attributes);
}

TEST(FCPXMLWriterDocumentTest, StorylineDurationsMatchThePlanAndFadesShrinkForShortClips)
{
    ExportPlan plan = named(u"Short"_s);
    // A single kept frame at 25 fps and an empty segment the writer skips.
    plan.clips.push_back(camera(u"a"_s, 1, {kept(0, 0.04), kept(0.04, 0.04), removed(0.04, 1, CutReason::silence)}));
    const FCPXMLDocument doc = FCPXMLWriter::document(plan);
    const FCPXMLNode &spine = spineOf(doc);
    ASSERT_EQ(spine.children.size(), 1u);
    EXPECT_EQ(attr(spine.children[0], u"duration"_s), u"100/2500s"_s);
    EXPECT_EQ(attr(first(spine.children[0], u"fadeIn"_s), u"duration"_s), u"960/48000s"_s);
    EXPECT_EQ(rideAlongsOf(spine.children[0]).size(), 1u);
}

// --- Attaching ride-alongs directly -----------------------------------------

TEST(FCPXMLWriterAttachTest, DoesNothingWithoutStorylineOrRideAlongsAndPlacesRideAlongsBeforeMutedChannels)
{
    FCPXMLNode spine{u"spine"_s, {}, {}};
    const FCPXMLWriter::RideAlong ride{0, u"r2"_s, u"r1"_s, u"x"_s,
                                       FCPXMLTime{0, 1}, FCPXMLTime{1, 1}, FCPXMLTime{100, 2500}, true, CutReason::silence};
    FCPXMLWriter::attach({ride}, spine, {}, 0);
    EXPECT_TRUE(spine.children.empty());

    FCPXMLNode host{u"asset-clip"_s, {}, {}};
    spine.children.push_back(host);
    FCPXMLWriter::attach({}, spine, {FCPXMLWriter::SpineClip{FCPXMLTime{0, 1}, FCPXMLTime{1, 1}, 0}}, 1);
    EXPECT_TRUE(spine.children[0].children.empty());

    // A ride-along without a reason has no marker and goes before the muted
    // channels.
    FCPXMLNode withSound{u"asset-clip"_s, {}, {}};
    withSound.children.push_back(FCPXMLNode{u"asset-clip"_s, {{u"lane"_s, u"-1"_s}}, {}});
    withSound.children.push_back(FCPXMLWriter::mutedCameraChannels(ClipMedia{}));
    FCPXMLNode storyline{u"spine"_s, {}, {withSound}};
    const FCPXMLWriter::RideAlong plain{5, u"r2"_s, u"r1"_s, u"x"_s, FCPXMLTime{50, 25}, FCPXMLTime{1001, 24000},
                                        FCPXMLTime{1001, 24000}, false, std::nullopt};
    FCPXMLWriter::attach({plain}, storyline, {FCPXMLWriter::SpineClip{FCPXMLTime{3, 1}, FCPXMLTime{2, 1}, 7.0}}, 9.0);
    ASSERT_EQ(childNames(storyline.children[0]), u"asset-clip asset-clip audio-channel-source"_s);
    EXPECT_EQ(storyline.children[0].children[1].rendered(),
              u"<asset-clip ref=\"r2\" lane=\"1\" offset=\"5s\" name=\"x\" start=\"2s\" "
              "duration=\"1001/24000s\" enabled=\"0\" format=\"r1\"/>"_s);
}
