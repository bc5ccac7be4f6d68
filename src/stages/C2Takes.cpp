#include "stages/C2Takes.h"

#include "stages/StageCoding.h"

#include <algorithm>

namespace velum {

std::vector<C2Takes::Cut> C2Takes::cutsFor(const QString &clipId) const
{
    std::vector<Cut> found;
    std::copy_if(cuts.begin(), cuts.end(), std::back_inserter(found),
                 [&](const Cut &c) { return c.clipId == clipId; });
    return found;
}

} // namespace velum

namespace velum::json {

QJsonValue Coding<C2Takes::Cut>::encode(const C2Takes::Cut &cut, KeyStyle style)
{
    QJsonObject o;
    encodeInto(o, "clipId", cut.clipId, style);
    encodeInto(o, "wordStart", cut.wordStart, style);
    encodeInto(o, "wordEnd", cut.wordEnd, style);
    encodeInto(o, "startS", cut.startS, style);
    encodeInto(o, "endS", cut.endS, style);
    encodeInto(o, "reason", cut.reason, style);
    encodeInto(o, "clusterId", cut.clusterId, style);
    return o;
}

C2Takes::Cut Coding<C2Takes::Cut>::decode(const QJsonValue &value, KeyStyle style)
{
    const QJsonObject o = requireObject(value);
    C2Takes::Cut cut{
        .clipId = decodeRequired<QString>(o, "clipId", style),
        .wordStart = decodeRequired<int>(o, "wordStart", style),
        .wordEnd = decodeRequired<int>(o, "wordEnd", style),
        .startS = decodeRequired<double>(o, "startS", style),
        .endS = decodeRequired<double>(o, "endS", style),
        .reason = decodeRequired<QString>(o, "reason", style),
        .clusterId = decodeRequired<int>(o, "clusterId", style),
    };
    if (cut.wordEnd < cut.wordStart) {
        DecodingError e(QStringLiteral("%1 is below %2 (%3)")
                            .arg(QString::number(cut.wordEnd), keyFor("wordStart", style), QString::number(cut.wordStart)));
        e.within(keyFor("wordEnd", style));
        throw e;
    }
    return cut;
}

} // namespace velum::json
