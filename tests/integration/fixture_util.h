#pragma once
// Fixtures of the integration tests: the committed images (tests/fixtures/data/*.gz) decompressed
// into BRIMLOCK_WORK_DIR on first use, the facts that sleuthkit read from them, running the
// binary and reading its results files. Everything an integration test includes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/test_util.h"

namespace fixtures {

// Path of the decompressed fixture `name` (e.g. "feature.img"), "" when not in the repository.
std::string path(const std::string& name);
// The shared sample disks written by Windows (../shared/corpus, $BRIMLOCK_CORPUS_DIR) or "".
std::string corpus_dir();
// The image a test table names: a fixture, cut to `cut` bytes unless 0, or "corpus:" and a file
// of the shared sample disks (a decompressed copy). "" when missing.
std::string image(const std::string& which, uint64_t cut = 0);
// Directory for scratch files of one test (created, emptied first).
std::string scratch_dir(const std::string& tag);

std::string q(const std::string& text);  // shell quoting
testutil::run_result run_brimlock(const std::string& args);
uint64_t parse_number(const std::string& cell);  // "0x0000002a" or "42"

// A record: its attribute list "none", "resident" or "nonresident"; its $STANDARD_INFORMATION
// times created, modified, mft modified, accessed, each "-" when zero, "absent" without one.
struct fact_record { uint64_t inode = 0; uint16_t seq = 0; bool allocated = false, directory = false;
                     uint32_t links = 0; std::string attrlist; bool extension = false; std::string si[4];
                     bool si_present = false; };
// A name of base record `inode` held by record `holder`; name space 0 POSIX, 1 Win32, 2 DOS, 3 both.
struct fact_name { uint64_t inode = 0, holder = 0, parent = 0; uint16_t parent_seq = 0; int name_space = 0;
                   std::string name, fn[4]; };

// A path as fls -r -p prints it ("dir/sub/name", kind 'd' for a directory); an icat address and
// the md5 of its content; a row of mmls.
struct fact_path { uint64_t inode = 0; bool allocated = false; char kind = 'r'; std::string path; };
struct fact_md5 { std::string address, path, md5; };
struct fact_part { std::string slot, description; uint64_t start = 0; };
// Security id and owner SID of a record as istat prints them (SID empty when istat names none).
struct fact_owner { uint32_t security_id = 0; std::string sid; };

struct facts {
  std::map<std::string, std::string> info;
  std::map<uint64_t, fact_record> records;
  std::vector<fact_name> names;
  std::vector<fact_path> paths;
  std::vector<fact_md5> md5s;
  std::vector<fact_md5> damaged;  // md5 of what our copy gives before it stops with failure
  std::vector<fact_part> parts;
  std::map<uint64_t, fact_owner> owners;  // by record number

  std::vector<const fact_name*> names_of(uint64_t inode) const;
  // Path of an allocated directory as fls prints it ("" for the root), or false.
  bool dir_path(uint64_t inode, std::string& out) const;
};
facts load_facts(const std::string& name);  // e.g. "feature.facts.tsv"

// One results file: the lines after the preamble (banner, command line, empty line) are the
// header and the rows; `separator` is "," for -csv, "|" for the default layout. Cells trimmed.
struct results {
  std::vector<std::string> lines, header;
  std::vector<std::vector<std::string>> rows;
  std::string cell(size_t row, const std::string& name) const;
};
// "YYYY-MM-DD hh:mm:ss.fffffff" -> the date and time cells at millisecond precision, both empty
// when the instant is not displayable (year outside 1900..3000, or the first second of 1970).
// False for "-" and "absent".
bool ms_cells(const std::string& t7, std::string& date, std::string& time);
// The same instant in whole seconds since 1970 (negative before it); 0 for "-".
int64_t unix_seconds(const std::string& t7);

results parse_results(const std::string& text, const std::string& separator, size_t preamble_lines = 3);

// The binary run with `args` and "-out" a file in the scratch directory of `tag`: the run, its
// results read back ("," for -csv) and the record numbers in their "mft entry" cells.
struct rows_run { testutil::run_result run; results rows; std::set<uint64_t> records; };
rows_run run_rows(const std::string& tag, const std::string& args, const std::string& separator = ",");

}  // namespace fixtures
