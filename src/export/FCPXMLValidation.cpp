#include "export/FCPXMLValidation.h"

#include "model/FCPXMLTime.h"
#include "tools/ProcessRunner.h"

#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QStringList>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace velum::FCPXMLValidation {

namespace {

// --- Names ---------------------------------------------------------------------

const QString kId = QStringLiteral("id");
const QString kRef = QStringLiteral("ref");
const QString kFormat = QStringLiteral("format");
const QString kName = QStringLiteral("name");
const QString kStart = QStringLiteral("start");
const QString kDuration = QStringLiteral("duration");
const QString kOffset = QStringLiteral("offset");
const QString kLane = QStringLiteral("lane");
const QString kEnabled = QStringLiteral("enabled");
const QString kActive = QStringLiteral("active");
const QString kSrcEnable = QStringLiteral("srcEnable");
const QString kSrc = QStringLiteral("src");
const QString kKind = QStringLiteral("kind");
const QString kHasVideo = QStringLiteral("hasVideo");
const QString kHasAudio = QStringLiteral("hasAudio");
const QString kFrameDuration = QStringLiteral("frameDuration");
const QString kTcStart = QStringLiteral("tcStart");
const QString kAsset = QStringLiteral("asset");
const QString kAssetClip = QStringLiteral("asset-clip");
const QString kAudio = QStringLiteral("audio");
const QString kVideo = QStringLiteral("video");
const QString kClip = QStringLiteral("clip");
const QString kGap = QStringLiteral("gap");
const QString kSpine = QStringLiteral("spine");
const QString kSequence = QStringLiteral("sequence");
const QString kMediaRep = QStringLiteral("media-rep");
const QString kOriginalMedia = QStringLiteral("original-media");
const QString kChannelSource = QStringLiteral("audio-channel-source");
const QString kZero = QStringLiteral("0");
const QString kOne = QStringLiteral("1");
const QString kComma = QStringLiteral(", ");

// Half a sample at 48 kHz: how far an asset's start may sit from its media's
// timecode.
constexpr double timecodeTolerance = 1.0 / 96000.0;
// How far a clip may read outside its asset, or an anchor sit outside its
// host: wider than a frame at the usual rates, on purpose.
constexpr double rangeTolerance = 0.05;
// An overlap with a removed range of up to this long is no leak.
constexpr double leakTolerance = 0.01;
// Tolerances are inclusive: a difference equal to one passes. Times are
// compared as doubles made from exact rationals, so a difference that is
// exactly the tolerance can come out a few units in the last place above
// it; this much slack, far below a sample, absorbs that.
constexpr double roundingSlack = 1e-9;

bool within(double difference, double tolerance)
{
    return std::fabs(difference) <= tolerance + roundingSlack;
}

// Products of two 64-bit values, exact.
__extension__ using Wide = __int128;

// How many failures a detail lists.
constexpr qsizetype listedFailures = 5;
// How much of xmllint's complaint a detail keeps.
constexpr qsizetype dtdErrorLength = 400;

// --- Reading attributes ------------------------------------------------------------

// An attribute in one lookup. (QDomElement's own lookup is not const, though
// it changes nothing; a copy of the handle shares the element.)
QDomAttr attributeNode(const QDomElement &element, const QString &name)
{
    return QDomElement(element).attributeNode(name);
}

std::optional<QString> attribute(const QDomElement &element, const QString &name)
{
    const QDomAttr node = attributeNode(element, name);
    if (node.isNull())
        return std::nullopt;
    return node.value();
}

// A time attribute in seconds; absent or unparsable reads as 0.
std::optional<double> parsedSeconds(const QDomElement &element, const QString &name)
{
    const QDomAttr node = attributeNode(element, name);
    if (node.isNull())
        return std::nullopt;
    const auto time = FCPXMLTime::parse(node.value());
    if (!time)
        return std::nullopt;
    return static_cast<double>(time->value) / static_cast<double>(time->timescale);
}

double seconds(const QDomElement &element, const QString &name)
{
    return parsedSeconds(element, name).value_or(0);
}

// A clip's label: its name, or "?" without one.
QString label(const QDomElement &element)
{
    return attribute(element, kName).value_or(QStringLiteral("?"));
}

QString fixed3(double value)
{
    return QString::asprintf("%.3f", value);
}

// The lane of an element, 0 when it has none or it is not an integer.
int laneOf(const QDomElement &element)
{
    const QDomAttr node = attributeNode(element, kLane);
    if (node.isNull())
        return 0;
    bool ok = false;
    const int lane = node.value().toInt(&ok);
    return ok ? lane : 0;
}

bool isDisabled(const QDomElement &element)
{
    return element.attribute(kEnabled) == kZero;
}

// The first five texts joined.
QString firstFive(const QStringList &texts, const QString &separator = kComma)
{
    return texts.mid(0, listedFailures).join(separator);
}

QString standardizedPath(const QString &path)
{
    return QDir::cleanPath(QDir::isRelativePath(path) ? QDir::current().absoluteFilePath(path) : path);
}

QString standardizedPath(const QUrl &url)
{
    return standardizedPath(url.isLocalFile() ? url.toLocalFile() : url.path());
}

// The `media-rep` an asset relinks through: its first one of kind
// "original-media".
QDomElement originalMediaRep(const QDomElement &asset)
{
    for (QDomElement child = asset.firstChildElement(kMediaRep); !child.isNull();
         child = child.nextSiblingElement(kMediaRep)) {
        if (child.attribute(kKind) == kOriginalMedia)
            return child;
    }
    return {};
}

// The standardized path of the file an asset relinks to; none when its
// `media-rep` is missing or not a local file.
std::optional<QString> assetMediaPath(const QDomElement &asset)
{
    const QDomElement rep = originalMediaRep(asset);
    if (rep.isNull() || !rep.hasAttribute(kSrc))
        return std::nullopt;
    const QUrl url(rep.attribute(kSrc), QUrl::StrictMode);
    if (!url.isValid() || !url.isLocalFile())
        return std::nullopt;
    return standardizedPath(url.toLocalFile());
}

// The seconds of a media timecode with a timescale of at least 1; 0 for any
// other.
double timecodeSeconds(const std::optional<MediaTimecode> &timecode)
{
    if (timecode && timecode->timescale >= 1)
        return static_cast<double>(timecode->value) / static_cast<double>(timecode->timescale);
    return 0;
}

// Where a file's own time starts as an asset's `start` holds it: the media
// timecode only when its value is positive.
double assetStartSeconds(const std::optional<MediaTimecode> &timecode)
{
    return timecode && timecode->value >= 1 ? timecodeSeconds(timecode) : 0;
}

// One frame of the plan's first clip, 25 fps without one.
double planFrameSeconds(const ExportPlan &plan)
{
    const FCPXMLFrameRate rate(plan.clips.empty() ? 25.0 : plan.clips.front().media.fps.value_or(25.0));
    return static_cast<double>(rate.frameNum) / static_cast<double>(rate.frameDen);
}

// --- The document's index ------------------------------------------------------

// The flattened elements with what every check asks of them (name, parent,
// media demand, identifier), read from the tree once per run.
struct Index {
    const std::vector<QDomElement> &elements;
    std::vector<QString> tags;
    // The position of each element's parent in `elements`; -1 when the
    // parent is not in the list (the root's).
    std::vector<int> parents;
    std::vector<std::optional<MediaDemand>> demands;
    QHash<QString, int> byId; // the first element of each id

