// What an owner sends to the process manager: the record, and its text read as each kind of piece.
#include "daemons/procmgrd/owner_protocol.h"

#include "fuzz/fuzz_input.h"

using namespace Procmgrd;

namespace {

template <typename Value>
Value ReadAs(bool (*read)(const std::string&, Value&), const std::string& text) {
    Value value{};
    (void)read(text, value);
    return value;
}

void ReadPieces(const std::string& text) {
    for (const auto& app : ReadAs(ReadStartPiece, text)) {
        Fuzz::Require(!app.appName.empty() && app.appName.size() <= kMaxAppName);
    }
    for (const auto& app : ReadAs(ReadTermPiece, text)) {
        Fuzz::Require(!app.appName.empty() && app.appName.find_first_of(std::string("#\0", 2)) == std::string::npos);
    }
    (void)ReadAs(ReadConfigPiece, text);
    (void)ReadAs(ReadExecPiece, text);
    (void)ReadAs(ReadBaseServicePiece, text);
    std::vector<std::pair<std::string, uint32_t>> states;
    for (const std::string& name : ReadAs(ReadQuery, text)) {
        states.emplace_back(name, 1);
    }
    for (const auto& record : WriteQueryAnswer(states)) {
        Fuzz::Require(record.size <= ProcMgr::Message::kPmDataMax);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string bytes = Fuzz::Text(data, size);
    ReadPieces(bytes);
    uint32_t type = 0;
    std::string text;
    if (ReadRecord(bytes, type, text)) {
        ReadPieces(text);
    }
    return 0;
}
