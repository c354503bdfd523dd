// Owner SIDs (-action_include_ownersid) of the volume with files of distinct owners and of the
// Windows sample disks, against the security ids and SIDs that istat and fsntfsinfo read.

#include <cstdio>

#include "tests/integration/fixture_util.h"

namespace {

struct owner_source { const char *label, *image, *options, *facts; };
void PrintTo(const owner_source& s, std::ostream* os) { *os << s.label; }

const owner_source kOwnerSources[] = {
    {"Owners", "owners.img", "", "owners.facts.tsv"},
    {"OwnersPerPath", "owners.img", "-csvperpath", "owners.facts.tsv"},
    {"CorpusPtrn", "corpus:ntfs-ptrn.raw", "-offset 0x10000", "corpus-ptrn.facts.tsv"},
    {"CorpusRamslack", "corpus:ntfs-ramslack.raw", "-offset 0x10000", "corpus-ramslack.facts.tsv"},
    {"CorpusLastaccess", "corpus:ntfs-lastaccess.raw", "-offset 0x10000", "corpus-lastaccess.facts.tsv"},
};

class OwnerSids : public ::testing::TestWithParam<owner_source> {};

// Every row of a record the facts name carries its security id, and its owner exactly when istat
// names one; without the option no row has an owner.
TEST_P(OwnerSids, RowsShowTheOwnerIstatReads) {
  const owner_source& s = GetParam();
  const std::string which = s.image;
  if (which.compare(0, 7, "corpus:") == 0 && fixtures::corpus_dir().empty()) GTEST_SKIP() << "no ../shared/corpus";
  const std::string image = fixtures::image(which);
  ASSERT_FALSE(image.empty()) << which;
  const auto facts = fixtures::load_facts(s.facts);
  ASSERT_FALSE(facts.owners.empty()) << s.facts;
  const bool per_path = std::string(s.options) == "-csvperpath";
  const std::string run = "-image " + fixtures::q(image) + " " + s.options + (per_path ? "" : " -csv") + " -quiet";

  auto r = fixtures::run_brimlock(run + " -action_include_ownersid");
  ASSERT_EQ(r.status, 0) << r.err;
  auto rows = fixtures::parse_results(r.out, per_path ? "|" : ",", 2);
  const std::string entry_col = per_path ? "MFT entry" : "mft entry", summary_col = per_path ? "summary stats" : "various data types";
  size_t checked = 0;
  for (size_t i = 0; i < rows.rows.size(); ++i) {
    auto found = facts.owners.find(fixtures::parse_number(rows.cell(i, entry_col)));
    if (found == facts.owners.end()) continue;
    const std::string summary = rows.cell(i, summary_col);
    SCOPED_TRACE(rows.lines[i + 3]);
    char id[32];
    snprintf(id, sizeof id, "[security_id: 0x%04x]", found->second.security_id);
    EXPECT_EQ(summary.find(id) != std::string::npos, found->second.security_id != 0);
    const std::string owner = "; [owner_sid: " + found->second.sid + "]";
    if (found->second.sid.empty()) {
      EXPECT_EQ(summary.find("owner_sid"), std::string::npos);
    } else {
      EXPECT_EQ(summary.compare(summary.size() - std::min(owner.size(), summary.size()), owner.size(), owner), 0);
      ++checked;
    }
  }
  EXPECT_GE(checked, facts.owners.size() / 2);
  EXPECT_EQ(fixtures::run_brimlock(run).out.find("owner_sid"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Volumes, OwnerSids, ::testing::ValuesIn(kOwnerSources),
                         [](const ::testing::TestParamInfo<owner_source>& p) { return std::string(p.param.label); });

// A source without a volume has no $Secure: the option adds nothing there.
TEST(OwnerSidsWithoutVolume, ExtractedMftShowsNoOwner) {
  const std::string mft = fixtures::path("feature.mft");
  ASSERT_FALSE(mft.empty());
  auto r = fixtures::run_brimlock("-mftfile " + fixtures::q(mft) + " -csv -quiet -action_include_ownersid");
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("[security_id: 0x"), std::string::npos);
  EXPECT_EQ(r.out.find("owner_sid"), std::string::npos);
}

}  // namespace