    explicit Index(const std::vector<QDomElement> &all) : elements(all)
    {
        const std::size_t n = all.size();
        tags.reserve(n);
        parents.reserve(n);
        demands.reserve(n);
        byId.reserve(static_cast<qsizetype>(n / 4 + 1));
        // The list is in document order, parents first: an element's parent
        // is on the stack of its open ancestors.
        std::vector<int> open;
        for (std::size_t i = 0; i < n; ++i) {
            const QDomElement &element = all[i];
            const QDomNode parent = element.parentNode();
            while (!open.empty() && all[static_cast<std::size_t>(open.back())] != parent)
                open.pop_back();
            parents.push_back(open.empty() ? -1 : open.back());
            open.push_back(static_cast<int>(i));

            tags.push_back(element.tagName());
            demands.push_back(mediaDemand(element));
        }
        // Backwards, so that the first element of each id is the one kept.
        for (std::size_t i = n; i-- > 0;) {
            const QDomAttr id = attributeNode(all[i], kId);
            if (!id.isNull())
                byId.insert(id.value(), static_cast<int>(i));
        }
    }

    std::size_t size() const { return elements.size(); }
    const QString &tag(std::size_t i) const { return tags[i]; }

    // The position of the element with an id; -1 when none has it.
    int find(const QString &id) const { return byId.value(id, -1); }

    // The position of the element a reference names when it has that
    // element name; -1 otherwise.
    int resolved(std::size_t i, const QString &attributeName, const QString &kind) const
    {
        const QDomAttr reference = attributeNode(elements[i], attributeName);
        if (reference.isNull())
            return -1;
        const int target = find(reference.value());
        return target >= 0 && tags[static_cast<std::size_t>(target)] == kind ? target : -1;
    }

    QDomElement element(int i) const { return i < 0 ? QDomElement() : elements[static_cast<std::size_t>(i)]; }

