#include "export/FCPXMLWriter.h"

#include <QDir>
#include <QHash>
#include <QStringList>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace velum::FCPXMLWriter {

namespace {

constexpr qint64 audioTimescale = 48000;

using FrameArithmetic::rounded;
using FrameArithmetic::truncated;

double seconds(const FCPXMLTime &t)
{
    return static_cast<double>(t.value) / static_cast<double>(t.timescale);
}

// Frames a second: the reciprocal of a frame's duration.
double framesPerSecond(const FCPXMLFrameRate &rate)
{
    return static_cast<double>(rate.frameDen) / static_cast<double>(rate.frameNum);
}

FCPXMLFrameRate clipRate(const ClipMedia &media)
{
    return FCPXMLFrameRate(media.fps.value_or(25.0));
}

// Where an asset begins in its file's own time: the media timecode when it
// has a positive value over a positive timescale, otherwise zero.
FCPXMLTime timecodeStart(const std::optional<MediaTimecode> &timecode)
{
    if (timecode && timecode->value >= 1 && timecode->timescale >= 1)
        return FCPXMLTime{timecode->value, timecode->timescale};
    return FCPXMLTime{0, 1};
}

// The `resources` element in the making: identifiers "r1", "r2", ... shared
// by formats and assets in the order they are made.
class Resources {
public:
    QString nextId() { return QStringLiteral("r") + QString::number(++m_counter); }

    QString format(const FormatKey &key)
    {
        for (const auto &[known, id] : m_formats) {
            if (known == key)
                return id;
        }
        const QString id = nextId();
        FCPXMLNode node{QStringLiteral("format"), {}, {}};
        node.add(QStringLiteral("id"), id)
            .add(QStringLiteral("name"), formatName(key.rate, key.width, key.height))
            .add(QStringLiteral("frameDuration"), FCPXMLTime{key.rate.frameNum, key.rate.frameDen}.attribute());
        if (key.width)
            node.add(QStringLiteral("width"), QString::number(*key.width));
        if (key.height)
            node.add(QStringLiteral("height"), QString::number(*key.height));
        node.add(QStringLiteral("colorSpace"), QStringLiteral("1-1-1 (Rec. 709)"));
        m_nodes.push_back(std::move(node));
        m_formats.emplace_back(key, id);
        return id;
    }

    // The format without a rate or size that an audio-only lane clip names,
    // made the first time one needs it.
    QString rateUndefinedFormat()
    {
        if (!m_rateUndefined) {
            m_rateUndefined = nextId();
            FCPXMLNode node{QStringLiteral("format"), {}, {}};
            node.add(QStringLiteral("id"), *m_rateUndefined).add(QStringLiteral("name"), rateUndefinedFormatName);
            m_nodes.push_back(std::move(node));
        }
        return *m_rateUndefined;
    }

    void add(FCPXMLNode node) { m_nodes.push_back(std::move(node)); }

