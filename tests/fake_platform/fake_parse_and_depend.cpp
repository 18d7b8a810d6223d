#include "platform/include/parse_and_depend.h"
#include "tests/fake_platform/fake_manifests.h"

// All the state is the fake's.
struct ParseAndDepend::State {};

ParseAndDepend::ParseAndDepend() = default;
ParseAndDepend::~ParseAndDepend() = default;

ParseAndDepend& ParseAndDepend::GetInstance() {
    static ParseAndDepend& instance = *new ParseAndDepend;
    return instance;
}

int ParseAndDepend::ParseToReplaceData(ParamType type, const std::string& key,
                                       std::map<std::string, std::string>& matchData) {
    return FakeManifests::Get().ParseReplaceData(static_cast<int32_t>(type), key, matchData);
}

int ParseAndDepend::ParseYaml(ParamType type, const std::string& path, std::vector<ApplicationManifest>& out,
                              const std::map<std::string, std::string>& matchData) {
    return FakeManifests::Get().Parse(static_cast<int32_t>(type), path, out, matchData);
}

std::unordered_map<std::string, std::set<std::string>> ParseAndDepend::GetApplicationDependsMap() const {
    return FakeManifests::Get().GetDepends();
}

void ParseAndDepend::SetApplicationDependsMap(const std::unordered_map<std::string, std::set<std::string>>& depends) {
    FakeManifests::Get().SetDepends(depends);
}

bool ParseAndDepend::IsDynamicPara(const std::string& name) const {
    return FakeManifests::Get().IsTemplate(name);
}

bool ParseAndDepend::IsDynamicParaMatch(const std::string& templateName, const std::string& name) const {
    const std::string prefix = templateName + "@";
    return IsDynamicPara(templateName) && name.size() > prefix.size() && name.compare(0, prefix.size(), prefix) == 0;
}

int ParseAndDepend::GetStartGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                            std::vector<std::string>& unknown) {
    return FakeManifests::Get().StartGraph(names, graph, unknown);
}

int ParseAndDepend::GetTermGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                           std::vector<std::string>& unknown) {
    return FakeManifests::Get().TermGraph(names, graph, unknown);
}
