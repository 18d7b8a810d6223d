/// A process manager inside the benchmark's process: it answers each request at once, from a thread of its own, with
/// whole records of reports. Together with silent stand-ins for the log and the heartbeat it is all of the platform
/// that the manager needs beside the real manifest graphs.
#ifndef PROCMGR_BENCH_PROCESS_MANAGER_H
#define PROCMGR_BENCH_PROCESS_MANAGER_H

#include <chrono>
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

    /// Microseconds from the moment a report was handed to the library to the next request, one for each request that
    /// followed a report; starts again.
    std::vector<double> TakeLatencies();

private:
    using Clock = std::chrono::steady_clock;

    BenchProcessManager() = default;
    void Run();
    void Answer(const ProcMgr::Message::RequestMsg& request);
    void Send(const std::vector<std::string>& entries, size_t begin, size_t end);

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<ProcMgr::Message::RequestMsg> requests_;
    std::vector<double> latencies_;
    Clock::time_point reportedAt_;
    bool isClosing_ = false;
    TunorRequestHandler handler_ = nullptr;
    std::thread thread_;
};

#endif
