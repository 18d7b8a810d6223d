/// The process manager's end of the pipe, as the contract tests see it. One implementation for each platform, chosen at
/// link time; a test makes one of them, first of all.
#ifndef PROCMGR_TESTS_PIPE_HARNESS_H
#define PROCMGR_TESTS_PIPE_HARNESS_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class PipeHarness {
public:
    PipeHarness();
    ~PipeHarness();
    PipeHarness(const PipeHarness&) = delete;
    PipeHarness& operator=(const PipeHarness&) = delete;

    // These speak over the pipe that was opened last; they do not wait for its handlers.
    void PushRequest(const std::string& bytes);
    void PushAppReport(const std::string& name, int pid, uint32_t state);
    void EndPipe();

    /// How calls are answered; at first with the call's own bytes.
    void AnswerCallsBy(std::function<std::string(const std::string&)> answer);
    void LeaveCallsUnanswered();

    /// Waits until this many one-way requests (answers to the process manager's own requests) came, and returns them in
    /// their order; fewer after half a minute.
    std::vector<std::string> WaitForRequests(size_t count);
    std::vector<std::string> WaitForResponses(size_t count);

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

#endif
