#include "daemons/procmgrd/owner_protocol.h"

#include <cstring>
#include <string_view>

#include "common/binary_reader.h"
#include "common/field_reader.h"
#include "common/field_writer.h"

namespace Procmgrd {
namespace {

namespace Message = ProcMgr::Message;
using Message::kPmDataMax;

/// The common reader, and what a piece demands beyond it.
class PieceReader {
public:
    explicit PieceReader(std::string_view text) : fields_(text), isGood_(text.find('\0') == std::string_view::npos) {}

    std::string Text() { return fields_.ReadText(); }

    std::string AppName() {
        std::string name = Text();
        isGood_ = isGood_ && !name.empty() && name.size() <= kMaxAppName;
        return name;
    }

    template <typename Number>
    Number Value() {
        return fields_.ReadNumber<Number>();
    }

    /// A number of elements of which each takes at least `minBytes`.
    uint32_t Count(size_t minBytes) {
        const auto count = Value<uint32_t>();
        if (count > fields_.Rest().size() / minBytes) {
            isGood_ = false;
            return 0;
        }
        return count;
    }

    bool IsGood() const { return isGood_ && !fields_.HasFailed(); }
    bool IsGoodToTheEnd() const { return IsGood() && fields_.Rest().empty(); }

private:
    ProcMgr::FieldReader fields_;
    bool isGood_;
};

std::vector<std::string> ReadTexts(PieceReader& reader) {
    std::vector<std::string> texts(reader.Count(1));
    for (std::string& text : texts) {
        text = reader.Text();
    }
    return texts;
}

Message::StartAppInfo ReadStartEntry(PieceReader& reader) {
    Message::StartAppInfo app;
    app.appName = reader.AppName();
    app.argv = ReadTexts(reader);
    for (uint32_t left = reader.Count(4); left > 0 && reader.IsGood(); --left) {
        const auto index = reader.Value<int32_t>();
        app.dynamicPara[index] = ReadTexts(reader);
    }
    return app;
}

Message::RequestMsg MakeRecord(Message::RequestType type, const std::string& data) {
    Message::RequestMsg record{};
    record.type = static_cast<uint32_t>(type);
    record.size = data.size();
    std::memcpy(record.data, data.data(), data.size());
    return record;
}

/// Puts entries behind a count into as few records as their order allows. `writeCount` writes the count; it never takes
/// more than `countBytes`.
template <typename WriteCount>
std::vector<Message::RequestMsg> FillRecords(Message::RequestType type, const std::vector<std::string>& entries,
                                             size_t countBytes, WriteCount writeCount) {
    std::vector<Message::RequestMsg> records;
    std::string body;
    uint32_t count = 0;
    const auto close = [&] {
        if (count > 0) {
            records.push_back(MakeRecord(type, writeCount(count) + body));
        }
        body.clear();
        count = 0;
    };
    for (const std::string& entry : entries) {
        if (countBytes + entry.size() > kPmDataMax) {
            // Only a query can hold such a name, and no application has it.
            continue;
        }
        if (countBytes + body.size() + entry.size() > kPmDataMax) {
            close();
        }
        body += entry;
        ++count;
    }
    close();
    return records;
}

std::string Bytes(uint32_t number) {
    std::string bytes(sizeof(number), '\0');
    std::memcpy(bytes.data(), &number, sizeof(number));
    return bytes;
}

}  // namespace

bool ReadRecord(const std::string& bytes, uint32_t& type, std::string& text) {
    Message::RequestMsg record;
    if (bytes.size() != sizeof(record)) {
        return false;
    }
    std::memcpy(&record, bytes.data(), sizeof(record));
    type = record.type;
    text.assign(record.data, Message::PayloadSize(record));
    return true;
}

bool ReadStartPiece(const std::string& text, std::vector<Message::StartAppInfo>& apps) {
    PieceReader reader(text);
    std::vector<Message::StartAppInfo> read;
    for (uint32_t left = reader.Count(6); left > 0 && reader.IsGood(); --left) {
        read.push_back(ReadStartEntry(reader));
    }
    if (!reader.IsGoodToTheEnd()) {
        return false;
    }
    apps = std::move(read);
    return true;
}

bool ReadTermPiece(const std::string& text, std::vector<Message::TermAppInfo>& apps) {
    PieceReader reader(text);
    std::vector<Message::TermAppInfo> read;
    for (uint32_t left = reader.Count(2); left > 0 && reader.IsGood(); --left) {
        read.push_back({reader.AppName()});
    }
    if (!reader.IsGoodToTheEnd()) {
        return false;
    }
    apps = std::move(read);
    return true;
}

bool ReadConfigPiece(const std::string& text, Message::StartupCfgInfo& config) {
    PieceReader reader(text);
    Message::StartupCfgInfo read;
    const bool isOne = reader.Count(3) == 1;
    read.procName = reader.Text();
    for (uint32_t left = reader.Count(2); left > 0 && reader.IsGood(); --left) {
        std::string key = reader.Text();
        read.matchDataToPath[std::move(key)] = reader.Text();
    }
    if (!isOne || read.procName.empty() || !reader.IsGoodToTheEnd()) {
        return false;
    }
    config = std::move(read);
    return true;
}

bool ReadExecPiece(const std::string& text, Message::AppExecInfo& info) {
    PieceReader reader(text);
    Message::AppExecInfo read;
    const bool isOne = reader.Count(8) == 1;
    read.appName = reader.AppName();
    read.execState = reader.Value<uint32_t>();
    read.value1 = reader.Value<uint32_t>();
    read.value2 = reader.Value<uint32_t>();
    if (!isOne || !reader.IsGoodToTheEnd()) {
        return false;
    }
    info = std::move(read);
    return true;
}

bool ReadBaseServicePiece(const std::string& text, Message::BaseServiceStateInfo& info) {
    PieceReader reader(text);
    const bool isOne = reader.Count(2) == 1;
    const auto state = reader.Value<uint32_t>();
    if (!isOne || !reader.IsGoodToTheEnd()) {
        return false;
    }
    info.state = state;
    return true;
}

bool ReadQuery(const std::string& data, std::vector<std::string>& names) {
    ProcMgr::BinaryReader reader(data.data(), data.size());
    std::vector<std::string> read;
    for (uint32_t left = reader.ReadU32(); left > 0 && !reader.HasFailed(); --left) {
        read.push_back(reader.ReadSizedText());
    }
    if (reader.HasFailed()) {
        return false;
    }
    names = std::move(read);
    return true;
}

std::vector<Message::RequestMsg> WriteStateReports(const std::vector<Message::AppStateInfo>& reports) {
    constexpr size_t kCountBytes = sizeof("1999#") - 1;
    std::vector<std::string> entries;
    entries.reserve(reports.size());
    for (const Message::AppStateInfo& report : reports) {
        ProcMgr::FieldWriter entry;
        entry.AddText(report.appName).AddNumber(report.pid).AddNumber(report.value1);
        entry.AddNumber(report.appState).AddNumber(report.reason);
        entries.push_back(entry.TakeText());
    }
    return FillRecords(Message::RequestType::APP_STATE_REPORT, entries, kCountBytes,
                       [](uint32_t count) { return std::to_string(count) + '#'; });
}

std::vector<Message::RequestMsg> WriteQueryAnswer(const std::vector<std::pair<std::string, uint32_t>>& states) {
    std::vector<std::string> entries;
    entries.reserve(states.size());
    for (const auto& [name, state] : states) {
        entries.push_back(Bytes(static_cast<uint32_t>(name.size())) + name + Bytes(state));
    }
    return FillRecords(Message::RequestType::QUERY_APP_STATE_RESP, entries, sizeof(uint32_t), Bytes);
}

std::string WriteResult(int result) {
    return std::to_string(result) + '#';
}

}  // namespace Procmgrd
