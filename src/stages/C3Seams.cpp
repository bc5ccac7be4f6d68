#include "stages/C3Seams.h"

#include <algorithm>

namespace velum {

const C3Seams::Clip *C3Seams::clip(const QString &id) const &
{
    const auto found = std::find_if(clips.begin(), clips.end(), [&](const Clip &c) { return c.clipId == id; });
    return found == clips.end() ? nullptr : &*found;
}

} // namespace velum
