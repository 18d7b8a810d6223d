#include "tests/daemons/procmgrd/owner_client.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"
#include "pm_agent/procmgr_agent_serialization.h"

namespace ProcmgrdTest {
namespace {

namespace Message = ProcMgr::Message;
namespace Serialization = ProcMgr::Serialization;

constexpr std::chrono::seconds kPatience{60};
constexpr uint32_t kOpenTimeoutMs = 60000;
constexpr uint32_t kCallTimeoutMs = 60000;

struct Inbox {
    std::deque<AppStateInfo> reports;
    std::map<std::string, uint32_t> states;
    std::vector<std::string> history;
};

// The handlers are plain functions, so that what they share stands here.
std::mutex mutex;
std::condition_variable arrived;
std::map<int, Inbox> inboxes;
std::deque<SelfReport> selfReports;
int newestFd = -1;

uint32_t TakeNumber(const char*& at) {
    uint32_t number = 0;
    std::memcpy(&number, at, sizeof(number));
    at += sizeof(number);
    return number;
}

void TakeStates(const Message::RequestMsg& record, Inbox& inbox) {
    const char* at = record.data;
    for (uint32_t left = TakeNumber(at); left > 0; --left) {
        const uint32_t length = TakeNumber(at);
        const std::string name(at, length);
        at += length;
        inbox.states[name] = TakeNumber(at);
    }
}

void OnRequest(int fd, TunorRequest* request) {
    ASSERT_EQ(request->size, sizeof(Message::RequestMsg));
    Message::RequestMsg record;
    std::memcpy(&record, request->data, sizeof(record));
    const std::lock_guard<std::mutex> lock(mutex);
    Inbox& inbox = inboxes[fd];
    if (record.type == static_cast<uint32_t>(Message::RequestType::QUERY_APP_STATE_RESP)) {
        TakeStates(record, inbox);
    } else {
        std::vector<AppStateInfo> reports;
        ASSERT_TRUE(Serialization::ProcMgrUnpackedAppStateRequest(record, reports));
        for (const AppStateInfo& report : reports) {
            inbox.reports.push_back(report);
            inbox.history.push_back(report.appName + " " + std::to_string(report.appState));
        }
    }
    arrived.notify_all();
}

// Tests with reports of applications about themselves have one connection at a time.
void OnSelfReport(const char* name, size_t nameLen, int pid, uint32_t state) {
    const std::lock_guard<std::mutex> lock(mutex);
    selfReports.push_back({std::string(name, nameLen), pid, state});
    inboxes[newestFd].history.push_back(std::string(name, nameLen) + (state == 0 ? " on" : " off"));
    arrived.notify_all();
}

}  // namespace

OwnerClient::OwnerClient(const std::string& name) {
    EXPECT_EQ(setenv("PROC_NAME", name.c_str(), 1), 0);
    OwnerSetAppReportHandler(OnSelfReport);
    TunorOpenParam param{};
    param.peerName = "PROCMGR";
    param.groupId = getgid();
    param.timeoutMs = kOpenTimeoutMs;
    param.handler = OnRequest;
    fd_ = TunorOpen(&param);
    error_ = fd_ > 0 ? 0 : errno;
    const std::lock_guard<std::mutex> lock(mutex);
    newestFd = fd_;
}

OwnerClient::~OwnerClient() {
    Close();
}

void OwnerClient::Close() {
    if (fd_ > 0) {
        TunorClosePipe(fd_);
        const std::lock_guard<std::mutex> lock(mutex);
        inboxes.erase(fd_);
    }
    fd_ = -1;
}

void OwnerClient::SendRaw(const void* data, size_t size) {
    std::string copy(static_cast<const char*>(data), size);
    TunorRequest request{copy.data(), static_cast<uint32_t>(size)};
    EXPECT_EQ(TunorSendRequest(fd_, &request), 0);
}

void OwnerClient::SendText(uint32_t type, const std::string& text) {
    Message::RequestMsg record{};
    record.type = type;
    record.size = text.size();
    std::memcpy(record.data, text.data(), text.size());
    SendRaw(&record, sizeof(record));
}

std::string OwnerClient::CallRaw(uint32_t type, const std::string& text) {
    Message::RequestMsg record{};
    record.type = type;
    record.size = text.size();
    std::memcpy(record.data, text.data(), text.size());
    TunorRequest request{&record, sizeof(record)};
    TunorResponse response{};
    if (TunorTimedRPCSync(fd_, &request, &response, kCallTimeoutMs) < 0 || response.data == nullptr) {
        return {};
    }
    return {static_cast<const char*>(response.data), response.size};
}

void OwnerClient::StartWith(const Message::StartAppInfo& app) {
    Serialization::PackedRequests packed;
    ASSERT_TRUE(Serialization::ProcMgrPackStartRequest({app}, packed));
    std::vector<Message::RequestMsg> records;
    ASSERT_TRUE(Serialization::ProcMgrCombinePiecesMsg(Message::RequestType::START_APP, packed, records));
    SendRaw(&records.at(0), sizeof(records[0]));
}

void OwnerClient::Start(const std::vector<std::string>& apps) {
    std::vector<Message::StartAppInfo> infos;
    infos.reserve(apps.size());
    for (const std::string& app : apps) {
        infos.push_back({app, {}, {}});
    }
    Serialization::PackedRequests packed;
    ASSERT_TRUE(Serialization::ProcMgrPackStartRequest(infos, packed));
    std::vector<Message::RequestMsg> records;
    ASSERT_TRUE(Serialization::ProcMgrCombinePiecesMsg(Message::RequestType::START_APP, packed, records));
    for (const Message::RequestMsg& record : records) {
        SendRaw(&record, sizeof(record));
    }
}

void OwnerClient::Restart(const std::vector<std::string>& apps) {
    for (const std::string& app : apps) {
        SendText(static_cast<uint32_t>(Message::RequestType::RESTART_APP), "1#" + app + "#0#0#");
    }
}

void OwnerClient::Term(const std::vector<std::string>& apps) {
    std::string text = std::to_string(apps.size()) + "#";
    for (const std::string& app : apps) {
        text += app + "#";
    }
    SendText(static_cast<uint32_t>(Message::RequestType::TERM_APP), text);
}

int OwnerClient::Configure(uint32_t type, const std::string& path,
                           const std::map<std::string, std::string>& matchData) {
    std::string text = "1#" + path + "#" + std::to_string(matchData.size()) + "#";
    for (const auto& [key, value] : matchData) {
        text += key + "#" + value + "#";
    }
    const std::string answer = CallRaw(type, text);
    return answer.empty() ? -1 : std::stoi(answer);
}

int OwnerClient::Load(const std::string& path, const std::map<std::string, std::string>& matchData) {
    return Configure(static_cast<uint32_t>(Message::RequestType::LOAD_STARTUP_CFG), path, matchData);
}

int OwnerClient::Reload(const std::string& path, const std::map<std::string, std::string>& matchData) {
    return Configure(static_cast<uint32_t>(Message::RequestType::RELOAD_STARTUP_CFG), path, matchData);
}

std::map<std::string, uint32_t> OwnerClient::Query(const std::vector<std::string>& apps) {
    std::string data;
    const auto add = [&data](uint32_t number) { data.append(reinterpret_cast<const char*>(&number), sizeof(number)); };
    add(static_cast<uint32_t>(apps.size()));
    for (const std::string& app : apps) {
        add(static_cast<uint32_t>(app.size()));
        data += app;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        inboxes[fd_].states.clear();
    }
    SendText(static_cast<uint32_t>(Message::RequestType::QUERY_APP_STATE), data);
    std::unique_lock<std::mutex> lock(mutex);
    EXPECT_TRUE(arrived.wait_for(lock, kPatience, [&] { return inboxes[fd_].states.size() >= apps.size(); }));
    return inboxes[fd_].states;
}

AppStateInfo OwnerClient::WaitReport(const std::string& app) {
    std::unique_lock<std::mutex> lock(mutex);
    AppStateInfo found;
    const auto take = [&] {
        std::deque<AppStateInfo>& reports = inboxes[fd_].reports;
        for (auto at = reports.begin(); at != reports.end(); ++at) {
            if (at->appName == app) {
                found = *at;
                reports.erase(at);
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(arrived.wait_for(lock, kPatience, take)) << "no report about " << app;
    return found;
}

SelfReport OwnerClient::WaitSelfReport() {
    std::unique_lock<std::mutex> lock(mutex);
    SelfReport report;
    if (!arrived.wait_for(lock, kPatience, [] { return !selfReports.empty(); })) {
        ADD_FAILURE() << "no application reported";
        return report;
    }
    report = selfReports.front();
    selfReports.pop_front();
    return report;
}

std::vector<std::string> OwnerClient::History() {
    // The answer comes behind everything that was sent before it.
    Query({"nobody"});
    const std::lock_guard<std::mutex> lock(mutex);
    return inboxes[fd_].history;
}

std::string Summary(const AppStateInfo& report) {
    return "kind " + std::to_string(report.appState) + " reason " + std::to_string(report.reason) + " value " +
           std::to_string(report.value1);
}

}  // namespace ProcmgrdTest
