// -regen_mft on the feature volume whose $MFT run list was cut after 16 records, with two older
// copies of readme.txt's record in free clusters.

#include <sstream>

#include "tests/integration/fixture_util.h"

namespace {

// feature.img with the sectors of regen.patch.tsv written over it.
std::string cut_volume(const std::string& dir) {
  std::string source = fixtures::path("feature.img"), patch = fixtures::path("regen.patch.tsv");
  if (source.empty() || patch.empty()) return "";
  std::string bytes = testutil::read_text(source);
  std::istringstream lines(testutil::read_text(patch));
  for (std::string offset, hex; lines >> offset >> hex;)
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
      bytes.at(std::stoull(offset) + i / 2) = char(std::stoi(hex.substr(i, 2), nullptr, 16));
  testutil::write_text(dir + "/cut.img", bytes);
  return dir + "/cut.img";
}

// Rows by record number, each row's cells joined.
std::multimap<uint64_t, std::string> rows_of(const std::string& args) {
  auto r = fixtures::run_brimlock(args + " -csv -quiet");
  EXPECT_EQ(r.status, 0) << r.err;
  fixtures::results rows = fixtures::parse_results(r.out, ",", 2);
  std::multimap<uint64_t, std::string> out;
  for (size_t i = 0; i < rows.rows.size(); ++i) {
    std::string line;
    for (const std::string& cell : rows.rows[i]) line += cell + ",";
    out.emplace(fixtures::parse_number(rows.cell(i, "mft entry")), line);
  }
  return out;
}

}  // namespace

TEST(RegenMft, CarvedMftGivesTheRowsOfTheIntactVolume) {
  const std::string dir = fixtures::scratch_dir("regen");
  const std::string intact = fixtures::path("feature.img"), cut = cut_volume(dir), log = dir + "/diags.log";
  ASSERT_FALSE(intact.empty() || cut.empty());
  const auto whole = rows_of("-image " + fixtures::q(intact));
  const auto own = rows_of("-image " + fixtures::q(cut));
  ASSERT_FALSE(own.empty());
  EXPECT_LT(own.rbegin()->first, 16u) << "the cut $MFT reaches its first 16 records only";

  const auto carved = rows_of("-image " + fixtures::q(cut) + " -regen_mft -diags " + fixtures::q(log));
  // Row for row, but for $MFT's own (its run list is the cut one) and the spare records 16 to 23,
  // which mkntfs formats with 0 in their number field: no carving can tell where they belong.
  auto comparable = [](const std::multimap<uint64_t, std::string>& rows) {
    std::vector<std::string> out;
    for (const auto& [number, line] : rows)
      if (number != 0 && (number < 16 || number > 23)) out.push_back(line);
    return out;
  };
  EXPECT_EQ(comparable(carved), comparable(whole));

  // Every named record that sleuthkit reads in the intact volume, with its sequence number.
  const fixtures::facts facts = fixtures::load_facts("feature.facts.tsv");
  ASSERT_FALSE(facts.records.empty());
  size_t named = 0;
  for (const auto& [number, record] : facts.records) {
    if (record.extension || facts.names_of(number).empty()) continue;
    ++named;
    auto range = carved.equal_range(number);
    ASSERT_NE(range.first, range.second) << number;
    EXPECT_NE(range.first->second.find("," + std::to_string(record.seq) + ","), std::string::npos)
        << range.first->second;
  }
  EXPECT_GT(named, 50u);

  // readme.txt: neither the older generation (change time 2030) nor the older copy of the same
  // generation (modified 1999, changed 2001) shows.
  uint64_t readme = 0;
  for (const fixtures::fact_path& p : facts.paths)
    if (p.path == "readme.txt") readme = p.inode;
  ASSERT_NE(readme, 0u);
  for (auto at = carved.lower_bound(readme); at != carved.upper_bound(readme); ++at)
    for (const char* year : {"2030", "1999", "2001"}) EXPECT_EQ(at->second.find(year), std::string::npos) << at->second;
  std::ostringstream hex;
  hex << std::hex << readme;
  const std::string trace = testutil::read_text(log);
  EXPECT_NE(trace.find("checking/updating store entry with: inode: 0x" + hex.str() + ","), std::string::npos);
  EXPECT_NE(trace.find("validating inode: 0x" + hex.str() + " : indx"), std::string::npos);

  // An extracted $MFT is read as it is.
  const std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  EXPECT_EQ(rows_of("-mftfile " + fixtures::q(mft) + " -regen_mft"), rows_of("-mftfile " + fixtures::q(mft)));
}