    int first(const QString &name) const
    {
        for (std::size_t i = 0; i < tags.size(); ++i) {
            if (tags[i] == name)
                return static_cast<int>(i);
        }
        return -1;
    }
};

// --- Checks 1 to 3 -----------------------------------------------------------------

std::vector<Check> referenceChecks(const Index &index)
{
    std::set<QString> references;
    std::set<QString> ids;
    QStringList wrongKinds;
    int kindChecked = 0;

    for (std::size_t i = 0; i < index.size(); ++i) {
        const QDomElement &element = index.elements[i];
        if (const auto id = attribute(element, kId))
            ids.insert(*id);
        const auto format = attribute(element, kFormat);
        const auto ref = attribute(element, kRef);
        if (format)
            references.insert(*format);
        if (ref)
            references.insert(*ref);

        const auto kindOf = [&](const QString &attributeName, const QString &value, const QString &wanted) {
            ++kindChecked;
            const int target = index.find(value);
            const QString targetName =
                target < 0 ? QStringLiteral("missing") : index.tag(static_cast<std::size_t>(target));
            if (targetName != wanted)
                wrongKinds.push_back(index.tag(i) + QLatin1Char('@') + attributeName + QLatin1Char('=') + value
                                     + QStringLiteral(" → <") + targetName + QLatin1Char('>'));
        };
        if (format)
            kindOf(kFormat, *format, kFormat);
        if (ref && index.demands[i])
            kindOf(kRef, *ref, kAsset);
    }

    QStringList unresolved;
    for (const auto &reference : references) {
        if (!ids.contains(reference))
            unresolved.push_back(reference);
    }
    QStringList orphaned;
    for (const auto &id : ids) {
        if (!references.contains(id))
            orphaned.push_back(id);
    }

    std::vector<Check> checks;
    checks.push_back(Check{referencesResolveName, unresolved.isEmpty(),
                           unresolved.isEmpty()
                               ? QString::number(references.size()) + QStringLiteral(" references")
                               : QStringLiteral("unresolved: ") + unresolved.join(kComma)});
    checks.push_back(Check{resourcesReferencedName, orphaned.isEmpty(),
                           orphaned.isEmpty() ? QString::number(ids.size()) + QStringLiteral(" resources")
                                              : QStringLiteral("orphaned: ") + orphaned.join(kComma)});
    checks.push_back(Check{referenceKindsName, wrongKinds.isEmpty(),
                           wrongKinds.isEmpty() ? QString::number(kindChecked) + QStringLiteral(" references")
                                                : firstFive(wrongKinds)});
    return checks;
}

// --- Checks 4 to 7 -----------------------------------------------------------------

Check sequenceFormatCheck(const Index &index)
{
    const QDomElement sequence = index.element(index.first(kSequence));
    if (sequence.isNull())
        return Check{sequenceFormatName, false, QStringLiteral("no sequence")};
    const auto id = attribute(sequence, kFormat);
    const int target = id ? index.find(*id) : -1;
    const QString targetName = target < 0 ? QStringLiteral("missing") : index.tag(static_cast<std::size_t>(target));
    if (targetName != kFormat)
        return Check{sequenceFormatName, false,
                     id.value_or(QString()) + QStringLiteral(" is <") + targetName + QStringLiteral(">, not a <format>")};
    const QDomElement format = index.element(target);
    QStringList missing;
    for (const QString &needed : {kFrameDuration, QStringLiteral("width"), QStringLiteral("height")}) {
        if (!format.hasAttribute(needed))
            missing.push_back(needed);
    }
    if (!missing.isEmpty())
        return Check{sequenceFormatName, false,
                     QStringLiteral("format ") + *id + QStringLiteral(" is missing ") + missing.join(kComma)};
    return Check{sequenceFormatName, true, *id + QStringLiteral(" = ") + format.attribute(kName)};
}

Check relinkCheck(const Index &index)
{
    int assets = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (index.tag(i) != kAsset)
            continue;
        const QDomElement &element = index.elements[i];
        ++assets;
        const QString name = label(element);
        const QDomElement rep = originalMediaRep(element);
        if (rep.isNull()) {
            failures.push_back(name + QStringLiteral(": no original-media rep"));
            continue;
        }
        const QString src = rep.attribute(kSrc);
        const QUrl url(src, QUrl::StrictMode);
        if (src.isEmpty() || !url.isValid()) {
            failures.push_back(name + QStringLiteral(": src missing or unparseable"));
            continue;
        }
        if (!url.isLocalFile() || !url.path().startsWith(QLatin1Char('/'))) {
            failures.push_back(name + QStringLiteral(": src is not an absolute file:// URL — ") + src);
            continue;
        }
        const QString path = url.toLocalFile();
        if (!QFileInfo::exists(path))
            failures.push_back(name + QStringLiteral(": media missing at ") + path);
    }
    return Check{assetsRelinkName, failures.isEmpty(),
                 failures.isEmpty() ? QString::number(assets) + QStringLiteral(" asset(s)") : firstFive(failures)};
}

