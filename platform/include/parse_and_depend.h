/// @file
/// The manifest parser, and the dependency graphs of what it parsed last. A process-wide singleton that locks inside
/// each call and returns copies; it calls nobody back.
#ifndef PROCMGR_PLATFORM_PARSE_AND_DEPEND_H
#define PROCMGR_PLATFORM_PARSE_AND_DEPEND_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/application_manifest.h"
#include "platform/include/depend_graph.h"
#include "platform/include/platform_export.h"

/// What is to be read: manifests, or the data that replace `${KEY}` in them.
enum class ParamType : int32_t {
    MANIFEST = 0,      ///< for ParseYaml
    REPLACE_DATA = 1,  ///< for ParseToReplaceData
};

/// The parser. Every operation may be called from any thread.
class PROCMGR_PLATFORM_API ParseAndDepend {
public:
    /// The only instance, made at the first call.
    static ParseAndDepend& GetInstance();

    /// Fills `matchData` with the pairs that replace `${KEY}` in manifests, stored under `key`. Returns 0 on success;
    /// that there are none is a success.
    int ParseToReplaceData(ParamType type, const std::string& key, std::map<std::string, std::string>& matchData);

    /// Reads every manifest under `path`, a file or a folder. Returns 0 when all of them are good. Otherwise `out`
    /// still holds the good ones. Rebuilds the dependency map: every manifest, templates too, becomes a key of it;
    /// after a failure what was known before stays known.
    int ParseYaml(ParamType type, const std::string& path, std::vector<ApplicationManifest>& out,
                  const std::map<std::string, std::string>& matchData);

    /// Application name to the names it depends on.
    std::unordered_map<std::string, std::set<std::string>> GetApplicationDependsMap() const;

    /// Replaces that map as a whole, for instance by what GetApplicationDependsMap returned before a failed reload.
    void SetApplicationDependsMap(const std::unordered_map<std::string, std::set<std::string>>& depends);

    /// True when `name` names a template.
    bool IsDynamicPara(const std::string& name) const;

    /// True when `name` is an instance of the template `templateName`; a template is no instance of itself.
    bool IsDynamicParaMatch(const std::string& templateName, const std::string& name) const;

    /// The order in which to start `names`: its vertices are the names and their direct dependencies, also those that
    /// nobody asked for. A requested vertex waits for each dependency; one that was not requested waits only for
    /// requested ones that it reaches through others that were not. An instance has its template's dependencies.
    /// Replaces `graph` and `unknown`; `unknown` gets the names that no manifest describes. Returns 0 when there are
    /// none, and a usable graph of the others in any case.
    int GetStartGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                                std::vector<std::string>& unknown);

    /// The order in which to terminate `names`: its vertices are exactly the names; one waits for another that depends
    /// on it, directly or through names that are not to be terminated.
    int GetTermGraphWithErrApp(const std::vector<std::string>& names, DependGraph& graph,
                               std::vector<std::string>& unknown);

    ParseAndDepend(const ParseAndDepend&) = delete;
    ParseAndDepend& operator=(const ParseAndDepend&) = delete;

private:
    ParseAndDepend();
    ~ParseAndDepend();

    struct State;
    std::unique_ptr<State> state_;
};

#endif
