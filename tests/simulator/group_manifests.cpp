#include "tests/simulator/group_manifests.h"

#include "tests/fake_platform/fake_platform.h"

const std::vector<std::string>& GroupNames() {
    static const auto& names = *new std::vector<std::string>{
        "power", "clock", "hub", "lidar", "camera", "fusion", "drive", "arm", "map", "cam@1", "cam@2", "cam@3", "cam"};
    return names;
}

const std::vector<std::string>& GroupDrivingNames() {
    static const auto& names = *new std::vector<std::string>{"drive", "arm", "map", "cam@1", "cam@2", "cam@3"};
    return names;
}

const std::set<std::string>& GroupSelfReporting() {
    static const auto& names = *new std::set<std::string>{"lidar", "fusion", "map"};
    return names;
}

const std::set<std::string>& GroupShifting() {
    static const auto& names = *new std::set<std::string>{"map", "arm"};
    return names;
}

bool IsGroupTemplate(const std::string& name) {
    return name == "cam";
}

std::vector<AppInfoForServer> GroupEntries(const std::vector<std::string>& names) {
    std::vector<AppInfoForServer> entries;
    for (const std::string& name : names) {
        entries.push_back({name, {}, {}});
    }
    return entries;
}

std::vector<ApplicationManifest> GroupManifests(GroupVariant variant) {
    ManifestBuilder arm("arm");
    arm.DependsOn({"drive", "hub"});
    if (variant == GroupVariant::MOVED || variant == GroupVariant::LESS_AND_MOVED) {
        arm.AutoBoot();
    }
    std::vector<ApplicationManifest> manifests{
        Manifest("power").AutoBoot(),
        Manifest("clock").AutoBoot().DependsOn({"power"}).Restart("on-failure"),
        Manifest("hub").AutoBoot().DependsOn({"clock"}),
        Manifest("lidar").AutoBoot().DependsOn({"hub"}).Reporting().Restart("on-forever"),
        Manifest("camera").AutoBoot().DependsOn({"hub"}).Restart("on-failure"),
        Manifest("fusion").AutoBoot().DependsOn({"lidar", "camera"}).Reporting(),
        Manifest("drive").DependsOn({"fusion"}).Restart("on-failure"),
        Manifest("cam").Template().DependsOn({"hub"}),
        arm,
    };
    if (variant == GroupVariant::FULL || variant == GroupVariant::MOVED) {
        manifests.emplace_back(Manifest("map").DependsOn({"clock"}).Reporting());
    }
    return manifests;
}
