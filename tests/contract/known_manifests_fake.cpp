#include "platform/include/parse_and_depend.h"
#include "tests/contract/known_manifests.h"
#include "tests/fake_platform/fake_manifests.h"

int ParseManifests(const std::vector<ApplicationManifest>& manifests, bool withBadOne,
                   std::vector<ApplicationManifest>& out) {
    FakeManifests::Get().SetManifests(manifests, withBadOne ? 1 : 0);
    return ParseAndDepend::GetInstance().ParseYaml(ParamType::MANIFEST, "unused", out, {});
}
