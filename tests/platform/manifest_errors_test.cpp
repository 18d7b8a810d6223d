// What bad manifests give, word for word.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/platform/manifest_load_kit.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Strings = std::vector<std::string>;

Strings ErrorsOf(const std::string& text) {
    const Loaded loaded = LoadText(text);
    EXPECT_THAT(loaded.names, IsEmpty());
    return loaded.errors;
}

Strings ErrorsWith(const std::string& line) {
    return ErrorsOf("app_name: cam\nbin_path: /bin/cam\n" + line + "\n");
}

// The ten kinds.

TEST(ManifestErrors, NameAnUnknownKeyAndTheNearestKnownOne) {
    EXPECT_THAT(ErrorsWith("bin_pth: /bin/x"),
                ElementsAre("a.yaml:3:1: key 'bin_pth': unknown key; the nearest known key is 'bin_path'; correct or "
                            "remove it"));
    EXPECT_THAT(
        ErrorsWith("  \n# comment\nauto_boot: true"),
        ElementsAre("a.yaml:5:1: key 'auto_boot': unknown key; the nearest known key is 'is_auto_boot'; correct "
                    "or remove it"));
}

TEST(ManifestErrors, NameTheWrongTypeOfATextAndTheWantedOne) {
    EXPECT_THAT(ErrorsWith("res_group_name: [a]"),
                ElementsAre("a.yaml:3:17: key 'res_group_name': wants a text but found a list; write it like "
                            "'res_group_name: vision'"));
    EXPECT_THAT(ErrorsWith("res_group_name:"),
                ElementsAre("a.yaml:3:1: key 'res_group_name': wants a text but found nothing; write it like "
                            "'res_group_name: vision'"));
}

TEST(ManifestErrors, NameTheWrongTypeOfANumberAndItsRange) {
    EXPECT_THAT(
        ErrorsWith("uid: root"),
        ElementsAre("a.yaml:3:6: key 'uid': wants a whole number from 0 to 4294967294 but found the text 'root'; "
                    "write it like 'uid: 1000'"));
    EXPECT_THAT(ErrorsWith("gid: 4294967295"),
                ElementsAre("a.yaml:3:6: key 'gid': wants a whole number from 0 to 4294967294 but found the text "
                            "'4294967295'; write it like 'gid: 1000'"));
    EXPECT_THAT(ErrorsWith("term_time_out: -1"),
                ElementsAre("a.yaml:3:16: key 'term_time_out': wants a whole number from 0 to 4294967295 but found the "
                            "text '-1'; write it like 'term_time_out: 5000'"));
    EXPECT_THAT(ErrorsWith("core_affinity: [0, 1024]"),
                ElementsAre("a.yaml:3:20: key 'core_affinity': wants a whole number from 0 to 1023 but found the text "
                            "'1024'; write it like 'core_affinity: [0, 1]'"));
    EXPECT_THAT(
        ErrorsWith("node_type: 2147483648"),
        ElementsAre("a.yaml:3:12: key 'node_type': wants a whole number from -2147483648 to 2147483647 but found "
                    "the text '2147483648'; write it like 'node_type: 1'"));
}

TEST(ManifestErrors, TakeNoOtherNotationOfANumber) {
    for (const std::string number :
         {"0x10", "010", "+1", "1.0", "1e3", "''", "-", "-0x1", "1 ", "99999999999999999999"}) {
        EXPECT_EQ(ErrorsWith("vf_id: \"" + (number == "''" ? "" : number) + "\"").size(), 1U) << number;
    }
}

TEST(ManifestErrors, NameTheWrongTypeOfATruthValue) {
    EXPECT_THAT(
        ErrorsWith("is_auto_boot: yes"),
        ElementsAre("a.yaml:3:15: key 'is_auto_boot': wants true or false but found the text 'yes'; write it like "
                    "'is_auto_boot: true'"));
    EXPECT_THAT(ErrorsWith("is_auto_boot: {}"),
                ElementsAre("a.yaml:3:15: key 'is_auto_boot': wants true or false but found a map; write it like "
                            "'is_auto_boot: true'"));
}

