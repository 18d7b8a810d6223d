#include "daemons/grpownerd/owner_news.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

OwnerNews::OwnerNews() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

OwnerNews::~OwnerNews() {
    close(descriptor_);
}

void OwnerNews::SetBoot(BootState state) {
    boot_ = state;
    Wake();
}

void OwnerNews::SetPipeLost() {
    pipeLost_ = true;
    Wake();
}

void OwnerNews::Wake() const {
    const uint64_t one = 1;
    // A full counter is readable already, which is all that the wake-up is for.
    [[maybe_unused]] const ssize_t written = write(descriptor_, &one, sizeof(one));
}

void OwnerNews::Drain() const {
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = read(descriptor_, &count, sizeof(count));
}
