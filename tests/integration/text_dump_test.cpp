// Record dumps of -find_mft on the fixture volumes, against the facts sleuthkit read from them and,
// when sleuthkit is installed, the data attributes istat prints.

#include <cstdio>
#include <sstream>

#include "tests/integration/fixture_util.h"

namespace {

struct dump_case { const char *label, *image, *facts, *path; };
void PrintTo(const dump_case& c, std::ostream* os) { *os << c.label; }

const dump_case kDumpCases[] = {
    {"HardLinks", "feature.img", "feature.facts.tsv", "docs/report.txt"},
    {"DosName", "feature.img", "feature.facts.tsv", "docs/Long File Name Document.txt"},
    {"SparseRuns", "feature.img", "feature.facts.tsv", "sizes/sparse.bin"},
    {"NamedStreams", "feature.img", "feature.facts.tsv", "streams/data.txt"},
    {"Directory", "feature.img", "feature.facts.tsv", "docs"},
    {"NameInExtension", "feature.img", "feature.facts.tsv", "attrlist/resident/streams.txt"},
    {"Compressed", "compress.img", "compress.facts.tsv", "packed/hole.bin"},
    {"Owner", "owners.img", "owners.facts.tsv", "shared/carol.bin"},
};

std::vector<std::string> dump(const std::string& image, uint64_t inode) {
  auto r = fixtures::run_brimlock("-image " + fixtures::q(image) + " -find_mft " + std::to_string(inode) +
                                  " -quiet -dateformat yyyy-mm-dd -timeformat hh:mm:ss.xxxxxxx");
  EXPECT_EQ(r.status, 0) << r.err;
  std::vector<std::string> lines;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

size_t find_line(const std::vector<std::string>& lines, const std::string& text, size_t from = 0) {
  auto it = std::find(lines.begin() + std::min(from, lines.size()), lines.end(), text);
  return size_t(it - lines.begin());
}

std::string hex(const char* format, uint64_t value) {
  char buffer[40];
  snprintf(buffer, sizeof buffer, format, (unsigned long long)value);
  return buffer;
}

// The four time lines behind `at` carry the facts' times (created, modified, MFT modified,
// accessed; "-" for zero), in the dump's order modified, accessed, MFT modified, created.
void expect_times(const std::vector<std::string>& lines, size_t at, const std::string (&t)[4]) {
  const char* labels[4] = {"  modified:  ", "  accessed:  ", "  mft mod:   ", "  created:   "};
  const int order[4] = {1, 3, 2, 0};
  for (int i = 0; i < 4; ++i) {
    ASSERT_LT(at + i, lines.size());
    const std::string& fact = t[order[i]];
    const std::string want = labels[i] + (fact == "-" ? std::string("[0x0000000000000000]") : fact + " [0x");
    EXPECT_EQ(lines[at + i].compare(0, want.size(), want), 0) << lines[at + i] << " / " << want;
  }
}

// A $DATA attribute as istat or the dump gives it: flags text, sizes, and the clusters in stream
// order (istat: 0 for a sparse cluster).
// Clusters counted: istat lists them up to the file size, the dump totals every allocated one.
struct data_view { std::string flags; bool resident = false; uint64_t size = 0, valid = 0; std::vector<uint64_t> real;
                   uint64_t counted = 0, counted_real = 0; };

std::map<std::string, data_view> istat_data(const std::string& image, uint64_t inode) {
  std::map<std::string, data_view> out;
  auto r = testutil::run_shell("istat " + fixtures::q(image) + " " + std::to_string(inode));
  std::istringstream in(r.out);
  data_view* current = nullptr;
  for (std::string line; std::getline(in, line);) {
    if (line.compare(0, 5, "Type:") == 0) {
      current = nullptr;
      if (line.compare(0, 12, "Type: $DATA ") != 0) continue;
      size_t name = line.find("Name: ") + 6;
      std::string key = line.substr(name, line.find("   ", name) - name);
      current = &out[key == "N/A" ? "(unnamed)" : key];
      current->flags = line;
      current->resident = line.find("   Resident") != std::string::npos;
      current->size = std::stoull(line.substr(line.find("size: ") + 6));
      size_t init = line.find("init_size: ");
      if (init != std::string::npos) current->valid = std::stoull(line.substr(init + 11));
    } else if (current) {
      std::istringstream clusters(line);
      for (uint64_t c; clusters >> c; ++current->counted)
        if (c) current->real.push_back(c), ++current->counted_real;
    }
  }
  return out;
}

std::map<std::string, data_view> dumped_data(const std::vector<std::string>& lines) {
  std::map<std::string, data_view> out;
  data_view* current = nullptr;
  for (const std::string& line : lines) {
    unsigned long long a = 0, b = 0, c = 0;
    if (line.compare(0, 13, "Data Attrib: ") == 0) {
      std::string rest = line.substr(13);
      current = &out[rest.substr(0, rest.find(", "))];
      current->flags = rest;
    } else if (!current) {
      continue;
    } else if (sscanf(line.c_str(), "  resident data used: %llu", &a) == 1) {
      current->resident = true, current->size = a;
    } else if (sscanf(line.c_str(), "  file size:  %llu", &a) == 1) {
      current->size = a;
    } else if (sscanf(line.c_str(), "  valid data: %llu", &a) == 1) {
      current->valid = a;
    } else if (sscanf(line.c_str(), "    vcn 0x%llx -> lcn 0x%llx -> 0x%llx clusters", &a, &b, &c) == 3) {
      for (uint64_t i = 0; i < c; ++i) current->real.push_back(b + i);
    } else if (sscanf(line.c_str(), "  Total clusters [real]:   %llu", &a) == 1) {
      current->counted_real = a, current->counted += a;
    } else if (sscanf(line.c_str(), "  Total clusters [sparse]: %llu", &a) == 1) {
      current->counted += a;
    }
  }
  return out;
}

class TextDump : public ::testing::TestWithParam<dump_case> {};

TEST_P(TextDump, LabelledValuesMatchSleuthkit) {
  const dump_case& c = GetParam();
  const std::string image = fixtures::path(c.image);
  ASSERT_FALSE(image.empty()) << c.image;
  const auto facts = fixtures::load_facts(c.facts);
  uint64_t inode = ~0ull;
  for (const auto& p : facts.paths)
    if (p.path == c.path) inode = p.inode;
  ASSERT_NE(inode, ~0ull) << c.path;
  const fixtures::fact_record& rec = facts.records.at(inode);
  const auto lines = dump(image, inode);

  EXPECT_LT(find_line(lines, hex("  MFT entry: 0x%08llx", inode)), lines.size());
  EXPECT_LT(find_line(lines, "  Seq Num:   " + std::to_string(rec.seq)), lines.size());
  EXPECT_LT(find_line(lines, std::string("  Type:      ") + (rec.directory ? "dir" : "file")), lines.size());
  EXPECT_LT(find_line(lines, "Ref Count: " + std::to_string(rec.links)), lines.size());
  size_t si = 0;
  while (si < lines.size() && lines[si].compare(0, 23, "Standard Info Attrib: (") != 0) ++si;
  ASSERT_LT(si, lines.size());
  expect_times(lines, si + 1, rec.si);
  auto owner = facts.owners.find(inode);
  if (owner != facts.owners.end() && !owner->second.sid.empty()) {
    EXPECT_LT(find_line(lines, "  Owner SID: " + owner->second.sid), lines.size());
  }

  // Every name with its parent and times, in the base record's dump and, for a name an extension
  // record holds, in that record's dump too.
  const auto names = facts.names_of(inode);
  ASSERT_FALSE(names.empty());
  for (const fixtures::fact_name* n : names) {
    SCOPED_TRACE(n->name);
    std::vector<std::vector<std::string>> dumps = {lines};
    if (n->holder != inode) {
      dumps.push_back(dump(image, n->holder));
      EXPECT_LT(find_line(dumps.back(), hex("references mft entry: 0x%08llx", inode)), dumps.back().size());
    }
    for (const auto& d : dumps) {
      size_t at = find_line(d, "Filename Attrib: " + n->name + ", (indexed)");
      ASSERT_LT(at + 2, d.size());
      EXPECT_EQ(d[at + 1], hex("  parnt mft: 0x%08llx", n->parent));
      EXPECT_EQ(d[at + 2], hex("  parnt seq# 0x%04llx", n->parent_seq));
      expect_times(d, at + 3, n->fn);
    }
  }
  // The paths of a file close the dump, as fls names them.
  for (const auto& p : facts.paths) {
    if (p.inode != inode || p.kind != 'r' || p.path.find(':') != std::string::npos) continue;
    std::string path = "\\" + p.path;
    std::replace(path.begin(), path.end(), '/', '\\');
    EXPECT_LT(find_line(lines, path), lines.size()) << path;
  }

  if (testutil::run_shell("command -v istat").status != 0) return;  // sizes and runs need sleuthkit
  const auto theirs = istat_data(image, inode);
  const auto ours = dumped_data(lines);
  ASSERT_EQ(ours.size(), theirs.size());
  for (const auto& kv : theirs) {
    SCOPED_TRACE(kv.first);
    auto found = ours.find(kv.first);
    ASSERT_NE(found, ours.end());
    const data_view &t = kv.second, &o = found->second;
    EXPECT_EQ(o.resident, t.resident);
    EXPECT_EQ(o.size, t.size);
    EXPECT_EQ(o.valid, t.valid);
    EXPECT_EQ(o.real, t.real);
    EXPECT_EQ(o.flags.find(", data compressed") != std::string::npos, t.flags.find("Compressed") != std::string::npos);
    EXPECT_EQ(o.flags.find(", sparse clusters") != std::string::npos, t.flags.find("Sparse") != std::string::npos);
    EXPECT_EQ(o.counted_real, t.counted_real);
    EXPECT_GE(o.counted, t.counted);
  }
}

INSTANTIATE_TEST_SUITE_P(Records, TextDump, ::testing::ValuesIn(kDumpCases),
                         [](const ::testing::TestParamInfo<dump_case>& p) { return std::string(p.param.label); });

}  // namespace