TEST(ManifestErrors, NameTheWrongTypeOfAListAndOfItsItems) {
    EXPECT_THAT(
        ErrorsWith("depends: clock"),
        ElementsAre("a.yaml:3:10: key 'depends': wants a list of texts but found the text 'clock'; write it like "
                    "'depends: [clock, camera@front]'"));
    EXPECT_THAT(ErrorsWith("arguments: [a, [b], {c: d}]"),
                ElementsAre("a.yaml:3:16: key 'arguments': wants a text but found a list; write it like "
                            "'arguments: [--rate, '30']'",
                            "a.yaml:3:21: key 'arguments': wants a text but found a map; write it like "
                            "'arguments: [--rate, '30']'"));
    EXPECT_THAT(
        ErrorsWith("core_affinity: 1"),
        ElementsAre("a.yaml:3:16: key 'core_affinity': wants a list of numbers but found the text '1'; write it "
                    "like 'core_affinity: [0, 1]'"));
}

TEST(ManifestErrors, NameTheWrongTypeOfAMapAndOfItsTexts) {
    EXPECT_THAT(ErrorsWith("env_argv: [A]"),
                ElementsAre("a.yaml:3:11: key 'env_argv': wants a map of texts but found a list; write it like "
                            "'env_argv: {LOG_LEVEL: info}'"));
    EXPECT_THAT(
        ErrorsWith("env_argv:\n  A: [b]\n  B:\n  A=B: c\n  '': d"),
        ElementsAre("a.yaml:4:6: key 'env_argv': wants a text but found a list; write it like "
                    "'env_argv: {LOG_LEVEL: info}'",
                    "a.yaml:5:3: key 'env_argv': wants a text but found nothing; write it like "
                    "'env_argv: {LOG_LEVEL: info}'",
                    "a.yaml:6:3: key 'env_argv': 'A=B' is no name of an environment variable; it must not be "
                    "empty or hold '='",
                    "a.yaml:7:3: key 'env_argv': '' is no name of an environment variable; it must not be empty "
                    "or hold '='"));
}

TEST(ManifestErrors, NameADuplicateKeyAndTheFirstOne) {
    EXPECT_THAT(ErrorsWith("uid: 1\ngid: 2\nuid: 3"),
                ElementsAre("a.yaml:5:1: key 'uid': duplicate key; it already stands in line 3; remove one of them"));
    EXPECT_THAT(ErrorsWith("env_argv:\n  A: 1\n  A: 2"),
                ElementsAre("a.yaml:5:3: key 'env_argv': the name 'A' stands twice; remove one of them"));
}

TEST(ManifestErrors, NameAMissingName) {
    EXPECT_THAT(ErrorsOf("# nothing else\nbin_path: /bin/cam\n"),
                ElementsAre("a.yaml:2:1: key 'app_name': the key is missing; add a line like 'app_name: camera'"));
}

TEST(ManifestErrors, NameAMissingOrEmptyPath) {
    EXPECT_THAT(ErrorsOf("- app_name: cam\n"),
                ElementsAre("a.yaml:1:3: key 'bin_path': the key is missing; add a line like 'bin_path: "
                            "/opt/robot/bin/camera'"));
    EXPECT_THAT(ErrorsOf("app_name: cam\nbin_path: ''\n"),
                ElementsAre("a.yaml:2:11: key 'bin_path': the path is empty; write it like 'bin_path: "
                            "/opt/robot/bin/camera'"));
    EXPECT_THAT(ErrorsOf("app_name: cam\nis_so: true\n"),
                ElementsAre("a.yaml:1:1: key 'so_name': a shared object needs 'so_name' or 'so_path'; add a line like "
                            "'so_name: libvision.so'"));
}

TEST(ManifestErrors, SayNothingOfWhatAnotherErrorExplains) {
    EXPECT_EQ(ErrorsOf("app_name: [cam]\nbin_path: []\n").size(), 2U);
    EXPECT_EQ(ErrorsOf("app_name: cam\nis_so: maybe\n").size(), 1U);
    EXPECT_EQ(ErrorsOf("app_name: cam\nis_so: true\nso_path: []\n").size(), 1U);
}

