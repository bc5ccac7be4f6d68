// The self-check of written timelines: a correct file passes every check, and
// each fault the checks name is caught when a correct file is damaged on
// purpose. Files are real, in temporary folders; the DTD check runs the real
// xmllint against DTDs the tests write themselves.

#include "export/ExportPlanner.h"
#include "export/FCPXMLExport.h"
#include "export/FCPXMLValidation.h"
#include "export/FCPXMLWriter.h"
#include "model/Json.h"
#include "support/TempDir.h"

#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <ostream>
#include <set>

using namespace velum;
using namespace velum::FCPXMLValidation;

// Readable failures: texts print as text.
static void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

// --- The DTD lookup ------------------------------------------------------------

// Points VELUM_FCPXML_DTD at a file for the life of the object, and puts the
// previous value back afterwards.
class DTDOverride {
public:
    explicit DTDOverride(const QString &path)
        : m_had(qEnvironmentVariableIsSet(dtdEnvironmentVariable)), m_previous(qgetenv(dtdEnvironmentVariable))
    {
        qputenv(dtdEnvironmentVariable, QFile::encodeName(path));
    }
    ~DTDOverride()
    {
        if (m_had)
            qputenv(dtdEnvironmentVariable, m_previous);
        else
            qunsetenv(dtdEnvironmentVariable);
    }
    DTDOverride(const DTDOverride &) = delete;
    DTDOverride &operator=(const DTDOverride &) = delete;

private:
    bool m_had;
    QByteArray m_previous;
};

// A DTD that accepts exactly the element and attribute names a text uses,
// each element with any content: enough for xmllint to validate the file.
QByteArray permissiveDTD(const QString &xml)
{
    QDomDocument document;
    EXPECT_TRUE(document.setContent(xml));
    std::map<QString, std::set<QString>> attributes;
    for (const auto &element : flatten(document.documentElement())) {
        auto &names = attributes[element.tagName()];
        const QDomNamedNodeMap map = element.attributes();
        for (int i = 0; i < map.count(); ++i)
            names.insert(map.item(i).nodeName());
    }
    QString dtd;
    for (const auto &[element, names] : attributes) {
        dtd += QStringLiteral("<!ELEMENT %1 ANY>\n").arg(element);
        if (names.empty())
            continue;
        dtd += QStringLiteral("<!ATTLIST %1").arg(element);
        for (const auto &name : names)
            dtd += QStringLiteral("\n    %1 CDATA #IMPLIED").arg(name);
        dtd += QStringLiteral(">\n");
    }
    return dtd.toUtf8();
}

// --- A project on disk and its plan ----------------------------------------------

ClipMedia cameraMedia(const QString &clipId, double durationS, double fps, int width, int height)
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

ExportPlan::Segment kept(double start, double end)
{
    return ExportPlan::Segment{start, end, 0, std::nullopt};
}

ExportPlan::Segment removed(double start, double end, CutReason reason)
{
    return ExportPlan::Segment{start, end, 0, reason};
}

// Two camera files and a microphone recording in a temporary folder:
//  - "a take.mov", 6 s at 25 fps 1920×1080, synced to the microphone at
//    1.5 s: kept 0–1 s, a filler 1–1.32 s, kept 1.32–4 s, a removed tail;
//  - "b take.mov", 3 s at 24 fps 1080×1920 with a timecode of one hour: kept
//    0–2 s, a silence 2–2.5 s, kept 2.5–3 s;
//  - "mic.wav", 20 s, timecoded at one hour.
// The files are small placeholders: the checks look at where media is, not
// at what it holds.
struct Project {
    test::TempDir dir;
    ExportPlan plan;

    QString mediaPath(const QString &name) const { return dir.file(QStringLiteral("media/") + name); }

    Project()
    {
        for (const QString name : {"a take.mov", "b take.mov", "mic.wav"})
            test::writeBytes(mediaPath(name), QByteArray("placeholder"));

        ExportPlan::Clip a;
        a.clipId = QStringLiteral("a");
        a.filename = QStringLiteral("a take.mov");
        a.url = QUrl::fromLocalFile(mediaPath(a.filename));
        a.media = cameraMedia(a.clipId, 6, 25, 1920, 1080);
        a.externalOffsetS = 1.5;
        a.segments = {kept(0, 1), removed(1, 1.32, CutReason::filler), kept(1.32, 4), removed(4, 6, CutReason::manual)};

        ExportPlan::Clip b;
        b.clipId = QStringLiteral("b");
        b.filename = QStringLiteral("b take.mov");
        b.url = QUrl::fromLocalFile(mediaPath(b.filename));
        b.media = cameraMedia(b.clipId, 3, 24, 1080, 1920);
        b.media.startTimecode = MediaTimecode{86400000, 24000, MediaTimecode::Source::timecodeTrack, "01:00:00:00"};
        b.segments = {kept(0, 2), removed(2, 2.5, CutReason::silence), kept(2.5, 3)};

        ExportPlan::ExternalAudio mic;
        mic.clipId = QStringLiteral("mic");
        mic.filename = QStringLiteral("mic.wav");
        mic.url = QUrl::fromLocalFile(mediaPath(mic.filename));
        mic.durationS = 20;
        mic.sampleRate = 48000;
        mic.channels = 1;
        mic.startTimecode = MediaTimecode{172800000, 48000, MediaTimecode::Source::bwfTimeReference, "01:00:00.000"};

        plan.projectName = QStringLiteral("Launch & <video>");
        plan.clips = {a, b};
        plan.externalAudio = mic;
        ExportPlanner::assignTimeline(plan);
    }

