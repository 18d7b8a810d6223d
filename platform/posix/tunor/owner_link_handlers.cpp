#include "platform/posix/tunor/owner_link_handlers.h"

#include <atomic>

namespace {

std::atomic<OwnerAppReportHandler> appReportHandler{nullptr};
std::atomic<OwnerPipeLostHandler> pipeLostHandler{nullptr};

}  // namespace

namespace ProcMgr {

OwnerAppReportHandler GetAppReportHandler() {
    return appReportHandler.load();
}

OwnerPipeLostHandler GetPipeLostHandler() {
    return pipeLostHandler.load();
}

}  // namespace ProcMgr

void OwnerSetAppReportHandler(OwnerAppReportHandler handler) {
    appReportHandler.store(handler);
}

void OwnerSetPipeLostHandler(OwnerPipeLostHandler handler) {
    pipeLostHandler.store(handler);
}
