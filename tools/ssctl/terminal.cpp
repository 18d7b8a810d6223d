#include "tools/ssctl/terminal.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace Ssctl {

bool IsTerminal(std::FILE* stream) {
    const char* const kind = std::getenv("TERM");
    return isatty(fileno(stream)) != 0 && kind != nullptr && std::strcmp(kind, "dumb") != 0;
}

bool WantsColour(std::FILE* stream) {
    const char* const refusal = std::getenv("NO_COLOR");
    return IsTerminal(stream) && (refusal == nullptr || *refusal == '\0');
}

}  // namespace Ssctl
