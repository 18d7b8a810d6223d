#include "tests/fake_platform/fake_copies.h"

#include <cerrno>
#include <cstring>

#include "platform/include/bounded_copy.h"

FakeCopies& FakeCopies::Get() {
    static FakeCopies& copies = *new FakeCopies;
    return copies;
}

void FakeCopies::FailCall(size_t n, int error) {
    Arm(n, error, false);
}

void FakeCopies::FailFromCall(size_t n, int error) {
    Arm(n, error, true);
}

void FakeCopies::Arm(size_t n, int error, bool isForEver) {
    const std::lock_guard<std::mutex> lock(mutex_);
    failAt_ = count_ + n;
    error_ = error;
    isForEver_ = isForEver;
}

size_t FakeCopies::Count() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return count_;
}

int FakeCopies::NextError() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++count_;
    const bool isHit = failAt_ != 0 && (isForEver_ ? count_ >= failAt_ : count_ == failAt_);
    return isHit ? error_ : 0;
}

#ifndef PROCMGR_HAVE_BOUNDED_COPY

extern "C" {

int memcpy_s(void* dest, size_t destMax, const void* src, size_t count) {
    int error = FakeCopies::Get().NextError();
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    if (error == 0 && src == nullptr) {
        error = EINVAL;
    }
    if (error == 0 && count > destMax) {
        error = ERANGE;
    }
    if (error != 0) {
        memset(dest, 0, destMax);
        return error;
    }
    memcpy(dest, src, count);
    return 0;
}

int memset_s(void* dest, size_t destMax, int value, size_t count) {
    const int error = FakeCopies::Get().NextError();
    if (dest == nullptr || destMax == 0) {
        return EINVAL;
    }
    if (error != 0) {
        memset(dest, 0, destMax);
        return error;
    }
    memset(dest, value, count > destMax ? destMax : count);
    return count > destMax ? ERANGE : 0;
}

}  // extern "C"

#endif
