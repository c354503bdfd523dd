// Every kind of source run through the binary, compared with what sleuthkit read.

#include <array>
#include <tuple>

#include "base/orv_version.h"
#include "tests/integration/fixture_util.h"

namespace {

// The image (a fixture, or "corpus:" and a file of the shared sample disks) is cut to `cut` bytes
// unless 0; "*" in the options stands for it.
struct source_row { const char *label, *image; uint64_t cut; const char *options, *facts; };
void PrintTo(const source_row& s, std::ostream* os) { *os << s.label; }

const source_row kSources[] = {
    {"FeatureMftCsv", "feature.mft", 0, "-mftfile * -csv", "feature.facts.tsv"},
    {"FeatureMftPadded", "feature.mft", 0, "-mftfile *", "feature.facts.tsv"},
    {"Rec4kMft", "rec4k.mft", 0, "-mftfile * -csv", "rec4k.facts.tsv"},
    {"FragmentedMft", "mftfrag.mft", 0, "-mftfile * -csv", "mftfrag.facts.tsv"},
    {"FeatureVolume", "feature.img", 0, "-image * -csv", "feature.facts.tsv"},
    // The $MFT lies in the first clusters: a bare volume cut at 4 MiB is still read at offset 0.
    {"FeatureVolumeCut", "feature.img", 4 << 20, "-image * -csv", "feature.facts.tsv"},
    {"Rec4kVolume", "rec4k.img", 0, "-image * -csv", "rec4k.facts.tsv"},
    {"FragmentedMftVolume", "mftfrag.img", 0, "-image * -csv", "mftfrag.facts.tsv"},
    {"MbrPrimary", "mbr.img", 0, "-image * -offset 0x2300000 -csv", "mbr.p2.facts.tsv"},
    {"MbrLogical", "mbr.img", 0, "-image * -offset 0x2c00000 -csv", "mbr.p5.facts.tsv"},
    {"GptPartition", "gpt.img", 0, "-image * -offset 0x100000 -csv", "gpt.p1.facts.tsv"},
    {"GptCutInsidePartition", "gpt.img", 4 << 20, "-image * -offset 0x100000 -ignore_image_size -csv",
     "gpt.p1.facts.tsv"},
    {"Disk4kSectors", "disk4k.img", 0, "-image * -offset 0x100000 -csv", "disk4k.p1.facts.tsv"},
    {"Stride4kVolume", "stride4k.img", 0, "-image * -csv", "stride4k.facts.tsv"},  // names across 510
    {"Stride4kMft", "stride4k.mft", 0, "-mftfile * -csv", "stride4k.facts.tsv"},
    {"Mbr4kLogical", "mbr4k.img", 0, "-image * -offset 0x200000 -csv", "mbr4k.p5.facts.tsv"},
    {"Mbr4kPrimary", "mbr4k.img", 0, "-image * -offset 0xc00000 -csv", "mbr4k.p2.facts.tsv"},
    {"OwnersVolume", "owners.img", 0, "-image * -csv", "owners.facts.tsv"},
    {"CorpusPtrn", "corpus:ntfs-ptrn.raw", 0, "-image * -offset 0x10000 -csv", "corpus-ptrn.facts.tsv"},
    {"CorpusRamslack", "corpus:ntfs-ramslack.raw", 0, "-image * -offset 0x10000 -csv", "corpus-ramslack.facts.tsv"},
    {"CorpusLastaccess", "corpus:ntfs-lastaccess.raw", 0, "-image * -offset 0x10000 -csv",
     "corpus-lastaccess.facts.tsv"},
};

using row_key = std::tuple<std::string, std::string, std::string, std::string>;  // name, path, date, time

// Text as the writer puts it in a cell: the separator character replaced.
std::string cell_text(std::string text, bool csv) {
  std::replace(text.begin(), text.end(), csv ? ',' : '|', csv ? ' ' : ';');
  return text;
}

// "[root]\dir\sub\" of an fls directory path.
std::string path_cell(std::string fls_dir) {
  std::replace(fls_dir.begin(), fls_dir.end(), '/', '\\');
  return "[root]\\" + (fls_dir.empty() ? fls_dir : fls_dir + "\\");
}

// The MACB cell of each displayed instant of a record with one name `n` (none when null): m, a,
// c, b for modified, accessed, mft modified, created, per group; "" where instants share a display.
std::map<std::pair<std::string, std::string>, std::string> single_name_marks(const fixtures::fact_record& rec,
                                                                            const fixtures::fact_name* n) {
  std::map<std::string, std::array<std::string, 2>> marks;  // instant -> si, fn letters
  const int pos[4] = {3, 0, 2, 1};  // created, modified, mft modified, accessed
  for (int k = 0; n && k < 8; ++k) {
    const std::string& t = k < 4 ? rec.si[k] : n->fn[k - 4];
    if (t == "-") continue;
    std::string& m = marks[t][k / 4];
    if (m.empty()) m = "....";
    m[size_t(pos[k % 4])] = "macb"[pos[k % 4]];
  }
  std::map<std::pair<std::string, std::string>, std::string> out;
  for (const auto& m : marks) {
    std::string d, t;
    fixtures::ms_cells(m.first, d, t);
    std::string cell = m.second[0].empty() ? "" : "si:[" + m.second[0] + "]";
    if (!m.second[1].empty()) cell += (cell.empty() ? "fn:[" : "; fn:[") + m.second[1] + "]";
    auto added = out.emplace(std::make_pair(d, t), cell);
    if (!added.second || d.empty()) added.first->second.clear();
  }
  return out;
}

const char kNoList[] = "attrib list non-resident [not avail for parsing w/o image]";

struct comparison {
  std::string problems;  // one per line, the first 40
  int count = 0, macb_checked = 0;
  bool dos_row_seen = false, dos_group_seen = false;
  void problem(const std::string& p) { problems += ++count <= 40 ? p + "\n" : ""; }
};

// Each base record with $STANDARD_INFORMATION gives one row per name and distinct displayed
// instant of its eight times (the paths of deleted ones as fls rebuilt them); extension records
// and records without $STANDARD_INFORMATION give none. Every row agrees with its record on
// sequence number, link count, type, extension, name notes and MACB marks.
comparison compare(const fixtures::facts& f, const fixtures::results& r, bool extracted_mft, bool csv) {
  comparison c;
  std::map<uint64_t, std::vector<size_t>> by_record;
  for (size_t i = 0; i < r.rows.size(); ++i) {
    uint64_t n = fixtures::parse_number(r.cell(i, "mft entry"));
    if (r.rows[i].size() != r.header.size() || !f.records.count(n))
      c.problem("row of record " + std::to_string(n) + " with " + std::to_string(r.rows[i].size()) + " cells");
    by_record[n].push_back(i);
  }
  for (const auto& kv : f.records) {
    const fixtures::fact_record& rec = kv.second;
    const std::vector<size_t>& rows = by_record[rec.inode];
    std::string tag = "record " + std::to_string(rec.inode) + ": ";
    if (rec.extension || !rec.si_present) {
      if (!rows.empty()) c.problem(tag + "rows for an extension record or one without $STANDARD_INFORMATION");
      continue;
    }
    // Names in extension records are out of reach through a non-resident attribute list of an
    // extracted $MFT: the rows show those of the base record, or none, and say so.
    bool base_only = extracted_mft && rec.attrlist == "nonresident";
    std::vector<const fixtures::fact_name*> names;
    for (const fixtures::fact_name* n : f.names_of(rec.inode))
      if (!base_only || n->holder == rec.inode) names.push_back(n);
    std::set<row_key> expected, got;
    std::set<std::pair<uint64_t, uint16_t>> parents;
    std::set<std::string> dos_names, extensions, deleted_paths;
    std::string d, t, dir;
    for (const auto& s : rec.si)
      if (names.empty() && fixtures::ms_cells(s, d, t)) expected.insert(row_key("<no filename attribute>", "<no path>", d, t));
    if (names.empty()) extensions.insert("none");
    for (const fixtures::fact_name* n : names) {
      parents.insert({n->parent, n->parent_seq});
      if (n->name_space == 2) dos_names.insert(cell_text(n->name, csv));
      size_t dot = n->name.rfind('.');
      std::string ext = rec.directory || dot == std::string::npos ? "none" : n->name.substr(dot + 1);
      std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char ch) { return char(std::tolower(ch)); });
      extensions.insert(cell_text(ext, csv));
      std::string parent = f.dir_path(n->parent, dir) ? cell_text(path_cell(dir), csv) : "\x01unknown parent";
      for (int k = 0; k < 8; ++k)
        if (fixtures::ms_cells(k < 4 ? rec.si[k] : n->fn[k - 4], d, t))
          expected.insert(row_key(cell_text(n->name, csv), rec.allocated ? parent : "", d, t));
    }
    for (const auto& p : f.paths) {
      if (p.inode != rec.inode || p.allocated || rec.allocated || names.empty()) continue;
      dir = p.path.substr(0, p.path.rfind('/') == std::string::npos ? 0 : p.path.rfind('/'));
      deleted_paths.insert(dir.compare(0, 12, "$OrphanFiles") ? cell_text(path_cell(dir), csv)
                                                              : "[root]\\<path corrupted>\\");
    }
    auto macb = single_name_marks(rec, names.size() == 1 ? names[0] : nullptr);
    std::string type = !rec.allocated ? "del" : rec.directory ? "dir" : "file";
    std::string multi = names.size() > 1 ? "multinames [" + std::to_string(names.size()) + "]" : "";
    std::string roots = parents.size() > 1 ? "multiroots [" + std::to_string(parents.size()) + "]" : "";
    for (size_t i : rows) {
      const std::string name = r.cell(i, "name"), path = r.cell(i, "path"), other = r.cell(i, "other info");
      const std::string marks = r.cell(i, "MACB"), ext = r.cell(i, "ext");
      got.insert(row_key(name, rec.allocated || names.empty() ? path : "", r.cell(i, "date"), r.cell(i, "time-utc")));
      bool dos = dos_names.count(name) > 0;
      if (r.cell(i, "mft seqnum") != std::to_string(rec.seq) || r.cell(i, "ref") != std::to_string(rec.links) ||
          r.cell(i, "type") != (dos ? type + " (FN 8.3)" : type))
        c.problem(tag + "seqnum, ref or type of " + r.lines[i + 4]);
      // A DOS name's row shows its own group and never the long name's, and the other way round.
      if (marks.find(dos ? "fn:[" : "fn8.3[") != std::string::npos) c.problem(tag + "MACB " + marks + " of " + name);
      c.dos_row_seen |= dos;
      c.dos_group_seen |= dos && marks.find("fn8.3[") != std::string::npos;
      bool ascii = std::none_of(ext.begin(), ext.end(), [](char ch) { return ch & 0x80; });
      if (ascii && !extensions.count(ext)) c.problem(tag + "ext " + ext);
      auto note = [&](const char* lead) {
        size_t at = other.find(lead);
        return at == std::string::npos ? "" : other.substr(at, other.find(']', at) + 1 - at);
      };
      if (note("multinames [") != multi || note("multiroots [") != roots ||
          note("attrib list non-resident [") != (base_only ? kNoList : ""))
        c.problem(tag + "other info " + other + ", expected " + multi + " " + roots);
      if (!deleted_paths.empty() && !deleted_paths.count(path)) c.problem(tag + "deleted, path " + path);
      auto m = macb.find({r.cell(i, "date"), r.cell(i, "time-utc")});
      if (m == macb.end() || m->second.empty()) continue;
      ++c.macb_checked;
      if (marks != m->second) c.problem(tag + "MACB " + marks + ", expected " + m->second + " at " + m->first.first);
    }
    for (int pass = 0; pass < 2; ++pass)
      for (const auto& k : pass ? got : expected)
        if (!(pass ? expected : got).count(k))
          c.problem(tag + (pass ? "unexpected row " : "missing row ") + std::get<0>(k) + " | " + std::get<1>(k) +
                    " | " + std::get<2>(k) + " " + std::get<3>(k));
  }
  return c;
}

