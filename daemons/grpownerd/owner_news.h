/// What other threads tell the main loop: that the boot is over, and that the process manager is gone. A descriptor
/// that gets readable carries the news, so that the loop waits for it and for signals in one place.
#ifndef GRPOWNERD_OWNER_NEWS_H
#define GRPOWNERD_OWNER_NEWS_H

#include <atomic>

enum class BootState { CONNECTING, STARTING, UP, PARTLY_UP, FAILED };

class OwnerNews {
public:
    OwnerNews();
    ~OwnerNews();
    OwnerNews(const OwnerNews&) = delete;
    OwnerNews& operator=(const OwnerNews&) = delete;

    void SetBoot(BootState state);
    void SetPipeLost();

    BootState Boot() const { return boot_; }
    bool IsPipeLost() const { return pipeLost_; }

    int Descriptor() const { return descriptor_; }
    void Drain() const;

private:
    void Wake() const;

    const int descriptor_;
    std::atomic<BootState> boot_{BootState::CONNECTING};
    std::atomic<bool> pipeLost_{false};
};

#endif