Check mediaDemandCheck(const Index &index)
{
    int users = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const auto &demand = index.demands[i];
        if (!demand)
            continue;
        const int assetAt = index.resolved(i, kRef, kAsset);
        if (assetAt < 0)
            continue;
        const QDomElement &element = index.elements[i];
        const QDomElement asset = index.element(assetAt);
        ++users;
        const bool hasVideo = asset.attribute(kHasVideo) == kOne;
        const bool hasAudio = asset.attribute(kHasAudio) == kOne;
        const QString clip = QLatin1Char('<') + index.tag(i) + QStringLiteral("> ") + label(element);
        const QString assetName = label(asset);
        if (demand->video && !hasVideo)
            failures.push_back(clip + QStringLiteral(" needs video, ") + assetName + QStringLiteral(" has none"));
        if (demand->audio && !hasAudio)
            failures.push_back(clip + QStringLiteral(" needs audio, ") + assetName + QStringLiteral(" has none"));

        // An audio-only clip on a lane takes its host's video format unless
        // it names one without a frame rate of its own.
        const auto lane = attribute(element, kLane);
        const bool onLane = lane && lane->trimmed() != kZero;
        if (index.tag(i) == kAssetClip && onLane && !hasVideo) {
            const QDomElement format = index.element(index.resolved(i, kFormat, kFormat));
            if (format.isNull() || format.hasAttribute(kFrameDuration)) {
                const QString named = attribute(element, kFormat).value_or(QStringLiteral("no format attribute"));
                failures.push_back(clip + QStringLiteral(" is audio-only but inherits or names a video format ")
                                   + QLatin1Char('(') + named + QStringLiteral(") — it needs its own ")
                                   + QStringLiteral("FFVideoFormatRateUndefined") + QStringLiteral(" format"));
            }
        }
    }
    return Check{mediaDemandName, failures.isEmpty(),
                 failures.isEmpty() ? QString::number(users) + QStringLiteral(" clip(s)") : firstFive(failures)};
}

Check rangesCheck(const Index &index)
{
    int ranges = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (!index.demands[i])
            continue;
        const QDomElement &element = index.elements[i];
        const double s = seconds(element, kStart);
        const bool hasDuration = element.hasAttribute(kDuration);
        const double d = seconds(element, kDuration);

        const QDomElement asset = index.element(index.resolved(i, kRef, kAsset));
        if (hasDuration && !asset.isNull()) {
            ++ranges;
            const double a = seconds(asset, kStart);
            const double b = a + seconds(asset, kDuration);
            if (s < a - rangeTolerance - roundingSlack || s + d > b + rangeTolerance + roundingSlack)
                failures.push_back(QStringLiteral("%1 reads %2–%3s of an asset that holds %4–%5s")
                                       .arg(label(element), fixed3(s), fixed3(s + d), fixed3(a), fixed3(b)));
        }

        const int lane = laneOf(element);
        const int parentAt = index.parents[i];
        if (lane != 0 && parentAt >= 0 && index.demands[static_cast<std::size_t>(parentAt)]) {
            const QDomElement parent = index.element(parentAt);
            ++ranges;
            const double p = seconds(parent, kStart);
            const double q = p + seconds(parent, kDuration);
            const double o = seconds(element, kOffset);
            // A ride-along is tested for its anchor point only; the synced
            // sound under a clip must fit whole.
            const double e = lane > 0 ? o : o + d;
            if (o < p - rangeTolerance - roundingSlack || e > q + rangeTolerance + roundingSlack)
                failures.push_back(QStringLiteral("anchored %1 sits %2–%3s in a parent local timeline of %4–%5s")
                                       .arg(label(element), fixed3(o), fixed3(e), fixed3(p), fixed3(q)));
        }
    }
    return Check{rangesInBoundsName, failures.isEmpty(),
                 failures.isEmpty() ? QString::number(ranges) + QStringLiteral(" range(s)") : firstFive(failures)};
}

std::vector<Check> semanticChecks(const Index &index)
{
    return {sequenceFormatCheck(index), relinkCheck(index), mediaDemandCheck(index), rangesCheck(index)};
}

// --- Check 8 -------------------------------------------------------------------------

Check timecodeCheck(const Index &index, const ExportPlan &plan)
{
    std::map<QString, std::optional<MediaTimecode>> timecodes;
    for (const auto &clip : plan.clips)
        timecodes.emplace(standardizedPath(clip.url), clip.media.startTimecode);
    if (plan.externalAudio)
        timecodes.emplace(standardizedPath(plan.externalAudio->url), plan.externalAudio->startTimecode);

    int assets = 0;
    int timecoded = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (index.tag(i) != kAsset)
            continue;
        const QDomElement &element = index.elements[i];
        const auto path = assetMediaPath(element);
        if (!path)
            continue;
        const auto found = timecodes.find(*path);
        if (found == timecodes.end())
            continue;
        ++assets;
        const double s = seconds(element, kStart);
        const double t = timecodeSeconds(found->second);
        if (t > 0)
            ++timecoded;
        if (!within(s - t, timecodeTolerance))
            failures.push_back(QStringLiteral("%1 declares start %2s but its media timecode is %3s (%4) — every "
                                              "reference into it points at time the file does not contain")
                                   .arg(label(element), fixed3(s), fixed3(t), MediaTimecode::label(t)));
    }
    return Check{assetTimecodeName, failures.isEmpty(),
                 failures.isEmpty() ? QString::number(assets) + QStringLiteral(" asset(s), ") + QString::number(timecoded)
                                          + QStringLiteral(" timecoded")
                                    : firstFive(failures)};
}

