#pragma once

// The user's export default, kept in the application's settings
// (organisation and application "Velum").

#include <QSettings>

namespace velum::ExportPreferences {

// Whether a Final Cut export carries the removed pieces as disabled clips
// (the full plan) or only the kept ones.
inline constexpr char includeRestorableCutsKey[] = "export.includeRestorableCuts";

// True when the key is absent or does not hold a boolean.
bool includeRestorableCuts(const QSettings &settings);
bool includeRestorableCuts();

void setIncludeRestorableCuts(QSettings &settings, bool include);
void setIncludeRestorableCuts(bool include);

} // namespace velum::ExportPreferences