    FCPXMLNode element() &&
    {
        return FCPXMLNode{QStringLiteral("resources"), {}, std::move(m_nodes)};
    }

private:
    int m_counter = 0;
    std::vector<std::pair<FormatKey, QString>> m_formats;
    std::optional<QString> m_rateUndefined;
    std::vector<FCPXMLNode> m_nodes;
};

struct AssetRef {
    QString assetId;
    QString formatId;
    FCPXMLTime start;
};

FCPXMLNode cameraAsset(const ExportPlan::Clip &clip, const QString &id, const QString &formatId,
                       const FCPXMLTime &start)
{
    const ClipMedia &media = clip.media;
    const FCPXMLFrameRate rate = clipRate(media);
    const qint64 frames = std::max<qint64>(truncated(framesPerSecond(rate) * media.durationS + 1e-6), 1);

    FCPXMLNode asset{QStringLiteral("asset"), {}, {}};
    asset.add(QStringLiteral("id"), id)
        .add(QStringLiteral("name"), clip.filename)
        .add(QStringLiteral("start"), start.nativeAttribute())
        .add(QStringLiteral("duration"), FCPXMLTime{FrameArithmetic::multiply(frames, rate.frameNum), rate.frameDen}.attribute())
        .add(QStringLiteral("format"), formatId);
    if (media.videoCodec)
        asset.add(QStringLiteral("hasVideo"), QStringLiteral("1")).add(QStringLiteral("videoSources"), QStringLiteral("1"));
    if (media.audioCodec) {
        asset.add(QStringLiteral("hasAudio"), QStringLiteral("1"))
            .add(QStringLiteral("audioSources"), QStringLiteral("1"))
            .add(QStringLiteral("audioChannels"), QString::number(media.audioChannels.value_or(2)));
        if (media.audioSampleRate)
            asset.add(QStringLiteral("audioRate"), QString::number(*media.audioSampleRate));
    }
    asset.children.push_back(mediaRep(clip.url));
    return asset;
}

FCPXMLNode externalAsset(const ExportPlan::ExternalAudio &audio, const QString &id, const FCPXMLTime &start)
{
    FCPXMLNode asset{QStringLiteral("asset"), {}, {}};
    asset.add(QStringLiteral("id"), id)
        .add(QStringLiteral("name"), audio.filename)
        .add(QStringLiteral("start"), start.nativeAttribute())
        .add(QStringLiteral("duration"),
             FCPXMLTime{rounded(audio.durationS * static_cast<double>(audioTimescale)), audioTimescale}.attribute())
        .add(QStringLiteral("hasAudio"), QStringLiteral("1"))
        .add(QStringLiteral("audioSources"), QStringLiteral("1"))
        .add(QStringLiteral("audioChannels"), QString::number(audio.channels.value_or(1)));
    if (audio.sampleRate)
        asset.add(QStringLiteral("audioRate"), QString::number(*audio.sampleRate));
    asset.children.push_back(mediaRep(audio.url));
    return asset;
}

} // namespace

QString reasonLabel(CutReason reason)
{
    switch (reason) {
    case CutReason::silence:
        return QStringLiteral("Silence");
    case CutReason::filler:
        return QStringLiteral("Filler");
    case CutReason::retake:
        return QStringLiteral("Retake");
    case CutReason::noise:
        return QStringLiteral("Noise");
    case CutReason::offScript:
        return QStringLiteral("Off-script");
    case CutReason::manual:
        return QStringLiteral("Your cut");
    }
    return QString();
}

std::optional<QString> rateToken(const FCPXMLFrameRate &rate)
{
    static const std::array<std::pair<double, const char *>, 8> table{{
        {24000.0 / 1001.0, "2398"},
        {24.0, "24"},
        {25.0, "25"},
        {30000.0 / 1001.0, "2997"},
        {30.0, "30"},
        {50.0, "50"},
        {60000.0 / 1001.0, "5994"},
        {60.0, "60"},
    }};
    if (rate.frameNum == 0)
        return std::nullopt;
    const double fps = framesPerSecond(rate);
    for (const auto &[known, token] : table) {
        if (std::fabs(fps - known) < 0.01)
            return QString::fromLatin1(token);
    }
    return std::nullopt;
}

QString formatName(const FCPXMLFrameRate &rate, std::optional<int> width, std::optional<int> height)
{
    if (!width || !height || *width < 1 || *height < 1)
        return rateUndefinedFormatName;
    const auto token = rateToken(rate);
    if (!token)
        return rateUndefinedFormatName;
    QString size;
    if (*width == 1280 && *height == 720)
        size = QStringLiteral("720");
    else if (*width == 1920 && *height == 1080)
        size = QStringLiteral("1080");
    else
        size = QString::number(*width) + QLatin1Char('x') + QString::number(*height);
    return QStringLiteral("FFVideoFormat") + size + QLatin1Char('p') + *token;
}

FCPXMLNode mediaRep(const QUrl &url)
{
    QUrl absolute = url;
    if (url.isLocalFile() || url.scheme().isEmpty()) {
        const QString path = url.isLocalFile() ? url.toLocalFile() : url.path();
        absolute = QUrl::fromLocalFile(QDir::isRelativePath(path) ? QDir::current().absoluteFilePath(path) : path);
    }
    FCPXMLNode rep{QStringLiteral("media-rep"), {}, {}};
    rep.add(QStringLiteral("kind"), QStringLiteral("original-media"))
        .add(QStringLiteral("src"), absolute.toString(QUrl::FullyEncoded));
    return rep;
}

