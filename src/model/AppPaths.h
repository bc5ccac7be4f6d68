#pragma once

#include <QString>

namespace velum::AppPaths {

// The application's own folder inside the user's data folder:
// $XDG_DATA_HOME/Velum, by default ~/.local/share/Velum. Nothing is created.
QString base();

} // namespace velum::AppPaths