TEST(ManifestErrors, NameASelfDependency) {
    EXPECT_THAT(
        ErrorsWith("depends: [clock, cam]"),
        ElementsAre("a.yaml:3:10: key 'depends': the application depends on itself; remove 'cam' from the list"));
    EXPECT_THAT(
        ErrorsWith("is_dynamic_para: true\ndepends: [cam@front]"),
        ElementsAre("a.yaml:4:10: key 'depends': the application depends on itself; remove 'cam@front' from the "
                    "list"));
}

TEST(ManifestErrors, NameEveryApplicationOfACycleAndKeepTheOthers) {
    const Loaded loaded = LoadText(R"(
- {app_name: a, bin_path: /a, depends: [b]}
- {app_name: b, bin_path: /b, depends: [free, c]}
- {app_name: c, bin_path: /c, depends: [a]}
- {app_name: d, bin_path: /d, depends: [a]}
- {app_name: free, bin_path: /f}
)");
    EXPECT_THAT(loaded.names, ElementsAre("d", "free"));
    EXPECT_THAT(
        loaded.errors,
        ElementsAre("a.yaml:2:41: key 'depends': the dependency cycle a -> b -> c -> a lets none of them start; "
                    "remove one of these dependencies"));
    EXPECT_THAT(loaded.warnings,
                ElementsAre("a.yaml:5:41: key 'depends': 'd' cannot start: its dependency 'a' has no good "
                            "manifest; it will never be running"));
}

TEST(ManifestErrors, FindACycleThroughAnInstance) {
    const Loaded loaded = LoadText(R"(
- {app_name: a, bin_path: /a, depends: [t@1]}
- {app_name: t, bin_path: /t, depends: [a], is_dynamic_para: true}
)");
    EXPECT_THAT(loaded.names, IsEmpty());
    EXPECT_THAT(loaded.errors, ElementsAre(testing::HasSubstr("the dependency cycle a -> t -> a lets")));
}

TEST(ManifestErrors, NameTheSmallestOfSeveralCirclesAndTheOthersInThem) {
    const Loaded loaded = LoadText(R"(
- {app_name: a, bin_path: /a, depends: [b]}
- {app_name: b, bin_path: /b, depends: [c]}
- {app_name: c, bin_path: /c, depends: [d, a]}
- {app_name: d, bin_path: /d, depends: [c]}
- {app_name: x, bin_path: /x, depends: [y]}
- {app_name: y, bin_path: /y, depends: [x]}
)");
    EXPECT_THAT(loaded.names, IsEmpty());
    EXPECT_THAT(loaded.errors,
                ElementsAre("a.yaml:4:41: key 'depends': the dependency cycle c -> d -> c lets none of them start; "
                            "remove one of these dependencies; in circles with them stand also a, b",
                            "a.yaml:6:41: key 'depends': the dependency cycle x -> y -> x lets none of them start; "
                            "remove one of these dependencies"));
}

TEST(ManifestErrors, ShortenTheNamesOfALongCycle) {
    std::string text;
    for (int i = 10; i < 40; ++i) {
        text += "- {app_name: n" + std::to_string(i) + ", bin_path: /n, depends: [n" +
                std::to_string(i == 39 ? 10 : i + 1) + "]}\n";
    }
    EXPECT_THAT(
        ErrorsOf(text).front(),
        testing::HasSubstr("cycle n10 -> n11 -> n12 -> n13 -> n14 -> n15 -> n16 -> n17 -> n18 -> n19 -> (20 more) "
                           "-> n10 lets"));
}

TEST(ManifestErrors, NameABadName) {
    const std::string rule = " holds '#', '/' or a control character; remove it";
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: a#b\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': the name 'a#b'" + rule));
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: a/b\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': the name 'a/b'" + rule));
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: \"a\\nb\"\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': the name 'a\\x0ab'" + rule));
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: \"a\\0b\"\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': the text holds a zero byte; remove it"));
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: ''\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': a name is empty; write one"));
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: ..\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': the name '..' stands for a folder; choose another one"));
    EXPECT_THAT(
        ErrorsOf("bin_path: /a\napp_name: cam@front\n"),
        ElementsAre("a.yaml:2:11: key 'app_name': the name 'cam@front' holds '@', which stands between a template "
                    "and its instance; remove it"));
    EXPECT_THAT(ErrorsOf("bin_path: /a\napp_name: " + std::string(256, 'n') + "\n"),
                ElementsAre("a.yaml:2:11: key 'app_name': the name '" + std::string(64, 'n') +
                            "...' is longer than 255 bytes; shorten it"));
}

