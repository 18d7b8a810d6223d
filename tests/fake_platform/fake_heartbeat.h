/// Stands in for the heartbeat library.
#ifndef PROCMGR_TESTS_FAKE_HEARTBEAT_H
#define PROCMGR_TESTS_FAKE_HEARTBEAT_H

#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "platform/include/heartbeat.h"

class FakeHeartBeat {
public:
    enum class Operation { REGISTER_SEND, UNREGISTER_SEND, REGISTER_CHECK, UNREGISTER_CHECK, DISABLE_ALL };

    struct Call {
        Operation operation;
        std::string name;                  ///< of the process; empty where the operation has none
        std::string peer;                  ///< REGISTER_SEND
        unsigned int gid = 0;              ///< REGISTER_CHECK
        HeartBeatHandle handle = nullptr;  ///< as given to UNREGISTER_SEND, as handed out by REGISTER_SEND
        bool hasCallback = false;          ///< REGISTER_CHECK

        /// "send cam to PROCMGR", "stop sending", "check cam gid=7", "stop checking cam", "stop checking all".
        std::string ToString() const;
    };

    static FakeHeartBeat& Get();

    std::vector<Call> Calls() const;
    std::vector<std::string> Lines() const;  ///< Calls in the form of Call::ToString

    /// What the operation returns from now on; 0 at first. A failing registration is recorded but not effective.
    void SetResult(Operation operation, int result);

    /// Tells of the heartbeat of `name`, on a thread of the fake's own, one notice at a time; returns when the callback
    /// has returned. A name that is not watched (any more) gets the callback registered last, as a notice may come just
    /// after the watch was stopped. Returns what the callback returned; -1 when none was ever registered.
    int NotifyHeartBeat(const std::string& name, unsigned int pid, int status);

    /// As NotifyHeartBeat, with a name of the caller's choice, null too.
    int NotifyRaw(const char* name, size_t nameLen, unsigned int pid, int status);

    bool IsChecked(const std::string& name) const;
    size_t SenderCount() const;

    // What the C functions call.
    int RegisterSend(const std::string& name, const std::string& peer, HeartBeatHandle* handle);
    int UnregisterSend(HeartBeatHandle handle);
    int RegisterCheck(const std::string& name, unsigned int gid, HeartBeatNotify callback);
    int UnregisterCheck(const std::string& name);
    int DisableAll();

private:
    FakeHeartBeat() = default;
    int ResultOf(Operation operation) const;

    mutable std::mutex mutex_;
    std::mutex noticeMutex_;  ///< one notice at a time
    std::vector<Call> calls_;
    std::map<Operation, int> results_;
    std::map<std::string, HeartBeatNotify> watches_;
    std::map<HeartBeatHandle, std::string> senders_;
    HeartBeatNotify lastCallback_ = nullptr;
    size_t nextHandle_ = 1;
};

#endif
