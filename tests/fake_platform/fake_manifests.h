/// Stands in for the manifest parser: hands out the manifests that the test gives. The dependency graphs are real.
#ifndef PROCMGR_TESTS_FAKE_MANIFESTS_H
#define PROCMGR_TESTS_FAKE_MANIFESTS_H

#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/application_manifest.h"
#include "platform/include/depend_graph.h"
#include "platform/include/parse_and_depend.h"

class FakeManifests {
public:
    enum class Operation { PARSE_REPLACE_DATA, PARSE_YAML, GET_DEPENDS, SET_DEPENDS, START_GRAPH, TERM_GRAPH };

    using DependsMap = std::unordered_map<std::string, std::set<std::string>>;

    /// One call, with what was given to it.
    struct Call {
        Operation operation;
        int32_t type = 0;                              ///< of the two parse operations
        std::string text;                              ///< key or path
        std::map<std::string, std::string> matchData;  ///< PARSE_YAML
        std::vector<std::string> names;                ///< of the two graphs
    };

    static FakeManifests& Get();

    /// What ParseYaml gives from now on: its manifests, and its result.
    void SetManifests(std::vector<ApplicationManifest> manifests, int parseResult = 0);

    void SetMatchData(std::map<std::string, std::string> matchData, int result = 0);

    /// Called at the begin of each such operation, with no lock of the fake held, on the calling thread. May throw.
    void OnCall(Operation operation, std::function<void()> hook);

    /// What the operation gives from now on instead of its own result, START_GRAPH and TERM_GRAPH only; the graph and
    /// the list are filled all the same.
    void SetGraphResult(Operation operation, int result);

    /// The next call of the operation throws std::runtime_error; then it works again.
    void ThrowOnce(Operation operation);

    std::vector<Call> Calls() const;
    std::vector<Call> CallsOf(Operation operation) const;

    // What ParseAndDepend calls.
    int ParseReplaceData(int32_t type, const std::string& key, std::map<std::string, std::string>& matchData);
    int Parse(int32_t type, const std::string& path, std::vector<ApplicationManifest>& out,
              const std::map<std::string, std::string>& matchData);
    DependsMap GetDepends();
    void SetDepends(const DependsMap& depends);
    bool IsTemplate(const std::string& name) const;
    int StartGraph(const std::vector<std::string>& names, DependGraph& graph, std::vector<std::string>& unknown);
    int TermGraph(const std::vector<std::string>& names, DependGraph& graph, std::vector<std::string>& unknown);

private:
    /// A copy of what the graphs are made of.
    struct Known {
        DependsMap depends;
        std::set<std::string> templates;

        bool Has(const std::string& name) const;
        std::set<std::string> DependsOf(const std::string& name) const;
        std::set<std::string> RequestedBelow(const std::string& name, const std::set<std::string>& requested) const;
        std::string KeyOf(const std::string& name) const;
    };

    FakeManifests() = default;
    void Enter(const Call& call);
    int GraphResult(Operation operation, const std::vector<std::string>& unknown) const;
    Known Snapshot() const;
    static std::set<std::string> Resolve(const Known& known, const std::vector<std::string>& names,
                                         std::vector<std::string>& unknown);

    mutable std::mutex mutex_;
    std::vector<ApplicationManifest> manifests_;
    int parseResult_ = 0;
    std::map<std::string, std::string> matchData_;
    int matchDataResult_ = 0;
    Known known_;
    std::map<Operation, int> graphResults_;
    std::map<Operation, std::function<void()>> hooks_;
    std::vector<Call> calls_;
};

#endif
