// A whole request to the service: the first byte is the command, the rest the payload. The callbacks answer about
// everything that they are asked, so that answers grow with the request.
#include "common/app_records.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/quiet_platform.h"
#include "include/ss_to_owner_server.h"
#include "ss_server/ss_to_owner_messages.h"

using namespace ProcMgr;

namespace {

using Apps = std::vector<AppInfoForServer>;

bool Change(const Apps& term, const Apps& start, const Apps& restart, std::vector<AppChangeInfo>& result, int) {
    for (const Apps* apps : {&term, &start, &restart}) {
        for (const AppInfoForServer& app : *apps) {
            result.emplace_back(app.appName, AppChangeState::SUCCESS);
        }
    }
    return true;
}

bool Query(const std::vector<std::string>& names, std::vector<AppStatus>& states, int) {
    for (const std::string& name : names) {
        states.push_back({name, 1, 0});
    }
    return true;
}

bool Register() {
    SsToOwnerServer& server = SsToOwnerServer::GetInstance();
    const auto yes = [] { return true; };
    return server.RegSsChangeAppTimeoutCallBackImpl(Change, "res") == 0 &&
           server.RegSetSystemStateTimeoutCallBackImpl([](int, int) { return true; }, "res") == 0 &&
           server.RegReloadCallBackImpl(yes, "res") == 0 && server.RegDumpCallBackImpl(yes, "res") == 0 &&
           server.RegStopAllAppCallBackImpl(yes, "res") == 0 &&
           server.RegQueryAppListCallBackImpl([](auto& names) { return names.assign(3, "app"), true; }, "res") == 0 &&
           server.RegSsVerifyAppCallBackImpl([](const auto&) { return true; }, "res") == 0 &&
           server.RegSsQueryAppStateCallBackImpl(Query, "res") == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool isRegistered = Register();
    Fuzz::Require(isRegistered);
    if (size == 0) {
        return 0;
    }
    SsToOwnerRequestMsg request = {};
    request.size = size - 1;
    request.timeout = static_cast<uint32_t>(size);
    std::copy_n(data + 1, std::min(size - 1, kSsPayloadMax), request.payload);
    VEKMgrFile file{"client", nullptr};
    VEKIoctlArg buffer{sizeof(request), &request};
    const int result = Fuzz::RegisteredService().ioctl(&file, data[0], &buffer);
    uint32_t length = 0;
    std::memcpy(&length, &request, sizeof(length));
    Fuzz::Require(length <= kSsPayloadMax && result == static_cast<int>(length + kSsResponseHead));
    return 0;
}
