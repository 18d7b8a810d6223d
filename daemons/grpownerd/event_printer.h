/// Prints what happens to the group on the standard output, a line each, with the time since the printer was made:
///
///     [   0.412s] SWITCH_ON            lidar                    pid 4711
///
/// Every operation may be called from any thread.
#ifndef GRPOWNERD_EVENT_PRINTER_H
#define GRPOWNERD_EVENT_PRINTER_H

#include <chrono>
#include <string>

class EventPrinter {
public:
    EventPrinter();

    /// `pid` 0: none is printed.
    void Print(const std::string& event, const std::string& name, int pid = 0) const;

    /// A line about the group as a whole.
    void Say(const std::string& event, const std::string& text) const;

private:
    double Seconds() const;

    const std::chrono::steady_clock::time_point start_;
};

#endif