    QString text(const ExportPlan &p) const { return FCPXMLWriter::document(p).text(); }
    QString text() const { return text(plan); }
};

// Tests run without the editor's DTD unless they supply one.
class FCPXMLValidationTest : public ::testing::Test {
protected:
    Project project;
    DTDOverride noDTD{project.dir.file(QStringLiteral("no such.dtd"))};
};

const Check &check(const Report &report, const QString &name)
{
    for (const auto &c : report.checks) {
        if (c.name == name)
            return c;
    }
    throw std::runtime_error("no check named " + name.toStdString());
}

QStringList failing(const Report &report)
{
    QStringList names;
    for (const auto &c : report.checks) {
        if (!c.passed)
            names.push_back(c.name);
    }
    return names;
}

// The text after an edit of its tree.
QString damaged(const QString &xml, const std::function<void(QDomDocument &)> &edit)
{
    QDomDocument document;
    EXPECT_TRUE(document.setContent(xml));
    edit(document);
    return document.toString(4);
}

std::vector<QDomElement> named(const QDomDocument &document, const QString &name)
{
    std::vector<QDomElement> out;
    for (const auto &element : flatten(document.documentElement())) {
        if (element.tagName() == name)
            out.push_back(element);
    }
    return out;
}

// The storyline's clips, and the disabled clips hung on them.
std::vector<QDomElement> spineClips(const QDomDocument &document)
{
    std::vector<QDomElement> out;
    const QDomElement spine = named(document, QStringLiteral("spine")).front();
    for (QDomElement c = spine.firstChildElement(); !c.isNull(); c = c.nextSiblingElement())
        out.push_back(c);
    return out;
}

std::vector<QDomElement> rideAlongs(const QDomDocument &document)
{
    std::vector<QDomElement> out;
    for (const auto &element : named(document, QStringLiteral("asset-clip"))) {
        if (element.attribute(QStringLiteral("enabled")) == QLatin1String("0"))
            out.push_back(element);
    }
    return out;
}

double seconds(const QString &attribute)
{
    const auto t = FCPXMLTime::parse(attribute);
    EXPECT_TRUE(t.has_value()) << attribute.toStdString();
    return t ? static_cast<double>(t->value) / static_cast<double>(t->timescale) : 0;
}

// --- A correct file ---------------------------------------------------------------

TEST_F(FCPXMLValidationTest, CorrectFilePassesEveryCheckInOrder)
{
    const Report report = validate(project.text(), project.plan);

    const QStringList expectedOrder{wellFormedName,     referencesResolveName, resourcesReferencedName,
                                    referenceKindsName, sequenceFormatName,    assetsRelinkName,
                                    mediaDemandName,    rangesInBoundsName,    assetTimecodeName,
                                    timeFormatName,     frameAlignedName,      keptClipsOnlyName,
                                    contiguousName,     keptDurationName,      rideAlongLanesName,
                                    rideAlongCountName, rideAlongDurationName, segmentCountName,
                                    sequenceDurationName, ghostAudioName,      dtdName};
    QStringList order;
    for (const auto &c : report.checks)
        order.push_back(c.name);
    EXPECT_EQ(order, expectedOrder);
    EXPECT_EQ(failing(report), QStringList());
    EXPECT_TRUE(report.isValid());

    // Without the editor's DTD the structural checks are all there is.
    EXPECT_FALSE(report.dtdValidated);
    EXPECT_EQ(check(report, dtdName).detail, dtdUnavailableDetail);
    EXPECT_EQ(check(report, wellFormedName).detail, std::nullopt);

    // What the details count, against the plan: three clips on the storyline
    // from two files, three removed pieces on lanes.
    const ExportPlan &plan = project.plan;
    EXPECT_EQ(check(report, keptClipsOnlyName).detail, "4 kept clip(s)");
    EXPECT_EQ(check(report, contiguousName).detail, "4 clip(s), no holes");
    EXPECT_EQ(check(report, rideAlongCountName).detail,
              QStringLiteral("xml %1 vs plan %1").arg(plan.disabledCount()));
    EXPECT_EQ(check(report, segmentCountName).detail, QStringLiteral("xml 4 + 3 vs plan %1").arg(plan.segmentCount()));
    EXPECT_EQ(check(report, assetsRelinkName).detail, "3 asset(s)");
    EXPECT_EQ(check(report, assetTimecodeName).detail, "3 asset(s), 2 timecoded");
    EXPECT_EQ(check(report, keptDurationName).detail,
              QString::asprintf("xml %.3fs vs plan %.3fs", plan.keptDuration(), plan.keptDuration()));
    EXPECT_TRUE(check(report, rideAlongLanesName).detail->startsWith("3 ride-along(s) on lane(s) 1"));
    EXPECT_TRUE(check(report, sequenceFormatName).detail->endsWith(" = FFVideoFormat1080p25"));
}

