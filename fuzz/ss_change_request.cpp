// The text of a change request.
#include "fuzz/fuzz_input.h"
#include "ss_server/ss_to_owner_serialization.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::SealedRecord request(&SsToOwnerRequestMsg::payload, data, size);
    std::vector<AppInfo> apps(1);
    if (!SS::UnPackChangeAppInfoRequestMsg(request.Get(), apps)) {
        return 0;
    }
    Fuzz::Require(size <= kSsPayloadMax && apps.size() <= SS::kMaxApps);
    for (const AppInfo& app : apps) {
        Fuzz::Require(app.argv.size() <= SS::kMaxArgs && app.dynamicPara.size() <= SS::kMaxDynamicGroups);
        Fuzz::Require(app.dynamicPara.empty() || app.dynamicPara.rbegin()->first <= SS::kMaxDynamicIndex);
    }
    return 0;
}
