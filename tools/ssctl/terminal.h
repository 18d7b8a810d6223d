/// What the standard streams can show.
#ifndef SSCTL_TERMINAL_H
#define SSCTL_TERMINAL_H

#include <cstdio>

namespace Ssctl {

/// True for a terminal that can move its cursor.
[[nodiscard]] bool IsTerminal(std::FILE* stream);

/// True for such a terminal, unless the environment variable NO_COLOR is set.
[[nodiscard]] bool WantsColour(std::FILE* stream);

}  // namespace Ssctl

#endif
