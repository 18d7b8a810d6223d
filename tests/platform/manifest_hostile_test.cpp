// Files that mean harm: they give errors, in bounded time and memory, and nothing else.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "platform/posix/manifest/yaml_node.h"
#include "tests/platform/manifest_load_kit.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string Repeat(const std::string& text, size_t bytes) {
    std::string out;
    while (out.size() + text.size() <= bytes) {
        out += text;
    }
    return out;
}

TEST(HostileManifest, OfDeepNestingIsRefused) {
    for (const std::string opening : {"[", "{a: ", "- ", "? ", "[? ", "{? ", ": "}) {
        const std::vector<std::string> errors = LoadText(Repeat(opening, 1000000)).errors;
        ASSERT_EQ(errors.size(), 1U) << opening;
        EXPECT_THAT(errors.front(), HasSubstr("lists and maps stand more than 16 levels deep; flatten them"))
            << opening;
    }
}

TEST(HostileManifest, OfOneTokenInEndlessRepetitionIsRefused) {
    for (const std::string token : {",",     "]",           "}",    ":",    "&a ", "*a ", "!a ",  "!!",  "---\n",
                                    "...\n", "%YAML 1.2\n", "@",    "`",    "\"",  "'",   "|\n",  ">\n", "\\",
                                    "\"\\",  "a: ",         "[a,",  "{a,",  "[:",  "-\n", "a:\n", "\t",  "a: |\n  x\n",
                                    "? a\n", "<<: *a\n",    "\xff", "\xc3", "$",   "${",  "#"}) {
        EXPECT_TRUE(LoadText(Repeat(token, 100000)).names.empty()) << token;
    }
}

TEST(HostileManifest, OfAliasesWithinAliasesIsNotExpanded) {
    std::string text = "app_name: a\nbin_path: /a\narguments: &a0 [lol, lol]\n";
    for (int i = 1; i < 60; ++i) {
        const std::string before = "*a" + std::to_string(i - 1);
        text += "x" + std::to_string(i) + ": &a" + std::to_string(i) + " [" + before + ", " + before + "]\n";
    }
    const Loaded loaded = LoadText(text);
    EXPECT_TRUE(loaded.names.empty());
    EXPECT_EQ(loaded.errors.size(), 59U);
}

TEST(HostileManifest, OfControlCharactersIsRefused) {
    const std::string rule = " a control character stands here; write UTF-8 text without it";
    EXPECT_THAT(LoadText("app_name: a\nbin_path: /a\x04\nuid: 1\n").errors, ElementsAre("a.yaml:2:13:" + rule));
    EXPECT_THAT(LoadText(std::string("a\0b", 3)).errors, ElementsAre("a.yaml:1:2:" + rule));
    EXPECT_THAT(LoadText("\x7f").errors, ElementsAre("a.yaml:1:1:" + rule));
}

TEST(HostileManifest, OfManyErrorsListsAHundred) {
    const std::vector<std::string> errors = LoadText(Repeat("- {}\n", 100000)).errors;
    ASSERT_EQ(errors.size(), 101U);
    EXPECT_EQ(errors.back(), "a.yaml: holds more than 100 errors; the others are not listed");
}

TEST(HostileManifest, BehindAHundredErrorsStaysBad) {
    EXPECT_TRUE(LoadText("app_name: a\nbin_path: /a\n" + Repeat("x: 1\n", 1000)).names.empty());
    EXPECT_THAT(LoadText(Repeat("- {}\n", 1000) + "- {app_name: a}\n- {app_name: b, bin_path: /b}\n").names,
                ElementsAre("b"));
}

TEST(HostileManifest, OfALongKeyOrTextIsNamedInShort) {
    const std::string text = std::string(900, 'k');
    const std::vector<std::string> errors = LoadText(text + ": 1\n").errors;
    ASSERT_FALSE(errors.empty());
    EXPECT_LT(errors.front().size(), 250U);
    EXPECT_LT(LoadText(std::string(1000000, 'x')).errors.front().size(), 250U);
}

TEST(HostileManifest, OfTenThousandApplicationsInOneCycleIsRefused) {
    std::string text;
    constexpr int kCount = 10000;
    for (int i = 0; i < kCount; ++i) {
        text += "- {app_name: a" + std::to_string(i) + ", bin_path: /a, depends: [a" +
                std::to_string((i + 1) % kCount) + "]}\n";
    }
    const Loaded loaded = LoadText(text);
    EXPECT_TRUE(loaded.names.empty());
    ASSERT_EQ(loaded.errors.size(), 1U);
    EXPECT_LT(loaded.errors.front().size(), 250U);
}

TEST(HostileManifest, OfManyCirclesAllIntertwinedIsRefused) {
    // Looking for the smallest circle from each of them would take millions of millions of steps.
    std::string text;
    constexpr int kCount = 10000;
    for (int i = 0; i < kCount; ++i) {
        text += "- {app_name: a" + std::to_string(i) + ", bin_path: /a, depends: [";
        for (const int step : {1, 3, 5, 7}) {
            text += (step == 1 ? "a" : ", a") + std::to_string((i + step) % kCount);
        }
        text += "]}\n";
    }
    const Loaded loaded = LoadText(text);
    EXPECT_TRUE(loaded.names.empty());
    EXPECT_EQ(loaded.errors.size(), 1U);
}

/// Changes a few bytes of a good file to others that mean something to YAML.
std::string Mutate(const std::string& text, std::mt19937& random) {
    static const std::string bytes = "[]{},:-?&*!|>'\"%@`#\n\r\t $ab\\\x80\xc3\xff";
    const auto below = [&random](size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random); };
    std::string out = text;
    for (size_t i = below(6) + 1; i > 0; --i) {
        const size_t at = below(out.size());
        switch (below(3)) {
            case 0:
                out[at] = bytes[below(bytes.size())];
                break;
            case 1:
                out.insert(at, 1, bytes[below(bytes.size())]);
                break;
            default:
                out.insert(at, out.substr(below(out.size()), below(12)));
                break;
        }
    }
    return out;
}

TEST(HostileManifest, OfRandomBytesGivesATreeOrAProblem) {
    const std::string good =
        "- app_name: a\n  bin_path: \"/a\"\n  env_argv: {A: 'b', C: d}\n- arguments:\n  - [x, y]\n"
        "  - |\n    text\n  - >-\n    folded\n  ? k\n  : v # c\n  z: &x !t q\n  w: *x\n";
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::mt19937 random(seed);
        ProcMgr::YamlNode root;
        ProcMgr::YamlProblem problem;
        const std::string text = Mutate(good, random);
        SCOPED_TRACE(text);
        const bool isRead = ProcMgr::ReadYaml(text, root, problem);
        EXPECT_EQ(isRead, problem.text.empty());
    }
}

}  // namespace
