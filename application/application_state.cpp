#include "application/application_state.h"

#include <utility>

#include "application/application.h"

namespace ProcMgr {

std::string ApplicationState::GetApplicationName() const {
    return application->GetAppName();
}

void ApplicationState::Install(Application* owner, std::shared_ptr<ApplicationState> next) {
    owner->SetAppState(std::move(next));
}

}  // namespace ProcMgr