// --- Check 9 -------------------------------------------------------------------------

Check timeFormatCheck(const Index &index)
{
    static const QString timeAttributes[] = {kOffset,
                                             kStart,
                                             kDuration,
                                             kFrameDuration,
                                             kTcStart,
                                             QStringLiteral("audioStart"),
                                             QStringLiteral("audioDuration")};
    int count = 0;
    QStringList failures;
    for (const auto &element : index.elements) {
        for (const QString &name : timeAttributes) {
            const QDomAttr node = attributeNode(element, name);
            if (node.isNull())
                continue;
            ++count;
            const QString value = node.value();
            if (!FCPXMLTime::parse(value))
                failures.push_back(label(element) + QLatin1Char('@') + name + QLatin1Char('=') + value);
        }
    }
    return Check{timeFormatName, failures.isEmpty(),
                 failures.isEmpty() ? QString::number(count) + QStringLiteral(" time attributes") : firstFive(failures)};
}

// --- Check 10 ------------------------------------------------------------------------

std::vector<Check> frameAlignmentChecks(const Index &index)
{
    QHash<QString, FCPXMLTime> frameDurations; // format id -> one frame
    QHash<QString, QString> assetFormats;      // asset id -> format id
    for (std::size_t i = 0; i < index.size(); ++i) {
        const QString &name = index.tag(i);
        const QDomElement &element = index.elements[i];
        if (name == kFormat && element.hasAttribute(kId)) {
            if (const auto frame = FCPXMLTime::parse(element.attribute(kFrameDuration)); frame && frame->value != 0)
                frameDurations.insert(element.attribute(kId), *frame);
        } else if (name == kAsset && element.hasAttribute(kId) && element.hasAttribute(kFormat)) {
            assetFormats.insert(element.attribute(kId), element.attribute(kFormat));
        }
    }
    const QDomElement sequence = index.element(index.first(kSequence));
    const std::optional<QString> sequenceFormat =
        sequence.isNull() ? std::nullopt : attribute(sequence, kFormat);

    const auto grid = [&](const std::optional<QString> &formatId) -> std::optional<FCPXMLTime> {
        if (!formatId)
            return std::nullopt;
        const auto found = frameDurations.constFind(*formatId);
        if (found == frameDurations.constEnd())
            return std::nullopt;
        return *found;
    };

    int values = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const int parent = index.parents[i];
        if (index.tag(i) != kAssetClip || parent < 0 || index.tag(static_cast<std::size_t>(parent)) != kSpine)
            continue;
        const QDomElement &element = index.elements[i];
        std::optional<QString> ownFormat;
        if (const auto ref = attribute(element, kRef)) {
            const auto found = assetFormats.constFind(*ref);
            if (found != assetFormats.constEnd())
                ownFormat = *found;
        }
        for (const QString &name : {kOffset, kStart, kDuration}) {
            const QDomAttr node = attributeNode(element, name);
            if (node.isNull())
                continue;
            const QString text = node.value();
            const auto value = FCPXMLTime::parse(text);
            if (!value)
                continue;
            const auto frame = grid(name == kOffset && sequenceFormat ? sequenceFormat : ownFormat);
            if (!frame)
                continue;
            ++values;
            // v/t lies on a grid of n/d exactly when v·d is a whole multiple
            // of t·n; 128 bits hold both products.
            const Wide scaled = static_cast<Wide>(value->value) * frame->timescale;
            const Wide step = static_cast<Wide>(value->timescale) * frame->value;
            if (step == 0 || scaled % step != 0)
                failures.push_back(label(element) + QLatin1Char('@') + name + QLatin1Char('=') + text);
        }
    }
    return {Check{frameAlignedName, failures.isEmpty(),
                  failures.isEmpty() ? QString::number(values) + QStringLiteral(" values") : firstFive(failures)}};
}

// --- Checks 11 to 18 -------------------------------------------------------------------

