/// The clients of the resource-service bus, as the contract tests see them. One implementation for each platform,
/// chosen at link time; a test makes one of them, first of all.
#ifndef PROCMGR_TESTS_BUS_HARNESS_H
#define PROCMGR_TESTS_BUS_HARNESS_H

#include <memory>
#include <string>

class BusHarness {
public:
    BusHarness();
    ~BusHarness();
    BusHarness(const BusHarness&) = delete;
    BusHarness& operator=(const BusHarness&) = delete;

    /// A client that opens the service, makes one request with this buffer and goes away. The service's result; the
    /// buffer is what the service left in it.
    int Ask(const std::string& service, unsigned int cmd, std::string& buffer);

    /// A client that opens the queue and reads it.
    void OpenQueue(const std::string& queue);
    /// The next event that it gets; "none" after half a minute.
    std::string NextEvent();
    /// It goes away. The queue's close may come later.
    void CloseQueue();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

#endif
