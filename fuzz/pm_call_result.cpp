// The answer to a call of the process manager.
#include "fuzz/fuzz_input.h"
#include "pm_agent/call_result.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = Fuzz::Text(data, size);
    const int32_t result = ProcMgr::ReadCallResult(std::string_view(reinterpret_cast<const char*>(data), size));
    // Only digits make a success.
    Fuzz::Require(result != 0 || text.find_first_not_of("-0#") == std::string::npos);
    return 0;
}
