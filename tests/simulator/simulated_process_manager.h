/// A process manager without processes, on a thread of its own: it answers what the library sends over the recording
/// pipe by a schedule that a seed decides. It delays, reorders, drops and doubles reports, lets sends and starts fail,
/// terminations time out and applications crash, answers late or never. What it can't do is run two processes for one
/// name; it complains when it is told to.
#ifndef PROCMGR_TESTS_SIMULATED_PROCESS_MANAGER_H
#define PROCMGR_TESTS_SIMULATED_PROCESS_MANAGER_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/enumerations.h"
#include "pm_agent/message_records.h"
#include "pm_agent/request_msg.h"
#include "tests/fake_platform/fake_pipe.h"

/// How often things go wrong, in percent, and how long a report may take.
struct SimulatedOdds {
    int drop = 0;
    int twice = 0;
    int startFails = 0;
    int termTimesOut = 0;
    int crashes = 0;  ///< per report of a start: the application crashes a little later
    int queryUnanswered = 0;
    int late = 0;  ///< answers come tens of milliseconds later than the longest delay
    int sendFails = 0;
    std::chrono::microseconds longestDelay{0};
};

class SimulatedProcessManager {
public:
    using Report = ProcMgr::Message::ReportAppStateType;

    /// `selfReporting`: applications that report their own readiness after each start.
    SimulatedProcessManager(uint32_t seed, std::set<std::string> selfReporting);
    ~SimulatedProcessManager();
    SimulatedProcessManager(const SimulatedProcessManager&) = delete;
    SimulatedProcessManager& operator=(const SimulatedProcessManager&) = delete;

    void SetOdds(const SimulatedOdds& odds);

    /// Waits until nothing is scheduled any more and everything was delivered; false after a minute.
    [[nodiscard]] bool WaitUntilQuiet();

    /// Number of reports so far; a point in time.
    size_t Now() const;

    /// The kinds of reports that tell of an end.
    static const std::set<Report>& Ends();

    /// True when a report of one of these kinds about `name` was delivered since `from`.
    bool HasReported(const std::string& name, const std::set<Report>& kinds, size_t from) const;

    /// True when the application reported its own readiness, or was found running, since `from`.
    bool HasReportedItself(const std::string& name, size_t from) const;

    /// True when a start or restart of `name` may not have been sent since `from`: the library then knows without a
    /// report that it ended.
    bool MayBeUnsent(const std::string& name, size_t from) const;

    /// The application is about to be told to run, although it need not have a process.
    void NoteFoundRunning(const std::string& name);

    /// The library is about to handle this report.
    void NoteReport(const ProcMgr::Message::AppStateInfo& info);

    /// Starts of these are not checked: their records come and go.
    void SetShifting(const std::set<std::string>& names);

    /// Nothing is being sent at the moment, by any thread that does not answer reports.
    void NoteNothingOnItsWay();

    /// The process of each application that runs.
    std::map<std::string, uint32_t> Running() const;

    /// What the library did wrong, each a sentence.
    std::vector<std::string> Complaints() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Process {
        bool runs = false;
        uint32_t pid = 0;
    };

    enum class Source { PROCESS_MANAGER, APPLICATION, LOST_SEND };

    struct Delivery {
        std::string name;
        Source source = Source::PROCESS_MANAGER;
        Report kind = Report::INVALID_INTERMEDIATE_STATE;
    };

    /// How many starts the library may send: one at first, and one more for each end that it heard of. Not more than a
    /// few: a start is decided some time before it is sent, and by two threads, so ends in between may add up.
    struct Startable {
        int starts = 1;
        void HasEnded() { starts = starts < 3 ? starts + 1 : starts; }
    };

    enum class Act { START, RESTART, TERMINATE, CRASH, ANSWER_QUERY };

    struct Planned {
        Act act;
        std::string name;     ///< of the application
        std::string request;  ///< bytes of a query
    };

    void Take(const FakePipe::Sent& sent);
    void TakeNames(Act act, const ProcMgr::Message::RequestMsg& record);
    void NoteStart(const std::string& name);
    bool GetsThrough(const std::vector<std::string>& names);
    void Lose(const std::vector<std::string>& names);
    bool HasHeard(const std::string& name, Source source, size_t from) const;
    void Plan(const Planned& planned);
    void Run();
    void Do(const Planned& planned);
    void StartUp(const std::string& name, Report report);
    void End(const std::string& name, Report report, uint32_t reason);
    void Terminate(const std::string& name);
    void Tell(const std::string& name, Report kind, uint32_t reason);
    void TellReadiness(const std::string& name);
    void AnswerQuery(const std::string& request);
    bool Happens(int percent);
    std::chrono::microseconds Delay();

    const std::set<std::string> selfReporting_;

    mutable std::mutex mutex_;  ///< guards everything below
    std::condition_variable changed_;
    std::mt19937 random_;
    SimulatedOdds odds_;
    std::multimap<Clock::time_point, Planned> plan_;
    std::map<std::string, Process> processes_;
    std::vector<Delivery> deliveries_;
    std::map<std::string, Startable> startable_;
    std::set<std::string> shifting_;
    std::vector<std::string> complaints_;
    std::map<std::thread::id, std::vector<std::string>> lastSent_;  ///< what each thread started or restarted last
    std::set<std::thread::id> failing_;  ///< threads on whose account some send may be failing at the moment
    uint32_t nextPid_ = 1000;
    bool isBusy_ = false;
    bool isEnding_ = false;

    std::thread thread_;
};

#endif