TEST_F(FCPXMLValidationTest, KeptOnlyPlanExpectsNoRideAlongs)
{
    const ExportPlan keptOnly = project.plan.keptOnly();
    const Report report = validate(project.text(keptOnly), keptOnly);
    EXPECT_EQ(failing(report), QStringList());
    EXPECT_EQ(check(report, rideAlongLanesName).detail, "0 ride-along(s) on lane(s) ");
    EXPECT_EQ(check(report, rideAlongCountName).detail, "xml 0 vs plan 0");
    EXPECT_EQ(check(report, rideAlongDurationName).detail, "xml 0.000s vs plan 0.000s");
}

TEST_F(FCPXMLValidationTest, ThePlanItCameFromMatters)
{
    // The same file against a plan with one cut more: the counts no longer
    // agree, and the storyline now plays what that plan removed.
    ExportPlan other = project.plan;
    other.clips[1].segments = {kept(0, 1), removed(1, 2, CutReason::manual), removed(2, 2.5, CutReason::silence),
                               kept(2.5, 3)};
    ExportPlanner::assignTimeline(other);
    const Report report = validate(project.text(), other);
    EXPECT_FALSE(report.isValid());
    for (const QString &name : {keptDurationName, rideAlongCountName, rideAlongDurationName, segmentCountName,
                                sequenceDurationName, ghostAudioName})
        EXPECT_FALSE(check(report, name).passed) << name.toStdString();
    EXPECT_EQ(check(report, rideAlongCountName).detail, "xml 3 vs plan 4");
    EXPECT_TRUE(check(report, ghostAudioName).detail->startsWith("1 leak(s): b take.mov plays 3600.000–3602.000s"));
}

// --- Parsing ---------------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, TextThatDoesNotParseStopsAtTheFirstCheck)
{
    for (const QString &text : {QString(), QStringLiteral("<fcpxml version=\"1.13\"><resources></fcpxml>"),
                                QStringLiteral("not xml at all")}) {
        const Report report = validate(text, project.plan);
        ASSERT_EQ(report.checks.size(), 1u) << text.toStdString();
        EXPECT_EQ(report.checks[0].name, wellFormedName);
        EXPECT_FALSE(report.checks[0].passed);
        EXPECT_TRUE(report.checks[0].detail.has_value() && !report.checks[0].detail->isEmpty());
        EXPECT_FALSE(report.dtdValidated);
        EXPECT_FALSE(report.isValid());
    }
}

// --- Each fault, caught -------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, CatchesReferenceFaults)
{
    // A format that nothing uses.
    const QString orphan = damaged(project.text(), [](QDomDocument &d) {
        QDomElement format = d.createElement(QStringLiteral("format"));
        format.setAttribute(QStringLiteral("id"), QStringLiteral("r99"));
        format.setAttribute(QStringLiteral("name"), QStringLiteral("FFVideoFormat720p25"));
        format.setAttribute(QStringLiteral("frameDuration"), QStringLiteral("100/2500s"));
        named(d, QStringLiteral("resources")).front().appendChild(format);
    });
    Report report = validate(orphan, project.plan);
    EXPECT_EQ(failing(report), QStringList{resourcesReferencedName});
    EXPECT_EQ(check(report, resourcesReferencedName).detail, "orphaned: r99");

    // A ride-along that names an asset that is not there.
    const QString unresolved = damaged(project.text(), [](QDomDocument &d) {
        rideAlongs(d).front().setAttribute(QStringLiteral("ref"), QStringLiteral("r42"));
    });
    report = validate(unresolved, project.plan);
    EXPECT_FALSE(check(report, referencesResolveName).passed);
    EXPECT_EQ(check(report, referencesResolveName).detail, "unresolved: r42");
    EXPECT_EQ(check(report, referenceKindsName).detail, "asset-clip@ref=r42 → <missing>");

    // A clip whose reference names a format instead of an asset.
    const QString wrongKind = damaged(project.text(), [](QDomDocument &d) {
        rideAlongs(d).back().setAttribute(QStringLiteral("format"), QStringLiteral("r4"));
    });
    report = validate(wrongKind, project.plan);
    EXPECT_EQ(failing(report), QStringList{referenceKindsName});
    EXPECT_EQ(check(report, referenceKindsName).detail, "asset-clip@format=r4 → <asset>");
}