std::vector<Check> layoutChecks(const Index &index, const ExportPlan &plan)
{
    const double frame = planFrameSeconds(plan);
    const double halfFrame = frame / 2;
    const double planKept = plan.keptDuration();
    const double planSource = plan.sourceDuration();
    const QDomElement sequence = index.element(index.first(kSequence));
    const int spineAt = index.first(kSpine);
    const QDomElement spine = index.element(spineAt);

    // The storyline: each clip starts where the one before it ends.
    int spineClips = 0;
    double keptSum = 0;
    QStringList disabled;
    int disabledCount = 0;
    QStringList holes;
    double cursor = sequence.isNull() ? 0 : seconds(sequence, kTcStart);
    for (QDomElement child = spine.firstChildElement(); !child.isNull(); child = child.nextSiblingElement()) {
        const QString name = child.tagName();
        if (name != kAssetClip && name != kClip && name != kGap)
            continue;
        ++spineClips;
        const double offset = seconds(child, kOffset);
        const double duration = seconds(child, kDuration);
        if (!within(offset - cursor, halfFrame))
            holes.push_back(QString::asprintf("%s starts at %.3fs, the clip before it ends at %.3fs",
                                              qUtf8Printable(label(child)), offset, cursor));
        cursor = offset + duration;
        keptSum += duration;
        if (isDisabled(child)) {
            ++disabledCount;
            disabled.push_back(label(child));
        }
    }

    // The ride-alongs: every disabled media user outside the storyline.
    int rideAlongs = 0;
    double rideSum = 0;
    std::set<int> lanes;
    QStringList offLane;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (!index.demands[i] || (spineAt >= 0 && index.parents[i] == spineAt))
            continue;
        const QDomElement &element = index.elements[i];
        if (!isDisabled(element))
            continue;
        ++rideAlongs;
        rideSum += seconds(element, kDuration);
        const auto laneText = attribute(element, kLane);
        bool ok = false;
        const int lane = laneText ? laneText->toInt(&ok) : 0;
        if (ok && lane >= 1)
            lanes.insert(lane);
        else
            offLane.push_back(label(element) + QStringLiteral(" is disabled on lane ") + laneText.value_or(kZero));
    }

    std::vector<Check> checks;
    checks.push_back(Check{keptClipsOnlyName, disabledCount == 0,
                           disabledCount == 0 ? QString::number(spineClips) + QStringLiteral(" kept clip(s)")
                                              : QString::number(disabledCount)
                                                    + QStringLiteral(" disabled clip(s) in the storyline: ")
                                                    + firstFive(disabled)});
    checks.push_back(Check{contiguousName, holes.isEmpty(),
                           holes.isEmpty() ? QString::number(spineClips) + QStringLiteral(" clip(s), no holes")
                                           : firstFive(holes, QStringLiteral("; "))});
    checks.push_back(Check{keptDurationName, within(keptSum - planKept, frame),
                           QString::asprintf("xml %.3fs vs plan %.3fs", keptSum, planKept)});

    QStringList laneTexts;
    for (const int lane : lanes)
        laneTexts.push_back(QString::number(lane));
    checks.push_back(Check{rideAlongLanesName, offLane.isEmpty(),
                           offLane.isEmpty() ? QString::number(rideAlongs) + QStringLiteral(" ride-along(s) on lane(s) ")
                                                   + laneTexts.join(kComma)
                                             : firstFive(offLane)});

    const int planDisabled = plan.disabledCount();
    checks.push_back(Check{rideAlongCountName, rideAlongs == planDisabled,
                           QStringLiteral("xml ") + QString::number(rideAlongs) + QStringLiteral(" vs plan ")
                               + QString::number(planDisabled)});

    const double planRemoved = planSource - planKept;
    checks.push_back(Check{rideAlongDurationName, within(rideSum - planRemoved, frame),
                           QString::asprintf("xml %.3fs vs plan %.3fs", rideSum, planRemoved)});

    const int planSegments = plan.segmentCount();
    checks.push_back(Check{segmentCountName, spineClips + rideAlongs == planSegments,
                           QStringLiteral("xml ") + QString::number(spineClips) + QStringLiteral(" + ")
                               + QString::number(rideAlongs) + QStringLiteral(" vs plan ")
                               + QString::number(planSegments)});

    const auto sequenceDuration = sequence.isNull() ? std::nullopt : parsedSeconds(sequence, kDuration);
    const double shown = sequenceDuration.value_or(0);
    checks.push_back(Check{sequenceDurationName,
                           sequenceDuration && within(shown - keptSum, frame) && within(shown - planKept, frame),
                           QString::asprintf("sequence %.3fs, spine %.3fs, plan kept %.3fs (raw material %.3fs)", shown,
                                             keptSum, planKept, planSource)});
    return checks;
}

// --- Check 19 ------------------------------------------------------------------------

struct Range {
    double from = 0;
    double to = 0;
};

