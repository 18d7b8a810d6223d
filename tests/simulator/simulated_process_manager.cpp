#include "tests/simulator/simulated_process_manager.h"

#include <cstring>
#include <string_view>

#include "common/binary_reader.h"
#include "common/field_reader.h"

using ProcMgr::Message::RequestMsg;
using ProcMgr::Message::RequestType;

namespace {

RequestMsg Record(RequestType type, const std::string& payload) {
    RequestMsg record{};
    record.type = static_cast<uint32_t>(type);
    record.size = payload.size();
    memcpy(record.data, payload.data(), payload.size());
    return record;
}

void SkipArguments(ProcMgr::FieldReader& reader) {
    for (auto count = reader.ReadNumber<uint32_t>(); count > 0 && !reader.HasFailed(); --count) {
        reader.ReadText();
    }
    for (auto groups = reader.ReadNumber<uint32_t>(); groups > 0 && !reader.HasFailed(); --groups) {
        reader.ReadNumber<int32_t>();
        for (auto values = reader.ReadNumber<uint32_t>(); values > 0 && !reader.HasFailed(); --values) {
            reader.ReadText();
        }
    }
}

void AppendU32(std::string& bytes, uint32_t number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
}

}  // namespace

SimulatedProcessManager::SimulatedProcessManager(uint32_t seed, std::set<std::string> selfReporting)
    : selfReporting_(std::move(selfReporting)), random_(seed), thread_([this] { Run(); }) {
    FakePipe::Get().OnSend([this](const FakePipe::Sent& sent) { Take(sent); });
}

SimulatedProcessManager::~SimulatedProcessManager() {
    FakePipe::Get().OnSend({});
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isEnding_ = true;
    }
    changed_.notify_all();
    thread_.join();
}

void SimulatedProcessManager::SetOdds(const SimulatedOdds& odds) {
    const std::lock_guard<std::mutex> lock(mutex_);
    odds_ = odds;
}

bool SimulatedProcessManager::WaitUntilQuiet() {
    {
        std::unique_lock<std::mutex> lock(mutex_);
        const bool idle =
            changed_.wait_for(lock, std::chrono::minutes(1), [this] { return plan_.empty() && !isBusy_; });
        if (!idle) {
            return false;
        }
    }
    // A delivery may have made the library send something; then there is a plan again.
    if (!FakePipe::Get().WaitUntilDelivered()) {
        return false;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (plan_.empty() && !isBusy_) {
            return true;
        }
    }
    return WaitUntilQuiet();
}

size_t SimulatedProcessManager::Now() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return deliveries_.size();
}

bool SimulatedProcessManager::HasReported(const std::string& name, const std::set<Report>& kinds, size_t from) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (size_t at = from; at < deliveries_.size(); ++at) {
        const Delivery& delivery = deliveries_[at];
        if (!delivery.isOwn && delivery.name == name && kinds.count(delivery.kind) > 0) {
            return true;
        }
    }
    return false;
}

bool SimulatedProcessManager::HasReportedItself(const std::string& name, size_t from) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (size_t at = from; at < deliveries_.size(); ++at) {
        if (deliveries_[at].isOwn && deliveries_[at].name == name) {
            return true;
        }
    }
    return false;
}

void SimulatedProcessManager::Take(const FakePipe::Sent& sent) {
    const auto record = sent.As<RequestMsg>();
    switch (static_cast<RequestType>(record.type)) {
        case RequestType::START_APP:
            return TakeNames(Act::START, record, true);
        case RequestType::RESTART_APP:
            return TakeNames(Act::RESTART, record, true);
        case RequestType::TERM_APP:
            return TakeNames(Act::TERMINATE, record, false);
        case RequestType::QUERY_APP_STATE:
            return Plan({Act::ANSWER_QUERY, {}, std::string(record.data, PayloadSize(record))});
        default:
            return;
    }
}

void SimulatedProcessManager::TakeNames(Act act, const RequestMsg& record, bool withArguments) {
    ProcMgr::FieldReader reader(std::string_view(record.data, PayloadSize(record)));
    for (auto count = reader.ReadNumber<uint32_t>(); count > 0; --count) {
        const std::string name = reader.ReadText();
        if (withArguments) {
            SkipArguments(reader);
        }
        if (reader.HasFailed()) {
            return;
        }
        Plan({act, name, {}});
    }
}

