#include "stages/C4Suggestions.h"

#include "stages/StageCoding.h"

namespace velum::json {

QJsonValue Coding<C4Suggestions::Known>::encode(const C4Suggestions::Known &known, KeyStyle style)
{
    return json::encode(known.value, style);
}

C4Suggestions::Known Coding<C4Suggestions::Known>::decode(const QJsonValue &value, KeyStyle style) noexcept
{
    try {
        return {json::decode<C4Suggestions::Suggestion>(value, style)};
    } catch (const std::exception &) {
        return {};
    }
}

QJsonValue Coding<C4Suggestions>::encode(const C4Suggestions &document, KeyStyle style)
{
    QJsonObject o;
    encodeInto(o, "schemaVersion", document.schemaVersion, style);
    encodeInto(o, "projectId", document.projectId, style);
    encodeInto(o, "createdAt", document.createdAt, style);
    encodeInto(o, "suggestions", document.suggestions, style);
    encodeInto(o, "extraction", document.extraction, style);
    return o;
}

C4Suggestions Coding<C4Suggestions>::decode(const QJsonValue &value, KeyStyle style)
{
    const QJsonObject o = requireObject(value);
    C4Suggestions document{
        .schemaVersion = decodeRequired<int>(o, "schemaVersion", style),
        .projectId = decodeRequired<QString>(o, "projectId", style),
        .createdAt = decodeRequired<QDateTime>(o, "createdAt", style),
        .suggestions = {},
        .extraction = {},
    };
    for (auto &known : decodeRequired<std::vector<C4Suggestions::Known>>(o, "suggestions", style)) {
        if (known.value)
            document.suggestions.push_back(std::move(*known.value));
    }
    document.extraction = decodeRequired<analysis::Extraction>(o, "extraction", style);
    return document;
}

} // namespace velum::json
