#include "daemons/procmgrd/daemon.h"
#include "daemons/procmgrd/options.h"

int main(int argc, char** argv) {
    int exitCode = 0;
    const auto options = Procmgrd::ReadOptions(argc, argv, exitCode);
    if (!options) {
        return exitCode;
    }
    return Procmgrd::Daemon(*options).Run();
}
