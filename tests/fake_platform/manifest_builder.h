/// Builds manifests in one line: Manifest("cam").AutoBoot().DependsOn({"base"}).Reporting().
#ifndef PROCMGR_TESTS_MANIFEST_BUILDER_H
#define PROCMGR_TESTS_MANIFEST_BUILDER_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/application_manifest.h"

/// Converts to an ApplicationManifest wherever one is wanted. `Attributes()` reaches what has no operation here.
class ManifestBuilder {
public:
    explicit ManifestBuilder(std::string name) { attributes_.appName = std::move(name); }

    ManifestBuilder& AutoBoot() { return Set(&ApplicationAttributes::isAutoBoot, true); }
    ManifestBuilder& Reporting() { return Set(&ApplicationAttributes::isReporting, true); }
    ManifestBuilder& RosNode() { return Set(&ApplicationAttributes::isRosNode, true); }
    ManifestBuilder& HeartBeat() { return Set(&ApplicationAttributes::heartBeatSwitch, true); }
    ManifestBuilder& Template() { return Set(&ApplicationAttributes::isDynamicPara, true); }
    ManifestBuilder& ForceTerm(bool on) { return Set(&ApplicationAttributes::isForceTerm, on); }
    ManifestBuilder& Gid(uint32_t gid) { return Set(&ApplicationAttributes::gid, gid); }
    ManifestBuilder& Uid(uint32_t uid) { return Set(&ApplicationAttributes::uid, uid); }
    ManifestBuilder& NodeType(int32_t type) { return Set(&ApplicationAttributes::nodeType, type); }
    ManifestBuilder& VfId(uint32_t id) { return Set(&ApplicationAttributes::vfId, id); }
    ManifestBuilder& TermTimeOut(uint32_t ms) { return Set(&ApplicationAttributes::termTimeOut, ms); }
    ManifestBuilder& BinPath(const std::string& path) { return Set(&ApplicationAttributes::binPath, path); }
    ManifestBuilder& Restart(const std::string& policy) { return Set(&ApplicationAttributes::restart, policy); }
    ManifestBuilder& DependsOn(const std::set<std::string>& names) {
        return Set(&ApplicationAttributes::depends, names);
    }
    ManifestBuilder& Arguments(const std::vector<std::string>& arguments) {
        return Set(&ApplicationAttributes::arguments, arguments);
    }
    ManifestBuilder& EnvArgv(const std::map<std::string, std::string>& environment) {
        return Set(&ApplicationAttributes::envArgv, environment);
    }

    ApplicationAttributes& Attributes() { return attributes_; }

    /// Implicit, to stand where a manifest is wanted.
    operator ApplicationManifest() const { return ApplicationManifest(attributes_); }

private:
    template <typename T>
    ManifestBuilder& Set(T ApplicationAttributes::*field, const T& value) {
        attributes_.*field = value;
        return *this;
    }

    ApplicationAttributes attributes_;
};

inline ManifestBuilder Manifest(std::string name) {
    return ManifestBuilder(std::move(name));
}

#endif
