/// A run directory of its own for the hearts of one test.
#ifndef PROCMGR_TESTS_PLATFORM_HEARTBEAT_TEST_KIT_H
#define PROCMGR_TESTS_PLATFORM_HEARTBEAT_TEST_KIT_H

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/include/heartbeat.h"
#include "platform/posix/heartbeat/heartbeat_receiver.h"

namespace ProcMgr::Posix {

inline constexpr int kPatienceMs = 30000;

class HeartFolder {
public:
    /// Hearts of this process beat every `periodMs`, and watch under the name "watcher".
    explicit HeartFolder(const char* periodMs = "20") {
        char name[] = "/tmp/procmgr-heart-XXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        path_ = name;
        setenv("PROCMGR_RUN_DIR", name, 1);
        setenv("PROC_NAME", "watcher", 1);
        setenv("PROCMGR_HEARTBEAT_PERIOD_MS", periodMs, 1);
        unsetenv("PROCMGR_HEARTBEAT_MISSES");
    }
    ~HeartFolder() { std::filesystem::remove_all(path_); }
    HeartFolder(const HeartFolder&) = delete;
    HeartFolder& operator=(const HeartFolder&) = delete;

    const std::string& Path() const { return path_; }

    std::unique_ptr<HeartBeatReceiver> Receiver(const std::string& watcher) const {
        std::unique_ptr<HeartBeatReceiver> receiver;
        EXPECT_EQ(HeartBeatReceiver::Open(path_, watcher, receiver), 0);
        return receiver;
    }

private:
    std::string path_;
};

/// The next `count` beats; fewer when they do not come in half a minute.
inline std::vector<ReceivedBeat> WaitForBeats(HeartBeatReceiver& receiver, size_t count) {
    std::vector<ReceivedBeat> beats;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
    while (beats.size() < count && std::chrono::steady_clock::now() < deadline) {
        pollfd entry{receiver.Descriptor(), POLLIN, 0};
        (void)poll(&entry, 1, kPatienceMs);
        for (ReceivedBeat& beat : receiver.Receive()) {
            beats.push_back(std::move(beat));
        }
    }
    return beats;
}

/// Collects notices; the library's callback has no context, so there is one for the process.
class Notices {
public:
    static Notices& Get() {
        static Notices& notices = *new Notices;
        return notices;
    }

    static int Take(const char* name, size_t nameLen, unsigned int pid, int status) {
        Notices& notices = Get();
        const std::lock_guard<std::mutex> lock(notices.mutex_);
        notices.lines_.push_back(std::string(name, nameLen) + " " + std::to_string(pid) +
                                 (status == 1   ? " lost"
                                  : status == 0 ? " recovered"
                                                : " unknown"));
        notices.changed_.notify_all();
        return 1;
    }

    std::vector<std::string> WaitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_until(lock, std::chrono::system_clock::now() + std::chrono::milliseconds(kPatienceMs),
                            [this, count] { return lines_.size() >= count; });
        return lines_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

inline int StartSending(const std::string& name, const std::string& peer, HeartBeatHandle& handle) {
    return RegisterSendHeartBeat(name.data(), name.size(), peer.data(), peer.size(), &handle);
}

inline int StartWatching(const std::string& name, unsigned int gid) {
    return RegisterCheckHeartBeat(name.data(), name.size(), gid, Notices::Take);
}

}  // namespace ProcMgr::Posix

#endif
