// Which files are read, in which order, and what cannot be read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/include/parse_and_depend.h"
#include "tests/platform/manifest_load_kit.h"
#include "tests/platform/manifest_log_recorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string ManifestOf(const std::string& name) {
    return "app_name: " + name + "\nbin_path: /bin/" + name + "\n";
}

TEST(ManifestFiles, OfAFolderAreReadInNameOrder) {
    const ManifestTestFolder folder;
    folder.Write("b.yaml", ManifestOf("first"));
    folder.Write("c.yml", ManifestOf("second"));
    folder.Write("B.yaml", ManifestOf("zeroth"));
    folder.Write("d.yaml", "- {app_name: z, bin_path: /z}\n- {app_name: a, bin_path: /a}\n");
    EXPECT_THAT(LoadFolder(folder).names, ElementsAre("zeroth", "first", "second", "z", "a"));
    EXPECT_THAT(LoadPath(folder.Path() + "/", folder.Path()).names, ElementsAre("zeroth", "first", "second", "z", "a"));
}

TEST(ManifestFiles, OfAFolderHaveTheRightEndingAndAreNeitherHiddenNorReplacementData) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", ManifestOf("a"));
    for (const char* name : {"b.txt", "c.yaml~", ".d.yaml", "e.json", "yaml", ".yaml", "sub/f.yaml", "g.YAML"}) {
        folder.Write(name, ManifestOf("wrong"));
    }
    folder.Write("replace.yaml", "cfgmgr_env: {A: b}");
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.names, ElementsAre("a"));
    EXPECT_THAT(loaded.errors, IsEmpty());
    EXPECT_THAT(loaded.warnings, IsEmpty());
}

TEST(ManifestFiles, MayBeOneFileOfAnyName) {
    const ManifestTestFolder folder;
    EXPECT_THAT(LoadPath(folder.Write("group.conf", ManifestOf("a")), folder.Path()).names, ElementsAre("a"));
}

TEST(ManifestFiles, MayBeLinks) {
    const ManifestTestFolder folder;
    std::filesystem::create_symlink(folder.Write("store/a", ManifestOf("a")), folder.Path() + "/link.yaml");
    EXPECT_THAT(LoadFolder(folder).names, ElementsAre("a"));
}

TEST(ManifestFiles, OfAFolderAreReadUpToSixtyFourMebibytesInAll) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", ManifestOf("a"));
    for (int i = 10; i < 80; ++i) {
        const std::string file = folder.Write("long" + std::to_string(i) + ".yaml", "");
        std::filesystem::resize_file(file, size_t{2} << 20);
    }
    folder.Write("z.yaml", ManifestOf("z"));
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.names, ElementsAre("a"));
    ASSERT_EQ(loaded.errors.size(), 64U);
    EXPECT_EQ(loaded.errors[0],
              folder.Path() + ": holds more than 64 MiB of manifests; 'long73.yaml' and those after it are not read");
    EXPECT_EQ(loaded.errors[1], "long10.yaml: is longer than 1 MiB; split it into several files");
}

TEST(ManifestFiles, OfAnEmptyFolderGiveNothingButAWarning) {
    const ManifestTestFolder folder;
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.warnings, ElementsAre(folder.Path() + ": holds no *.yaml or *.yml file"));
    EXPECT_THAT(loaded.names, IsEmpty());
    EXPECT_THAT(loaded.errors, IsEmpty());
}

TEST(ManifestFiles, ThatAreBadDoNotHideTheOthers) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", "{");
    folder.Write("b.yaml", ManifestOf("b"));
    folder.Write("c.yaml", "app_name: c\n");
    folder.Write("d.yaml", ManifestOf("d"));
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.names, ElementsAre("b", "d"));
    EXPECT_EQ(loaded.errors.size(), 2U);
}

TEST(ManifestFiles, WithTheSameNameTwiceGiveTheFirstOne) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", "app_name: x\n");
    folder.Write("b.yaml", "app_name: x\nbin_path: /second\n");
    folder.Write("c.yaml", "app_name: x\nbin_path: /third\n");
    const Loaded loaded = LoadFolder(folder);
    ASSERT_THAT(loaded.names, ElementsAre("x"));
    EXPECT_EQ(loaded.manifests.front().GetBinPath(), "/second");
    EXPECT_THAT(loaded.warnings, ElementsAre("c.yaml:1:11: key 'app_name': the manifest of 'x' is left out, because an "
                                             "earlier one has the same name: b.yaml:1"));
}

