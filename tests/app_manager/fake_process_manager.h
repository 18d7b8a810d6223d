/// A process manager behind the fake pipe: takes the requests apart, records them, and answers each of them as the test
/// says. Its answers arrive on the fake pipe's thread, either at once or one by one when the test asks for a step.
#ifndef PROCMGR_TESTS_APP_MANAGER_FAKE_PROCESS_MANAGER_H
#define PROCMGR_TESTS_APP_MANAGER_FAKE_PROCESS_MANAGER_H

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "common/enumerations.h"
#include "pm_agent/request_msg.h"
#include "tests/fake_platform/fake_platform.h"

namespace ProcMgr {

class FakeProcessManager {
public:
    using Report = Message::ReportAppStateType;

    /// Takes over the fake pipe.
    FakeProcessManager();
    ~FakeProcessManager();

    FakeProcessManager(const FakeProcessManager&) = delete;
    FakeProcessManager& operator=(const FakeProcessManager&) = delete;

    /// Answers go out as soon as they are given. Otherwise each waits for a Step.
    void AnswerAtOnce();

    /// Delivers the next answer, or else runs the next action, and waits until it was handled. False when there is
    /// neither.
    bool Step();

    /// Something that happens when all answers given before are delivered and Step is called.
    void Then(std::function<void()> action);

    /// Whether Step prefers actions to answers.
    void ActionsFirst() { actionsFirst_ = true; }

    /// Instead of the good answer to `command` ("START", "RESTART", "TERM") for `name`, always.
    void Ignore(const std::string& command, const std::string& name);
    void Answer(const std::string& command, const std::string& name, Report report, uint32_t reason = 0);

    /// Answers queries with this state for that name; the others run.
    void SetQueriedState(const std::string& name, uint32_t state);
    void IgnoreQueries() { ignoresQueries_ = true; }

    /// A report that nobody asked for, behind the answers of so far.
    void Tell(const std::string& name, Report report, uint32_t pid = 0, uint32_t reason = 0);

    /// An answer to a query.
    void TellStates(const std::map<std::string, uint32_t>& states);

    /// Called for each one-way request before it is answered, on the sending thread.
    void OnCommand(std::function<void(const std::string& kind)> hook);

    /// Requests from the n-th on (1 is the first) fail, `count` of them; they are recorded, but not answered.
    void FailSends(size_t first, size_t count);

    /// The requests in the order in which they came: kind and text, as in "START 1#a#0#0#" or "QUERY a,b".
    std::vector<std::string> Requests() const;
    std::vector<std::string> RequestsOf(const std::string& kind) const;
    void ClearRequests();

private:
    void TakeRequest(const FakePipe::Sent& sent);
    void AnswerAll(const std::string& kind, const std::vector<std::string>& names);
    void AnswerQuery(const std::vector<std::string>& names);
    void Send(const Message::RequestMsg& message);
    bool RunAction();
    bool DeliverAnswer();

    mutable std::mutex mutex_;
    bool answersAtOnce_ = false;
    bool actionsFirst_ = false;
    bool ignoresQueries_ = false;
    std::deque<Message::RequestMsg> answers_;
    std::deque<std::function<void()>> actions_;
    std::map<std::pair<std::string, std::string>, std::function<void()>> scripts_;
    std::map<std::string, uint32_t> queriedStates_;
    std::function<void(const std::string&)> onCommand_;
    std::vector<std::string> requests_;
    std::map<std::string, uint32_t> pids_;
    size_t sends_ = 0;
    size_t firstFailing_ = 0;
    size_t failingCount_ = 0;
};

}  // namespace ProcMgr

#endif
