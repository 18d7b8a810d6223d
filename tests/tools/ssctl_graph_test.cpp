// The picture of the dependencies, to the letter.
#include "tools/ssctl/graph.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/platform/manifest_test_folder.h"
#include "tests/tools/json_schema.h"
#include "tools/ssctl/graph_files.h"

using namespace Ssctl;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string kHead =
    "digraph applications {\n"
    "  rankdir=RL;\n"
    "  label=\"double border: started at boot; dashed: template; red: cannot start\";\n"
    "  fontname=\"sans-serif\";\n"
    "  node [shape=box, style=\"rounded,filled\", fontname=\"sans-serif\"];\n";

class SsctlGraph : public testing::Test {
protected:
    SsctlGraph() { unsetenv("PROCMGR_REPLACE_DATA"); }

    Graph Read(const std::string& text) const { return ReadGraph(folder_.Write("a.yaml", text)); }

    /// Of the file, or nothing when it is not there.
    static std::string TextOf(const std::string& file) {
        std::stringstream text;
        text << std::ifstream(file).rdbuf();
        return text.str();
    }

    ManifestTestFolder folder_;
};

}  // namespace

TEST_F(SsctlGraph, ShowsTheKindsOfApplicationsAndWhatTheyDependOn) {
    folder_.Write("replace.yaml", "cfgmgr_env: {CLOCK: clock}\n");
    EXPECT_EQ(WriteDot(Read(R"(
- {app_name: clock, bin_path: /c, is_auto_boot: true}
- {app_name: cam, bin_path: /c, is_dynamic_para: true, depends: ["${CLOCK}"]}
- {app_name: nav, bin_path: /n, depends: [clock, cam@front, ghost]}
)")),
              kHead + R"(  "clock" [fillcolor="#cfe2f3", peripheries=2];
  "cam" [fillcolor="#f0f0f0", style="rounded,filled,dashed"];
  "nav" [fillcolor="#e6f0d8"];
  "cam@front" [fillcolor="#ffffff"];
  "ghost" [fillcolor="#ffffff", color=red, fontcolor=red, style="rounded,filled,dashed"];
  "cam" -> "clock";
  "nav" -> "cam@front";
  "nav" -> "clock";
  "nav" -> "ghost" [color=red, style=dashed];
  "cam@front" -> "cam" [style=dotted, arrowhead=empty];
}
)");
}

TEST_F(SsctlGraph, ShowsCyclesInRedAndOnlyThose) {
    EXPECT_EQ(WriteDot(Read(R"(
- {app_name: a, bin_path: /a, depends: [b]}
- {app_name: b, bin_path: /b, depends: [a]}
- {app_name: c, bin_path: /c, depends: [a]}
)")),
              kHead + R"(  "a" [fillcolor="#e6f0d8"];
  "b" [fillcolor="#e6f0d8"];
  "c" [fillcolor="#e6f0d8"];
  "a" -> "b" [color=red, penwidth=2];
  "b" -> "a" [color=red, penwidth=2];
  "c" -> "a";
}
)");
}

TEST_F(SsctlGraph, EscapesNames) {
    EXPECT_THAT(WriteDot(Read(R"({app_name: 'say "\N"\', bin_path: /a, depends: ['<b>']})")),
                HasSubstr("  \"say \\\"\\\\N\\\"\\\\\" -> \"<b>\" [color=red, style=dashed];\n"));
}

TEST_F(SsctlGraph, LabelsNamesThatGraphvizWouldShowAsSomethingElse) {
    EXPECT_EQ(WriteDot(Read(R"(
- {app_name: '%n', bin_path: /a}
- {app_name: 'a&lt;', bin_path: /a, depends: ['%n', 50%]}
)")),
              kHead + R"(  "/%n" [fillcolor="#e6f0d8", label="%n"];
  "a&lt;" [fillcolor="#e6f0d8", label="a&amp;lt;"];
  "50%" [fillcolor="#ffffff", color=red, fontcolor=red, style="rounded,filled,dashed"];
  "a&lt;" -> "/%n";
  "a&lt;" -> "50%" [color=red, style=dashed];
}
)");
}

