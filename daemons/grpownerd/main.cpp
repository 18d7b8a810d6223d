#include <cstdio>
#include <exception>

#include "daemons/grpownerd/options.h"
#include "daemons/grpownerd/owner_process.h"

int main(int argc, char** argv) {
    try {
        const ParsedOptions parsed = ParseOptions(argc, argv);
        return parsed.run ? RunOwner(parsed.options) : parsed.exitCode;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "grpownerd: %s\n", error.what()));
        return kNotEnabled;
    }
}
