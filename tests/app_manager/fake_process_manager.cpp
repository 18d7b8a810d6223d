#include "tests/app_manager/fake_process_manager.h"

#include <cstring>

namespace ProcMgr {

namespace {

constexpr uint32_t kStateReport = 4;
constexpr uint32_t kQuery = 9;
constexpr uint32_t kQueryAnswer = 10;

std::string KindOf(uint32_t type) {
    static const std::map<uint32_t, std::string> kinds = {{0, "START"}, {1, "RESTART"}, {2, "TERM"},
                                                          {6, "LOAD"},  {7, "RELOAD"},  {9, "QUERY"}};
    const auto found = kinds.find(type);
    return found == kinds.end() ? "TYPE" + std::to_string(type) : found->second;
}

class Fields {
public:
    explicit Fields(std::string text) : text_(std::move(text)) {}

    std::string Next() {
        const size_t end = text_.find('#', at_);
        std::string field = text_.substr(at_, end - at_);
        at_ = end + 1;
        return field;
    }

    size_t NextNumber() { return std::stoul(Next()); }

private:
    std::string text_;
    size_t at_ = 0;
};

std::vector<std::string> NamesInPiece(const std::string& kind, const std::string& text) {
    Fields fields(text);
    std::vector<std::string> names;
    const size_t count = fields.NextNumber();
    for (size_t app = 0; app < count; ++app) {
        names.push_back(fields.Next());
        if (kind == "TERM") {
            continue;
        }
        for (size_t left = fields.NextNumber(); left > 0; --left) {
            fields.Next();
        }
        for (size_t left = fields.NextNumber(); left > 0; --left) {
            fields.Next();
            for (size_t values = fields.NextNumber(); values > 0; --values) {
                fields.Next();
            }
        }
    }
    return names;
}

uint32_t ReadU32(const char* bytes) {
    uint32_t number = 0;
    memcpy(&number, bytes, sizeof(number));
    return number;
}

std::string U32Bytes(size_t number) {
    const auto narrow = static_cast<uint32_t>(number);
    std::string bytes(sizeof(narrow), '\0');
    memcpy(bytes.data(), &narrow, sizeof(narrow));
    return bytes;
}

std::vector<std::string> NamesInQuery(const Message::RequestMsg& message) {
    std::vector<std::string> names;
    const char* at = message.data + sizeof(uint32_t);
    for (uint32_t left = ReadU32(message.data); left > 0; --left) {
        const uint32_t length = ReadU32(at);
        names.emplace_back(at + sizeof(uint32_t), length);
        at += sizeof(uint32_t) + length;
    }
    return names;
}

Message::RequestMsg MakeMessage(uint32_t type, const std::string& payload) {
    Message::RequestMsg message{};
    message.type = type;
    message.size = payload.size();
    memcpy(message.data, payload.data(), payload.size());
    return message;
}

std::string Joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
        text += (text.empty() ? "" : ",") + name;
    }
    return text;
}

}  // namespace

FakeProcessManager::FakeProcessManager() {
    FakePipe::Get().OnSend([this](const FakePipe::Sent& sent) { TakeRequest(sent); });
}

FakeProcessManager::~FakeProcessManager() {
    FakePipe::Get().OnSend(nullptr);
}

void FakeProcessManager::AnswerAtOnce() {
    const std::lock_guard<std::mutex> lock(mutex_);
    answersAtOnce_ = true;
}

bool FakeProcessManager::Step() {
    // What is on its way already may be what the caller waits for.
    (void)FakePipe::Get().WaitUntilDelivered();
    return actionsFirst_ ? RunAction() || DeliverAnswer() : DeliverAnswer() || RunAction();
}

bool FakeProcessManager::RunAction() {
    std::function<void()> action;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (actions_.empty()) {
            return false;
        }
        action = std::move(actions_.front());
        actions_.pop_front();
    }
    action();
    (void)FakePipe::Get().WaitUntilDelivered();
    return true;
}

bool FakeProcessManager::DeliverAnswer() {
    Message::RequestMsg answer{};
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (answers_.empty()) {
            return false;
        }
        answer = answers_.front();
        answers_.pop_front();
    }
    FakePipe::Get().DeliverRecord(answer);
    (void)FakePipe::Get().WaitUntilDelivered();
    return true;
}

void FakeProcessManager::Then(std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mutex_);
    actions_.push_back(std::move(action));
}

void FakeProcessManager::Ignore(const std::string& command, const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    scripts_[{command, name}] = [] {};
}

