#include <cstdio>

#include "daemons/procmgrd/daemon.h"
#include "daemons/procmgrd/options.h"
#include "platform/posix/manifest_check/check_report.h"

namespace {

int Check(const Procmgrd::Options& options) {
    const ProcMgr::CheckReport report = ProcMgr::RunCheck(*options.check, options.isCheckDocument);
    const bool isWritten = std::fwrite(report.text.data(), 1, report.text.size(), stdout) == report.text.size() &&
                           std::fflush(stdout) == 0;
    return isWritten ? report.exitCode : 1;
}

}  // namespace

int main(int argc, char** argv) {
    int exitCode = 0;
    const auto options = Procmgrd::ReadOptions(argc, argv, exitCode);
    if (!options) {
        return exitCode;
    }
    return options->check ? Check(*options) : Procmgrd::Daemon(*options).Run();
}
