/// Prints what happens to the group on the standard output, a line each, with the time since the printer was made:
///
///     [   0.412s] SWITCH_ON            lidar                    pid 4711
///
/// Every operation may be called from any thread. Whoever reads the output cannot hold up the group: a line that it
/// does not take within a second is dropped, as are those after it until it reads again; then a line tells how many
/// they were.
#ifndef GRPOWNERD_EVENT_PRINTER_H
#define GRPOWNERD_EVENT_PRINTER_H

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

class EventPrinter {
public:
    EventPrinter();

    /// `pid` 0: none is printed.
    void Print(const std::string& event, const std::string& name, int pid = 0);

    /// A line about the group as a whole.
    void Say(const std::string& event, const std::string& text);

private:
    std::string LineOf(const std::string& event, const std::string& text) const;
    void Write(const std::string& line);

    const std::chrono::steady_clock::time_point start_;
    std::mutex mutex_;
    size_t dropped_ = 0;  // guarded by mutex_
};

#endif
