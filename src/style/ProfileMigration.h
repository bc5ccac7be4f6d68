#pragma once

// Brings an older installation up to date, once at start and before the
// projects are shown: the single-profile folder layout becomes a profile of
// the store, projects and style videos of the first format are given the
// default profile, and videos already analysed are left to the account,
// which now knows them.

#include "model/PersistedState.h"
#include "model/StateStore.h"
#include "style/ProfileStore.h"

namespace velum::ProfileMigration {

// The whole migration. A state already at the current version is left as it
// is; otherwise it is saved at the current version.
void run(const StateStore &store, const ProfileStore &profiles);

// Drops every style video that is `analyzed` (the account's profile list
// holds them now) and empties the profile snapshot so that it is fetched
// anew.
PersistedState adoptServerAttribution(PersistedState state);

} // namespace velum::ProfileMigration
