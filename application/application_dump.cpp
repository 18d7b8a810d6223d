#include "application/application.h"

namespace ProcMgr {
namespace {

const std::string& ToText(const std::string& text) {
    return text;
}

template <typename Number>
std::string ToText(Number number) {
    return std::to_string(number);
}

template <typename Value>
void AddLine(std::string& dump, const char* label, const Value& value) {
    dump.append(label).append(ToText(value)).append("\n");
}

template <typename List>
void AddListLine(std::string& dump, const char* label, const List& list) {
    dump += label;
    for (const auto& element : list) {
        dump.append(" ").append(ToText(element));
    }
    dump += "\n";
}

}  // namespace

std::string Application::AppInfoToString() const {
    std::string dump;
    AddLine(dump, " appName:", appName);
    AddLine(dump, " binPath:", binPath);
    AddLine(dump, " uid:", uid);
    AddLine(dump, " gid:", gid);
    AddLine(dump, " restart:", restart);
    AddLine(dump, " isSo:", isSo);
    AddLine(dump, " pid:", GetPid());
    AddLine(dump, " termTimeOut:", termTimeOut);
    AddLine(dump, " isForceTerm:", isForceTerm);
    AddLine(dump, " isRosNode:", isRosNode);
    AddLine(dump, " isReporting:", isReporting);
    AddLine(dump, " resGroupName:", resGroupName);
    AddLine(dump, " isAutoBoot:", isAutoBoot);
    AddListLine(dump, " argument:", GetArguments());
    AddListLine(dump, " depends:", depends);
    AddListLine(dump, " coreAffinity:", coreAffinity);
    return dump;
}

}  // namespace ProcMgr
