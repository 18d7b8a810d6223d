/// Stands in for the platform log, the syslog switch and syslog itself: catches every line of either sink.
#ifndef PROCMGR_TESTS_FAKE_LOG_H
#define PROCMGR_TESTS_FAKE_LOG_H

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

class FakeLog {
public:
    enum class Sink { KMON, SYSLOG };

    struct Record {
        Sink sink = Sink::KMON;
        int32_t level = 0;      ///< of the platform log (0, 1, 2, 3, 16), or the priority given to syslog
        std::string text;       ///< without the "[file:line]" prefix
        std::string file;       ///< of the prefix; empty when there is none
        int line = 0;           ///< of the prefix
        uint32_t moduleId = 0;  ///< of the platform log

        /// "DEBUG text", "INFO text", "WARN text", "ERROR text", "EVENT text"; "SYSLOG3 text" with syslog's priority.
        std::string ToString() const;
    };

    /// One question of the library to CheckLogLevel.
    struct Check {
        uint32_t moduleId;
        int32_t level;
    };

    static FakeLog& Get();

    std::vector<Record> Records() const;

    /// The records in the form of Record::ToString, in the order in which they came: one comparison for texts and
    /// levels.
    std::vector<std::string> Lines() const;

    /// As Lines, but only those that contain `part`.
    std::vector<std::string> LinesWith(const std::string& part) const;

    std::vector<Check> Checks() const;

    /// Forgets the records and checks of so far.
    void Clear();

    /// Waits until a line in the form of Record::ToString has come; false after half a minute.
    [[nodiscard]] bool WaitForLine(const std::string& line) const;

    /// Records below `level` are switched off (CheckLogLevel gives 0); all are on at first.
    void SetThreshold(int32_t level);

    /// CheckLogLevel answers this whatever the level.
    void SetCheckResult(int result);

    /// Called for every line, after it was recorded, on the thread that logs it and with no lock of the fake held.
    void OnLine(std::function<void(const Record&)> hook);

    // What the C functions call.
    int Answer(uint32_t moduleId, int32_t level);
    void Add(Record record);

private:
    FakeLog() = default;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Record> records_;
    std::vector<Check> checks_;
    int32_t threshold_ = 0;
    bool isCheckResultFixed_ = false;
    int checkResult_ = 1;
    std::function<void(const Record&)> hook_;
};

#endif