std::optional<FCPXMLNode> audioFade(double durationS)
{
    const qint64 samples = rounded(durationS * static_cast<double>(audioTimescale));
    if (samples < 1)
        return std::nullopt;
    const QString length = FCPXMLTime{samples, audioTimescale}.attribute();

    FCPXMLNode fadeIn{QStringLiteral("fadeIn"), {}, {}};
    fadeIn.add(QStringLiteral("type"), QStringLiteral("easeIn")).add(QStringLiteral("duration"), length);
    FCPXMLNode fadeOut{QStringLiteral("fadeOut"), {}, {}};
    fadeOut.add(QStringLiteral("type"), QStringLiteral("easeOut")).add(QStringLiteral("duration"), length);

    FCPXMLNode param{QStringLiteral("param"), {}, {}};
    param.add(QStringLiteral("name"), QStringLiteral("amount"));
    param.children = {std::move(fadeIn), std::move(fadeOut)};

    FCPXMLNode adjust{QStringLiteral("adjust-volume"), {}, {}};
    adjust.add(QStringLiteral("amount"), QStringLiteral("0dB"));
    adjust.children.push_back(std::move(param));
    return adjust;
}

QString sourceChannels(const ClipMedia &media)
{
    const int count = media.audioChannels ? std::max(*media.audioChannels, 1) : 2;
    QStringList channels;
    channels.reserve(count);
    for (int c = 1; c <= count; ++c)
        channels.push_back(QString::number(c));
    return channels.join(QStringLiteral(", "));
}

FCPXMLNode mutedCameraChannels(const ClipMedia &media)
{
    FCPXMLNode source{QStringLiteral("audio-channel-source"), {}, {}};
    source.add(QStringLiteral("srcCh"), sourceChannels(media))
        .add(QStringLiteral("enabled"), QStringLiteral("0"))
        .add(QStringLiteral("active"), QStringLiteral("0"));
    return source;
}

void attach(const std::vector<RideAlong> &rideAlongs, FCPXMLNode &spine, const std::vector<SpineClip> &storyline,
            double sequenceEnd)
{
    if (rideAlongs.empty() || storyline.empty())
        return;
    const std::size_t hostCount = std::min(storyline.size(), spine.children.size());
    if (hostCount == 0)
        return;
    const std::size_t last = hostCount - 1;

    std::vector<double> laneEnds;
    for (const RideAlong &ride : rideAlongs) {
        const std::size_t anchor = static_cast<std::size_t>(std::max(ride.anchorIndex, 0));
        const std::size_t hostIndex = std::min(anchor, last);
        const SpineClip &host = storyline[hostIndex];

        // Before a kept clip the piece anchors at the clip's first frame; a
        // removed tail anchors at the end of the last kept clip.
        FCPXMLTime offset = host.start;
        double position = host.timelineStart;
        if (anchor > last) {
            offset = host.start + host.duration;
            position = sequenceEnd;
        }

        std::size_t lane = 0;
        while (lane < laneEnds.size() && !(position + 1e-6 >= laneEnds[lane]))
            ++lane;
        if (lane == laneEnds.size())
            laneEnds.push_back(0);
        laneEnds[lane] = position + seconds(ride.duration);

        FCPXMLNode clip{QStringLiteral("asset-clip"), {}, {}};
        clip.add(QStringLiteral("ref"), ride.assetId)
            .add(QStringLiteral("lane"), QString::number(lane + 1))
            .add(QStringLiteral("offset"), offset.attribute())
            .add(QStringLiteral("name"), ride.name)
            .add(QStringLiteral("start"), ride.start.attribute())
            .add(QStringLiteral("duration"), ride.duration.attribute())
            .add(QStringLiteral("enabled"), QStringLiteral("0"))
            .add(QStringLiteral("format"), ride.formatId);
        if (ride.hasAudio)
            clip.add(QStringLiteral("audioRole"), QStringLiteral("dialogue"));
        if (ride.reason) {
            FCPXMLNode marker{QStringLiteral("marker"), {}, {}};
            marker.add(QStringLiteral("start"), ride.start.attribute())
                .add(QStringLiteral("duration"), ride.frameDuration.attribute())
                .add(QStringLiteral("value"), QStringLiteral("Velum: ") + reasonLabel(*ride.reason).toLower());
            clip.children.push_back(std::move(marker));
        }

        auto &children = spine.children[hostIndex].children;
        const auto at = std::find_if(children.begin(), children.end(), [](const FCPXMLNode &child) {
            return child.name == QLatin1String("audio-channel-source");
        });
        children.insert(at, std::move(clip));
    }
}

