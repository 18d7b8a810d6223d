/// A group under the simulated process manager, and the checks of what the library answers.
///
/// What must hold, whatever goes wrong on the other side:
///  - every call returns; one that does not within two minutes of real time ends the process with the seed;
///  - an accepted change answers for its own applications only, and for each one of the first list that it carried out;
///  - true is answered exactly when every application succeeded;
///  - a success is true: the application ran already or reported that it runs; it was down already or reported its end;
///  - once the other side is well again, everything can be stopped, and then started, and all of it runs.
///
/// What is known to be otherwise, and is not counted against the library: an application whose start request could not
/// be sent counts as ended although its process may have come up; one that never reports stays on its way; a late
/// answer to a query ends the next one.
#ifndef PROCMGR_TESTS_SIMULATED_GROUP_H
#define PROCMGR_TESTS_SIMULATED_GROUP_H

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/app_records.h"
#include "grp_owner/grp_owner_server.h"
#include "tests/simulator/scaled_clocks.h"
#include "tests/simulator/simulated_process_manager.h"

class SimulatedGroup {
public:
    explicit SimulatedGroup(uint32_t seed);
    ~SimulatedGroup();
    SimulatedGroup(const SimulatedGroup&) = delete;
    SimulatedGroup& operator=(const SimulatedGroup&) = delete;

    /// One round: random requests from several threads while things go wrong, then the final checks. The complaints,
    /// each one a sentence; empty when everything held.
    std::vector<std::string> Round(int steps);

    /// Answers for applications so far.
    size_t Successes() const { return successes_; }
    size_t Failures() const { return failures_; }

private:
    struct Request {
        std::vector<AppInfoForServer> term;
        std::vector<AppInfoForServer> start;
        std::vector<AppInfoForServer> restart;
        int timeoutMs = 0;
    };

    struct Before {
        size_t time = 0;
        std::map<std::string, ProcMgr::AppStateType> states;
    };

    void TurnBad();
    void TurnWell();
    void Change(std::mt19937& random, bool alone);
    void Ask(std::mt19937& random);
    void DisturbUntilDone(uint32_t seed, const std::atomic<bool>& done);
    static Request RandomRequest(std::mt19937& random);
    static bool AsksForApplications(const Request& request);
    static std::string Text(const Request& request);
    Before Note(const Request& request) const;
    void CheckAnswer(const Request& request, const Before& before, bool ok, const std::vector<AppChangeInfo>& answer);
    void CheckNames(const Request& request, const std::vector<AppChangeInfo>& answer);
    void CheckSuccess(const Request& request, const Before& before, const AppChangeInfo& entry);
    bool HasStarted(const std::string& name, size_t from) const;
    void CheckThatEverythingStopsAndStarts();
    void Complain(const std::string& text);

    std::mt19937 random_;
    SimulatedProcessManager manager_;
    ScaledClocks fastClocks_{50};
    ProcMgr::GrpOwnerServer server_{[] {}};
    size_t successes_ = 0;
    size_t failures_ = 0;

    std::mutex complaintsMutex_;
    std::vector<std::string> complaints_;
};

#endif