// Whether an element plays: disabled by its own `enabled`="0" or an
// ancestor's, up to the first element on a lane of its own, which keeps its
// state whatever its host's.
bool playsOnTimeline(const Index &index, std::size_t at)
{
    for (int i = static_cast<int>(at); i >= 0; i = index.parents[static_cast<std::size_t>(i)]) {
        const QDomElement &e = index.elements[static_cast<std::size_t>(i)];
        if (isDisabled(e))
            return false;
        if (laneOf(e) != 0)
            return true;
    }
    return true;
}

Check ghostAudioCheck(const Index &index, const ExportPlan &plan)
{
    // The removed ranges of each file, in the file's own time.
    QHash<QString, std::vector<Range>> removedByPath;
    const double externalTimecode = plan.externalAudio ? assetStartSeconds(plan.externalAudio->startTimecode) : 0;
    const QString externalPath = plan.externalAudio ? standardizedPath(plan.externalAudio->url) : QString();
    for (const auto &clip : plan.clips) {
        const QString path = standardizedPath(clip.url);
        const double c = assetStartSeconds(clip.media.startTimecode);
        auto &ranges = removedByPath[path];
        for (const auto &segment : clip.segments) {
            if (segment.isKept())
                continue;
            ranges.push_back({segment.sourceStart + c, segment.sourceEnd + c});
            if (plan.externalAudio && clip.externalOffsetS) {
                const double e = *clip.externalOffsetS + externalTimecode;
                removedByPath[externalPath].push_back({segment.sourceStart + e, segment.sourceEnd + e});
            }
        }
    }

    struct AssetAudio {
        std::vector<Range> removed;
        bool hasAudio = false;
    };
    QHash<QString, AssetAudio> assets;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (index.tag(i) != kAsset)
            continue;
        const QDomElement &element = index.elements[i];
        const auto id = attribute(element, kId);
        if (!id)
            continue;
        AssetAudio audio;
        audio.hasAudio = element.attribute(kHasAudio) == kOne;
        if (const auto path = assetMediaPath(element))
            audio.removed = removedByPath.value(*path);
        assets.insert(*id, std::move(audio));
    }

    int checked = 0;
    int leaks = 0;
    QStringList texts;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (!index.demands[i] || !playsOnTimeline(index, i))
            continue;
        const QDomElement &element = index.elements[i];
        const auto ref = attribute(element, kRef);
        if (!ref)
            continue;
        const auto asset = assets.constFind(*ref);
        if (asset == assets.constEnd())
            continue;
        if (index.tag(i) != kAudio && (!asset->hasAudio || channelSourcesMuted(element)))
            continue;
        ++checked;
        const double s = seconds(element, kStart);
        const double e = s + seconds(element, kDuration);
        for (const Range &range : asset->removed) {
            const double overlap = std::min(range.to, e) - std::max(range.from, s);
            if (overlap > leakTolerance + roundingSlack) {
                ++leaks;
                texts.push_back(QString::asprintf("%s plays %.3f–%.3fs, which was removed (%.3f–%.3fs, %.0f ms of it)",
                                                  qUtf8Printable(label(element)), s, e, range.from, range.to,
                                                  overlap * 1000));
                break;
            }
        }
    }
    return Check{ghostAudioName, leaks == 0,
                 leaks == 0 ? QString::number(checked) + QStringLiteral(" audible element(s) checked")
                            : QString::number(leaks) + QStringLiteral(" leak(s): ") + firstFive(texts)};
}

void collectElements(const QDomElement &element, std::vector<QDomElement> &out)
{
    out.push_back(element);
    for (QDomElement child = element.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
        collectElements(child, out);
}

QString utf8(const char *text)
{
    return QString::fromUtf8(text);
}

} // namespace

bool Report::isValid() const
{
    return std::all_of(checks.begin(), checks.end(), [](const Check &check) { return check.passed; });
}

std::vector<QDomElement> flatten(const QDomElement &element)
{
    std::vector<QDomElement> out;
    if (!element.isNull())
        collectElements(element, out);
    return out;
}

bool channelSourcesMuted(const QDomElement &element)
{
    bool any = false;
    for (QDomElement child = element.firstChildElement(kChannelSource); !child.isNull();
         child = child.nextSiblingElement(kChannelSource)) {
        any = true;
        if (child.attribute(kEnabled) != kZero && child.attribute(kActive) != kZero)
            return false;
    }
    return any;
}

std::optional<MediaDemand> mediaDemand(const QDomElement &element)
{
    const QString name = element.tagName();
    if (name == kAudio)
        return MediaDemand{false, true};
    if (name == kVideo)
        return MediaDemand{true, false};
    if (name != kAssetClip)
        return std::nullopt;
    const QString enable = element.attribute(kSrcEnable);
    if (enable == kAudio)
        return MediaDemand{false, true};
    if (enable == kVideo)
        return MediaDemand{true, false};
    return channelSourcesMuted(element) ? MediaDemand{true, false} : MediaDemand{false, false};
}

