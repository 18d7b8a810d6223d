#include "daemons/grpownerd/event_printer.h"

#include <cstdio>

EventPrinter::EventPrinter() : start_(std::chrono::steady_clock::now()) {
}

double EventPrinter::Seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
}

void EventPrinter::Print(const std::string& event, const std::string& name, int pid) const {
    const std::string process = pid == 0 ? std::string() : " pid " + std::to_string(pid);
    static_cast<void>(std::printf("[%8.3fs] %-20s %-24s%s\n", Seconds(), event.c_str(), name.c_str(), process.c_str()));
    static_cast<void>(std::fflush(stdout));
}

void EventPrinter::Say(const std::string& event, const std::string& text) const {
    static_cast<void>(std::printf("[%8.3fs] %-20s %s\n", Seconds(), event.c_str(), text.c_str()));
    static_cast<void>(std::fflush(stdout));
}
