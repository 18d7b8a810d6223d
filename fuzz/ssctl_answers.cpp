// The answers of a group owner as the command line reads them.
#include "fuzz/fuzz_input.h"
#include "tools/ssctl/answers.h"

using namespace Ssctl;

namespace {

template <typename Value>
bool IsSound(const Checked<Value>& checked) {
    return static_cast<bool>(checked) == checked.What().empty();
}

void ReadPayload(const std::string& payload) {
    const auto change = ReadChange(payload);
    Fuzz::Require(IsSound(change) && (!change || change->apps.size() <= payload.size()));
    const auto list = ReadList(payload);
    Fuzz::Require(IsSound(list) && (!list || list->names.size() <= payload.size()));
    const auto state = ReadState(payload);
    Fuzz::Require(IsSound(state) && (!state || state->apps.size() <= payload.size()));
    Fuzz::Require(IsSound(ReadFlag(payload)) && IsSound(ReadFlagField(payload)) && IsSound(ReadEvent(payload)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ReadPayload(Fuzz::Text(data, size));
    const auto record = std::make_unique<Record>();
    std::copy_n(data, std::min(size, record->size()), record->begin());
    for (const int result : {static_cast<int>(size), static_cast<int>(record->front()) + 8}) {
        const auto payload = TakePayload(result, *record);
        if (payload) {
            ReadPayload(*payload);
        }
    }
    return 0;
}
