#include "app_manager/effective_wait.h"

namespace ProcMgr {

namespace {

constexpr int32_t kLongRequestMs = 5000;
constexpr int32_t kLongMarginMs = 500;
constexpr int32_t kMediumRequestMs = 1000;
constexpr int32_t kMediumMarginMs = 100;
constexpr int32_t kShortestRequestMs = 100;
constexpr int32_t kDefaultWaitMs = 4500;

}  // namespace

std::chrono::milliseconds EffectiveWait(int32_t requestMs) {
    if (requestMs >= kLongRequestMs) {
        return std::chrono::milliseconds(requestMs - kLongMarginMs);
    }
    if (requestMs >= kMediumRequestMs) {
        return std::chrono::milliseconds(requestMs - kMediumMarginMs);
    }
    return std::chrono::milliseconds(requestMs >= kShortestRequestMs ? requestMs : kDefaultWaitMs);
}

}  // namespace ProcMgr