TEST_F(FCPXMLValidationTest, CatchesSequenceFormatFaults)
{
    Report report = validate(damaged(project.text(),
                                     [](QDomDocument &d) {
                                         named(d, QStringLiteral("format")).front().removeAttribute(
                                             QStringLiteral("height"));
                                     }),
                             project.plan);
    EXPECT_EQ(failing(report), QStringList{sequenceFormatName});
    EXPECT_EQ(check(report, sequenceFormatName).detail, "format r1 is missing height");

    report = validate(damaged(project.text(),
                              [](QDomDocument &d) {
                                  named(d, QStringLiteral("sequence")).front().setAttribute(QStringLiteral("format"),
                                                                                            QStringLiteral("r2"));
                              }),
                      project.plan);
    EXPECT_EQ(check(report, sequenceFormatName).detail, "r2 is <asset>, not a <format>");

    const QString noSequence = damaged(project.text(), [](QDomDocument &d) {
        QDomElement sequence = named(d, QStringLiteral("sequence")).front();
        sequence.setTagName(QStringLiteral("sequence-was-here"));
    });
    report = validate(noSequence, project.plan);
    EXPECT_EQ(check(report, sequenceFormatName).detail, "no sequence");
}

TEST_F(FCPXMLValidationTest, CatchesMediaMovedAfterWriting)
{
    const QString xml = project.text();
    ASSERT_TRUE(QFile::rename(project.mediaPath("a take.mov"), project.dir.file("elsewhere.mov")));
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{assetsRelinkName});
    EXPECT_EQ(check(report, assetsRelinkName).detail,
              "a take.mov: media missing at " + project.mediaPath("a take.mov"));
}

TEST_F(FCPXMLValidationTest, CatchesMediaReferencesThatCannotRelink)
{
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        auto reps = named(d, QStringLiteral("media-rep"));
        reps[0].setAttribute(QStringLiteral("src"), QStringLiteral("https://example.com/a.mov"));
        reps[1].setAttribute(QStringLiteral("kind"), QStringLiteral("proxy-media"));
        reps[2].removeAttribute(QStringLiteral("src"));
    });
    const Check relink = check(validate(xml, project.plan), assetsRelinkName);
    EXPECT_FALSE(relink.passed);
    EXPECT_EQ(relink.detail, "a take.mov: src is not an absolute file:// URL — https://example.com/a.mov, "
                             "b take.mov: no original-media rep, mic.wav: src missing or unparseable");
}

TEST_F(FCPXMLValidationTest, CatchesClipsAskingForMediaTheirAssetLacks)
{
    // The microphone's clip under the camera names the camera's video
    // format, and a camera file turns out to have no sound.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        for (auto &clip : named(d, QStringLiteral("asset-clip"))) {
            if (clip.attribute(QStringLiteral("lane")) == QLatin1String("-1")) {
                clip.setAttribute(QStringLiteral("format"), QStringLiteral("r1"));
                clip.setAttribute(QStringLiteral("srcEnable"), QStringLiteral("audio"));
                break;
            }
        }
        for (auto &asset : named(d, QStringLiteral("asset"))) {
            if (asset.attribute(QStringLiteral("name")) == QLatin1String("mic.wav"))
                asset.removeAttribute(QStringLiteral("hasAudio"));
        }
    });
    const Check demand = check(validate(xml, project.plan), mediaDemandName);
    EXPECT_FALSE(demand.passed);
    EXPECT_EQ(demand.detail, "<asset-clip> mic.wav needs audio, mic.wav has none, "
                             "<asset-clip> mic.wav is audio-only but inherits or names a video format (r1) — it needs "
                             "its own FFVideoFormatRateUndefined format");
}

TEST_F(FCPXMLValidationTest, CatchesRangesOutsideTheirAssetOrHost)
{
    // The last clip reads a second past the end of its file, and the
    // microphone under the first clip runs past the end of its host.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        QDomElement last = spineClips(d).back();
        last.setAttribute(QStringLiteral("duration"), QStringLiteral("36/24s"));
        for (auto &clip : named(d, QStringLiteral("asset-clip"))) {
            if (clip.attribute(QStringLiteral("lane")) == QLatin1String("-1")) {
                clip.setAttribute(QStringLiteral("duration"), QStringLiteral("2s"));
                break;
            }
        }
    });
    const Check ranges = check(validate(xml, project.plan), rangesInBoundsName);
    EXPECT_FALSE(ranges.passed);
    EXPECT_TRUE(ranges.detail->contains("anchored mic.wav sits 0.000–2.000s in a parent local timeline of "
                                        "0.000–1.000s"))
        << ranges.detail->toStdString();
    EXPECT_TRUE(ranges.detail->contains("b take.mov reads 3602.500–3604.000s of an asset that holds "
                                        "3600.000–3603.000s"))
        << ranges.detail->toStdString();
}

