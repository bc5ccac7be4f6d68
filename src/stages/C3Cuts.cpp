#include "stages/C3Cuts.h"

#include <algorithm>

namespace velum {

const C3Cuts::Clip *C3Cuts::clip(const QString &id) const &
{
    const auto found = std::find_if(clips.begin(), clips.end(), [&](const Clip &c) { return c.clipId == id; });
    return found == clips.end() ? nullptr : &*found;
}

} // namespace velum
