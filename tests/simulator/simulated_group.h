/// A group under the simulated process manager, and the checks of what the library answers.
///
/// What must hold, whatever goes wrong on the other side:
///  - every call returns, having waited no longer than its time-out allows; one that does not return within two minutes
///    of real time ends the process with the seed;
///  - an accepted change answers for exactly the applications of each list that it carried out, for each one once;
///  - true is answered only when every application succeeded;
///  - a success is true: the application ran already or reported that it runs; it was down already or reported its end;
///  - nothing is started twice without having ended in between;
///  - the next change is accepted, when no other one runs;
///  - once the other side is well again, a reload is accepted, everything can be stopped, started, restarted and asked
///    for, and after the last stop no process is left.
///
/// What is known to be otherwise, and is not counted against the library: an application whose start request could not
/// be sent counts as ended although its process may have come up, and a restart that could not be sent is taken back;
/// one that never reports stays on its way; one whose manifest a reload drops or moves is forgotten; one that ended
/// when it was asked to may be started again by its policy; a late answer to a query ends the next one.
#ifndef PROCMGR_TESTS_SIMULATED_GROUP_H
#define PROCMGR_TESTS_SIMULATED_GROUP_H

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "common/app_records.h"
#include "grp_owner/grp_owner_server.h"
#include "tests/simulator/scaled_clocks.h"
#include "tests/simulator/side_requests.h"
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
    void Step();
    void CheckThatTheNextChangeIsAccepted();

    // Requests of the side thread.
    void Ask(std::mt19937& random);
    void AskForReload(std::mt19937& random);
    void AskForStates();
    void AskForVerification(std::mt19937& random);

    // Changes and stops.
    void Change();
    void ChangeBeside(std::mt19937& random);
    static int MostWaits(const Request& request);
    bool Carry(const Request& request, std::vector<AppChangeInfo>& answer);
    void StopAll();
    static Request RandomRequest(std::mt19937& random);
    static bool AsksForApplications(const Request& request);
    static std::string Text(const Request& request);

    // What must be true of the answers.
    Before Note();
    void CheckAnswer(const Request& request, bool ok, const std::vector<AppChangeInfo>& answer);
    void CheckNames(const Request& request, const std::vector<AppChangeInfo>& answer);
    void CheckSuccess(const Request& request, const Before& before, const std::string& name);
    bool WasStopped(const Before& before, const std::string& name) const;
    bool HasStarted(const std::string& name, size_t from) const;
    bool IsUnchecked(const std::string& name) const;

    void CheckThatEverythingStopsAndStarts();
    void CheckThatEverythingRuns();
    void CheckThatNothingIsLeft();
    void Complain(const std::string& text);

    std::mt19937 random_;
    SimulatedProcessManager manager_;
    ScaledClocks fastClocks_{50};
    ProcMgr::GrpOwnerServer server_{[] {}};
    std::atomic<size_t> successes_{0};
    std::atomic<size_t> failures_{0};
    bool hasRival_ = false;    ///< the side thread asks for changes, too
    bool isShifting_ = false;  ///< reloads find other manifests than before
    std::unique_ptr<SideRequests> side_;

    std::mutex complaintsMutex_;
    std::vector<std::string> complaints_;
};

#endif
