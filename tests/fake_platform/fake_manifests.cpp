#include "tests/fake_platform/fake_manifests.h"

#include <stdexcept>
#include <utility>

FakeManifests& FakeManifests::Get() {
    static FakeManifests& manifests = *new FakeManifests;
    return manifests;
}

void FakeManifests::SetManifests(std::vector<ApplicationManifest> manifests, int parseResult) {
    const std::lock_guard<std::mutex> lock(mutex_);
    manifests_ = std::move(manifests);
    parseResult_ = parseResult;
}

void FakeManifests::SetMatchData(std::map<std::string, std::string> matchData, int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    matchData_ = std::move(matchData);
    matchDataResult_ = result;
}

void FakeManifests::OnCall(Operation operation, std::function<void()> hook) {
    const std::lock_guard<std::mutex> lock(mutex_);
    hooks_[operation] = std::move(hook);
}

void FakeManifests::SetGraphResult(Operation operation, int result) {
    const std::lock_guard<std::mutex> lock(mutex_);
    graphResults_[operation] = result;
}

int FakeManifests::GraphResult(Operation operation, const std::vector<std::string>& unknown) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = graphResults_.find(operation);
    if (found != graphResults_.end()) {
        return found->second;
    }
    return unknown.empty() ? 0 : 1;
}

void FakeManifests::ThrowOnce(Operation operation) {
    OnCall(operation, [this, operation] {
        OnCall(operation, nullptr);
        throw std::runtime_error("scripted failure of the manifest parser");
    });
}

std::vector<FakeManifests::Call> FakeManifests::Calls() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

std::vector<FakeManifests::Call> FakeManifests::CallsOf(Operation operation) const {
    std::vector<Call> calls;
    for (Call& call : Calls()) {
        if (call.operation == operation) {
            calls.push_back(std::move(call));
        }
    }
    return calls;
}

void FakeManifests::Enter(const Call& call) {
    std::function<void()> hook;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        calls_.push_back(call);
        const auto found = hooks_.find(call.operation);
        if (found != hooks_.end()) {
            hook = found->second;
        }
    }
    if (hook) {
        hook();
    }
}

int FakeManifests::ParseReplaceData(int32_t type, const std::string& key,
                                    std::map<std::string, std::string>& matchData) {
    Enter({Operation::PARSE_REPLACE_DATA, type, key, {}, {}});
    const std::lock_guard<std::mutex> lock(mutex_);
    matchData = matchData_;
    return matchDataResult_;
}

int FakeManifests::Parse(int32_t type, const std::string& path, std::vector<ApplicationManifest>& out,
                         const std::map<std::string, std::string>& matchData) {
    Enter({Operation::PARSE_YAML, type, path, matchData, {}});
    const std::lock_guard<std::mutex> lock(mutex_);
    out = manifests_;
    if (parseResult_ == 0) {
        known_ = Known();
    }
    for (const ApplicationManifest& manifest : manifests_) {
        const std::string name = manifest.GetAppName();
        known_.depends[name] = manifest.GetDependList();
        known_.templates.erase(name);
        if (manifest.GetIsDynamicPara()) {
            known_.templates.insert(name);
        }
    }
    return parseResult_;
}

FakeManifests::DependsMap FakeManifests::GetDepends() {
    Enter({Operation::GET_DEPENDS, 0, "", {}, {}});
    return Snapshot().depends;
}

void FakeManifests::SetDepends(const DependsMap& depends) {
    Enter({Operation::SET_DEPENDS, 0, "", {}, {}});
    const std::lock_guard<std::mutex> lock(mutex_);
    known_.depends = depends;
}

bool FakeManifests::IsTemplate(const std::string& name) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return known_.templates.count(name) != 0;
}

FakeManifests::Known FakeManifests::Snapshot() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return known_;
}

// The key under which the dependencies of `name` are kept: its own, or its template's; empty when there is none.
std::string FakeManifests::Known::KeyOf(const std::string& name) const {
    if (depends.count(name) != 0) {
        return name;
    }
    const std::string templateName = name.substr(0, name.find('@'));
    const bool isInstance = templateName.size() + 1 < name.size() && templates.count(templateName) != 0;
    return isInstance && depends.count(templateName) != 0 ? templateName : std::string();
}

bool FakeManifests::Known::Has(const std::string& name) const {
    return !KeyOf(name).empty();
}

std::set<std::string> FakeManifests::Known::DependsOf(const std::string& name) const {
    const auto found = depends.find(KeyOf(name));
    return found == depends.end() ? std::set<std::string>() : found->second;
}

// The requested names that `name` depends on, directly or through names that nobody asked for.
std::set<std::string> FakeManifests::Known::RequestedBelow(const std::string& name,
                                                           const std::set<std::string>& requested) const {
    std::set<std::string> reached;
    std::set<std::string> seen = {name};
    std::vector<std::string> open = {name};
    while (!open.empty()) {
        const std::string at = open.back();
        open.pop_back();
        for (const std::string& dependency : DependsOf(at)) {
            if (!seen.insert(dependency).second) {
                continue;
            }
            if (requested.count(dependency) != 0) {
                reached.insert(dependency);
            } else {
                open.push_back(dependency);
            }
        }
    }
    return reached;
}

std::set<std::string> FakeManifests::Resolve(const Known& known, const std::vector<std::string>& names,
                                             std::vector<std::string>& unknown) {
    std::set<std::string> resolved;
    std::set<std::string> missing;
    unknown.clear();
    for (const std::string& name : names) {
        if (known.Has(name)) {
            resolved.insert(name);
        } else if (missing.insert(name).second) {
            unknown.push_back(name);
        }
    }
    return resolved;
}

int FakeManifests::StartGraph(const std::vector<std::string>& names, DependGraph& graph,
                              std::vector<std::string>& unknown) {
    Enter({Operation::START_GRAPH, 0, "", {}, names});
    const Known known = Snapshot();
    const std::set<std::string> requested = Resolve(known, names, unknown);
    std::set<std::string> unrequested;
    graph = DependGraph();
    for (const std::string& name : requested) {
        graph.AddVertex(name);
        for (const std::string& dependency : known.DependsOf(name)) {
            graph.AddEdge(name, dependency);
            if (requested.count(dependency) == 0) {
                unrequested.insert(dependency);
            }
        }
    }
    for (const std::string& name : unrequested) {
        for (const std::string& below : known.RequestedBelow(name, requested)) {
            graph.AddEdge(name, below);
        }
    }
    return GraphResult(Operation::START_GRAPH, unknown);
}

int FakeManifests::TermGraph(const std::vector<std::string>& names, DependGraph& graph,
                             std::vector<std::string>& unknown) {
    Enter({Operation::TERM_GRAPH, 0, "", {}, names});
    const Known known = Snapshot();
    const std::set<std::string> requested = Resolve(known, names, unknown);
    graph = DependGraph();
    for (const std::string& name : requested) {
        graph.AddVertex(name);
    }
    for (const std::string& name : requested) {
        for (const std::string& below : known.RequestedBelow(name, requested)) {
            graph.AddEdge(below, name);
        }
    }
    return GraphResult(Operation::TERM_GRAPH, unknown);
}
