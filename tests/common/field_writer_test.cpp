#include "common/field_writer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <locale>
#include <string>

namespace ProcMgr {
namespace {

class GroupingFacet : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(FieldWriter, PutsOneNumberSignBehindEveryFieldTheLastIncluded) {
    FieldWriter writer;
    writer.AddText("cam").AddNumber(2).AddText("-v").AddText("");
    EXPECT_EQ(writer.Text(), "cam#2#-v##");
    EXPECT_EQ(writer.Size(), 10U);
}

TEST(FieldWriter, WritesNumbersInPlainDecimal) {
    FieldWriter writer;
    writer.AddNumber(int32_t{-7}).AddNumber(std::numeric_limits<uint64_t>::max()).AddNumber(uint8_t{200});
    EXPECT_EQ(writer.TakeText(), "-7#18446744073709551615#200#");
}

TEST(FieldWriter, IsNotBentByTheLocaleOfTheProcess) {
    std::locale::global(std::locale(std::locale::classic(), new GroupingFacet));
    FieldWriter writer;
    writer.AddNumber(1024U);
    EXPECT_EQ(writer.Text(), "1024#");
}

TEST(FieldWriter, IsEmptyAtFirst) {
    EXPECT_EQ(FieldWriter().Text(), "");
    EXPECT_EQ(FieldWriter().Size(), 0U);
}

}  // namespace
}  // namespace ProcMgr