TEST_F(FCPXMLValidationTest, CatchesAnAssetStartThatIsNotItsTimecode)
{
    ExportPlan withoutTimecode = project.plan;
    withoutTimecode.clips[1].media.startTimecode.reset();
    // The file was written for media with a timecode; the plan says none.
    const Check timecode = check(validate(project.text(), withoutTimecode), assetTimecodeName);
    EXPECT_FALSE(timecode.passed);
    EXPECT_EQ(timecode.detail, "b take.mov declares start 3600.000s but its media timecode is 0.000s (00:00:00.000) — "
                               "every reference into it points at time the file does not contain");
}

TEST_F(FCPXMLValidationTest, CatchesTimesThatAreNotRationalSeconds)
{
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d)[1].setAttribute(QStringLiteral("duration"), QStringLiteral("2.68s"));
        named(d, QStringLiteral("sequence")).front().setAttribute(QStringLiteral("tcStart"), QStringLiteral("0/0s"));
    });
    const Report report = validate(xml, project.plan);
    const Check times = check(report, timeFormatName);
    EXPECT_FALSE(times.passed);
    EXPECT_EQ(times.detail, "?@tcStart=0/0s, a take.mov@duration=2.68s");
}

TEST_F(FCPXMLValidationTest, CatchesAnOffsetOffTheFrameGrid)
{
    // A millisecond late: off the 25 fps grid, but within half a frame of
    // where the clip belongs, so only the grid check notices.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        QDomElement second = spineClips(d)[1];
        const double offset = seconds(second.attribute(QStringLiteral("offset")));
        second.setAttribute(QStringLiteral("offset"),
                            QStringLiteral("%1/1000s").arg(static_cast<qint64>(std::llround(offset * 1000)) + 1));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{frameAlignedName});
    EXPECT_EQ(check(report, frameAlignedName).detail, "a take.mov@offset=1001/1000s");
}

TEST_F(FCPXMLValidationTest, StartIsJudgedOnTheClipsOwnGrid)
{
    // The 24 fps clip's offset sits on the 25 fps sequence grid, which is
    // all an offset needs; a start one 25 fps frame in is off its own grid.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d)[2].setAttribute(QStringLiteral("start"), QStringLiteral("86400960/24000s"));
    });
    const Check grid = check(validate(xml, project.plan), frameAlignedName);
    EXPECT_FALSE(grid.passed);
    EXPECT_EQ(grid.detail, "b take.mov@start=86400960/24000s");

    // Exact arithmetic: 3600 s and 1001/24000 s frames need no tolerance.
    const QString exact = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d)[2].setAttribute(QStringLiteral("start"), QStringLiteral("3600s"));
    });
    EXPECT_TRUE(check(validate(exact, project.plan), frameAlignedName).passed);
}

TEST_F(FCPXMLValidationTest, CatchesAHoleInTheSpine)
{
    // The third clip starts two frames after the second ends, and so ends
    // two frames after the fourth starts.
    double third = 0;
    double fourth = 0;
    const QString xml = damaged(project.text(), [&](QDomDocument &d) {
        auto clips = spineClips(d);
        third = seconds(clips[2].attribute(QStringLiteral("offset")));
        fourth = seconds(clips[3].attribute(QStringLiteral("offset")));
        clips[2].setAttribute(QStringLiteral("offset"),
                              QStringLiteral("%1/25s").arg(static_cast<qint64>(std::llround(third * 25)) + 2));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{contiguousName});
    EXPECT_EQ(check(report, contiguousName).detail,
              QString::asprintf("b take.mov starts at %.3fs, the clip before it ends at %.3fs; "
                                "b take.mov starts at %.3fs, the clip before it ends at %.3fs",
                                third + 0.08, third, fourth, fourth + 0.08));

    // Half a frame off is still contiguous; a little more is not.
    for (const auto &[shift, passes] : {std::pair{QStringLiteral("1/50s"), true}, std::pair{QStringLiteral("3/100s"), false}}) {
        const QString nudged = damaged(project.text(), [&](QDomDocument &d) {
            QDomElement clip = spineClips(d)[3];
            const auto offset = FCPXMLTime::parse(clip.attribute(QStringLiteral("offset")));
            clip.setAttribute(QStringLiteral("offset"), (*offset + *FCPXMLTime::parse(shift)).attribute());
        });
        EXPECT_EQ(check(validate(nudged, project.plan), contiguousName).passed, passes) << shift.toStdString();
    }
}

TEST_F(FCPXMLValidationTest, CatchesADisabledClipInTheStoryline)
{
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d)[1].setAttribute(QStringLiteral("enabled"), QStringLiteral("0"));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{keptClipsOnlyName});
    EXPECT_EQ(check(report, keptClipsOnlyName).detail, "1 disabled clip(s) in the storyline: a take.mov");
}

