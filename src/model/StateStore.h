#pragma once

// "state.json": the one file of an account's remembered state, read and
// written with the state coder (field names as keys).
//
// Reading never fails: a file that cannot be read or decoded gives a fresh
// state, and what was stored is repaired for a new process (no job runs yet,
// files may have gone). Writing never fails either: a failed save leaves the
// previous file as it was and is logged as "velum: error: ...".
//
// The store has no lock; the application coordinator calls it from one place.

#include "model/PersistedState.h"

#include <QString>
#include <QUrl>

#include <optional>

namespace velum {

struct StateStore {
    // Used in place of the account's store root.
    std::optional<QUrl> override;

    friend bool operator==(const StateStore &, const StateStore &) = default;

    // The default store: the active account's partition.
    static StateStore shared() { return {}; }

    // "state.json" in `override`, or else in AccountPartition::storeRoot().
    QUrl fileURL() const;

    // The stored state, repaired; a fresh state when there is none.
    PersistedState load() const;

    // Makes the store root with its parents and writes the state atomically.
    // Any failure is swallowed.
    void save(const PersistedState &state) const;

    // Loading of any file, as `load` does for the store's own.
    static PersistedState load(const QString &path);

    // What a new process fixes in a stored state: a `processing` project
    // is a `draft` again (no job of this process runs yet), and a file gone
    // from its path is `failed`; an `analyzing` style video is `queued`
    // with no progress, and one whose file is gone is `failed`.
    static void repair(PersistedState &state);
};

} // namespace velum
