#include "export/FCPXMLValidation.h"

#include "model/FCPXMLTime.h"
#include "tools/ProcessRunner.h"

#include <QDir>
#include <QDomDocument>
#include <QDomNamedNodeMap>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
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

// --- Small helpers -------------------------------------------------------------------

QString fixed3(double value)
{
    return QString::asprintf("%.3f", value);
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

double secondsOf(const FCPXMLTime &time)
{
    return static_cast<double>(time.value) / static_cast<double>(time.timescale);
}

// --- The document's index ------------------------------------------------------

// The attributes the checks read. Any other attribute is left in the tree.
enum class Key : quint8 {
    id,
    ref,
    format,
    name,
    offset,
    start,
    duration,
    frameDuration,
    tcStart,
    audioStart,
    audioDuration,
    lane,
    enabled,
    active,
    srcEnable,
    src,
    kind,
    hasVideo,
    hasAudio,
    width,
    height,
};

// The time attributes, in the order "times are rational seconds" lists them.
constexpr Key timeKeys[] = {Key::offset,   Key::start,      Key::duration,     Key::frameDuration,
                            Key::tcStart, Key::audioStart, Key::audioDuration};

bool isTime(Key key)
{
    return key >= Key::offset && key <= Key::audioDuration;
}

const QString &attributeName(Key key)
{
    static const QString names[] = {
        kId,         kRef,     kFormat,  kName,      kOffset,
        kStart,      kDuration, kFrameDuration, kTcStart, QStringLiteral("audioStart"),
        QStringLiteral("audioDuration"), kLane, kEnabled, kActive, kSrcEnable,
        kSrc,        kKind,    kHasVideo, kHasAudio, QStringLiteral("width"),
        QStringLiteral("height"),
    };
    return names[static_cast<std::size_t>(key)];
}

// The element names the checks tell apart.
enum class Tag : quint8 {
    other,
    asset,
    assetClip,
    audio,
    video,
    clip,
    gap,
    spine,
    sequence,
    format,
    mediaRep,
    channelSource,
};

Tag tagOf(const QString &name)
{
    static const QHash<QString, Tag> tags{
        {kAsset, Tag::asset},       {kAssetClip, Tag::assetClip}, {kAudio, Tag::audio},
        {kVideo, Tag::video},       {kClip, Tag::clip},           {kGap, Tag::gap},
        {kSpine, Tag::spine},       {kSequence, Tag::sequence},   {kFormat, Tag::format},
        {kMediaRep, Tag::mediaRep}, {kChannelSource, Tag::channelSource},
    };
    return tags.value(name, Tag::other);
}

// The attributes the checks read of an element of a kind: the ones any
// element is asked for, the most common first, and those of its own kind.
const std::vector<Key> &keysOf(Tag kind)
{
    static const auto keys = [](std::initializer_list<Key> own) {
        std::vector<Key> list{Key::name,   Key::ref,    Key::offset,  Key::start,
                              Key::duration, Key::format, Key::lane, Key::enabled, Key::id};
        for (const Key key : own)
            list.push_back(key);
        for (const Key key : {Key::frameDuration, Key::tcStart, Key::audioStart, Key::audioDuration}) {
            if (std::find(list.begin(), list.end(), key) == list.end())
                list.push_back(key);
        }
        return list;
    };
    static const std::vector<Key> any = keys({});
    static const std::vector<Key> asset = keys({Key::hasVideo, Key::hasAudio});
    static const std::vector<Key> assetClip = keys({Key::srcEnable});
    static const std::vector<Key> format = keys({Key::frameDuration, Key::width, Key::height});
    static const std::vector<Key> mediaRep = keys({Key::kind, Key::src});
    static const std::vector<Key> channelSource = keys({Key::active});
    switch (kind) {
    case Tag::asset:
        return asset;
    case Tag::assetClip:
        return assetClip;
    case Tag::format:
        return format;
    case Tag::mediaRep:
        return mediaRep;
    case Tag::channelSource:
        return channelSource;
    default:
        return any;
    }
}

// The default an attribute lookup is given, told apart from any value by
// its storage rather than its text. (Sharing is only seen between strings
// on the heap, so not a literal.)
const QString &absent()
{
    static const QString marker(1, QChar(0x1));
    return marker;
}

// The flattened elements with what every check asks of them, read from the
// tree in one walk: name, parent and children, media demand, and the
// attributes the checks read, times parsed once. No check goes back to the
// tree: QDom hands out a new handle for every step and every lookup.
struct Index {
    struct Attribute {
        Key key;
        QString value;
        // For a time attribute, its value when it parses.
        std::optional<FCPXMLTime> time;
    };

    struct Element {
        QString tag;
        Tag kind = Tag::other;
        // Positions in the list; -1 for none. The parent is -1 when it is
        // not in the list (the root's).
        int parent = -1;
        int firstChild = -1;
        int nextSibling = -1;
        // This element's attributes in `attributes`.
        qsizetype attributesFrom = 0;
        qsizetype attributesTo = 0;
        std::optional<MediaDemand> demand;
    };

    std::vector<Element> elements;
    std::vector<Attribute> attributes;
    QHash<QString, int> byId; // the first element of each id

    // The root and all its descendants, parents first, in document order.
    explicit Index(const QDomElement &root)
    {
        if (!root.isNull())
            walk(root, -1);
        finish();
    }

    // A list that `flatten` made.
    explicit Index(const std::vector<QDomElement> &all)
    {
        elements.reserve(all.size());
        // The list is in document order, parents first: an element's parent
        // is on the stack of its open ancestors.
        std::vector<int> open;
        for (std::size_t i = 0; i < all.size(); ++i) {
            const QDomNode parent = all[i].parentNode();
            while (!open.empty() && all[static_cast<std::size_t>(open.back())] != parent)
                open.pop_back();
            open.push_back(add(all[i], open.empty() ? -1 : open.back()));
        }
        finish();
    }

    std::size_t size() const { return elements.size(); }
    const QString &tag(std::size_t i) const { return elements[i].tag; }
    Tag kind(std::size_t i) const { return elements[i].kind; }
    int parent(std::size_t i) const { return elements[i].parent; }
    const std::optional<MediaDemand> &demand(std::size_t i) const { return elements[i].demand; }

    // The attribute of an element; null when it has none.
    const Attribute *find(std::size_t i, Key key) const
    {
        const Element &e = elements[i];
        for (qsizetype a = e.attributesFrom; a < e.attributesTo; ++a) {
            if (attributes[static_cast<std::size_t>(a)].key == key)
                return &attributes[static_cast<std::size_t>(a)];
        }
        return nullptr;
    }

    bool has(std::size_t i, Key key) const { return find(i, key) != nullptr; }

    std::optional<QString> attribute(std::size_t i, Key key) const
    {
        const Attribute *a = find(i, key);
        if (!a)
            return std::nullopt;
        return a->value;
    }

    // The value, empty when absent, as QDomElement::attribute gives it.
    QString text(std::size_t i, Key key) const
    {
        const Attribute *a = find(i, key);
        return a ? a->value : QString();
    }

    bool is(std::size_t i, Key key, const QString &value) const
    {
        const Attribute *a = find(i, key);
        return a ? a->value == value : value.isEmpty();
    }

    // A time attribute in seconds; none when absent or unparsable.
    std::optional<double> parsedSeconds(std::size_t i, Key key) const
    {
        const Attribute *a = find(i, key);
        if (!a || !a->time)
            return std::nullopt;
        return secondsOf(*a->time);
    }

    // The same, absent or unparsable reading as 0.
    double seconds(std::size_t i, Key key) const { return parsedSeconds(i, key).value_or(0); }

    // A clip's label: its name, or "?" without one.
    QString label(std::size_t i) const { return attribute(i, Key::name).value_or(QStringLiteral("?")); }

    // The lane of an element, 0 when it has none or it is not an integer.
    int lane(std::size_t i) const
    {
        const Attribute *a = find(i, Key::lane);
        if (!a)
            return 0;
        bool ok = false;
        const int lane = a->value.toInt(&ok);
        return ok ? lane : 0;
    }

    bool isDisabled(std::size_t i) const { return is(i, Key::enabled, kZero); }

    // The position of the element with an id; -1 when none has it.
    int find(const QString &id) const { return byId.value(id, -1); }

    // The position of the element a reference names when it has that
    // element name; -1 otherwise.
    int resolved(std::size_t i, Key reference, Tag wanted) const
    {
        const Attribute *a = find(i, reference);
        if (!a)
            return -1;
        const int target = find(a->value);
        return target >= 0 && elements[static_cast<std::size_t>(target)].kind == wanted ? target : -1;
    }

    int first(Tag wanted) const
    {
        for (std::size_t i = 0; i < elements.size(); ++i) {
            if (elements[i].kind == wanted)
                return static_cast<int>(i);
        }
        return -1;
    }

    // True when the element has at least one child `audio-channel-source`
    // and every one of them has `enabled`="0" or `active`="0".
    bool channelSourcesMuted(std::size_t i) const
    {
        bool any = false;
        for (int c = elements[i].firstChild; c >= 0; c = elements[static_cast<std::size_t>(c)].nextSibling) {
            const auto child = static_cast<std::size_t>(c);
            if (elements[child].kind != Tag::channelSource)
                continue;
            any = true;
            if (!is(child, Key::enabled, kZero) && !is(child, Key::active, kZero))
                return false;
        }
        return any;
    }

    // The `media-rep` an asset relinks through: its first one of kind
    // "original-media"; -1 without one.
    int originalMediaRep(std::size_t asset) const
    {
        for (int c = elements[asset].firstChild; c >= 0; c = elements[static_cast<std::size_t>(c)].nextSibling) {
            const auto child = static_cast<std::size_t>(c);
            if (elements[child].kind == Tag::mediaRep && is(child, Key::kind, kOriginalMedia))
                return c;
        }
        return -1;
    }

    // The standardized path of the file an asset relinks to; none when its
    // `media-rep` is missing or not a local file.
    std::optional<QString> assetMediaPath(std::size_t asset) const
    {
        const int rep = originalMediaRep(asset);
        if (rep < 0)
            return std::nullopt;
        const auto src = attribute(static_cast<std::size_t>(rep), Key::src);
        if (!src)
            return std::nullopt;
        const QUrl url(*src, QUrl::StrictMode);
        if (!url.isValid() || !url.isLocalFile())
            return std::nullopt;
        return standardizedPath(url.toLocalFile());
    }

private:
    std::vector<int> m_lastChild;

    void walk(const QDomElement &element, int parent)
    {
        const int at = add(element, parent);
        for (QDomElement child = element.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
            walk(child, at);
    }

    int add(const QDomElement &element, int parent)
    {
        const int at = static_cast<int>(elements.size());
        Element e;
        e.tag = element.tagName();
        e.kind = tagOf(e.tag);
        e.parent = parent;
        e.attributesFrom = static_cast<qsizetype>(attributes.size());
        // One lookup by name for each attribute the checks read of this kind
        // of element (walking QDom's attribute map by position costs more),
        // and none once every attribute the element has is found.
        int remaining = element.attributes().count();
        for (const Key key : keysOf(e.kind)) {
            if (remaining == 0)
                break;
            QString value = element.attribute(attributeName(key), absent());
            if (value.isSharedWith(absent()))
                continue;
            --remaining;
            Attribute attribute{key, std::move(value), std::nullopt};
            if (isTime(key))
                attribute.time = FCPXMLTime::parse(attribute.value);
            attributes.push_back(std::move(attribute));
        }
        e.attributesTo = static_cast<qsizetype>(attributes.size());
        elements.push_back(std::move(e));
        m_lastChild.push_back(-1);
        if (parent >= 0) {
            const auto p = static_cast<std::size_t>(parent);
            if (m_lastChild[p] < 0)
                elements[p].firstChild = at;
            else
                elements[static_cast<std::size_t>(m_lastChild[p])].nextSibling = at;
            m_lastChild[p] = at;
        }
        return at;
    }

    // What needs the whole list: media demands (they look at children) and
    // the ids.
    void finish()
    {
        m_lastChild = {};
        for (std::size_t i = 0; i < elements.size(); ++i) {
            switch (elements[i].kind) {
            case Tag::audio:
                elements[i].demand = MediaDemand{false, true};
                break;
            case Tag::video:
                elements[i].demand = MediaDemand{true, false};
                break;
            case Tag::assetClip:
                if (is(i, Key::srcEnable, kAudio))
                    elements[i].demand = MediaDemand{false, true};
                else if (is(i, Key::srcEnable, kVideo))
                    elements[i].demand = MediaDemand{true, false};
                else
                    elements[i].demand = channelSourcesMuted(i) ? MediaDemand{true, false} : MediaDemand{false, false};
                break;
            default:
                break;
            }
        }
        byId.reserve(static_cast<qsizetype>(elements.size() / 4 + 1));
        // Backwards, so that the first element of each id is the one kept.
        for (std::size_t i = elements.size(); i-- > 0;) {
            if (const Attribute *id = find(i, Key::id))
                byId.insert(id->value, static_cast<int>(i));
        }
    }
};

// A set of texts in QString order.
QStringList sorted(const QSet<QString> &texts)
{
    QStringList list(texts.begin(), texts.end());
    std::sort(list.begin(), list.end());
    return list;
}

// --- Checks 1 to 3 -----------------------------------------------------------------

std::vector<Check> referenceChecks(const Index &index)
{
    QSet<QString> references;
    QSet<QString> ids;
    QStringList wrongKinds;
    int kindChecked = 0;

    for (std::size_t i = 0; i < index.size(); ++i) {
        if (const auto *id = index.find(i, Key::id))
            ids.insert(id->value);
        const auto *format = index.find(i, Key::format);
        const auto *ref = index.find(i, Key::ref);
        if (format)
            references.insert(format->value);
        if (ref)
            references.insert(ref->value);

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
            kindOf(kFormat, format->value, kFormat);
        if (ref && index.demand(i))
            kindOf(kRef, ref->value, kAsset);
    }

    QStringList unresolved;
    for (const auto &reference : sorted(references)) {
        if (!ids.contains(reference))
            unresolved.push_back(reference);
    }
    QStringList orphaned;
    for (const auto &id : sorted(ids)) {
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
    const int sequence = index.first(Tag::sequence);
    if (sequence < 0)
        return Check{sequenceFormatName, false, QStringLiteral("no sequence")};
    const auto id = index.attribute(static_cast<std::size_t>(sequence), Key::format);
    const int target = id ? index.find(*id) : -1;
    const QString targetName = target < 0 ? QStringLiteral("missing") : index.tag(static_cast<std::size_t>(target));
    if (targetName != kFormat)
        return Check{sequenceFormatName, false,
                     id.value_or(QString()) + QStringLiteral(" is <") + targetName + QStringLiteral(">, not a <format>")};
    const auto format = static_cast<std::size_t>(target);
    QStringList missing;
    for (const auto &[key, needed] : {std::pair{Key::frameDuration, kFrameDuration},
                                      std::pair{Key::width, QStringLiteral("width")},
                                      std::pair{Key::height, QStringLiteral("height")}}) {
        if (!index.has(format, key))
            missing.push_back(needed);
    }
    if (!missing.isEmpty())
        return Check{sequenceFormatName, false,
                     QStringLiteral("format ") + *id + QStringLiteral(" is missing ") + missing.join(kComma)};
    return Check{sequenceFormatName, true, *id + QStringLiteral(" = ") + index.text(format, Key::name)};
}

Check relinkCheck(const Index &index)
{
    int assets = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (index.kind(i) != Tag::asset)
            continue;
        ++assets;
        const QString name = index.label(i);
        const int rep = index.originalMediaRep(i);
        if (rep < 0) {
            failures.push_back(name + QStringLiteral(": no original-media rep"));
            continue;
        }
        const QString src = index.text(static_cast<std::size_t>(rep), Key::src);
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
        const auto &demand = index.demand(i);
        if (!demand)
            continue;
        const int assetAt = index.resolved(i, Key::ref, Tag::asset);
        if (assetAt < 0)
            continue;
        const auto asset = static_cast<std::size_t>(assetAt);
        ++users;
        const bool hasVideo = index.is(asset, Key::hasVideo, kOne);
        const bool hasAudio = index.is(asset, Key::hasAudio, kOne);
        if ((demand->video && !hasVideo) || (demand->audio && !hasAudio)) {
            const QString clip = QLatin1Char('<') + index.tag(i) + QStringLiteral("> ") + index.label(i);
            const QString assetName = index.label(asset);
            if (demand->video && !hasVideo)
                failures.push_back(clip + QStringLiteral(" needs video, ") + assetName + QStringLiteral(" has none"));
            if (demand->audio && !hasAudio)
                failures.push_back(clip + QStringLiteral(" needs audio, ") + assetName + QStringLiteral(" has none"));
        }

        // An audio-only clip on a lane takes its host's video format unless
        // it names one without a frame rate of its own.
        const auto *lane = index.find(i, Key::lane);
        const bool onLane = lane && lane->value.trimmed() != kZero;
        if (index.kind(i) == Tag::assetClip && onLane && !hasVideo) {
            const int format = index.resolved(i, Key::format, Tag::format);
            if (format < 0 || index.has(static_cast<std::size_t>(format), Key::frameDuration)) {
                const QString clip = QLatin1Char('<') + index.tag(i) + QStringLiteral("> ") + index.label(i);
                const QString named = index.attribute(i, Key::format).value_or(QStringLiteral("no format attribute"));
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
        if (!index.demand(i))
            continue;
        const double s = index.seconds(i, Key::start);
        const bool hasDuration = index.has(i, Key::duration);
        const double d = index.seconds(i, Key::duration);

        const int assetAt = index.resolved(i, Key::ref, Tag::asset);
        if (hasDuration && assetAt >= 0) {
            const auto asset = static_cast<std::size_t>(assetAt);
            ++ranges;
            const double a = index.seconds(asset, Key::start);
            const double b = a + index.seconds(asset, Key::duration);
            if (s < a - rangeTolerance - roundingSlack || s + d > b + rangeTolerance + roundingSlack)
                failures.push_back(QStringLiteral("%1 reads %2–%3s of an asset that holds %4–%5s")
                                       .arg(index.label(i), fixed3(s), fixed3(s + d), fixed3(a), fixed3(b)));
        }

        const int lane = index.lane(i);
        const int parentAt = index.parent(i);
        if (lane != 0 && parentAt >= 0 && index.demand(static_cast<std::size_t>(parentAt))) {
            const auto parent = static_cast<std::size_t>(parentAt);
            ++ranges;
            const double p = index.seconds(parent, Key::start);
            const double q = p + index.seconds(parent, Key::duration);
            const double o = index.seconds(i, Key::offset);
            // A ride-along is tested for its anchor point only; the synced
            // sound under a clip must fit whole.
            const double e = lane > 0 ? o : o + d;
            if (o < p - rangeTolerance - roundingSlack || e > q + rangeTolerance + roundingSlack)
                failures.push_back(QStringLiteral("anchored %1 sits %2–%3s in a parent local timeline of %4–%5s")
                                       .arg(index.label(i), fixed3(o), fixed3(e), fixed3(p), fixed3(q)));
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
        if (index.kind(i) != Tag::asset)
            continue;
        const auto path = index.assetMediaPath(i);
        if (!path)
            continue;
        const auto found = timecodes.find(*path);
        if (found == timecodes.end())
            continue;
        ++assets;
        const double s = index.seconds(i, Key::start);
        const double t = timecodeSeconds(found->second);
        if (t > 0)
            ++timecoded;
        if (!within(s - t, timecodeTolerance))
            failures.push_back(QStringLiteral("%1 declares start %2s but its media timecode is %3s (%4) — every "
                                              "reference into it points at time the file does not contain")
                                   .arg(index.label(i), fixed3(s), fixed3(t), MediaTimecode::label(t)));
    }
    return Check{assetTimecodeName, failures.isEmpty(),
                 failures.isEmpty() ? QString::number(assets) + QStringLiteral(" asset(s), ") + QString::number(timecoded)
                                          + QStringLiteral(" timecoded")
                                    : firstFive(failures)};
}

// --- Check 9 -------------------------------------------------------------------------

QString timeAttributeName(Key key)
{
    switch (key) {
    case Key::offset:
        return kOffset;
    case Key::start:
        return kStart;
    case Key::duration:
        return kDuration;
    case Key::frameDuration:
        return kFrameDuration;
    case Key::tcStart:
        return kTcStart;
    case Key::audioStart:
        return QStringLiteral("audioStart");
    case Key::audioDuration:
        return QStringLiteral("audioDuration");
    default:
        return QString();
    }
}

Check timeFormatCheck(const Index &index)
{
    int count = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        for (const Key key : timeKeys) {
            const auto *a = index.find(i, key);
            if (!a)
                continue;
            ++count;
            if (!a->time)
                failures.push_back(index.label(i) + QLatin1Char('@') + timeAttributeName(key) + QLatin1Char('=')
                                   + a->value);
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
        const Tag kind = index.kind(i);
        if (kind == Tag::format) {
            if (const auto *id = index.find(i, Key::id)) {
                const auto *frame = index.find(i, Key::frameDuration);
                if (frame && frame->time && frame->time->value != 0)
                    frameDurations.insert(id->value, *frame->time);
            }
        } else if (kind == Tag::asset) {
            const auto *id = index.find(i, Key::id);
            const auto *format = index.find(i, Key::format);
            if (id && format)
                assetFormats.insert(id->value, format->value);
        }
    }
    const int sequence = index.first(Tag::sequence);
    const std::optional<QString> sequenceFormat =
        sequence < 0 ? std::nullopt : index.attribute(static_cast<std::size_t>(sequence), Key::format);

    const auto grid = [&](const std::optional<QString> &formatId) -> std::optional<FCPXMLTime> {
        if (!formatId)
            return std::nullopt;
        const auto found = frameDurations.constFind(*formatId);
        if (found == frameDurations.constEnd())
            return std::nullopt;
        return *found;
    };
    const std::optional<FCPXMLTime> sequenceGrid = grid(sequenceFormat);

    int values = 0;
    QStringList failures;
    for (std::size_t i = 0; i < index.size(); ++i) {
        const int parent = index.parent(i);
        if (index.kind(i) != Tag::assetClip || parent < 0 || index.kind(static_cast<std::size_t>(parent)) != Tag::spine)
            continue;
        std::optional<FCPXMLTime> ownGrid;
        if (const auto *ref = index.find(i, Key::ref)) {
            const auto found = assetFormats.constFind(ref->value);
            if (found != assetFormats.constEnd())
                ownGrid = grid(*found);
        }
        for (const Key key : {Key::offset, Key::start, Key::duration}) {
            const auto *a = index.find(i, key);
            if (!a || !a->time)
                continue;
            const auto &frame = key == Key::offset && sequenceFormat ? sequenceGrid : ownGrid;
            if (!frame)
                continue;
            ++values;
            // v/t lies on a grid of n/d exactly when v·d is a whole multiple
            // of t·n; 128 bits hold both products.
            const Wide scaled = static_cast<Wide>(a->time->value) * frame->timescale;
            const Wide step = static_cast<Wide>(a->time->timescale) * frame->value;
            if (step == 0 || scaled % step != 0)
                failures.push_back(index.label(i) + QLatin1Char('@') + timeAttributeName(key) + QLatin1Char('=')
                                   + a->value);
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
    const int sequence = index.first(Tag::sequence);
    const int spineAt = index.first(Tag::spine);

    // The storyline: each clip starts where the one before it ends.
    int spineClips = 0;
    double keptSum = 0;
    QStringList disabled;
    int disabledCount = 0;
    QStringList holes;
    double cursor = sequence < 0 ? 0 : index.seconds(static_cast<std::size_t>(sequence), Key::tcStart);
    for (int c = spineAt < 0 ? -1 : index.elements[static_cast<std::size_t>(spineAt)].firstChild; c >= 0;
         c = index.elements[static_cast<std::size_t>(c)].nextSibling) {
        const auto child = static_cast<std::size_t>(c);
        const Tag kind = index.kind(child);
        if (kind != Tag::assetClip && kind != Tag::clip && kind != Tag::gap)
            continue;
        ++spineClips;
        const double offset = index.seconds(child, Key::offset);
        const double duration = index.seconds(child, Key::duration);
        if (!within(offset - cursor, halfFrame))
            holes.push_back(QString::asprintf("%s starts at %.3fs, the clip before it ends at %.3fs",
                                              qUtf8Printable(index.label(child)), offset, cursor));
        cursor = offset + duration;
        keptSum += duration;
        if (index.isDisabled(child)) {
            ++disabledCount;
            disabled.push_back(index.label(child));
        }
    }

    // The ride-alongs: every disabled media user outside the storyline.
    int rideAlongs = 0;
    double rideSum = 0;
    std::set<int> lanes;
    QStringList offLane;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (!index.demand(i) || (spineAt >= 0 && index.parent(i) == spineAt))
            continue;
        if (!index.isDisabled(i))
            continue;
        ++rideAlongs;
        rideSum += index.seconds(i, Key::duration);
        const auto laneText = index.attribute(i, Key::lane);
        bool ok = false;
        const int lane = laneText ? laneText->toInt(&ok) : 0;
        if (ok && lane >= 1)
            lanes.insert(lane);
        else
            offLane.push_back(index.label(i) + QStringLiteral(" is disabled on lane ") + laneText.value_or(kZero));
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

    const auto sequenceDuration =
        sequence < 0 ? std::nullopt : index.parsedSeconds(static_cast<std::size_t>(sequence), Key::duration);
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
    for (int i = static_cast<int>(at); i >= 0; i = index.parent(static_cast<std::size_t>(i))) {
        const auto e = static_cast<std::size_t>(i);
        if (index.isDisabled(e))
            return false;
        if (index.lane(e) != 0)
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
        if (index.kind(i) != Tag::asset)
            continue;
        const auto *id = index.find(i, Key::id);
        if (!id)
            continue;
        AssetAudio audio;
        audio.hasAudio = index.is(i, Key::hasAudio, kOne);
        if (const auto path = index.assetMediaPath(i))
            audio.removed = removedByPath.value(*path);
        assets.insert(id->value, std::move(audio));
    }

    int checked = 0;
    int leaks = 0;
    QStringList texts;
    for (std::size_t i = 0; i < index.size(); ++i) {
        if (!index.demand(i) || !playsOnTimeline(index, i))
            continue;
        const auto *ref = index.find(i, Key::ref);
        if (!ref)
            continue;
        const auto asset = assets.constFind(ref->value);
        if (asset == assets.constEnd())
            continue;
        if (index.kind(i) != Tag::audio && (!asset->hasAudio || index.channelSourcesMuted(i)))
            continue;
        ++checked;
        const double s = index.seconds(i, Key::start);
        const double e = s + index.seconds(i, Key::duration);
        for (const Range &range : asset->removed) {
            const double overlap = std::min(range.to, e) - std::max(range.from, s);
            if (overlap > leakTolerance + roundingSlack) {
                ++leaks;
                texts.push_back(QString::asprintf("%s plays %.3f–%.3fs, which was removed (%.3f–%.3fs, %.0f ms of it)",
                                                  qUtf8Printable(index.label(i)), s, e, range.from, range.to,
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
    return dtdCheck(xml.toUtf8());
}

Check dtdCheck(const QByteArray &data)
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
        writeFileAtomically(path, data);
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
    return validate(xml.toUtf8(), plan);
}

Report validate(const QByteArray &data, const ExportPlan &plan)
{
    Report report;
    {
        QDomDocument document;
        QString error;
        int line = 0;
        int column = 0;
        if (!document.setContent(data, false, &error, &line, &column)) {
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

        // Everything the checks read is copied out of the tree once, here.
        const Index index(root);
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
    }

    Check dtd = dtdCheck(data);
    report.dtdValidated = dtd.passed && !(dtd.detail && dtd.detail->startsWith(QStringLiteral("skipped")));
    report.checks.push_back(std::move(dtd));
    return report;
}

} // namespace velum::FCPXMLValidation
