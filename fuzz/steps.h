/// An input as a list of steps, for readers in which one thing happens after the other: a byte that says what is done,
/// a length of two bytes, low byte first, and so many bytes. What the input lacks at its end is left out.
#ifndef PROCMGR_FUZZ_STEPS_H
#define PROCMGR_FUZZ_STEPS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Fuzz {

struct Step {
    uint8_t what = 0;
    std::string bytes;
};

/// At most `most` steps; the rest of the input is not looked at.
inline std::vector<Step> StepsOf(const uint8_t* data, size_t size, size_t most) {
    constexpr size_t kHead = 3;
    std::vector<Step> steps;
    while (size >= kHead && steps.size() < most) {
        const size_t wanted = data[1] + size_t{data[2]} * 256;
        const size_t length = std::min(wanted, size - kHead);
        steps.push_back({data[0], std::string(reinterpret_cast<const char*>(data) + kHead, length)});
        data += kHead + length;
        size -= kHead + length;
    }
    return steps;
}

}  // namespace Fuzz

#endif
