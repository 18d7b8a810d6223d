// The group is built in: nav waits for power, and both boot by themselves.
#include "platform/include/parse_and_depend.h"

struct ParseAndDepend::State {
    std::unordered_map<std::string, std::set<std::string>> depends;
};

namespace {

ApplicationManifest Describe(const std::string& name, const std::set<std::string>& depends) {
    ApplicationAttributes attributes;
    attributes.appName = name;
    attributes.isAutoBoot = true;
    attributes.depends = depends;
    return ApplicationManifest(attributes);
}

}  // namespace

ParseAndDepend::ParseAndDepend() : state_(std::make_unique<State>()) {
}

ParseAndDepend::~ParseAndDepend() = default;

ParseAndDepend& ParseAndDepend::GetInstance() {
    static ParseAndDepend instance;
    return instance;
}

int ParseAndDepend::ParseToReplaceData(ParamType, const std::string&, std::map<std::string, std::string>&) {
    return 0;
}

int ParseAndDepend::ParseYaml(ParamType, const std::string&, std::vector<ApplicationManifest>& out,
                              const std::map<std::string, std::string>&) {
    out = {Describe("power", {}), Describe("nav", {"power"})};
    state_->depends = {{"power", {}}, {"nav", {"power"}}};
    return 0;
}

std::unordered_map<std::string, std::set<std::string>> ParseAndDepend::GetApplicationDependsMap() const {
    return state_->depends;
}

void ParseAndDepend::SetApplicationDependsMap(const std::unordered_map<std::string, std::set<std::string>>& depends) {
    state_->depends = depends;
}

bool ParseAndDepend::IsDynamicPara(const std::string&) const {
    return false;
}

bool ParseAndDepend::IsDynamicParaMatch(const std::string&, const std::string&) const {
    return false;
}

int ParseAndDepend::GetStartGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                            std::vector<std::string>& unknown) {
    graph = DependGraph();
    unknown.clear();
    for (const std::string& name : names) {
        graph.AddVertex(name);
        for (const std::string& dependency : state_->depends[name]) {
            graph.AddEdge(name, dependency);
        }
    }
    return 0;
}

int ParseAndDepend::GetTermGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                           std::vector<std::string>& unknown) {
    graph = DependGraph();
    unknown.clear();
    for (const std::string& name : names) {
        graph.AddVertex(name);
    }
    return 0;
}
