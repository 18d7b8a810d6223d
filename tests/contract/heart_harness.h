/// The hearts that the contract tests watch. One implementation for each platform, chosen at link time; a test makes
/// one of them, first of all.
#ifndef PROCMGR_TESTS_HEART_HARNESS_H
#define PROCMGR_TESTS_HEART_HARNESS_H

#include <string>

class HeartHarness {
public:
    HeartHarness();
    ~HeartHarness();
    HeartHarness(const HeartHarness&) = delete;
    HeartHarness& operator=(const HeartHarness&) = delete;

    /// Lets the heartbeat of a watched name stay away. Its notice may come before or after this has returned.
    void Lose(const std::string& name);

    /// Lets it beat again, from this process.
    void Beat(const std::string& name);

private:
    std::string folder_;  ///< of the addresses, where there are any
};

#endif
