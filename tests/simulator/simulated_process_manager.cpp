#include "tests/simulator/simulated_process_manager.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "common/binary_reader.h"
#include "common/field_reader.h"

using ProcMgr::Message::RequestMsg;
using ProcMgr::Message::RequestType;

namespace {

constexpr std::chrono::microseconds kLate{20000};

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
        if (delivery.source == Source::PROCESS_MANAGER && delivery.name == name && kinds.count(delivery.kind) > 0) {
            return true;
        }
    }
    return false;
}

bool SimulatedProcessManager::HasReportedItself(const std::string& name, size_t from) const {
    return HasHeard(name, Source::APPLICATION, from);
}

bool SimulatedProcessManager::MayBeUnsent(const std::string& name, size_t from) const {
    return HasHeard(name, Source::LOST_SEND, from);
}

bool SimulatedProcessManager::HasHeard(const std::string& name, Source source, size_t from) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::any_of(deliveries_.begin() + static_cast<std::ptrdiff_t>(from), deliveries_.end(),
                       [&](const Delivery& delivery) { return delivery.source == source && delivery.name == name; });
}

void SimulatedProcessManager::NoteFoundRunning(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    deliveries_.push_back({name, Source::APPLICATION, Report::RUNNING_NORMAL_START});
}

const std::set<SimulatedProcessManager::Report>& SimulatedProcessManager::Ends() {
    static const auto& ends = *new std::set<Report>{Report::TERMINATED_NORMAL_EXIT, Report::TERMINATED_ABNORMAL_EXIT};
    return ends;
}

void SimulatedProcessManager::NoteReport(const ProcMgr::Message::AppStateInfo& info) {
    if (Ends().count(static_cast<Report>(info.appState)) != 0) {
        const std::lock_guard<std::mutex> lock(mutex_);
        startable_[info.appName].HasEnded();
    }
}

void SimulatedProcessManager::SetShifting(const std::set<std::string>& names) {
    const std::lock_guard<std::mutex> lock(mutex_);
    shifting_ = names;
}

void SimulatedProcessManager::NoteNothingOnItsWay() {
    const std::lock_guard<std::mutex> lock(mutex_);
    FakePipe::Get().ScriptSend({});
    failing_.clear();
}

std::map<std::string, uint32_t> SimulatedProcessManager::Running() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::map<std::string, uint32_t> pids;
    for (const auto& [name, process] : processes_) {
        if (process.runs) {
            pids[name] = process.pid;
        }
    }
    return pids;
}

std::vector<std::string> SimulatedProcessManager::Complaints() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return complaints_;
}

void SimulatedProcessManager::Take(const FakePipe::Sent& sent) {
    const auto record = sent.As<RequestMsg>();
    switch (static_cast<RequestType>(record.type)) {
        case RequestType::START_APP:
            return TakeNames(Act::START, record);
        case RequestType::RESTART_APP:
            return TakeNames(Act::RESTART, record);
        case RequestType::TERM_APP:
            return TakeNames(Act::TERMINATE, record);
        case RequestType::QUERY_APP_STATE:
            if (GetsThrough({})) {
                Plan({Act::ANSWER_QUERY, {}, std::string(record.data, PayloadSize(record))});
            }
            return;
        default:
            return;
    }
}

void SimulatedProcessManager::TakeNames(Act act, const RequestMsg& record) {
    std::vector<std::string> names;
    ProcMgr::FieldReader reader(std::string_view(record.data, PayloadSize(record)));
    for (auto count = reader.ReadNumber<uint32_t>(); count > 0; --count) {
        names.push_back(reader.ReadText());
        if (act != Act::TERMINATE) {
            SkipArguments(reader);
        }
        if (reader.HasFailed()) {
            const std::lock_guard<std::mutex> lock(mutex_);
            complaints_.push_back("a request can't be read");
            return;
        }
        if (act == Act::START) {
            NoteStart(names.back());
        }
    }
    if (GetsThrough(act == Act::TERMINATE ? std::vector<std::string>() : names)) {
        for (const std::string& name : names) {
            Plan({act, name, {}});
        }
    }
}

void SimulatedProcessManager::NoteStart(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex_);
    int& starts = startable_[name].starts;
    if (starts == 0 && shifting_.count(name) == 0) {
        complaints_.push_back(name + " is started a second time, and nothing told that it had ended");
    }
    starts = std::max(0, starts - 1);
}

// Which send fails is the pipe's to say: the next one of whatever thread. So this counts against all that are on their
// way, and against those that join them before it has failed.
bool SimulatedProcessManager::GetsThrough(const std::vector<std::string>& names) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto self = std::this_thread::get_id();
    lastSent_[self] = names;
    failing_.erase(self);
    if (!failing_.empty()) {
        Lose(names);
    }
    if (!Happens(odds_.sendFails)) {
        return true;
    }
    failing_.insert(self);
    FakePipe::Get().ScriptSend({-5});
    for (const auto& entry : lastSent_) {
        Lose(entry.second);
    }
    // It may have arrived all the same.
    return Happens(50);
}

void SimulatedProcessManager::Lose(const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        deliveries_.push_back({name, Source::LOST_SEND, Report::INVALID_INTERMEDIATE_STATE});
        startable_[name].HasEnded();
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
    deliveries_.push_back({name, Source::APPLICATION, Report::RUNNING_NORMAL_START});
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
        deliveries_.push_back({name, Source::PROCESS_MANAGER, kind});
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
    const int64_t longest = odds_.longestDelay.count();
    const int64_t late = Happens(odds_.late) ? kLate.count() : 0;
    return std::chrono::microseconds(late + std::uniform_int_distribution<int64_t>(0, longest + late)(random_));
}
