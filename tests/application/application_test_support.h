/// What the tests of the application model share.
#ifndef PROCMGR_TESTS_APPLICATION_TEST_SUPPORT_H
#define PROCMGR_TESTS_APPLICATION_TEST_SUPPORT_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "application/application.h"
#include "common/timer.h"
#include "tests/fake_platform/fake_log.h"
#include "tests/fake_platform/manifest_builder.h"

namespace ProcMgr {

using Lines = std::vector<std::string>;

inline constexpr AppStateType kAllStates[] = {
    AppStateType::INIT_STATE,        AppStateType::RUNNING_STATE,    AppStateType::WAIT_READY_STATE,
    AppStateType::TERMINATING_STATE, AppStateType::TERMINATED_STATE,
};

/// An application in the given state, without a line in the log.
inline std::unique_ptr<Application> MakeApplication(const ApplicationManifest& manifest, AppStateType state) {
    auto application = std::make_unique<Application>(manifest, "");
    application->SetAppState(application->MapStateTypeToStatePointer(state));
    return application;
}

/// The clock of all timers, as long as it lives.
class ManualClock {
public:
    ManualClock() { DataMaster::Timer::SetClock(&Read); }
    ~ManualClock() { DataMaster::Timer::SetClock(nullptr); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    void AdvanceMs(int64_t ms) { now += ms * 1000000; }

private:
    static int64_t Read() { return now.load(); }
    static inline std::atomic<int64_t> now{1000000000};
};

/// A state object of any kind, also of none that exists, that records that it is released.
class OddState : public ApplicationState {
public:
    OddState(AppStateType kind, Application* owner, bool* isReleased = nullptr)
        : ApplicationState(kind, owner), isReleased_(isReleased) {}
    ~OddState() override {
        if (isReleased_ != nullptr) {
            *isReleased_ = true;
        }
    }

    bool Start() override { return false; }
    bool Term() override { return false; }
    bool Restart() override { return false; }
    AppChangeState ReportRunningNormalStartFromProcMgr() override { return AppChangeState::PROCESSING; }
    AppChangeState ReportRunningAbnormalTermTimeoutFromProcMgr() override { return AppChangeState::PROCESSING; }
    AppChangeState ReportRunningNormalReStartFromProcMgr() override { return AppChangeState::PROCESSING; }
    AppChangeState ReportTerminatedNormalFromProcMgr() override { return AppChangeState::PROCESSING; }
    AppChangeState ReportTerminatedAbnormalFromProcMgr(unsigned) override { return AppChangeState::PROCESSING; }
    AppChangeState ReportRunningNormalStartFromApp() override { return AppChangeState::PROCESSING; }

private:
    bool* isReleased_;
};

}  // namespace ProcMgr

#endif
