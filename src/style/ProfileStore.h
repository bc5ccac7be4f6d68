#pragma once

// The creator's style profiles on this machine: the profile list and one
// folder of analysis documents for each profile.
//
//   <base>/profiles/index.json                      the list of CreatorProfile
//   <base>/profiles/<ID>/                           one profile's folder
//   <base>/profiles/<ID>/analysis/<video id>.json   one analysed video each
//   <base>/profiles/<ID>/analysis/params.json       the profile document
//
// <ID> is the profile's UUID in canonical upper-case text. The base is the
// active account's store root (AccountPartition::storeRoot()), or `override`.
// Installations from before profiles had folders of their own kept
// "<base>/analysis" (one implicit profile) and "<base>/profile/params.json";
// `migrateLegacyLayout` brings those in once.
//
// Documents are written with the stage coder. Reading the list treats any
// failure as an empty list; writes log a failure as "velum: error: ..." and
// carry on. The store has no lock: writes are atomic, so a reader sees the
// old list or the new one.

#include "model/CreatorProfile.h"

#include <QString>
#include <QUrl>
#include <QUuid>

#include <optional>
#include <vector>

namespace velum {

struct ProfileStore {
    // Replaces the base folder, to keep several stores apart.
    std::optional<QUrl> override;

    friend bool operator==(const ProfileStore &, const ProfileStore &) = default;

    // The default store, in the active account's partition.
    static ProfileStore shared() { return {}; }

    // The folder that holds "profiles" (and the legacy layout).
    QUrl base() const;
    // "profiles" under the base.
    QUrl root() const;
    // "profiles/index.json".
    QUrl indexURL() const;
    // "analysis" and "profile" under the base: the layout of old versions.
    QUrl legacyAnalysisDirectory() const;
    QUrl legacyProfileDirectory() const;
    // "profiles/<ID>".
    QUrl profileDirectory(const QUuid &id) const;
    // "profiles/<ID>/analysis".
    QUrl analysisDirectory(const QUuid &id) const;
    // "params.json" in the profile's analysis folder.
    QUrl paramsURL(const QUuid &id) const;

    // The stored list; an unreadable or missing index is an empty list.
    std::vector<CreatorProfile> profiles() const;

    // Makes "profiles" with its parents and writes the list atomically.
    // A failure is logged, not thrown.
    void write(const std::vector<CreatorProfile> &profiles) const;

    // A new profile, appended to the list, with its analysis folder made. A
    // name that is blank after trimming is "Default".
    CreatorProfile create(const QString &name) const;

    // Removes the profile from the list and its folder with everything in
    // it. A folder that cannot be removed stays. (`delete` in the design.)
    void deleteProfile(const QUuid &id) const;

    // The first profile of the list, or a new "Default" when the list is
    // empty: never nothing.
    CreatorProfile ensureDefault() const;

    // Brings the single-profile layout of old versions into the folder of a
    // profile. Gives that profile, or nothing when there was nothing to
    // bring. A step that fails leaves the old layout in place, so that the
    // next start tries again.
    std::optional<CreatorProfile> migrateLegacyLayout() const;
};

// The name of the profile every user has at least one of.
inline constexpr const char *defaultProfileName = "Default";

} // namespace velum
