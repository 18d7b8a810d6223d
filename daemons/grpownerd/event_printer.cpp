#include "daemons/grpownerd/event_printer.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace {

constexpr int kPatienceMs = 1000;

/// A pipe that is ready takes a line as a whole.
bool TakesMore(int patienceMs) {
    pollfd output = {STDOUT_FILENO, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&output, 1, patienceMs);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

}  // namespace

EventPrinter::EventPrinter() : start_(std::chrono::steady_clock::now()) {
}

void EventPrinter::Print(const std::string& event, const std::string& name, int pid) {
    const std::string process = pid == 0 ? std::string() : " pid " + std::to_string(pid);
    const std::string padding(name.size() < 24 ? 24 - name.size() : 0, ' ');
    Write(LineOf(event, name + padding + process));
}

void EventPrinter::Say(const std::string& event, const std::string& text) {
    Write(LineOf(event, text));
}

std::string EventPrinter::LineOf(const std::string& event, const std::string& text) const {
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::array<char, 64> head{};
    static_cast<void>(std::snprintf(head.data(), head.size(), "[%8.3fs] %-20s ", seconds, event.c_str()));
    return head.data() + text + "\n";
}

void EventPrinter::Write(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!TakesMore(dropped_ == 0 ? kPatienceMs : 0)) {
        ++dropped_;
        return;
    }
    const std::string notice =
        dropped_ == 0 ? "" : LineOf("DROPPED", std::to_string(dropped_) + " lines that nobody read");
    dropped_ = 0;
    const std::string text = notice + line;
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
}
