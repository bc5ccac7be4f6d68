// The self-check of written timelines: a correct file passes every check, and
// each fault the checks name is caught when a correct file is damaged on
// purpose. Files are real, in temporary folders; the DTD check runs the real
// xmllint against DTDs the tests write themselves.

#include "export/ExportPlanner.h"
#include "export/FCPXMLExport.h"
#include "export/FCPXMLValidation.h"
#include "export/FCPXMLWriter.h"
#include "model/Json.h"
#include "support/SmallProject.h"
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
using namespace Qt::StringLiterals;

// Readable failures: texts print as text.
static void PrintTo(const QString &text, std::ostream *os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace {

// --- The DTD lookup ------------------------------------------------------------

using velum::test::PathOverride;

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
        dtd += u"<!ELEMENT %1 ANY>\n"_s.arg(element);
        if (names.empty())
            continue;
        dtd += u"<!ATTLIST %1"_s.arg(element);
        for (const auto &name : names)
            dtd += u"\n    %1 CDATA #IMPLIED"_s.arg(name);
        dtd += u">\n"_s;
    }
    return dtd.toUtf8();
}

// --- A project on disk and its plan ----------------------------------------------

using velum::test::cameraMedia;

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

    QString mediaPath(const QString &name) const { return dir.file(u"media/"_s + name); }

    Project()
    {
        for (const QString name : {"a take.mov", "b take.mov", "mic.wav"})
            test::writeBytes(mediaPath(name), QByteArray("placeholder"));

        ExportPlan::Clip a;
        a.clipId = u"a"_s;
        a.filename = u"a take.mov"_s;
        a.url = QUrl::fromLocalFile(mediaPath(a.filename));
        a.media = cameraMedia(a.clipId, 6, 25, 1920, 1080);
        a.externalOffsetS = 1.5;
        a.segments = {kept(0, 1), removed(1, 1.32, CutReason::filler), kept(1.32, 4), removed(4, 6, CutReason::manual)};

        ExportPlan::Clip b;
        b.clipId = u"b"_s;
        b.filename = u"b take.mov"_s;
        b.url = QUrl::fromLocalFile(mediaPath(b.filename));
        b.media = cameraMedia(b.clipId, 3, 24, 1080, 1920);
        b.media.startTimecode = MediaTimecode{86400000, 24000, MediaTimecode::Source::timecodeTrack, "01:00:00:00"};
        b.segments = {kept(0, 2), removed(2, 2.5, CutReason::silence), kept(2.5, 3)};

        ExportPlan::ExternalAudio mic;
        mic.clipId = u"mic"_s;
        mic.filename = u"mic.wav"_s;
        mic.url = QUrl::fromLocalFile(mediaPath(mic.filename));
        mic.durationS = 20;
        mic.sampleRate = 48000;
        mic.channels = 1;
        mic.startTimecode = MediaTimecode{172800000, 48000, MediaTimecode::Source::bwfTimeReference, "01:00:00.000"};

        plan.projectName = u"Launch & <video>"_s;
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
    PathOverride noDTD{dtdEnvironmentVariable, project.dir.file(u"no such.dtd"_s)};
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
    const QDomElement spine = named(document, u"spine"_s).front();
    for (QDomElement c = spine.firstChildElement(); !c.isNull(); c = c.nextSiblingElement())
        out.push_back(c);
    return out;
}