TEST(ManifestFiles, MayDependOnEachOtherAndFormACycle) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", ManifestOf("a") + "depends: [b]\n");
    folder.Write("b.yaml", ManifestOf("b") + "depends:\n- a\n");
    folder.Write("c.yaml", ManifestOf("c"));
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.names, ElementsAre("c"));
    EXPECT_THAT(loaded.errors,
                ElementsAre("a.yaml:3:11: key 'depends': the dependency cycle a -> b -> a lets none of them start; "
                            "remove one of these dependencies"));
}

TEST(ManifestFiles, ThatAreNotThereGiveAnError) {
    const ManifestTestFolder folder;
    EXPECT_THAT(LoadPath(folder.Path() + "/none", folder.Path()).errors,
                ElementsAre("none: cannot be read: No such file or directory; check path and rights"));
    EXPECT_THAT(Lines(ProcMgr::LoadManifests("", {}).errors, folder.Path()),
                ElementsAre(": cannot be read: No such file or directory; check path and rights"));
}

TEST(ManifestFiles, ThatAreNoRegularFilesGiveAnErrorAndNobodyWaitsForThem) {
    const ManifestTestFolder folder;
    ASSERT_EQ(mkfifo((folder.Path() + "/fifo.yaml").c_str(), 0600), 0);
    folder.Write("folder.yaml/a.txt", "");
    folder.Write("good.yaml", ManifestOf("good"));
    std::filesystem::create_symlink(folder.Path() + "/none", folder.Path() + "/dangling.yaml");
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.names, ElementsAre("good"));
    EXPECT_THAT(loaded.errors,
                ElementsAre("dangling.yaml: cannot be read: No such file or directory; check path and rights",
                            "fifo.yaml: is not a regular file; remove or rename it",
                            "folder.yaml: is not a regular file; remove or rename it"));
}

TEST(ManifestFiles, LongerThanOneMebibyteGiveAnError) {
    const ManifestTestFolder folder;
    const std::string manifest = ManifestOf("a");
    folder.Write("a.yaml", manifest + std::string(1024 * 1024 - manifest.size(), '#'));
    folder.Write("b.yaml", ManifestOf("b") + std::string(1024 * 1024, '#'));
    const Loaded loaded = LoadFolder(folder);
    EXPECT_THAT(loaded.names, ElementsAre("a"));
    EXPECT_THAT(loaded.errors, ElementsAre("b.yaml: is longer than 1 MiB; split it into several files"));
}

TEST(ParseYaml, LogsOneLineForEachErrorAndEachWarning) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", "- {app_name: a}\n- {app_name: b, bin_path: /b, depends: [c]}\n- {bin_path: /c}\n");
    std::vector<ApplicationManifest> out;
    EXPECT_NE(ParseAndDepend::GetInstance().ParseYaml(ParamType::MANIFEST, folder.Path(), out, {}), 0);
    ASSERT_EQ(out.size(), 1U);
    const std::string place = folder.Path() + "/a.yaml:";
    EXPECT_THAT(
        RecordedLines(),
        ElementsAre("29 3 " + place +
                        "1:3: key 'bin_path': the key is missing; add a line like 'bin_path: /opt/robot/bin/camera'",
                    "29 3 " + place + "3:3: key 'app_name': the key is missing; add a line like 'app_name: camera'",
                    "29 2 " + place +
                        "2:41: key 'depends': 'b' cannot start: its dependency 'c' has no good manifest; it will "
                        "never be running"));
}

TEST(ParseYaml, SucceedsWithWarnings) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", ManifestOf("a") + "depends: [ghost]\n");
    std::vector<ApplicationManifest> out;
    EXPECT_EQ(ParseAndDepend::GetInstance().ParseYaml(ParamType::MANIFEST, folder.Path(), out, {}), 0);
    EXPECT_EQ(RecordedLines().size(), 1U);
}

TEST(ParseYaml, ReadsNothingForAnotherType) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", ManifestOf("a"));
    std::vector<ApplicationManifest> out;
    EXPECT_NE(ParseAndDepend::GetInstance().ParseYaml(ParamType::REPLACE_DATA, folder.Path(), out, {}), 0);
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(ParseAndDepend::GetInstance().GetApplicationDependsMap(), IsEmpty());
}

TEST(ParseYaml, ReplacesKeysFromTheMatchData) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", "app_name: a\nbin_path: ${DIR}/a\n");
    std::vector<ApplicationManifest> out;
    EXPECT_EQ(ParseAndDepend::GetInstance().ParseYaml(ParamType::MANIFEST, folder.Path(), out, {{"DIR", "/opt"}}), 0);
    ASSERT_EQ(out.size(), 1U);
    EXPECT_EQ(out.front().GetBinPath(), "/opt/a");
}

}  // namespace