TEST(ManifestErrors, NameABadNameAmongTheDependencies) {
    EXPECT_THAT(
        ErrorsWith("depends: [a/b, cam@, '@x']"),
        ElementsAre("a.yaml:3:11: key 'depends': the name 'a/b' holds '#', '/' or a control character; remove it",
                    "a.yaml:3:16: key 'depends': the name 'cam@' is neither an application nor "
                    "template@instance; correct it",
                    "a.yaml:3:22: key 'depends': the name '@x' is neither an application nor "
                    "template@instance; correct it"));
}

TEST(ManifestErrors, NameAnUnknownWordAndTheNearestOne) {
    EXPECT_THAT(ErrorsWith("restart: on-failur"),
                ElementsAre("a.yaml:3:10: key 'restart': 'on-failur' is not known; the nearest known value is "
                            "'on-failure'; correct it"));
    EXPECT_THAT(ErrorsWith("set_rt_type: fifi"),
                ElementsAre("a.yaml:3:14: key 'set_rt_type': 'fifi' is not known; the nearest known value is 'fifo'; "
                            "correct it"));
    EXPECT_THAT(ErrorsWith("must_hold: [uid, affinity]"),
                ElementsAre("a.yaml:3:18: key 'must_hold': 'affinity' is not known; the nearest known value is "
                            "'core_affinity'; correct it"));
    EXPECT_THAT(ErrorsWith("set_rt_prio: high"),
                ElementsAre("a.yaml:3:14: key 'set_rt_prio': 'high' is no whole number from 0 to 99; correct it"));
}

TEST(ManifestErrors, NameASyntaxErrorAndTakeNothingOfThatFile) {
    EXPECT_THAT(ErrorsOf("- {app_name: a, bin_path: /a}\n- {app_name: b\n"),
                ElementsAre("a.yaml:3:1: is not YAML: end of map flow not found; correct the syntax here"));
}

// And the rest.

TEST(ManifestErrors, NameWhatIsNoManifest) {
    EXPECT_THAT(
        ErrorsOf("just a text\n"),
        ElementsAre("a.yaml:1:1: wants a manifest, which is a map, but found the text 'just a text'; write it like "
                    "'app_name: camera'"));
    EXPECT_THAT(ErrorsOf("- [a]\n"),
                ElementsAre("a.yaml:1:3: wants a manifest, which is a map, but found a list; write it like "
                            "'app_name: camera'"));
    EXPECT_THAT(ErrorsWith("? [a]\n: b"),
                ElementsAre("a.yaml:3:3: wants a key but found a list; write it like 'app_name: camera'"));
}

TEST(ManifestErrors, NameAnAlias) {
    EXPECT_THAT(
        ErrorsWith("so_name: &x lib\nso_path: *x"),
        ElementsAre("a.yaml:4:10: key 'so_path': found an alias, which a manifest must not use; write the value "
                    "out"));
    EXPECT_THAT(ErrorsWith("depends: &x [a]\narguments: *x"),
                ElementsAre("a.yaml:4:12: key 'arguments': found an alias, which a manifest must not use; write the "
                            "value out"));
}

TEST(ManifestErrors, NameASecondDocument) {
    EXPECT_THAT(
        ErrorsOf("app_name: a\nbin_path: /a\n---\napp_name: b\nbin_path: /b\n"),
        ElementsAre("a.yaml:3:1: more follows after the end of the document; write one map or one list of maps"));
}

TEST(ManifestErrors, AreAllNamedInOneReading) {
    EXPECT_THAT(
        ErrorsOf("app_name: a/b\nuid: x\ncolour: red\n"),
        ElementsAre(testing::StartsWith("a.yaml:1:11: key 'app_name':"), testing::StartsWith("a.yaml:2:6: key 'uid':"),
                    testing::StartsWith("a.yaml:3:1: key 'colour':"),
                    testing::StartsWith("a.yaml:1:1: key 'bin_path':")));
}

