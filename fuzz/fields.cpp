// The readers that every message is read with: fields that end in '#', and numbers and texts of a given length. The
// first bytes of the input say what is read, the rest is the message.
#include "common/field_reader.h"

#include <string>
#include <string_view>
#include <vector>

#include "common/binary_reader.h"
#include "common/field_writer.h"
#include "fuzz/fuzz_input.h"

using namespace ProcMgr;
using Fuzz::Require;

namespace {

/// A number as the strict reader takes it is one that writing it again gives back, leading zeros apart.
template <typename Number>
void CheckNumber(FieldReader& reader, bool isLast) {
    const std::string before(reader.Rest());
    const bool hadFailed = reader.HasFailed();
    const Number number = isLast ? reader.ReadLastNumber<Number>() : reader.ReadNumber<Number>();
    if (reader.HasFailed()) {
        Require(number == 0 && reader.Rest().empty());
        return;
    }
    Require(!hadFailed && reader.Rest().size() <= before.size());
    std::string field = before.substr(0, before.find('#'));
    const bool isNegative = field[0] == '-';
    field.erase(0, isNegative ? 1 : 0);
    field.erase(0, std::min(field.find_first_not_of('0'), field.size() - 1));
    Require((isNegative && number != 0 ? "-" + field : field) == std::to_string(number));
}

void CheckText(FieldReader& reader) {
    const std::string before(reader.Rest());
    const std::string text = reader.ReadText();
    if (reader.HasFailed()) {
        Require(text.empty() && reader.Rest().empty() && before.find('#') == std::string::npos);
        return;
    }
    Require(FieldWriter().AddText(text).TakeText() + std::string(reader.Rest()) == before);
}

void ReadFields(const std::string& plan, std::string_view message) {
    FieldReader reader(message);
    TolerantFieldReader tolerant(message);
    for (const char what : plan) {
        switch (what & 7) {
            case 0:
                CheckText(reader);
                break;
            case 1:
                CheckNumber<uint32_t>(reader, false);
                break;
            case 2:
                CheckNumber<int32_t>(reader, false);
                break;
            case 3:
                CheckNumber<uint64_t>(reader, false);
                break;
            case 4:
                CheckNumber<uint8_t>(reader, true);
                break;
            default:
                CheckNumber<int64_t>(reader, true);
        }
        const bool hadFailed = tolerant.HasFailed();
        const size_t length = (what & 8) == 0 ? tolerant.ReadText().size() : tolerant.ReadNumber() % 2;
        Require(length <= message.size() && (!hadFailed || tolerant.HasFailed()));
    }
}

void ReadBinary(const std::string& plan, std::string_view message) {
    BinaryReader reader(message.data(), message.size());
    for (const char what : plan) {
        const size_t before = reader.Left();
        const std::string text = (what & 1) == 0 ? reader.ReadSizedText() : reader.ReadBytes(reader.ReadU32());
        Require(reader.HasFailed() ? text.empty() && reader.Left() == 0 : reader.Left() + 4 + text.size() == before);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr size_t kPlan = 6;
    const std::string plan = Fuzz::Text(data, std::min(size, kPlan));
    // Exactly as much memory as the message has.
    const std::vector<char> message(data + plan.size(), data + size);
    ReadFields(plan, {message.data(), message.size()});
    ReadBinary(plan, {message.data(), message.size()});
    return 0;
}
