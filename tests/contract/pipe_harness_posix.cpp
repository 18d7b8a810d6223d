#include "tests/contract/pipe_harness.h"
#include "tests/platform/tunor_test_kit.h"

using TunorTest::ServerOnHand;

class PipeHarness::Impl {
public:
    TunorTest::ServerThread server;
};

PipeHarness::PipeHarness() : impl_(std::make_unique<Impl>()) {
    AnswerCallsBy([](const std::string& bytes) { return bytes; });
}

PipeHarness::~PipeHarness() = default;

void PipeHarness::PushRequest(const std::string& bytes) {
    impl_->server.Do(
        [&](ServerOnHand& hand) { hand.Server().SendRequest(hand.ids.back(), bytes.data(), bytes.size()); });
}

void PipeHarness::PushAppReport(const std::string& name, int pid, uint32_t state) {
    impl_->server.Do([&](ServerOnHand& hand) { hand.Server().SendAppReport(hand.ids.back(), name, pid, state); });
}

void PipeHarness::EndPipe() {
    impl_->server.Do([](ServerOnHand& hand) { hand.Server().Close(hand.ids.back()); });
}

void PipeHarness::AnswerCallsBy(std::function<std::string(const std::string&)> answer) {
    impl_->server.Do([&](ServerOnHand& hand) {
        hand.onCall = [&hand, answer](ProcMgr::TunorConnectionId id, uint32_t seq, const std::string& bytes) {
            const std::string text = answer(bytes);
            hand.Server().Answer(id, seq, text.data(), text.size());
        };
    });
}

void PipeHarness::LeaveCallsUnanswered() {
    impl_->server.Do([](ServerOnHand& hand) { hand.onCall = nullptr; });
}

std::vector<std::string> PipeHarness::WaitForRequests(size_t count) {
    const std::string kind = "request ";
    std::vector<std::string> found = impl_->server.WaitForTold(kind, count);
    for (std::string& line : found) {
        line.erase(0, kind.size());
    }
    return found;
}

std::vector<std::string> PipeHarness::WaitForResponses(size_t count) {
    const std::string kind = "response ";
    std::vector<std::string> found = impl_->server.WaitForTold(kind, count);
    for (std::string& line : found) {
        line.erase(0, line.find(' ', kind.size()) + 1);
    }
    return found;
}
