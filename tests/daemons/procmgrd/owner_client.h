/// A group owner of the tests: the pipe's client, with what it received kept for the test to ask.
#ifndef TESTS_DAEMONS_PROCMGRD_OWNER_CLIENT_H
#define TESTS_DAEMONS_PROCMGRD_OWNER_CLIENT_H

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/enumerations.h"
#include "pm_agent/message_records.h"
#include "pm_agent/request_msg.h"

namespace ProcmgrdTest {

using ProcMgr::Message::AppStateInfo;
using ProcMgr::Message::ReportAppStateType;

/// What an application said of itself.
struct SelfReport {
    std::string appName;
    int pid = 0;
    uint32_t state = 0;
};

class OwnerClient {
public:
    /// Connects under that name to the process manager of PROCMGR_RUN_DIR. Error() tells whether it worked.
    explicit OwnerClient(const std::string& name);
    ~OwnerClient();
    OwnerClient(const OwnerClient&) = delete;
    OwnerClient& operator=(const OwnerClient&) = delete;

    /// 0, or the errno of the refusal.
    int Error() const { return error_; }

    void Close();

    void Start(const std::vector<std::string>& apps);
    void StartWith(const ProcMgr::Message::StartAppInfo& app);
    void Restart(const std::vector<std::string>& apps);
    void Term(const std::vector<std::string>& apps);

    /// The result of the call; -1 when there was no answer.
    int Load(const std::string& path, const std::map<std::string, std::string>& matchData);
    int Reload(const std::string& path, const std::map<std::string, std::string>& matchData);

    /// Asks and waits for as many answers as there are names.
    std::map<std::string, uint32_t> Query(const std::vector<std::string>& apps);

    /// One record, or anything else, as it is.
    void SendRaw(const void* data, size_t size);
    void SendText(uint32_t type, const std::string& text);
    std::string CallRaw(uint32_t type, const std::string& text);

    /// The next report about this application that was not waited for yet.
    AppStateInfo WaitReport(const std::string& app);

    /// The same for reports of applications about themselves, of every owner in this process.
    static SelfReport WaitSelfReport();

    /// All that came so far, in order, as "cam 0" for a report of kind 0 and "cam on" for what it said of itself.
    /// Everything that was caused by earlier requests is in it.
    std::vector<std::string> History();

private:
    int Configure(uint32_t type, const std::string& path, const std::map<std::string, std::string>& matchData);

    int fd_ = -1;
    int error_ = 0;
};

/// For readable expectations: "kind 4 reason 5 value 3".
std::string Summary(const AppStateInfo& report);

}  // namespace ProcmgrdTest

#endif
