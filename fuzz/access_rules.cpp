// A file of access rules, with and without classes of requests.
#include "platform/posix/common_posix/access_rules.h"

#include "fuzz/fuzz_input.h"

using ProcMgr::AccessRules;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = Fuzz::Text(data, size);
    for (AccessRules rules : {AccessRules(), AccessRules({"look", "change", "stop"})}) {
        std::string error;
        const bool isRead = rules.Parse(text, "rules", error);
        Fuzz::Require(isRead == error.empty() && error.find('\n') == std::string::npos);
        Fuzz::Require(rules.GrantsOf(0) == AccessRules::kEverything && rules.GrantsOf(UINT32_MAX) == 0);
        Fuzz::Require(isRead || rules.GrantsOf(54321) == 0);
    }
    return 0;
}