TEST_F(SsctlGraph, IsColouredByStates) {
    Graph graph = Read(R"(
- {app_name: a, bin_path: /a, is_auto_boot: true}
- {app_name: b, bin_path: /b}
- {app_name: c, bin_path: /c}
)");
    AddStates(nlohmann::ordered_json::parse(
                  R"({"applications":[{"name":"a","state":"RUNNING"},{"name":"b","state":"NOT_RUNNING"}]})"),
              graph);
    const std::string text = WriteDot(graph);
    EXPECT_THAT(text, HasSubstr(R"(red: cannot start\ngreen: runs; yellow: in transition; grey: does not run";)"));
    EXPECT_THAT(text, HasSubstr(R"("a" [fillcolor="#cfe2f3", peripheries=2, fillcolor="#9fdf9f"];)"));
    EXPECT_THAT(text, HasSubstr(R"("b" [fillcolor="#e6f0d8", fillcolor="#d0d0d0"];)"));
    EXPECT_THAT(text, HasSubstr(R"("c" [fillcolor="#e6f0d8"];)"));
}

TEST_F(SsctlGraph, IsADocumentOfTheSchemaToo) {
    std::ifstream file(SSCTL_SCHEMA_FILE);
    const JsonSchema schema(nlohmann::json::parse(file));
    const Graph graph = Read("{app_name: a, bin_path: /a, is_auto_boot: true, depends: [b]}");
    const std::string document = RenderDocument({"graph", "", "/etc/robot"}, ReportGraph("/etc/robot", graph));
    EXPECT_EQ(document, R"({"schema":1,"command":"graph","path":"/etc/robot","ok":true,"exit_code":0,"applications":[)"
                        R"({"name":"a","type":"base","depends":["b"],"in_cycle":false,"state":null},)"
                        R"({"name":"b","type":"unknown","depends":[],"in_cycle":false,"state":null}]})"
                        "\n");
    EXPECT_EQ(schema.Check(nlohmann::json::parse(document)), "");
    const Outcome bad = ReportGraph("x", Read("- {app_name: a}\n- {\n"));
    EXPECT_EQ(schema.Check(nlohmann::json::parse(RenderDocument({"graph", "", "x"}, bad))), "");
}

TEST_F(SsctlGraph, OfBadManifestsIsDrawnAndIsAFailure) {
    const Outcome outcome =
        ReportGraph("/etc/robot", Read("- {app_name: a, bin_path: /a, colour: red}\n- {bin_path: /b}"));
    EXPECT_THAT(outcome.text, HasSubstr("\"a\" [fillcolor"));
    EXPECT_EQ(outcome.fault, Fault::BAD_MANIFESTS);
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::REFUSED);
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: there are errors in the manifests, so that the graph may lack something.\n"
              "       See them with 'ssctl check /etc/robot'.\n");
}

TEST_F(SsctlGraph, GoesToTheStandardOutputUnlessAFileIsNamed) {
    Outcome outcome;
    outcome.text = "digraph {}\n";
    WriteGraphFiles("", "", outcome);
    EXPECT_EQ(RenderText(outcome, false), "digraph {}\n");
    WriteGraphFiles(folder_.Path() + "/graph.dot", "", outcome);
    EXPECT_EQ(RenderText(outcome, false), "");
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_EQ(TextOf(folder_.Path() + "/graph.dot"), "digraph {}\n");
}

TEST_F(SsctlGraph, SaysWhichFileCannotBeWritten) {
    Outcome outcome;
    WriteGraphFiles("/none/graph.dot", "", outcome);
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: '/none/graph.dot' cannot be written: No such file or directory.\n"
              "       Choose another file with -o.\n");
    EXPECT_EQ(ExitCodeOf(outcome.fault), ExitCode::REFUSED);
}

TEST_F(SsctlGraph, SaysWhichPackageMakesPictures) {
    Outcome outcome;
    setenv("PATH", folder_.Path().c_str(), 1);
    WriteGraphFiles("", folder_.Path() + "/graph.svg", outcome);
    EXPECT_EQ(RenderComplaint(outcome),
              "ssctl: Graphviz cannot be run: 'dot': No such file or directory.\n"
              "       Install the package 'graphviz', or write the text with -o and make the picture elsewhere with"
              " 'dot -Tsvg'.\n");
}

TEST_F(SsctlGraph, GivesGraphvizTheTextAndTheFile) {
    const std::string program = folder_.Write("dot", "#!/bin/sh\n[ \"$1\" = -Tsvg ] && exec /bin/cat >\"${2#-o}\"\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    setenv("PATH", folder_.Path().c_str(), 1);
    Outcome outcome;
    outcome.text = std::string(1000000, 'x');
    WriteGraphFiles("", folder_.Path() + "/graph.svg", outcome);
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_EQ(TextOf(folder_.Path() + "/graph.svg"), std::string(1000000, 'x'));
    folder_.Write("dot", "#!/bin/sh\nexit 1\n");
    WriteGraphFiles("", "/g.svg", outcome);
    EXPECT_EQ(outcome.problem, "Graphviz could not write '/g.svg'");
}

TEST_F(SsctlGraph, IsAPictureThatGraphvizMakes) {
    if (std::system("command -v dot >/dev/null") != 0) {
        GTEST_SKIP() << "graphviz is not installed";
    }
    Outcome outcome =
        ReportGraph("x", Read(R"({app_name: 'say "\N"\', bin_path: /a, depends: ['<b>', '%n', 'a&lt;']})"));
    const std::string file = folder_.Path() + "/graph.svg";
    WriteGraphFiles("", file, outcome);
    EXPECT_EQ(outcome.problem, "");
    EXPECT_THAT(TextOf(file), HasSubstr(">say &quot;\\N&quot;\\</text>"));
    EXPECT_THAT(TextOf(file), HasSubstr(">&lt;b&gt;</text>"));
    EXPECT_THAT(TextOf(file), HasSubstr(">%n</text>"));
    EXPECT_THAT(TextOf(file), HasSubstr(">a&amp;lt;</text>"));
}
