#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "common/binary_reader.h"
#include "common/binary_writer.h"
#include "tests/fake_platform/fake_copies.h"

namespace ProcMgr {
namespace {

std::string Bytes(const char* text, size_t size) {
    return {text, size};
}

TEST(BinaryWriter, WritesLittleEndianNumbersAndSizedTextsWithoutGaps) {
    std::vector<char> memory(14, 'z');
    BinaryWriter writer(memory.data(), memory.size());
    writer.AddU8(1).AddU32(0x01020304).AddSizedText("cam").AddI32(-1);
    EXPECT_TRUE(writer.HasFailed()) << "16 bytes do not fit";
    EXPECT_EQ(writer.Size(), 12U);
    EXPECT_EQ(std::string(memory.begin(), memory.end()), Bytes("\1\4\3\2\1\3\0\0\0camzz", 14));
}

TEST(BinaryWriter, FillsItsMemoryToTheLastByte) {
    std::vector<char> memory(7);
    BinaryWriter writer(memory.data(), memory.size());
    writer.AddSizedText("cam");
    EXPECT_FALSE(writer.HasFailed());
    EXPECT_EQ(writer.Size(), 7U);
    writer.AddU8(1);
    EXPECT_TRUE(writer.HasFailed());
}

TEST(BinaryWriter, WritesASizedTextWholeOrNotAtAll) {
    std::vector<char> memory(6, 'z');
    BinaryWriter writer(memory.data(), memory.size());
    writer.AddSizedText("cam");
    EXPECT_TRUE(writer.HasFailed());
    EXPECT_EQ(writer.Size(), 0U);
    EXPECT_EQ(std::string(memory.begin(), memory.end()), "zzzzzz");
}

TEST(BinaryWriter, WritesNothingAfterAFailureThoughItWouldFit) {
    std::vector<char> memory(4, 'z');
    BinaryWriter writer(memory.data(), memory.size());
    writer.AddSizedText("cam").AddU8(1).AddU32(2).AddSizedText("");
    EXPECT_TRUE(writer.HasFailed());
    EXPECT_EQ(writer.Size(), 0U);
}

TEST(BinaryWriter, WritesAnEmptyText) {
    std::vector<char> memory(4, 'z');
    BinaryWriter writer(memory.data(), memory.size());
    writer.AddSizedText("");
    EXPECT_FALSE(writer.HasFailed());
    EXPECT_EQ(std::string(memory.begin(), memory.end()), Bytes("\0\0\0\0", 4));
}

TEST(BinaryWriter, FailsWhenACopyFails) {
    FakeCopies::Get().FailCall(2, EINVAL);
    std::vector<char> memory(16);
    BinaryWriter writer(memory.data(), memory.size());
    writer.AddU32(1).AddU32(2).AddU32(3);
    EXPECT_TRUE(writer.HasFailed());
    EXPECT_EQ(writer.Size(), 4U);
}

TEST(BinaryReader, ReadsAtAnyAlignmentAndKnowsWhatIsLeft) {
    const std::string bytes = Bytes("x\2\0\0\0\3\0\0\0camend", 15);
    BinaryReader reader(bytes.data() + 1, bytes.size() - 1);
    EXPECT_EQ(reader.ReadU32(), 2U);
    EXPECT_EQ(reader.ReadSizedText(), "cam");
    EXPECT_EQ(reader.Left(), 3U);
    EXPECT_EQ(reader.ReadBytes(3), "end");
    EXPECT_FALSE(reader.HasFailed());
}

TEST(BinaryReader, FailsOnANumberThatIsCutOffAndReadsZeroAndEmptyFromThenOn) {
    const std::string bytes = Bytes("\1\2\3", 3);
    BinaryReader reader(bytes.data(), bytes.size());
    EXPECT_EQ(reader.ReadU32(), 0U);
    EXPECT_TRUE(reader.HasFailed());
    EXPECT_EQ(reader.ReadBytes(1), "");
    EXPECT_EQ(reader.Left(), 0U);
}

TEST(BinaryReader, ChecksALengthBeforeItAllocatesAnything) {
    const std::string bytes = Bytes(
        "\xff\xff\xff\xff"
        "cam",
        7);
    BinaryReader reader(bytes.data(), bytes.size());
    EXPECT_EQ(reader.ReadSizedText(), "");
    EXPECT_TRUE(reader.HasFailed());

    BinaryReader other(bytes.data(), bytes.size());
    EXPECT_EQ(other.ReadBytes(std::numeric_limits<size_t>::max()), "");
    EXPECT_TRUE(other.HasFailed());
}

TEST(BinaryReader, TakesNoMemoryAtAll) {
    BinaryReader reader(nullptr, 0);
    EXPECT_EQ(reader.ReadBytes(0), "");
    EXPECT_FALSE(reader.HasFailed());
    EXPECT_EQ(reader.ReadU32(), 0U);
    EXPECT_TRUE(reader.HasFailed());
}

}  // namespace
}  // namespace ProcMgr