QString bundledDTDPath(const QString &version)
{
    return QStringLiteral("/Applications/Final Cut Pro.app/Contents/Frameworks/Interchange.framework/Versions/A/"
                          "Resources/")
           + QStringLiteral("FCPXMLv") + QString(version).replace(QLatin1Char('.'), QLatin1Char('_'))
           + QStringLiteral(".dtd");
}

std::optional<QUrl> dtdURL(const QString &version)
{
    const QString chosen = qEnvironmentVariable(dtdEnvironmentVariable);
    if (!chosen.isEmpty()) {
        const QFileInfo info(chosen);
        if (info.isFile())
            return QUrl::fromLocalFile(info.absoluteFilePath());
    }
    const QString bundled = bundledDTDPath(version);
    if (QFileInfo(bundled).isFile())
        return QUrl::fromLocalFile(bundled);
    return std::nullopt;
}

std::vector<Check> referenceChecks(const std::vector<QDomElement> &elements)
{
    return referenceChecks(Index(elements));
}

std::vector<Check> semanticChecks(const std::vector<QDomElement> &elements)
{
    return semanticChecks(Index(elements));
}

Check timecodeCheck(const std::vector<QDomElement> &elements, const ExportPlan &plan)
{
    return timecodeCheck(Index(elements), plan);
}

Check timeFormatCheck(const std::vector<QDomElement> &elements)
{
    return timeFormatCheck(Index(elements));
}

std::vector<Check> frameAlignmentChecks(const std::vector<QDomElement> &elements)
{
    return frameAlignmentChecks(Index(elements));
}

std::vector<Check> layoutChecks(const std::vector<QDomElement> &elements, const ExportPlan &plan)
{
    return layoutChecks(Index(elements), plan);
}

Check ghostAudioCheck(const std::vector<QDomElement> &elements, const ExportPlan &plan)
{
    return ghostAudioCheck(Index(elements), plan);
}

Check dtdCheck(const QString &xml)
{
    const auto dtd = dtdURL(QStringLiteral("1.13"));
    const auto xmllint = dtd ? ProcessRunner().resolve(QStringLiteral("xmllint")) : std::nullopt;
    if (!dtd || !xmllint)
        return Check{dtdName, true, dtdUnavailableDetail};

    const QString path = QDir(QDir::tempPath())
                             .filePath(QStringLiteral("velum-fcpxml-validate-")
                                       + QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".fcpxml"));
    Check check{dtdName, true, std::nullopt};
    try {
        writeFileAtomically(path, xml.toUtf8());
        const auto output = ProcessRunner::runSeparatedBlocking(
            xmllint->url,
            {QStringLiteral("--noout"), QStringLiteral("--dtdvalid"), dtd->toString(QUrl::FullyEncoded), path});
        if (output.status == 0) {
            check.detail = QStringLiteral("validated against ") + QFileInfo(dtd->toLocalFile()).fileName();
        } else {
            check.passed = false;
            const QString error = output.stderrText.trimmed().isEmpty()
                                      ? QStringLiteral("xmllint exited with status %1").arg(output.status)
                                      : output.stderrText;
            check.detail = error.left(dtdErrorLength);
        }
    } catch (const std::exception &e) {
        // Not being able to run the validator never fails an export.
        check.passed = true;
        check.detail = QStringLiteral("skipped — could not run xmllint: ") + utf8(e.what());
    }
    QFile::remove(path);
    return check;
}

Report validate(const QString &xml, const ExportPlan &plan)
{
    Report report;
    QDomDocument document;
    QString error;
    int line = 0;
    int column = 0;
    if (!document.setContent(xml.toUtf8(), false, &error, &line, &column)) {
        report.checks.push_back(Check{wellFormedName, false,
                                      QStringLiteral("line %1, column %2: %3").arg(line).arg(column).arg(error)});
        return report;
    }
    report.checks.push_back(Check{wellFormedName, true, std::nullopt});

    const QDomElement root = document.documentElement();
    if (root.isNull()) {
        report.checks.push_back(Check{rootElementName, false, QStringLiteral("missing")});
        return report;
    }

    const std::vector<QDomElement> elements = flatten(root);
    const Index index(elements);
    const auto append = [&report](std::vector<Check> checks) {
        for (auto &check : checks)
            report.checks.push_back(std::move(check));
    };
    append(referenceChecks(index));
    append(semanticChecks(index));
    report.checks.push_back(timecodeCheck(index, plan));
    report.checks.push_back(timeFormatCheck(index));
    append(frameAlignmentChecks(index));
    append(layoutChecks(index, plan));
    report.checks.push_back(ghostAudioCheck(index, plan));

    Check dtd = dtdCheck(xml);
    report.dtdValidated = dtd.passed && !(dtd.detail && dtd.detail->startsWith(QStringLiteral("skipped")));
    report.checks.push_back(std::move(dtd));
    return report;
}

} // namespace velum::FCPXMLValidation