TEST_F(FCPXMLValidationTest, CatchesAudioThatPlaysARemovedRange)
{
    // The last clip of "b" is made to start half a second earlier, in the
    // silence that was cut.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d).back().setAttribute(QStringLiteral("start"), QStringLiteral("86448000/24000s"));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{ghostAudioName});
    EXPECT_EQ(check(report, ghostAudioName).detail,
              "1 leak(s): b take.mov plays 3602.000–3602.500s, which was removed (3602.000–3602.500s, 500 ms of it)");
}

TEST_F(FCPXMLValidationTest, CatchesAnEnabledRideAlongAndTheSyncedSoundOfACut)
{
    // Switching a removed piece back on without moving it into the
    // storyline plays cut audio; so does the microphone reading the filler.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        for (auto &ride : rideAlongs(d)) {
            if (ride.attribute(QStringLiteral("name")).endsWith(QLatin1String("silence")))
                ride.removeAttribute(QStringLiteral("enabled"));
        }
        for (auto &clip : named(d, QStringLiteral("asset-clip"))) {
            if (clip.attribute(QStringLiteral("lane")) == QLatin1String("-1")) {
                // One second later: the microphone's time of the filler.
                clip.setAttribute(QStringLiteral("start"), QStringLiteral("36025/10s"));
                break;
            }
        }
    });
    const Check ghost = check(validate(xml, project.plan), ghostAudioName);
    EXPECT_FALSE(ghost.passed);
    EXPECT_TRUE(ghost.detail->startsWith("2 leak(s): mic.wav plays 3602.500–3603.500s, which was removed "
                                         "(3602.500–3602.820s, 320 ms of it), "))
        << ghost.detail->toStdString();
    EXPECT_TRUE(ghost.detail->contains("b take.mov — removed: silence plays 3602.000–3602.500s")) << ghost.detail->toStdString();
}

TEST_F(FCPXMLValidationTest, CatchesARideAlongWithoutALane)
{
    QString label;
    const QString xml = damaged(project.text(), [&](QDomDocument &d) {
        QDomElement ride = rideAlongs(d).front();
        label = ride.attribute(QStringLiteral("name"));
        ride.removeAttribute(QStringLiteral("lane"));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{rideAlongLanesName});
    EXPECT_EQ(check(report, rideAlongLanesName).detail, label + " is disabled on lane 0");

    const QString below = damaged(project.text(), [](QDomDocument &d) {
        rideAlongs(d).back().setAttribute(QStringLiteral("lane"), QStringLiteral("-2"));
    });
    EXPECT_TRUE(check(validate(below, project.plan), rideAlongLanesName).detail->endsWith(" is disabled on lane -2"));
}

TEST_F(FCPXMLValidationTest, CatchesASequenceLongerThanTheCut)
{
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        named(d, QStringLiteral("sequence")).front().setAttribute(QStringLiteral("duration"), QStringLiteral("9s"));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{sequenceDurationName});
    const ExportPlan &plan = project.plan;
    EXPECT_EQ(check(report, sequenceDurationName).detail,
              QString::asprintf("sequence 9.000s, spine %.3fs, plan kept %.3fs (raw material %.3fs)",
                                plan.keptDuration(), plan.keptDuration(), plan.sourceDuration()));
}

// --- The pieces on their own ---------------------------------------------------------------

QDomElement element(QDomDocument &document, const QString &xml)
{
    EXPECT_TRUE(document.setContent(xml)) << xml.toStdString();
    return document.documentElement();
}

TEST(FCPXMLValidationPieces, MediaDemandOfEachKindOfElement)
{
    QDomDocument d;
    EXPECT_EQ(mediaDemand(element(d, "<audio/>")), (MediaDemand{false, true}));
    EXPECT_EQ(mediaDemand(element(d, "<video srcEnable='audio'/>")), (MediaDemand{true, false}));
    EXPECT_EQ(mediaDemand(element(d, "<asset-clip srcEnable='audio'/>")), (MediaDemand{false, true}));
    EXPECT_EQ(mediaDemand(element(d, "<asset-clip srcEnable='video'/>")), (MediaDemand{true, false}));
    EXPECT_EQ(mediaDemand(element(d, "<asset-clip srcEnable='all'/>")), (MediaDemand{false, false}));
    EXPECT_EQ(mediaDemand(element(d, "<asset-clip/>")), (MediaDemand{false, false}));
    EXPECT_EQ(mediaDemand(element(d, "<asset-clip><audio-channel-source enabled='0'/></asset-clip>")),
              (MediaDemand{true, false}));
    EXPECT_EQ(mediaDemand(element(d, "<clip/>")), std::nullopt);
    EXPECT_EQ(mediaDemand(element(d, "<gap/>")), std::nullopt);
}

