#include <cerrno>

#include "tests/contract/pipe_harness.h"
#include "tests/fake_platform/fake_pipe.h"

class PipeHarness::Impl {
public:
    Impl() {
        Answer([](const std::string& bytes) { return bytes; });
    }

    static void Answer(const std::function<std::string(const std::string&)>& answer) {
        FakePipe::Get().OnSend([answer](const FakePipe::Sent& sent) {
            if (sent.operation == FakePipe::Operation::RPC || sent.operation == FakePipe::Operation::TIMED_RPC) {
                FakePipe::Get().SetAnswer({0, answer(sent.bytes), 0});
            }
        });
    }

    static std::vector<std::string> Wait(FakePipe::Operation operation, size_t count) {
        std::vector<std::string> found;
        for (size_t needed = count; found.size() < count; ++needed) {
            const bool came = FakePipe::Get().WaitForSent(needed);
            found.clear();
            for (const FakePipe::Sent& sent : FakePipe::Get().AllSent()) {
                if (sent.operation == operation) {
                    found.push_back(sent.bytes);
                }
            }
            if (!came) {
                break;
            }
        }
        return found;
    }
};

PipeHarness::PipeHarness() : impl_(std::make_unique<Impl>()) {
}
PipeHarness::~PipeHarness() = default;

void PipeHarness::PushRequest(const std::string& bytes) {
    FakePipe::Get().DeliverRequest(bytes);
}

void PipeHarness::PushAppReport(const std::string& name, int pid, uint32_t state) {
    FakePipe::Get().DeliverAppReport(name, pid, state);
}

void PipeHarness::EndPipe() {
    FakePipe::Get().LosePipe();
}

void PipeHarness::AnswerCallsBy(std::function<std::string(const std::string&)> answer) {
    Impl::Answer(answer);
}

void PipeHarness::LeaveCallsUnanswered() {
    FakePipe::Get().OnSend({});
    FakePipe::Get().SetAnswer({-ETIMEDOUT, {}, 0});
}

std::vector<std::string> PipeHarness::WaitForRequests(size_t count) {
    return Impl::Wait(FakePipe::Operation::SEND_REQUEST, count);
}

std::vector<std::string> PipeHarness::WaitForResponses(size_t count) {
    return Impl::Wait(FakePipe::Operation::SEND_RESPONSE, count);
}