class SleuthkitFacts : public ::testing::TestWithParam<source_row> {};

TEST_P(SleuthkitFacts, RowsAgree) {
  const source_row& s = GetParam();
  if (std::string(s.image).compare(0, 7, "corpus:") == 0 && fixtures::corpus_dir().empty())
    GTEST_SKIP() << "no ../shared/corpus";
  std::string image = fixtures::image(s.image, s.cut);
  ASSERT_FALSE(image.empty()) << s.image;
  std::string options = s.options, out = fixtures::scratch_dir(std::string("sk_") + s.label) + "/results.txt";
  options.replace(options.find('*'), 1, fixtures::q(image));
  bool csv = options.find(" -csv") != std::string::npos;
  auto run = fixtures::run_brimlock(options + " -out " + fixtures::q(out));
  EXPECT_EQ(run.status, 0) << run.err;
  std::string text = testutil::read_text(out);
  auto rows = fixtures::parse_results(text, csv ? "," : "|");
  const auto& lines = rows.lines;

  // The banner once, the quoted command line, an empty line, then the header; line feeds only.
  ASSERT_GE(lines.size(), 5u) << text.substr(0, 500) << "\nstderr: " << run.err;
  EXPECT_EQ(lines[0], "brimlock ver: " BRIMLOCK_VERSION);
  const std::string& cmd = lines[1];
  EXPECT_TRUE(cmd.compare(0, 5, "\"cmd:") == 0 && cmd.back() == '"' && cmd.find(image) != std::string::npos) << cmd;
  EXPECT_EQ(lines[2], "");
  EXPECT_EQ(text.find('\r'), std::string::npos);
  EXPECT_TRUE(text.back() == '\n' && text.find("ver: " BRIMLOCK_VERSION, 10) == std::string::npos);
  if (csv) {  // no padding; a blank in front of each time cell
    EXPECT_EQ(lines[3],
              "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,date, time-utc,MACB,other info,name,path,"
              "various data types");
    EXPECT_EQ(text.find(" | "), std::string::npos);
    for (size_t i = 0; i < rows.rows.size(); ++i) {
      std::string date = rows.cell(i, "date"), time = rows.cell(i, "time-utc");
      const std::string& line = lines[i + 4];
      EXPECT_TRUE(date.empty() || line.find(", " + date + ", " + time + ",") != std::string::npos) << line;
    }
  } else {  // padded: the separators of the first columns stand where the header has them
    EXPECT_EQ(lines[3].compare(0, 13, "mft entry  | "), 0) << lines[3];
    EXPECT_NE(lines[3].find(" | MACB"), std::string::npos) << lines[3];
    for (size_t i = 4; i < lines.size(); ++i)
      EXPECT_TRUE(lines[i].compare(0, 2, "0x") == 0 && lines[i].compare(10, 3, " | ") == 0) << lines[i];
  }

  auto f = fixtures::load_facts(s.facts);
  ASSERT_FALSE(f.records.empty());
  comparison c = compare(f, rows, options.compare(0, 8, "-mftfile") == 0, csv);
  EXPECT_EQ(c.count, 0) << c.problems;
  EXPECT_GT(c.macb_checked, 0);
  EXPECT_EQ(c.dos_group_seen, c.dos_row_seen) << "no row of a DOS name shows its own fn8.3 marks";
}

INSTANTIATE_TEST_SUITE_P(Sources, SleuthkitFacts, ::testing::ValuesIn(kSources),
                         [](const ::testing::TestParamInfo<source_row>& p) { return std::string(p.param.label); });

}  // namespace
