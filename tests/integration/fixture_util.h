#pragma once
// Fixture access for the integration tests: the committed images (tests/fixtures/data/*.gz) are
// decompressed into BRIMLOCK_WORK_DIR on first use, and the facts files that sleuthkit
// produced about them are loaded into plain structures. Also: running the binary and reading
// the rows of a results file.
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "tests/test_util.h"

namespace fixtures {

// Path of the decompressed fixture `name` (for example "feature.img"), or "" when the
// compressed file is not in the repository. Decompressed once per process.
std::string path(const std::string& name);

// Directory for scratch files of one test (created, emptied first).
std::string scratch_dir(const std::string& tag);

// Copy of the decompressed fixture `name`, cut to `size` bytes, in the scratch area.
std::string truncated_copy(const std::string& name, uint64_t size);

// The shared sample disks written by Windows; "" when the directory is absent.
std::string corpus_dir();
// Decompressed copy of a corpus file (e.g. "ntfs-ptrn.raw"), made once, or "" when absent.
std::string corpus_image(const std::string& name);

// Runs the real binary with `args` (already shell-quoted where needed).
testutil::run_result run_brimlock(const std::string& args);
std::string q(const std::string& text);  // shell quoting

struct fact_record {
  uint64_t inode = 0;
  uint16_t seq = 0;
  bool allocated = false;
  bool directory = false;
  uint32_t links = 0;
  std::string attrlist;  // "none", "resident", "nonresident"
  bool extension = false;
  uint64_t base = 0;
  std::string si[4];  // created, modified, mft modified, accessed; "-" when zero
  bool has_si() const { return si[0] != "-" || si[1] != "-" || si[2] != "-" || si[3] != "-" || si_present; }
  bool si_present = false;
};

struct fact_name {
  uint64_t inode = 0;   // base record
  uint64_t holder = 0;  // record that holds the attribute
  uint64_t parent = 0;
  uint16_t parent_seq = 0;
  int name_space = 0;  // 0 POSIX, 1 Win32, 2 DOS, 3 Win32 and DOS
  std::string name;
  std::string fn[4];
};

struct fact_path {
  uint64_t inode = 0;
  bool allocated = false;
  char kind = 'r';
  std::string path;  // as fls -r -p prints it: "dir/sub/name" or "dir/name:stream"
};

struct fact_md5 {
  std::string address;  // inode or inode-type-id as icat takes it
  std::string path;
  std::string md5;
};

struct fact_part {
  std::string slot;
  uint64_t start = 0;
  uint64_t length = 0;
  std::string description;
};

struct facts {
  std::map<std::string, std::string> info;
  std::map<uint64_t, fact_record> records;
  std::vector<fact_name> names;
  std::vector<fact_path> paths;
  std::vector<fact_md5> md5s;
  std::vector<fact_part> parts;

  std::vector<const fact_name*> names_of(uint64_t inode) const;
  // Path of an allocated directory as fls prints it ("" for the root), or false.
  bool dir_path(uint64_t inode, std::string& out) const;
};

// Loads a facts file of tests/fixtures/data (for example "feature.facts.tsv").
facts load_facts(const std::string& name);

// "YYYY-MM-DD hh:mm:ss.fffffff" -> the date and time cells of a default row at millisecond
// precision ("YYYY-MM-DD", "hh:mm:ss.mmm"), both empty when the instant is not displayable
// (year outside 1900..3000, or within the first second of 1970). False for "-".
bool ms_cells(const std::string& t7, std::string& date, std::string& time);

// One parsed results file.
struct results {
  std::vector<std::string> lines;
  std::vector<std::string> header;  // trimmed column names
  std::vector<std::vector<std::string>> rows;
  int col(const std::string& name) const;  // index or -1
  std::string cell(size_t row, const std::string& name) const;
};
// Splits the lines after the banner, the command line and the empty line: header then rows.
// `separator` is "," for -csv and " | " for the default layout; cells are trimmed of blanks.
results parse_results(const std::string& text, const std::string& separator, size_t preamble_lines = 3);
// Rows of the default layout when written to standard output: no banner in the text itself.

// (name, path, date, time) of one row.
using row_key = std::tuple<std::string, std::string, std::string, std::string>;

// The rows that a record of the facts should produce in the default timeline: one per name
// and distinct instant of its $STANDARD_INFORMATION and $FILE_NAME times. `name_filter`
// decides which names count (e.g. only those held in the base record).
std::set<row_key> expected_rows(const facts& f, uint64_t inode, bool only_base_names = false);

// Expected path cell for a parent directory reference: "[root]\a\b\".
std::string expected_parent_path(const facts& f, uint64_t parent);

// Compares the rows of a default-layout results file (-csv or " | ") with the facts of the
// volume. Returns the disagreements, empty when all agree:
// - allocated base records with $STANDARD_INFORMATION: the set of (name, path, date, time) of
//   their rows equals expected_rows (names held in extension records only count when the
//   source can reach them: not for a non-resident attribute list of an extracted $MFT);
// - deleted records: the same set without the path column;
// - extension records and records without $STANDARD_INFORMATION: no rows at all;
// - every row: sequence number, link count and type agree with the record, and it belongs to
//   a record of the facts.
struct compare_options {
  bool extracted_mft = false;  // the source was -mftfile
  bool csv = true;             // separator "," (else " | ")
};
std::vector<std::string> compare_rows(const facts& f, const results& r, const compare_options& o);
// Lines joined with line feeds, for failure messages.
std::string join_lines(const std::vector<std::string>& lines);

// One run of the binary with its results written to a file in the scratch area.
struct run_output {
  testutil::run_result run;
  std::string text;
  results rows;
};
run_output run_to_file(const std::string& tag, const std::string& args, bool csv);

// Numbers of the "mft entry" column: "0x0000002a" or "42".
uint64_t parse_number(const std::string& cell);
// Text as the writer puts it in a cell: the separator character replaced.
std::string cell_text(const std::string& text, bool csv);

}  // namespace fixtures
