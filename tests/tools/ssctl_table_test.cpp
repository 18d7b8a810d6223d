#include "tools/ssctl/table.h"

#include <gtest/gtest.h>

using namespace Ssctl;

namespace {

Table States() {
    Table table;
    table.columns = {{"APPLICATION"}, {"PID", Align::RIGHT}, {"STATE"}};
    table.rows = {{{"lidar"}, {"4711"}, {"RUNNING", Tone::GOOD}},
                  {{"a_long_name@front"}, {"-"}, {"NOT_RUNNING"}},
                  {{"nav"}, {"17"}, {"IN_TRANSITION", Tone::BUSY}}};
    return table;
}

}  // namespace

TEST(RenderTable, PutsColumnsUnderEachOtherWithoutBlanksAtTheEnd) {
    EXPECT_EQ(RenderTable(States(), false),
              "APPLICATION         PID  STATE\n"
              "lidar              4711  RUNNING\n"
              "a_long_name@front     -  NOT_RUNNING\n"
              "nav                  17  IN_TRANSITION\n");
}

TEST(RenderTable, ColoursTheTextsAndNotTheBlanksBetweenThem) {
    Table table;
    table.columns = {{"A"}, {"B"}};
    table.rows = {{{"good", Tone::GOOD}, {"bad", Tone::BAD}}, {{"x", Tone::BUSY}, {"plain"}}};
    EXPECT_EQ(RenderTable(table, true),
              "\x1b[1mA\x1b[0m     \x1b[1mB\x1b[0m\n"
              "\x1b[32mgood\x1b[0m  \x1b[31mbad\x1b[0m\n"
              "\x1b[33mx\x1b[0m     plain\n");
}

TEST(RenderTable, CountsCharactersAndNotBytes) {
    Table table;
    table.columns = {{"A"}, {"B"}};
    table.rows = {{{"größe"}, {"1"}}, {{"hoehe"}, {"2"}}};
    EXPECT_EQ(RenderTable(table, false), "A      B\ngröße  1\nhoehe  2\n");
}

TEST(RenderTable, EscapesWhatCouldSteerTheTerminal) {
    Table table;
    table.columns = {{"A"}};
    table.rows = {{{"x\x1b[2Jy\nz"}}};
    EXPECT_EQ(RenderTable(table, false), "A\nx\\x1b[2Jy\\x0az\n");
}

TEST(RenderTable, IsNothingWithoutRowsButTheTitles) {
    Table table;
    table.columns = {{"A"}, {"B", Align::RIGHT}};
    EXPECT_EQ(RenderTable(table, false), "A  B\n");
}

TEST(Printable, LetsTextThrough) {
    EXPECT_EQ(Printable("a b~"), "a b~");
    EXPECT_EQ(Printable("größe € 😀"), "größe € 😀");
}

TEST(Printable, EscapesControlCharactersAlsoThoseBeyondAscii) {
    EXPECT_EQ(Printable(std::string("\0\x1f\x7f", 3)), "\\x00\\x1f\\x7f");
    EXPECT_EQ(Printable("\xC2\x9B"), "\\xc2\\x9b");
}

TEST(Printable, EscapesBytesThatAreNoUtf8) {
    EXPECT_EQ(Printable("a\xFF"), "a\\xff");
    EXPECT_EQ(Printable("\x80"), "\\x80");
    EXPECT_EQ(Printable("\xC3"), "\\xc3");
    EXPECT_EQ(Printable("\xC3x"), "\\xc3x");
    EXPECT_EQ(Printable("\xC0\xAF"), "\\xc0\\xaf");
    EXPECT_EQ(Printable("\xE0\x80\x80"), "\\xe0\\x80\\x80");
    EXPECT_EQ(Printable("\xED\xA0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(Printable("\xF5\x80\x80\x80"), "\\xf5\\x80\\x80\\x80");
    EXPECT_EQ(Printable("\xF4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
}
