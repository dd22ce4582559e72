// The tool's streaming reader: lines whole across block boundaries, the
// roles it gives them, and several files read as one.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "LogReader.h"

namespace qimtool {
namespace {

struct Seen {
  std::string text;
  LineRole role;
  LinePosition at;
};

class Recorder : public LogLineHandler {
 public:
  void onLine(const ReadLine& line) override { lines.push_back({std::string(line.text), line.role, line.at}); }
  void onEnd() override { ended = true; }
  std::vector<Seen> lines;
  bool ended = false;
};

std::string writeFile(const std::string& name, const std::string& content) {
  const std::string path = ::testing::TempDir() + name;
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

const std::string kEntry = "[0A3C] ENTRY> F:1 (f) a=1";

// Lines that end just before, on and just after a block boundary, a line
// as long as allowed and one longer, which is skipped whole.
TEST(LogReader, LinesComeWholeAcrossBlocksAndAnOverlongOneIsSkipped) {
  const std::size_t block = LogReader::kBlock;
  std::vector<std::string> lines = {std::string(block - 2, 'a'), kEntry, std::string(block - kEntry.size() - 3, 'b'),
                                    std::string(LogReader::kMaxLine, 'c'), std::string(LogReader::kMaxLine + 1, 'd'),
                                    kEntry + "\r", ""};
  std::string content;
  for (const std::string& line : lines) content += line + "\n";
  Recorder seen;
  LogReader reader;
  std::string error;
  ASSERT_TRUE(reader.read({writeFile("blocks.log", content)}, seen, error)) << error;
  ASSERT_EQ(seen.lines.size(), lines.size() - 1);
  for (std::size_t i = 0, at = 0; i < lines.size(); ++i) {
    if (lines[i][0] == 'd') continue;
    EXPECT_EQ(seen.lines[at].text.size(), lines[i].size() - (i == 5)) << i;
    EXPECT_EQ(seen.lines[at].text.substr(0, 20), lines[i].substr(0, 20)) << i;
    EXPECT_EQ(seen.lines[at].at.line, i + 1);
    ++at;
  }
  const FileCounts& counts = reader.files().at(0);
  EXPECT_EQ(counts.lines, lines.size());
  EXPECT_EQ(counts.bytes, content.size());
  EXPECT_EQ(counts.overlong, 1u);
  EXPECT_EQ(counts.library, 2u);
  EXPECT_EQ(counts.foreign, 4u);
  EXPECT_FALSE(counts.torn);
  EXPECT_TRUE(seen.ended);
}

struct RoleCase {
  const char* label;
  std::vector<std::string> files;  // contents
  std::vector<LineRole> roles;     // of every line delivered, in order
  std::uint64_t skipped;
  std::vector<bool> advancedUserOnly;
};

void PrintTo(const RoleCase& c, std::ostream* os) { *os << c.label; }

class RoleTest : public ::testing::TestWithParam<RoleCase> {};

TEST_P(RoleTest, EachLineGetsItsRole) {
  std::vector<std::string> paths;
  for (const std::string& content : GetParam().files) {
    paths.push_back(writeFile(std::string(GetParam().label) + std::to_string(paths.size()) + ".log", content));
  }
  Recorder seen;
  LogReader reader;
  std::string error;
  EXPECT_TRUE(reader.read(paths, seen, error));
  std::vector<LineRole> roles;
  for (const Seen& line : seen.lines) roles.push_back(line.role);
  EXPECT_EQ(roles, GetParam().roles);
  EXPECT_EQ(reader.skipped(), GetParam().skipped);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    EXPECT_EQ(reader.files()[i].advancedUserOnly(), GetParam().advancedUserOnly[i]) << i;
  }
}

using R = LineRole;
INSTANTIATE_TEST_SUITE_P(Files, RoleTest, ::testing::Values(
    RoleCase{"TornLastLine", {kEntry + "\n" + kEntry}, {R::Library, R::Torn}, 0, {false}},
    RoleCase{"HostTextAfterAdditionalInformation",
             {"Stack trace for thread 0A3C\nAdditional information: \nposted from the UI\nposted from the UI\n"},
             {R::Library, R::Library, R::StackInfo, R::Foreign}, 1, {false}},
    // The flag of the information line does not cross into the next file.
    RoleCase{"EachFileStartsAfresh", {"Additional information: \n", "host\r\nuser text\r\n"},
             {R::Library, R::Foreign, R::Foreign}, 0, {false, true}},
    RoleCase{"EmptyFile", {"", kEntry + "\n"}, {R::Library}, 0, {false, false}}),
    [](const auto& param) { return std::string(param.param.label); });

TEST(LogReader, SeveralFilesReadAsOneAndAMissingOneIsNamed) {
  const std::string first = writeFile("first.log", kEntry + "\n" + kEntry + "\n");
  const std::string second = writeFile("second.log", "host\n");
  Recorder seen;
  LogReader reader;
  std::string error;
  EXPECT_FALSE(reader.read({first, ::testing::TempDir() + "no-such.log", second}, seen, error));
  EXPECT_NE(error.find("no-such.log"), std::string::npos);
  ASSERT_EQ(seen.lines.size(), 3u);
  EXPECT_EQ(seen.lines[1].at.file, 0u);
  EXPECT_EQ(seen.lines[1].at.line, 2u);
  EXPECT_EQ(seen.lines[2].at.file, 2u);
  EXPECT_EQ(seen.lines[2].at.line, 1u);
  EXPECT_FALSE(reader.files()[1].readable);
  ASSERT_EQ(reader.examples().size(), 1u);
  EXPECT_EQ(reader.examples()[0].text, "host");
}

}  // namespace
}  // namespace qimtool