void SimulatedProcessManager::Plan(const Planned& planned) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        plan_.emplace(Clock::now() + Delay(), planned);
    }
    changed_.notify_all();
}

void SimulatedProcessManager::Run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!isEnding_) {
        if (plan_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const auto next = plan_.begin();
        if (next->first > Clock::now()) {
            changed_.wait_until(lock, next->first);
            continue;
        }
        const Planned planned = next->second;
        plan_.erase(next);
        isBusy_ = true;
        Do(planned);
        isBusy_ = false;
        changed_.notify_all();
    }
}

void SimulatedProcessManager::Do(const Planned& planned) {
    switch (planned.act) {
        case Act::START:
            return StartUp(planned.name, Report::RUNNING_NORMAL_START);
        case Act::RESTART:
            processes_[planned.name].runs = false;
            return StartUp(planned.name, Report::RUNNING_NORMAL_RESTART);
        case Act::TERMINATE:
            return Terminate(planned.name);
        case Act::CRASH:
            return End(planned.name, Report::TERMINATED_ABNORMAL_EXIT, 0);
        case Act::ANSWER_QUERY:
            return AnswerQuery(planned.request);
    }
}

void SimulatedProcessManager::StartUp(const std::string& name, Report report) {
    Process& process = processes_[name];
    if (!process.runs && Happens(odds_.startFails)) {
        return Tell(name, Report::TERMINATED_ABNORMAL_EXIT, Happens(50) ? 1 : 0);
    }
    if (!process.runs) {
        process = {true, nextPid_++};
    }
    Tell(name, report, 0);
    TellReadiness(name);
    if (Happens(odds_.crashes)) {
        plan_.emplace(Clock::now() + Delay(), Planned{Act::CRASH, name, {}});
    }
}

void SimulatedProcessManager::TellReadiness(const std::string& name) {
    if (selfReporting_.count(name) == 0 || Happens(odds_.drop)) {
        return;
    }
    deliveries_.push_back({name, true, Report::RUNNING_NORMAL_START});
    FakePipe::Get().DeliverAppReport(name, static_cast<int>(processes_[name].pid), 0);
}

void SimulatedProcessManager::End(const std::string& name, Report report, uint32_t reason) {
    if (processes_[name].runs) {
        processes_[name].runs = false;
        Tell(name, report, reason);
    }
}

void SimulatedProcessManager::Terminate(const std::string& name) {
    if (processes_[name].runs && Happens(odds_.termTimesOut)) {
        return Tell(name, Report::RUNNING_ABNORMAL_TERM_TIMEOUT, 0);
    }
    processes_[name].runs = false;
    Tell(name, Report::TERMINATED_NORMAL_EXIT, 0);
}

void SimulatedProcessManager::Tell(const std::string& name, Report kind, uint32_t reason) {
    if (Happens(odds_.drop)) {
        return;
    }
    const std::string text = "1#" + name + "#" + std::to_string(processes_[name].pid) + "#0#" +
                             std::to_string(static_cast<uint32_t>(kind)) + "#" + std::to_string(reason) + "#";
    for (int times = Happens(odds_.twice) ? 2 : 1; times > 0; --times) {
        deliveries_.push_back({name, false, kind});
        FakePipe::Get().DeliverRecord(Record(RequestType::APP_STATE_REPORT, text));
    }
}

void SimulatedProcessManager::AnswerQuery(const std::string& request) {
    if (Happens(odds_.queryUnanswered)) {
        return;
    }
    ProcMgr::BinaryReader reader(request.data(), request.size());
    const auto count = reader.ReadU32();
    std::string answer;
    AppendU32(answer, count);
    for (uint32_t at = 0; at < count && !reader.HasFailed(); ++at) {
        const std::string name = reader.ReadSizedText();
        AppendU32(answer, static_cast<uint32_t>(name.size()));
        answer += name;
        AppendU32(answer, processes_[name].runs ? 0 : 1);
    }
    FakePipe::Get().DeliverRecord(Record(RequestType::QUERY_APP_STATE_RESP, answer));
}

bool SimulatedProcessManager::Happens(int percent) {
    return std::uniform_int_distribution<int>(0, 99)(random_) < percent;
}

std::chrono::microseconds SimulatedProcessManager::Delay() {
    return std::chrono::microseconds(std::uniform_int_distribution<int64_t>(0, odds_.longestDelay.count())(random_));
}
