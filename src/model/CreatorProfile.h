#pragma once

// One of the creator's style profiles, as the client lists it. The measured
// content of a profile is a separate document kept by the style store; this
// record is what the profile index and the server's profile list share.

#include "model/Json.h"

#include <QDateTime>
#include <QString>
#include <QUuid>

namespace velum {

struct CreatorProfile {
    QUuid id;
    QString name;
    QDateTime createdAt;

    friend bool operator==(const CreatorProfile &, const CreatorProfile &) = default;
};

} // namespace velum

namespace velum::json {

template <>
struct Fields<CreatorProfile> {
    static constexpr auto list = std::tuple{
        field("id", &CreatorProfile::id),
        field("name", &CreatorProfile::name),
        field("createdAt", &CreatorProfile::createdAt),
    };
};

} // namespace velum::json
