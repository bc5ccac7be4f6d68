#include "stages/C0Probe.h"

#include <algorithm>

namespace velum {

const C0Probe::Clip *C0Probe::clip(const QString &id) const &
{
    const auto found = std::find_if(clips.begin(), clips.end(), [&](const Clip &c) { return c.clipId == id; });
    return found == clips.end() ? nullptr : &*found;
}

std::vector<C0Probe::Clip> C0Probe::usableClips() const
{
    std::vector<Clip> usable;
    std::copy_if(clips.begin(), clips.end(), std::back_inserter(usable),
                 [](const Clip &c) { return c.state != ProjectFileState::failed; });
    return usable;
}

} // namespace velum
