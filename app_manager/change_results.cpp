#include "app_manager/change_results.h"

namespace ProcMgr {

std::vector<std::string> NamesOf(const std::vector<AppInfoForServer>& list) {
    std::vector<std::string> names;
    names.reserve(list.size());
    for (const AppInfoForServer& app : list) {
        names.push_back(app.appName);
    }
    return names;
}

void EnterNames(ChangeResults& results, const std::vector<AppInfoForServer>& list) {
    if (!results.empty()) {
        return;
    }
    for (const AppInfoForServer& app : list) {
        results.emplace(app.appName, AppChangeState::INIT);
    }
}

void FailWaiting(ChangeResults& results, AppChangeState failure) {
    for (auto& [name, result] : results) {
        if (result == AppChangeState::INIT) {
            result = failure;
        }
    }
}

std::vector<AppChangeInfo> AppendResults(const ChangeResults& results, std::vector<AppChangeInfo>& merged) {
    std::vector<AppChangeInfo> failed;
    merged.reserve(merged.size() + results.size());
    for (const auto& [name, result] : results) {
        merged.emplace_back(name, result);
        if (result != AppChangeState::SUCCESS) {
            failed.emplace_back(name, result);
        }
    }
    return failed;
}

}  // namespace ProcMgr
