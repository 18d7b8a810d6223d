#include "platform/posix/common_posix/app_beat.h"

#include <atomic>

namespace ProcMgr {
namespace {

std::atomic<AppBeatHandler> appBeatHandler{nullptr};
std::atomic<bool> hasCome{false};

}  // namespace

void SetAppBeatHandler(AppBeatHandler handler) {
    appBeatHandler.store(handler);
}

void TakeAppBeat(const AppBeat& beat) {
    hasCome.store(true);
    if (const AppBeatHandler handler = appBeatHandler.load()) {
        handler(beat);
    }
}

bool HasAppBeatCome() {
    return hasCome.load();
}

}  // namespace ProcMgr