TEST(ManifestErrors, OfOneEntryDoNotHideTheOthersOfTheFile) {
    const Loaded loaded = LoadText("- {app_name: a, bin_path: /a}\n- {app_name: b}\n- {app_name: c, bin_path: /c}\n");
    EXPECT_THAT(loaded.names, ElementsAre("a", "c"));
    EXPECT_EQ(loaded.errors.size(), 1U);
}

TEST(ManifestErrors, StayOnOneLineOfPrintableText) {
    EXPECT_THAT(ErrorsWith("\"a\\nb\\e[31m\": 1").front(),
                testing::StartsWith("a.yaml:3:1: key 'a\\x0ab\\x1b[31m': unknown key; the nearest known key is"));
    EXPECT_EQ(ProcMgr::FormatError({"a\nb", 1, 2, "", "c\td"}), "a?b:1:2: c?d");
}

TEST(ManifestErrors, CutALongTextBetweenTwoCharacters) {
    const std::string text = std::string(63, 'x') + "éé";
    EXPECT_THAT(ErrorsWith("uid: " + text).front(), testing::HasSubstr("the text '" + std::string(63, 'x') + "...';"));
}

TEST(FormatError, LeavesOutWhatIsNotKnown) {
    EXPECT_EQ(ProcMgr::FormatError({"a.yaml", 3, 5, "uid", "is bad"}), "a.yaml:3:5: key 'uid': is bad");
    EXPECT_EQ(ProcMgr::FormatError({"a.yaml", 3, 5, "", "is bad"}), "a.yaml:3:5: is bad");
    EXPECT_EQ(ProcMgr::FormatError({"a.yaml", 0, 0, "", "is bad"}), "a.yaml: is bad");
}

TEST(ManifestWarnings, NameASecondManifestOfAName) {
    const Loaded loaded = LoadText("- {app_name: a, bin_path: /1}\n- {app_name: a, bin_path: /2}\n");
    ASSERT_THAT(loaded.names, ElementsAre("a"));
    EXPECT_EQ(loaded.manifests.front().GetBinPath(), "/1");
    EXPECT_THAT(loaded.errors, IsEmpty());
    EXPECT_THAT(loaded.warnings, ElementsAre("a.yaml:2:14: key 'app_name': the manifest of 'a' is left out, because an "
                                             "earlier one has the same name: a.yaml:1"));
}

TEST(ManifestWarnings, NameADependencyThatCannotRun) {
    const Loaded loaded = LoadText(R"(
- {app_name: a, bin_path: /a, depends: [b, t@1, t, b@1, ghost]}
- {app_name: b, bin_path: /b}
- {app_name: t, bin_path: /t, is_dynamic_para: true}
)");
    EXPECT_THAT(loaded.names, ElementsAre("a", "b", "t"));
    EXPECT_THAT(loaded.errors, IsEmpty());
    EXPECT_THAT(
        loaded.warnings,
        ElementsAre("a.yaml:2:52: key 'depends': 'a' cannot start: its dependency 'b@1' has no good manifest; it "
                    "will never be running",
                    "a.yaml:2:57: key 'depends': 'a' cannot start: its dependency 'ghost' has no good manifest; it "
                    "will never be running",
                    "a.yaml:2:49: key 'depends': 'a' cannot start: its dependency 't' is a template, which is never "
                    "started itself; name an instance of it"));
}

TEST(ManifestWarnings, NameATemplateThatIsStartedAtBoot) {
    EXPECT_THAT(LoadText("{app_name: t, bin_path: /t, is_auto_boot: true, is_dynamic_para: true}").warnings,
                ElementsAre("a.yaml:1:66: key 'is_dynamic_para': 't' is started at boot under its own name, so that no "
                            "instances are made of it"));
}

TEST(ManifestWarnings, NameAnEmptyFile) {
    EXPECT_THAT(LoadText("# nothing\n").warnings, ElementsAre("a.yaml: holds no manifest"));
    EXPECT_THAT(LoadText("").warnings, ElementsAre("a.yaml: holds no manifest"));
}

}  // namespace