TEST(FCPXMLValidationPieces, ChannelSourcesMutedNeedsEveryOneOff)
{
    QDomDocument d;
    EXPECT_FALSE(channelSourcesMuted(element(d, "<asset-clip/>")));
    EXPECT_TRUE(channelSourcesMuted(element(d, "<asset-clip><audio-channel-source active='0'/></asset-clip>")));
    EXPECT_TRUE(channelSourcesMuted(
        element(d, "<asset-clip><audio-channel-source enabled='0'/><audio-channel-source active='0' enabled='1'/>"
                   "</asset-clip>")));
    EXPECT_FALSE(channelSourcesMuted(
        element(d, "<asset-clip><audio-channel-source enabled='0'/><audio-channel-source enabled='1'/></asset-clip>")));
    EXPECT_FALSE(channelSourcesMuted(element(d, "<asset-clip><audio-channel-source/></asset-clip>")));
}

TEST(FCPXMLValidationPieces, FlattenIsDocumentOrderParentsFirst)
{
    QDomDocument d;
    const auto all = flatten(element(d, "<a><b><c/><d/></b>text<e><f/></e></a>"));
    QStringList names;
    for (const auto &e : all)
        names.push_back(e.tagName());
    EXPECT_EQ(names, (QStringList{"a", "b", "c", "d", "e", "f"}));
    EXPECT_TRUE(flatten(QDomElement()).empty());
}

// A hand-made document: one asset over a file with a removed range, and an
// audio element reading a second of it from 0.
struct GhostCase {
    test::TempDir dir;
    ExportPlan plan;
    QDomDocument document;

    GhostCase(double removedEnd, const QString &body)
    {
        const QString path = dir.file(QStringLiteral("voice.wav"));
        ExportPlan::Clip clip;
        clip.clipId = QStringLiteral("v");
        clip.url = QUrl::fromLocalFile(path);
        clip.media.durationS = 5;
        clip.segments = {removed(0, removedEnd, CutReason::noise), kept(removedEnd, 5)};
        plan.clips = {clip};
        const QString src = QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
        EXPECT_TRUE(document.setContent(QStringLiteral("<fcpxml><resources><asset id='r1' hasAudio='1'>"
                                                       "<media-rep kind='original-media' src='%1'/></asset>"
                                                       "</resources>%2</fcpxml>")
                                            .arg(src, body)));
    }

    Check run() const { return ghostAudioCheck(flatten(document.documentElement()), plan); }
};

TEST(FCPXMLValidationPieces, GhostAudioToleratesTenMilliseconds)
{
    const QString body = QStringLiteral("<audio ref='r1' name='voice' start='0s' duration='1s'/>");
    const Check exact = GhostCase(0.01, body).run();
    EXPECT_TRUE(exact.passed);
    EXPECT_EQ(exact.detail, "1 audible element(s) checked");

    const Check leak = GhostCase(0.02, body).run();
    EXPECT_FALSE(leak.passed);
    EXPECT_EQ(leak.detail, "1 leak(s): voice plays 0.000–1.000s, which was removed (0.000–0.020s, 20 ms of it)");
}

TEST(FCPXMLValidationPieces, GhostAudioFollowsEnabledStateUpToTheLane)
{
    // A connected clip keeps its own state whatever its host's: under a
    // disabled host it still plays, and a disabled one never plays.
    const QString hostOff = QStringLiteral("<spine><clip enabled='0'><asset-clip ref='r1' lane='1' name='above' "
                                           "start='0s' duration='1s'/><audio ref='r1' name='inside' start='0s' "
                                           "duration='1s'/></clip></spine>");
    const Check a = GhostCase(0.5, hostOff).run();
    EXPECT_EQ(a.detail, "1 leak(s): above plays 0.000–1.000s, which was removed (0.000–0.500s, 500 ms of it)");

    const QString rideOff = QStringLiteral("<spine><clip><asset-clip ref='r1' lane='1' enabled='0' start='0s' "
                                           "duration='1s'/></clip></spine>");
    EXPECT_EQ(GhostCase(0.5, rideOff).run().detail, "0 audible element(s) checked");

    // Muted channels and a video-only asset are silent.
    const QString muted = QStringLiteral("<asset-clip ref='r1' start='0s' duration='1s'><audio-channel-source "
                                         "srcCh='1, 2' enabled='0' active='0'/></asset-clip>");
    EXPECT_EQ(GhostCase(0.5, muted).run().detail, "0 audible element(s) checked");
}

