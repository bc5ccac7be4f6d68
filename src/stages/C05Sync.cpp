#include "stages/C05Sync.h"

#include "stages/StageCoding.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velum {

const C05Sync::Clip *C05Sync::clip(const QString &id) const &
{
    const auto found = std::find_if(clips.begin(), clips.end(), [&](const Clip &c) { return c.clipId == id; });
    return found == clips.end() ? nullptr : &*found;
}

QStringList C05Sync::shootingOrder() const
{
    std::vector<const Clip *> sorted;
    sorted.reserve(clips.size());
    for (const auto &c : clips)
        sorted.push_back(&c);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Clip *a, const Clip *b) { return a->shootingIndex < b->shootingIndex; });
    QStringList order;
    order.reserve(static_cast<qsizetype>(sorted.size()));
    for (const Clip *c : sorted)
        order.append(c->clipId);
    return order;
}

} // namespace velum

namespace velum::json {

namespace {

std::optional<double> cappedForWriting(std::optional<double> value)
{
    if (value && std::isinf(*value))
        return *value > 0 ? std::numeric_limits<double>::max() : std::numeric_limits<double>::lowest();
    return value;
}

} // namespace

QJsonValue Coding<C05Sync::Clip>::encode(const C05Sync::Clip &clip, KeyStyle style)
{
    QJsonObject o;
    encodeInto(o, "clipId", clip.clipId, style);
    encodeInto(o, "filename", clip.filename, style);
    encodeInto(o, "offsetS", clip.offsetS, style);
    encodeInto(o, "confidence", cappedForWriting(clip.confidence), style);
    encodeInto(o, "syncSource", clip.syncSource, style);
    encodeInto(o, "isSynced", clip.isSynced, style);
    encodeInto(o, "shootingIndex", clip.shootingIndex, style);
    encodeInto(o, "note", clip.note, style);
    return o;
}

C05Sync::Clip Coding<C05Sync::Clip>::decode(const QJsonValue &value, KeyStyle style)
{
    const QJsonObject o = requireObject(value);
    return C05Sync::Clip{
        .clipId = decodeRequired<QString>(o, "clipId", style),
        .filename = decodeRequired<QString>(o, "filename", style),
        .offsetS = decodeOptional<double>(o, "offsetS", style),
        .confidence = decodeOptional<double>(o, "confidence", style),
        .syncSource = decodeRequired<C05Sync::SyncSource>(o, "syncSource", style),
        .isSynced = decodeRequired<bool>(o, "isSynced", style),
        .shootingIndex = decodeRequired<int>(o, "shootingIndex", style),
        .note = decodeOptional<QString>(o, "note", style),
    };
}

} // namespace velum::json
