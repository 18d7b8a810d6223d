/// A service on the bus: its socket, its open files and the thread that reads their requests.
///
/// The reader thread decides everything: who comes in, which request is granted, who is out of time, when a file ends.
/// It calls no service and waits for no client. The calls into the service run on the workers, one at a time for each
/// file, with no lock held; each posts its end back to the reader, which answers.
///
/// What a client can make it hold is bounded: kFilesMax files, on each one request that runs and one that waits. A file
/// that ended counts until its last call has returned. bus_service_accept.cpp has the steps from the socket to a file,
/// bus_service.cpp the others.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_BUS_SERVICE_H
#define PROCMGR_PLATFORM_POSIX_VEK_BUS_SERVICE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/posix/common_posix/access_rules.h"
#include "platform/posix/common_posix/packet_listener.h"
#include "platform/posix/vek/bus_file.h"
#include "platform/posix/vek/log_budget.h"
#include "platform/posix/vek/service_entry.h"
#include "platform/posix/vek/vek_handles.h"
#include "platform/posix/vek/work_pool.h"

namespace ProcMgr {

class BusService {
public:
    static constexpr size_t kFilesMax = 64;
    static constexpr size_t kFilesOfOneUser = 32;  ///< root and the own user are not counted
    static constexpr size_t kFilesOfOneProcess = 16;
    static constexpr std::chrono::milliseconds kOpenTimeout{5000};  ///< from connecting to the open request

    /// The workers and handles live as long as the service, which lives until the process ends once it was started.
    BusService(std::string name, WorkPool& workers, VekHandles& handles);

    /// Takes the name in `folder`, reads the rules and starts the thread. Returns 0, or an errno with a sentence in
    /// `error`.
    [[nodiscard]] int Start(const std::string& folder, const ServiceEntry& entry, std::string& error);

    /// Further calls go to this entry. False when a queue would become a service or the other way round.
    [[nodiscard]] bool Replace(const ServiceEntry& entry);

private:
    using Files = std::map<uint64_t, std::unique_ptr<BusFile>>;

    int Listen(const std::string& folder, std::string& error);
    void LoadRules();
    ServiceEntry Entry() const;

    // All below belongs to the reader thread, except Post().

    void Loop();
    void Turn();
    int MillisecondsToNextDeadline() const;
    bool Watch(int fd, uint64_t tag, uint32_t events, int operation) const;
    void WatchFile(BusFile& file);
    void WatchListener(bool on);
    void WatchReadyFiles();

    void AcceptAll();
    void Accept(UniqueFd fd);
    int FindRefusal(const ucred& peer, AccessRules::Grants grants) const;
    void LogRefusedConnection(const ucred& peer, int error);
    void AddFile(UniqueFd fd, const ucred& peer, AccessRules::Grants grants);

    void ServeFile(uint64_t id);
    const char* TakePacket(BusFile& file, const char* packet, size_t size);
    const char* TakeOpen(BusFile& file, const VekFrameHead& head);
    const char* TakeRequest(BusFile& file, const VekFrameHead& head, const char* payload);
    const char* TakeQueue(BusFile& file, const VekFrameHead& head);
    static const char* TakeReturn(BusFile& file, const VekFrameHead& head, const char* payload);
    bool IsAllowed(const BusFile& file, const VekFrameHead& head);
    void LogRefusedCommand(const BusFile& file, uint32_t cmd);

    void Submit(BusFile& file, std::shared_ptr<BusWork> work);
    void Run(BusFile& file, BusWork& work);
    void Post(uint64_t id);
    void TakeCompletions();
    void Complete(BusFile& file);
    void CompleteOpen(BusFile& file, const BusWork& work);

    void Send(BusFile& file, const VekFrameHead& head, const void* payload);
    void SendError(BusFile& file, const VekFrameHead& request, int error);
    void End(BusFile& file, const char* reason);
    void ExpireDeadlines();
    void Expire(BusFile& file, BusClock::time_point now);
    void RemoveEndedFiles();

    const std::string name_;
    WorkPool& workers_;
    VekHandles& handles_;

    mutable std::mutex entryMutex_;
    ServiceEntry entry_;  // guarded by entryMutex_

    std::mutex doneMutex_;
    std::vector<uint64_t> done_;  // guarded by doneMutex_: files whose work has ended

    // Constant once started.
    UniqueFd wake_;
    UniqueFd epoll_;
    PacketListener listener_;
    AccessRules rules_;
    bool isQueue_ = false;

    // Of the reader thread.
    Files files_;
    uint64_t lastId_;
    std::vector<char> packet_;
    LogBudget logBudget_;
    bool isListening_ = true;
    BusClock::time_point listenAgain_;  // when there was no descriptor for a further connection
};

}  // namespace ProcMgr

#endif
