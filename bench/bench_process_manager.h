/// A process manager inside the benchmark's process: it answers each request at once, from a thread of its own, with
/// whole records of reports. Together with silent stand-ins for the log and the heartbeat it is all of the platform
/// that the manager needs beside the real manifest graphs.
#ifndef PROCMGR_BENCH_PROCESS_MANAGER_H
#define PROCMGR_BENCH_PROCESS_MANAGER_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/tunor.h"
#include "pm_agent/request_msg.h"

class BenchProcessManager {
public:
    static BenchProcessManager& Get();

    void Open(TunorRequestHandler handler);
    void Close();
    void Take(const TunorRequest& request);

private:
    BenchProcessManager() = default;
    void Run();
    void Answer(const ProcMgr::Message::RequestMsg& request);
    void Send(const std::vector<std::string>& entries, size_t begin, size_t end) const;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<ProcMgr::Message::RequestMsg> requests_;
    bool isClosing_ = false;
    TunorRequestHandler handler_ = nullptr;
    std::thread thread_;
};

#endif
