/// A daemon under test: started with an environment of its own, its two outputs read through pipes, ended at the latest
/// when the object goes.
#ifndef TESTS_INTEGRATION_CHILD_PROCESS_H
#define TESTS_INTEGRATION_CHILD_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

class ChildProcess {
public:
    /// A deadline that only a hang reaches.
    static constexpr std::chrono::seconds kPatience{60};

    ChildProcess(const std::vector<std::string>& argv, const std::map<std::string, std::string>& environment);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return pid_; }
    void Signal(int signal) const;

    /// Waits until the output (both streams together) has a line that contains `text`, behind the lines that earlier
    /// calls found; returns the line, or an empty string when the process ended or patience did.
    std::string WaitForLine(const std::string& text);

    /// Waits until `text` stands anywhere in the output; false when the process ended or patience did.
    bool WaitForOutput(const std::string& text);

    /// Waits for the end; the exit code, or 128 + the signal.
    int WaitForExit();

    /// All output so far.
    const std::string& Output() const { return output_; }

private:
    bool ReadMore(std::chrono::steady_clock::time_point deadline);
    std::string TakeLine(const std::string& text);

    pid_t pid_ = -1;
    int outputDescriptor_ = -1;
    int exitCode_ = -1;
    bool ended_ = false;
    std::string output_;
    size_t searchedTo_ = 0;
};

#endif