FCPXMLDocument document(const ExportPlan &plan)
{
    Resources resources;

    // 1. The sequence runs at the first clip's rate, 25 fps without one.
    const ExportPlan::Clip *first = plan.clips.empty() ? nullptr : &plan.clips.front();
    const FCPXMLFrameRate sequenceRate = first ? clipRate(first->media) : FCPXMLFrameRate(25.0);
    const QString sequenceFormat = resources.format(FormatKey{
        sequenceRate,
        first ? first->media.width : std::nullopt,
        first ? first->media.height : std::nullopt,
    });

    // 2. One asset per clip file, each after its format when that is new.
    QHash<QString, AssetRef> assets;
    for (const auto &clip : plan.clips) {
        if (assets.contains(clip.clipId))
            continue;
        const QString formatId = resources.format(FormatKey{clipRate(clip.media), clip.media.width, clip.media.height});
        const QString assetId = resources.nextId();
        const FCPXMLTime start = timecodeStart(clip.media.startTimecode);
        resources.add(cameraAsset(clip, assetId, formatId, start));
        assets.insert(clip.clipId, AssetRef{assetId, formatId, start});
    }

    // 3. The separately recorded sound.
    std::optional<AssetRef> external;
    if (plan.externalAudio) {
        const QString assetId = resources.nextId();
        const FCPXMLTime start = timecodeStart(plan.externalAudio->startTimecode);
        resources.add(externalAsset(*plan.externalAudio, assetId, start));
        external = AssetRef{assetId, QString(), start};
    }

    // 4. The storyline.
    FCPXMLNode spine{QStringLiteral("spine"), {}, {}};
    std::vector<SpineClip> storyline;
    std::vector<RideAlong> rideAlongs;
    qint64 sequenceFrames = 0;
    const double sequenceFps = framesPerSecond(sequenceRate);
    const auto sequenceTime = [&](qint64 frames) {
        return FCPXMLTime{FrameArithmetic::multiply(frames, sequenceRate.frameNum), sequenceRate.frameDen};
    };

    for (const auto &clip : plan.clips) {
        const auto asset = assets.constFind(clip.clipId);
        if (asset == assets.constEnd())
            continue;
        const ClipMedia &media = clip.media;
        const FCPXMLFrameRate rate = clipRate(media);
        const double fps = framesPerSecond(rate);
        const FCPXMLTime frameDuration{rate.frameNum, rate.frameDen};
        const bool synced = external.has_value() && clip.externalOffsetS.has_value();

        for (const auto &segment : clip.segments) {
            // The plan's boundaries are frame edges of this rate, so rounding
            // recovers the exact frames.
            const qint64 a = rounded(fps * segment.sourceStart);
            const qint64 b = rounded(fps * segment.sourceEnd);
            if (a >= b)
                continue;
            const FCPXMLTime start = FCPXMLTime{FrameArithmetic::multiply(a, rate.frameNum), rate.frameDen} + asset->start;
            const FCPXMLTime duration{FrameArithmetic::multiply(b - a, rate.frameNum), rate.frameDen};

            if (segment.reason) {
                rideAlongs.push_back(RideAlong{
                    static_cast<int>(storyline.size()),
                    asset->assetId,
                    asset->formatId,
                    clip.filename + QStringLiteral(" — removed: ") + reasonLabel(*segment.reason).toLower(),
                    start,
                    duration,
                    frameDuration,
                    media.audioCodec.has_value(),
                    segment.reason,
                });
                continue;
            }

            FCPXMLNode node{QStringLiteral("asset-clip"), {}, {}};
            node.add(QStringLiteral("ref"), asset->assetId)
                .add(QStringLiteral("offset"), sequenceTime(sequenceFrames).attribute())
                .add(QStringLiteral("name"), clip.filename)
                .add(QStringLiteral("start"), start.attribute())
                .add(QStringLiteral("duration"), duration.attribute());

            const double d = seconds(duration);
            const auto fade = audioFade(std::min(d * 0.5, 0.03));

            if (synced) {
                node.add(QStringLiteral("srcEnable"), QStringLiteral("video"));
                const qint64 sample = std::max<qint64>(
                    rounded((segment.sourceStart + *clip.externalOffsetS) * static_cast<double>(audioTimescale)), 0);
                FCPXMLNode sound{QStringLiteral("asset-clip"), {}, {}};
                sound.add(QStringLiteral("ref"), external->assetId)
                    .add(QStringLiteral("lane"), QStringLiteral("-1"))
                    .add(QStringLiteral("offset"), start.attribute())
                    .add(QStringLiteral("name"), plan.externalAudio->filename)
                    .add(QStringLiteral("start"), (FCPXMLTime{sample, audioTimescale} + external->start).attribute())
                    .add(QStringLiteral("duration"), duration.attribute())
                    .add(QStringLiteral("format"), resources.rateUndefinedFormat())
                    .add(QStringLiteral("audioRole"), QStringLiteral("dialogue"));
                if (fade)
                    sound.children.push_back(*fade);
                node.children.push_back(std::move(sound));
                if (media.audioCodec)
                    node.children.push_back(mutedCameraChannels(media));
            } else if (media.audioCodec) {
                node.add(QStringLiteral("audioRole"), QStringLiteral("dialogue"));
                if (fade)
                    node.children.push_back(*fade);
            }

            storyline.push_back(SpineClip{
                start,
                duration,
                static_cast<double>(FrameArithmetic::multiply(sequenceFrames, sequenceRate.frameNum))
                    / static_cast<double>(sequenceRate.frameDen),
            });
            spine.children.push_back(std::move(node));
            sequenceFrames = FrameArithmetic::add(sequenceFrames, rounded(sequenceFps * d));
        }
    }

    // 5. Removed pieces ride along above the clips they belong to.
    const FCPXMLTime sequenceDuration = sequenceTime(sequenceFrames);
    attach(rideAlongs, spine, storyline, seconds(sequenceDuration));

    // 6. Sequence, project, event, library and the root.
    FCPXMLNode sequence{QStringLiteral("sequence"), {}, {}};
    sequence.add(QStringLiteral("format"), sequenceFormat)
        .add(QStringLiteral("duration"), sequenceDuration.attribute())
        .add(QStringLiteral("tcStart"), QStringLiteral("0s"))
        .add(QStringLiteral("tcFormat"), QStringLiteral("NDF"))
        .add(QStringLiteral("audioLayout"), QStringLiteral("stereo"))
        .add(QStringLiteral("audioRate"), QStringLiteral("48k"));
    sequence.children.push_back(std::move(spine));

    FCPXMLNode project{QStringLiteral("project"), {}, {}};
    project.add(QStringLiteral("name"), plan.projectName);
    project.children.push_back(std::move(sequence));

    FCPXMLNode event{QStringLiteral("event"), {}, {}};
    event.add(QStringLiteral("name"), eventName);
    event.children.push_back(std::move(project));

    FCPXMLNode library{QStringLiteral("library"), {}, {}};
    library.children.push_back(std::move(event));

    FCPXMLNode root{QStringLiteral("fcpxml"), {}, {}};
    root.add(QStringLiteral("version"), version);
    root.children.push_back(std::move(resources).element());
    root.children.push_back(std::move(library));
    return FCPXMLDocument{std::move(root)};
}

} // namespace velum::FCPXMLWriter
