#include "platform/include/parse_and_depend.h"
#include "tests/contract/known_manifests.h"
#include "tests/platform/manifest_test_folder.h"

int ParseManifests(const std::vector<ApplicationManifest>& manifests, bool withBadOne,
                   std::vector<ApplicationManifest>& out) {
    std::string text = withBadOne ? "- {app_name: bad}\n" : "";
    for (const ApplicationManifest& manifest : manifests) {
        text += "- {app_name: " + manifest.GetAppName() + ", bin_path: /bin/true, is_dynamic_para: ";
        text += manifest.GetIsDynamicPara() ? "true, depends: [" : "false, depends: [";
        for (const std::string& name : manifest.GetDependList()) {
            text += "\"" + name + "\",";
        }
        text += "]}\n";
    }
    const ManifestTestFolder folder;
    folder.Write("group.yaml", text);
    return ParseAndDepend::GetInstance().ParseYaml(ParamType::MANIFEST, folder.Path(), out, {});
}
