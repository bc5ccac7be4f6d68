#include "style/ProfileMigration.h"

namespace velum::ProfileMigration {

void run(const StateStore &store, const ProfileStore &profiles)
{
    profiles.migrateLegacyLayout();
    const CreatorProfile fallback = profiles.ensureDefault();

    PersistedState state = store.load();
    if (state.version >= PersistedState::currentVersion)
        return;

    if (state.version < 2) {
        // The first format had one implicit profile: it is the default one.
        for (auto &project : state.projects) {
            if (!project.profileID)
                project.profileID = fallback.id;
        }
        for (auto &video : state.styleVideos) {
            if (!video.profileID)
                video.profileID = fallback.id;
        }
    }

    state = adoptServerAttribution(std::move(state));
    state.version = PersistedState::currentVersion;
    store.save(state);
}

PersistedState adoptServerAttribution(PersistedState state)
{
    std::erase_if(state.styleVideos, [](const StyleVideo &v) { return v.status == StyleVideoStatus::analyzed; });
    state.profileSnapshot = ProfileSnapshot{};
    return state;
}

} // namespace velum::ProfileMigration
