/// Stands in for the bounded copies, which can be made to fail.
#ifndef PROCMGR_TESTS_FAKE_COPIES_H
#define PROCMGR_TESTS_FAKE_COPIES_H

#include <cstddef>
#include <mutex>

class FakeCopies {
public:
    static FakeCopies& Get();

    /// The n-th call from now on (1 is the next one, memcpy_s and memset_s counted together) fails with `error`,
    /// leaving its destination zero.
    void FailCall(size_t n, int error);

    /// As FailCall, and every later call too.
    void FailFromCall(size_t n, int error);

    /// Calls made since the test began.
    size_t Count() const;

    /// What the C functions call: counts the call; 0, or the error to fail with.
    int NextError();

private:
    FakeCopies() = default;
    void Arm(size_t n, int error, bool isForEver);

    mutable std::mutex mutex_;
    size_t count_ = 0;
    size_t failAt_ = 0;
    int error_ = 0;
    bool isForEver_ = false;
};

#endif