std::vector<QDomElement> rideAlongs(const QDomDocument &document)
{
    std::vector<QDomElement> out;
    for (const auto &element : named(document, u"asset-clip"_s)) {
        if (element.attribute(u"enabled"_s) == QLatin1String("0"))
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
    EXPECT_EQ(check(report, rideAlongCountName).detail, u"xml %1 vs plan %1"_s.arg(plan.disabledCount()));
    EXPECT_EQ(check(report, segmentCountName).detail, u"xml 4 + 3 vs plan %1"_s.arg(plan.segmentCount()));
    EXPECT_EQ(check(report, assetsRelinkName).detail, "3 asset(s)");
    EXPECT_EQ(check(report, assetTimecodeName).detail, "3 asset(s), 2 timecoded");
    EXPECT_EQ(check(report, keptDurationName).detail,
              QString::asprintf("xml %.3fs vs plan %.3fs", plan.keptDuration(), plan.keptDuration()));
    EXPECT_TRUE(check(report, rideAlongLanesName).detail->startsWith("3 ride-along(s) on lane(s) 1"));
    EXPECT_TRUE(check(report, sequenceFormatName).detail->endsWith(" = FFVideoFormat1080p25"));
}

TEST_F(FCPXMLValidationTest, KeptOnlyPlanExpectsNoRideAlongsAndThePlanItCameFromMatters)
{
    const ExportPlan keptOnly = project.plan.keptOnly();
    const Report report = validate(project.text(keptOnly), keptOnly);
    EXPECT_EQ(failing(report), QStringList());
    EXPECT_EQ(check(report, rideAlongLanesName).detail, "0 ride-along(s) on lane(s) ");
    EXPECT_EQ(check(report, rideAlongCountName).detail, "xml 0 vs plan 0");
    EXPECT_EQ(check(report, rideAlongDurationName).detail, "xml 0.000s vs plan 0.000s");

    // The full plan's file against a plan with one cut more: the counts no longer
    // agree, and the storyline now plays what that plan removed.
    ExportPlan other = project.plan;
    other.clips[1].segments = {kept(0, 1), removed(1, 2, CutReason::manual), removed(2, 2.5, CutReason::silence),
                               kept(2.5, 3)};
    ExportPlanner::assignTimeline(other);
    const Report mismatched = validate(project.text(), other);
    EXPECT_FALSE(mismatched.isValid());
    for (const QString &name : {keptDurationName, rideAlongCountName, rideAlongDurationName, segmentCountName,
                                sequenceDurationName, ghostAudioName})
        EXPECT_FALSE(check(mismatched, name).passed) << name.toStdString();
    EXPECT_EQ(check(mismatched, rideAlongCountName).detail, "xml 3 vs plan 4");
    EXPECT_TRUE(check(mismatched, ghostAudioName).detail->startsWith("1 leak(s): b take.mov plays 3600.000–3602.000s"));
}

// --- Parsing ---------------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, TextThatDoesNotParseStopsAtTheFirstCheck)
{
    for (const QString &text : {QString(), u"<fcpxml version=\"1.13\"><resources></fcpxml>"_s, u"not xml at all"_s}) {
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

// The microphone's clip under the first camera clip.
QDomElement micClip(const QDomDocument &d)
{
    for (const auto &clip : named(d, u"asset-clip"_s)) {
        if (clip.attribute(u"lane"_s) == QLatin1String("-1"))
            return clip;
    }
    return {};
}

TEST_F(FCPXMLValidationTest, CatchesEachFaultByName)
{
    struct Fault {
        const char *what;
        std::function<void(QDomDocument &)> edit;
        QString check;
        QString detail;
        bool alone = true; // no other check fails
    };
    const ExportPlan &plan = project.plan;
    const std::vector<Fault> faults{
        {"a format that nothing uses",
         [](QDomDocument &d) {
             QDomElement format = d.createElement(u"format"_s);
             format.setAttribute(u"id"_s, u"r99"_s);
             format.setAttribute(u"name"_s, u"FFVideoFormat720p25"_s);
             format.setAttribute(u"frameDuration"_s, u"100/2500s"_s);
             named(d, u"resources"_s).front().appendChild(format);
         },
         resourcesReferencedName, u"orphaned: r99"_s},
        {"a reference that names a format instead of an asset",
         [](QDomDocument &d) { rideAlongs(d).back().setAttribute(u"format"_s, u"r4"_s); }, referenceKindsName,
         u"asset-clip@format=r4 → <asset>"_s},
        {"a format without its height",
         [](QDomDocument &d) { named(d, u"format"_s).front().removeAttribute(u"height"_s); }, sequenceFormatName,
         u"format r1 is missing height"_s},
        {"a sequence whose format is an asset",
         [](QDomDocument &d) { named(d, u"sequence"_s).front().setAttribute(u"format"_s, u"r2"_s); },
         sequenceFormatName, u"r2 is <asset>, not a <format>"_s, false},
        {"no sequence", [](QDomDocument &d) { named(d, u"sequence"_s).front().setTagName(u"sequence-was-here"_s); },
         sequenceFormatName, u"no sequence"_s, false},
        {"media references that cannot relink",
         [](QDomDocument &d) {
             auto reps = named(d, u"media-rep"_s);
             reps[0].setAttribute(u"src"_s, u"https://example.com/a.mov"_s);
             reps[1].setAttribute(u"kind"_s, u"proxy-media"_s);
             reps[2].removeAttribute(u"src"_s);
         },
         assetsRelinkName,
         u"a take.mov: src is not an absolute file:// URL — https://example.com/a.mov, "
         "b take.mov: no original-media rep, mic.wav: src missing or unparseable"_s,
         false},
        // The microphone's clip names the camera's video format, and the
        // microphone's file turns out to have no sound.
        {"clips asking for media their asset lacks",
         [](QDomDocument &d) {
             QDomElement mic = micClip(d);
             mic.setAttribute(u"format"_s, u"r1"_s);
             mic.setAttribute(u"srcEnable"_s, u"audio"_s);
             for (auto &asset : named(d, u"asset"_s)) {
                 if (asset.attribute(u"name"_s) == QLatin1String("mic.wav"))
                     asset.removeAttribute(u"hasAudio"_s);
             }
         },
         mediaDemandName,
         u"<asset-clip> mic.wav needs audio, mic.wav has none, <asset-clip> mic.wav is audio-only but inherits or "
         "names a video format (r1) — it needs its own FFVideoFormatRateUndefined format"_s,
         false},
        {"times that are not rational seconds",
         [](QDomDocument &d) {
             spineClips(d)[1].setAttribute(u"duration"_s, u"2.68s"_s);
             named(d, u"sequence"_s).front().setAttribute(u"tcStart"_s, u"0/0s"_s);
         },
         timeFormatName, u"?@tcStart=0/0s, a take.mov@duration=2.68s"_s, false},
        // A millisecond late: off the 25 fps grid, but within half a frame of
        // where the clip belongs, so only the grid check notices.
        {"an offset off the frame grid",
         [](QDomDocument &d) {
             QDomElement second = spineClips(d)[1];
             const double offset = seconds(second.attribute(u"offset"_s));
             second.setAttribute(u"offset"_s, u"%1/1000s"_s.arg(std::llround(offset * 1000) + 1));
         },
         frameAlignedName, u"a take.mov@offset=1001/1000s"_s},
        // The 24 fps clip's offset sits on the 25 fps sequence grid, which is
        // all an offset needs; a start one 25 fps frame in is off its own grid.
        {"a start off the clip's own grid",
         [](QDomDocument &d) { spineClips(d)[2].setAttribute(u"start"_s, u"86400960/24000s"_s); }, frameAlignedName,
         u"b take.mov@start=86400960/24000s"_s, false},
        {"a disabled clip in the storyline",
         [](QDomDocument &d) { spineClips(d)[1].setAttribute(u"enabled"_s, u"0"_s); }, keptClipsOnlyName,
         u"1 disabled clip(s) in the storyline: a take.mov"_s},
        // The last clip of "b" starts half a second earlier, in the cut silence.
        {"audio that plays a removed range",
         [](QDomDocument &d) { spineClips(d).back().setAttribute(u"start"_s, u"86448000/24000s"_s); }, ghostAudioName,
         u"1 leak(s): b take.mov plays 3602.000–3602.500s, which was removed (3602.000–3602.500s, 500 ms of it)"_s},
        {"a sequence longer than the cut",
         [](QDomDocument &d) { named(d, u"sequence"_s).front().setAttribute(u"duration"_s, u"9s"_s); },
         sequenceDurationName,
         QString::asprintf("sequence 9.000s, spine %.3fs, plan kept %.3fs (raw material %.3fs)", plan.keptDuration(),
                           plan.keptDuration(), plan.sourceDuration())},
    };
    for (const Fault &fault : faults) {
        SCOPED_TRACE(fault.what);
        const Report report = validate(damaged(project.text(), fault.edit), plan);
        EXPECT_FALSE(check(report, fault.check).passed);
        EXPECT_EQ(check(report, fault.check).detail, fault.detail);
        if (fault.alone) {
            EXPECT_EQ(failing(report), QStringList{fault.check});
        }
    }

    // A ride-along that names an asset that is not there: both reference
    // checks say so.
    const Report unresolved = validate(
        damaged(project.text(), [](QDomDocument &d) { rideAlongs(d).front().setAttribute(u"ref"_s, u"r42"_s); }), plan);
    EXPECT_FALSE(check(unresolved, referencesResolveName).passed);
    EXPECT_EQ(check(unresolved, referencesResolveName).detail, "unresolved: r42");
    EXPECT_EQ(check(unresolved, referenceKindsName).detail, "asset-clip@ref=r42 → <missing>");

    // Exact arithmetic: 3600 s and 1001/24000 s frames need no tolerance.
    const QString exact = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d)[2].setAttribute(u"start"_s, u"3600s"_s);
    });
    EXPECT_TRUE(check(validate(exact, plan), frameAlignedName).passed);
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

TEST_F(FCPXMLValidationTest, CatchesRangesOutsideTheirAssetOrHost)
{
    // The last clip reads a second past the end of its file, and the
    // microphone under the first clip runs past the end of its host.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        spineClips(d).back().setAttribute(u"duration"_s, u"36/24s"_s);
        micClip(d).setAttribute(u"duration"_s, u"2s"_s);
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

TEST_F(FCPXMLValidationTest, CatchesAHoleInTheSpine)
{
    // The third clip starts two frames after the second ends, and so ends
    // two frames after the fourth starts.
    double third = 0;
    double fourth = 0;
    const QString xml = damaged(project.text(), [&](QDomDocument &d) {
        auto clips = spineClips(d);
        third = seconds(clips[2].attribute(u"offset"_s));
        fourth = seconds(clips[3].attribute(u"offset"_s));
        clips[2].setAttribute(u"offset"_s, u"%1/25s"_s.arg(static_cast<qint64>(std::llround(third * 25)) + 2));
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{contiguousName});
    EXPECT_EQ(check(report, contiguousName).detail,
              QString::asprintf("b take.mov starts at %.3fs, the clip before it ends at %.3fs; "
                                "b take.mov starts at %.3fs, the clip before it ends at %.3fs",
                                third + 0.08, third, fourth, fourth + 0.08));

    // Half a frame off is still contiguous; a little more is not.
    for (const auto &[shift, passes] : {std::pair{u"1/50s"_s, true}, std::pair{u"3/100s"_s, false}}) {
        const QString nudged = damaged(project.text(), [&](QDomDocument &d) {
            QDomElement clip = spineClips(d)[3];
            const auto offset = FCPXMLTime::parse(clip.attribute(u"offset"_s));
            clip.setAttribute(u"offset"_s, (*offset + *FCPXMLTime::parse(shift)).attribute());
        });
        EXPECT_EQ(check(validate(nudged, project.plan), contiguousName).passed, passes) << shift.toStdString();
    }
}

TEST_F(FCPXMLValidationTest, CatchesAnEnabledRideAlongAndTheSyncedSoundOfACut)
{
    // Switching a removed piece back on without moving it into the
    // storyline plays cut audio; so does the microphone reading the filler.
    const QString xml = damaged(project.text(), [](QDomDocument &d) {
        for (auto &ride : rideAlongs(d)) {
            if (ride.attribute(u"name"_s).endsWith(QLatin1String("silence")))
                ride.removeAttribute(u"enabled"_s);
        }
        // One second later: the microphone's time of the filler.
        micClip(d).setAttribute(u"start"_s, u"36025/10s"_s);
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
        label = ride.attribute(u"name"_s);
        ride.removeAttribute(u"lane"_s);
    });
    const Report report = validate(xml, project.plan);
    EXPECT_EQ(failing(report), QStringList{rideAlongLanesName});
    EXPECT_EQ(check(report, rideAlongLanesName).detail, label + " is disabled on lane 0");

    const QString below = damaged(project.text(), [](QDomDocument &d) {
        rideAlongs(d).back().setAttribute(u"lane"_s, u"-2"_s);
    });
    EXPECT_TRUE(check(validate(below, project.plan), rideAlongLanesName).detail->endsWith(" is disabled on lane -2"));
}

// --- The pieces on their own ---------------------------------------------------------------

QDomElement element(QDomDocument &document, const QString &xml)
{
    EXPECT_TRUE(document.setContent(xml)) << xml.toStdString();
    return document.documentElement();
}

TEST(FCPXMLValidationPieces, MediaDemandOfEachKindOfElementAndMutedChannelSources)
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

    // Channel sources are muted when every one is off.
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
        const QString path = dir.file(u"voice.wav"_s);
        ExportPlan::Clip clip;
        clip.clipId = u"v"_s;
        clip.url = QUrl::fromLocalFile(path);
        clip.media.durationS = 5;
        clip.segments = {removed(0, removedEnd, CutReason::noise), kept(removedEnd, 5)};
        plan.clips = {clip};
        const QString src = QUrl::fromLocalFile(path).toString(QUrl::FullyEncoded);
        EXPECT_TRUE(document.setContent(u"<fcpxml><resources><asset id='r1' hasAudio='1'>"
                                                       "<media-rep kind='original-media' src='%1'/></asset>"
                                                       "</resources>%2</fcpxml>"_s
                                            .arg(src, body)));
    }

    Check run() const { return ghostAudioCheck(flatten(document.documentElement()), plan); }
};

TEST(FCPXMLValidationPieces, GhostAudioToleratesTenMillisecondsAndFollowsEnabledStateUpToTheLane)
{
    const QString body = u"<audio ref='r1' name='voice' start='0s' duration='1s'/>"_s;
    const Check exact = GhostCase(0.01, body).run();
    EXPECT_TRUE(exact.passed);
    EXPECT_EQ(exact.detail, "1 audible element(s) checked");

    const Check leak = GhostCase(0.02, body).run();
    EXPECT_FALSE(leak.passed);
    EXPECT_EQ(leak.detail, "1 leak(s): voice plays 0.000–1.000s, which was removed (0.000–0.020s, 20 ms of it)");

    // A connected clip keeps its own state whatever its host's: under a
    // disabled host it still plays, and a disabled one never plays.
    const QString hostOff = u"<spine><clip enabled='0'><asset-clip ref='r1' lane='1' name='above' "
                                           "start='0s' duration='1s'/><audio ref='r1' name='inside' start='0s' "
                                           "duration='1s'/></clip></spine>"_s;
    const Check a = GhostCase(0.5, hostOff).run();
    EXPECT_EQ(a.detail, "1 leak(s): above plays 0.000–1.000s, which was removed (0.000–0.500s, 500 ms of it)");

    const QString rideOff = u"<spine><clip><asset-clip ref='r1' lane='1' enabled='0' start='0s' "
                                           "duration='1s'/></clip></spine>"_s;
    EXPECT_EQ(GhostCase(0.5, rideOff).run().detail, "0 audible element(s) checked");

    // Muted channels and a video-only asset are silent.
    const QString muted = u"<asset-clip ref='r1' start='0s' duration='1s'><audio-channel-source "
                                         "srcCh='1, 2' enabled='0' active='0'/></asset-clip>"_s;
    EXPECT_EQ(GhostCase(0.5, muted).run().detail, "0 audible element(s) checked");
}

// --- The DTD check -------------------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, ValidatesAgainstTheDTDWhenThereIsOne)
{
    const QString xml = project.text();
    // A folder name with a blank, as the editor's own is.
    const QString dtdPath = project.dir.file(u"dtd folder/FCPXMLv1_13.dtd"_s);
    test::writeBytes(dtdPath, permissiveDTD(xml));
    PathOverride dtd(dtdEnvironmentVariable, dtdPath);

    ASSERT_EQ(dtdURL(u"1.13"_s), QUrl::fromLocalFile(dtdPath));
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
    {
        PathOverride tmp("TMPDIR", temporary.path());
        validate(xml, project.plan);
        test::writeBytes(dtdPath, permissiveDTD(xml));
        validate(xml, project.plan);
    }
    EXPECT_EQ(QDir(temporary.path()).entryList(QDir::Files | QDir::Hidden), QStringList());
}

TEST_F(FCPXMLValidationTest, DTDLookupSkipsAMissingOverride)
{
    // The override names nothing; on this system the editor is not
    // installed either, so the check is skipped.
    if (QFileInfo::exists(bundledDTDPath(u"1.13"_s)))
        GTEST_SKIP() << "the editor's DTD is installed here";
    EXPECT_EQ(dtdURL(u"1.13"_s), std::nullopt);
    EXPECT_EQ(bundledDTDPath(u"1.13"_s),
              "/Applications/Final Cut Pro.app/Contents/Frameworks/Interchange.framework/Versions/A/Resources/"
              "FCPXMLv1_13.dtd");
    const Check skipped = dtdCheck(project.text());
    EXPECT_TRUE(skipped.passed);
    EXPECT_EQ(skipped.detail, dtdUnavailableDetail);
}

// --- Writing and checking together ------------------------------------------------------------------

TEST_F(FCPXMLValidationTest, WriteCreatesTheFolderWritesAndValidatesOrRaises)
{
    const QString path = project.dir.file(u"exports/nested/output.fcpxml"_s);
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

    // Places it cannot write raise.
    test::writeBytes(project.dir.file(u"a file"_s), "x");
    EXPECT_THROW(ProcessPipeline::write(project.plan, QUrl::fromLocalFile(project.dir.file(u"a file/out.fcpxml"_s))),
                 FileWriteError);
    EXPECT_THROW(ProcessPipeline::write(project.plan, QUrl(u"https://example.com/out.fcpxml"_s)),
                 FileWriteError);
}

} // namespace