// --- The DTD check -------------------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, ValidatesAgainstTheDTDWhenThereIsOne)
{
    const QString xml = project.text();
    // A folder name with a blank, as the editor's own is.
    const QString dtdPath = project.dir.file(QStringLiteral("dtd folder/FCPXMLv1_13.dtd"));
    test::writeBytes(dtdPath, permissiveDTD(xml));
    DTDOverride dtd(dtdPath);

    ASSERT_EQ(dtdURL(QStringLiteral("1.13")), QUrl::fromLocalFile(dtdPath));
    const Report report = validate(xml, project.plan);
    EXPECT_TRUE(report.isValid());
    EXPECT_TRUE(report.dtdValidated);
    EXPECT_EQ(check(report, dtdName).detail, "validated against FCPXMLv1_13.dtd");

    // A DTD that does not know the ride-alongs' markers rejects the file,
    // and says where.
    test::writeBytes(dtdPath, permissiveDTD(xml).replace("<!ELEMENT marker ANY>\n", ""));
    const Report rejected = validate(xml, project.plan);
    const Check failed = check(rejected, dtdName);
    EXPECT_FALSE(failed.passed);
    EXPECT_FALSE(rejected.dtdValidated);
    EXPECT_FALSE(rejected.isValid());
    EXPECT_TRUE(failed.detail->contains("marker")) << failed.detail->toStdString();
    EXPECT_LE(failed.detail->size(), 400);

    // The temporary copy xmllint reads is gone afterwards, whatever the
    // outcome.
    test::TempDir temporary;
    const bool hadTemp = qEnvironmentVariableIsSet("TMPDIR");
    const QByteArray savedTemp = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(temporary.path()));
    validate(xml, project.plan);
    test::writeBytes(dtdPath, permissiveDTD(xml));
    validate(xml, project.plan);
    if (hadTemp)
        qputenv("TMPDIR", savedTemp);
    else
        qunsetenv("TMPDIR");
    EXPECT_EQ(QDir(temporary.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
}

TEST_F(FCPXMLValidationTest, DTDLookupSkipsAMissingOverride)
{
    // The override names nothing; on this system the editor is not
    // installed either, so the check is skipped.
    if (QFileInfo::exists(bundledDTDPath(QStringLiteral("1.13"))))
        GTEST_SKIP() << "the editor's DTD is installed here";
    EXPECT_EQ(dtdURL(QStringLiteral("1.13")), std::nullopt);
    EXPECT_EQ(bundledDTDPath(QStringLiteral("1.13")),
              "/Applications/Final Cut Pro.app/Contents/Frameworks/Interchange.framework/Versions/A/Resources/"
              "FCPXMLv1_13.dtd");
    const Check skipped = dtdCheck(project.text());
    EXPECT_TRUE(skipped.passed);
    EXPECT_EQ(skipped.detail, dtdUnavailableDetail);
}

// --- Writing and checking together ------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, WriteCreatesTheFolderWritesAndValidates)
{
    const QString path = project.dir.file(QStringLiteral("exports/nested/output.fcpxml"));
    const auto result = ProcessPipeline::write(project.plan, QUrl::fromLocalFile(path));
    EXPECT_EQ(result.url, QUrl::fromLocalFile(path));
    EXPECT_EQ(result.plan, project.plan);
    EXPECT_TRUE(result.report.isValid()) << failing(result.report).join(", ").toStdString();
    EXPECT_EQ(test::readBytes(path), FCPXMLWriter::document(project.plan).data());

    // A second export overwrites the first; an invalid one stays on disk.
    ASSERT_TRUE(QFile::remove(project.mediaPath("mic.wav")));
    const auto again = ProcessPipeline::write(project.plan.keptOnly(), QUrl::fromLocalFile(path));
    EXPECT_EQ(failing(again.report), QStringList{assetsRelinkName});
    EXPECT_EQ(test::readBytes(path), FCPXMLWriter::document(project.plan.keptOnly()).data());
}

TEST_F(FCPXMLValidationTest, WriteRaisesForPlacesItCannotWrite)
{
    test::writeBytes(project.dir.file(QStringLiteral("a file")), "x");
    EXPECT_THROW(ProcessPipeline::write(project.plan,
                                        QUrl::fromLocalFile(project.dir.file(QStringLiteral("a file/out.fcpxml")))),
                 FileWriteError);
    EXPECT_THROW(ProcessPipeline::write(project.plan, QUrl(QStringLiteral("https://example.com/out.fcpxml"))),
                 FileWriteError);
}

} // namespace
