/// Draws the picture of a timeline. Pure.
#ifndef SSCTL_TIMELINE_SVG_H
#define SSCTL_TIMELINE_SVG_H

#include <string>

#include "tools/ssctl/timeline/picture.h"

namespace Ssctl {

/// A whole SVG document. Needs no font or style from elsewhere.
[[nodiscard]] std::string DrawSvg(const Picture& picture);

}  // namespace Ssctl

#endif
