#include "platform/posix/log/environment.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace ProcMgr::Posix {

const char* ProcessEnvironment(const char* name) {
    return getenv(name);
}

const char* GivenValue(const Environment& environment, const char* name) {
    const char* const value = environment(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

void ReadNumber(const Environment& environment, const char* name, size_t largest, size_t& number,
                std::vector<std::string>& warnings) {
    const char* const value = GivenValue(environment, name);
    if (value == nullptr) {
        return;
    }
    const char* const end = value + strlen(value);
    size_t parsed = 0;
    const auto [stop, error] = std::from_chars(value, end, parsed);
    if (error == std::errc() && stop == end && parsed >= 1 && parsed <= largest) {
        number = parsed;
        return;
    }
    warnings.push_back(std::string(name) + " is '" + value + "'; use a number from 1 to " + std::to_string(largest) +
                       ". Taking " + std::to_string(number) + ".");
}

std::string ProcessName() {
    if (const char* const given = GivenValue(ProcessEnvironment, "PROC_NAME"); given != nullptr) {
        return given;
    }
    std::array<char, PATH_MAX> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    if (length <= 0) {
        return "?";
    }
    const std::string full(path.data(), static_cast<size_t>(length));
    return full.substr(full.rfind('/') + 1);
}

}  // namespace ProcMgr::Posix