void FakeProcessManager::Answer(const std::string& command, const std::string& name, Report report, uint32_t reason) {
    const std::lock_guard<std::mutex> lock(mutex_);
    scripts_[{command, name}] = [this, name, report, reason] { Tell(name, report, 0, reason); };
}

void FakeProcessManager::SetQueriedState(const std::string& name, uint32_t state) {
    const std::lock_guard<std::mutex> lock(mutex_);
    queriedStates_[name] = state;
}

void FakeProcessManager::Tell(const std::string& name, Report report, uint32_t pid, uint32_t reason) {
    Send(MakeMessage(kStateReport, "1#" + name + "#" + std::to_string(pid) + "#0#" +
                                       std::to_string(static_cast<uint32_t>(report)) + "#" + std::to_string(reason) +
                                       "#"));
}

void FakeProcessManager::TellStates(const std::map<std::string, uint32_t>& states) {
    std::string payload = U32Bytes(states.size());
    for (const auto& [name, state] : states) {
        payload += U32Bytes(name.size()) + name + U32Bytes(state);
    }
    Send(MakeMessage(kQueryAnswer, payload));
}

void FakeProcessManager::Send(const Message::RequestMsg& message) {
    bool isNow = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isNow = answersAtOnce_;
        if (!isNow) {
            answers_.push_back(message);
        }
    }
    if (isNow) {
        FakePipe::Get().DeliverRecord(message);
    }
}

void FakeProcessManager::OnCommand(std::function<void(const std::string& kind)> hook) {
    const std::lock_guard<std::mutex> lock(mutex_);
    onCommand_ = std::move(hook);
}

void FakeProcessManager::FailSends(size_t first, size_t count) {
    const std::lock_guard<std::mutex> lock(mutex_);
    sends_ = 0;
    firstFailing_ = first;
    failingCount_ = count;
}

std::vector<std::string> FakeProcessManager::Requests() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

std::vector<std::string> FakeProcessManager::RequestsOf(const std::string& kind) const {
    std::vector<std::string> chosen;
    for (const std::string& request : Requests()) {
        if (request.compare(0, kind.size() + 1, kind + " ") == 0) {
            chosen.push_back(request);
        }
    }
    return chosen;
}

void FakeProcessManager::ClearRequests() {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.clear();
}

void FakeProcessManager::TakeRequest(const FakePipe::Sent& sent) {
    const auto message = sent.As<Message::RequestMsg>();
    const std::string kind = KindOf(message.type);
    const bool isQuery = message.type == kQuery;
    const std::string text(message.data, Message::PayloadSize(message));
    const std::vector<std::string> names = isQuery ? NamesInQuery(message) : std::vector<std::string>();
    std::function<void(const std::string&)> hook;
    bool isFailing = false;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(kind + " " + (isQuery ? Joined(names) : text));
        if (sent.operation == FakePipe::Operation::SEND_REQUEST) {
            ++sends_;
            isFailing = failingCount_ > 0 && sends_ >= firstFailing_ && sends_ - firstFailing_ < failingCount_;
        }
        hook = onCommand_;
    }
    if (hook) {
        hook(kind);
    }
    if (sent.operation != FakePipe::Operation::SEND_REQUEST) {
        return;
    }
    FakePipe::Get().SetSendResult(isFailing ? -1 : 0);
    if (isFailing) {
        return;
    }
    if (isQuery) {
        AnswerQuery(names);
    } else if (kind == "START" || kind == "RESTART" || kind == "TERM") {
        AnswerAll(kind, NamesInPiece(kind, text));
    }
}

void FakeProcessManager::AnswerAll(const std::string& kind, const std::vector<std::string>& names) {
    static const std::map<std::string, Report> good = {{"START", Report::RUNNING_NORMAL_START},
                                                       {"RESTART", Report::RUNNING_NORMAL_RESTART},
                                                       {"TERM", Report::TERMINATED_NORMAL_EXIT}};
    for (const std::string& name : names) {
        std::function<void()> script;
        uint32_t pid = 0;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            const auto found = scripts_.find({kind, name});
            if (found != scripts_.end()) {
                script = found->second;
            }
            uint32_t& known = pids_[name];
            known = kind == "TERM" ? known : known + 100;
            pid = known;
        }
        if (script) {
            script();
        } else {
            Tell(name, good.at(kind), pid);
        }
    }
}

void FakeProcessManager::AnswerQuery(const std::vector<std::string>& names) {
    std::map<std::string, uint32_t> states;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (ignoresQueries_) {
            return;
        }
        for (const std::string& name : names) {
            const auto found = queriedStates_.find(name);
            states[name] = found == queriedStates_.end() ? 0 : found->second;
        }
    }
    TellStates(states);
}

}  // namespace ProcMgr
