// The default timeline rows: one row per instant and name, MACB marks, columns and notes.
#include <gtest/gtest.h>

#include <sstream>

#include "results/default_results.h"
#include "results/result_row.h"
#include "tests/results/entry_fixture.h"

using fixture::add_data;
using fixture::add_fn;
using fixture::add_si;
using fixture::k_root;
using fixture::ref;
using fixture::set_header;
using testutil::filetime;

namespace {

const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5);
const std::string T1_CSV = " 2020-01-02, 03:04:05.000";
const std::string CSV_HEADER =
    "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,date, time-utc,MACB,other info,name,path,"
    "various data types";

struct writer_run {
  mft_entries_ctx m_ctx;
  fixture::captured_output m_out;

  void csv() {
    m_ctx.m_fmt_csv = 1;
    m_ctx.set_separator(",", false);
    m_ctx.m_no_whitespace = m_ctx.m_pair_datetime ? 0 : 1;
  }
  void write(entry_record& e) { write_default_results(e, m_out.m_stream, m_ctx); }
  std::vector<std::string> lines() {
    std::vector<std::string> out;
    std::istringstream in(m_out.text());
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
  }
  // Rows without the header line.
  std::vector<std::string> rows() {
    std::vector<std::string> all = lines();
    if (!all.empty()) all.erase(all.begin());
    return all;
  }
};

// A live file 0x2a named a.txt in the root, all eight times equal.
entry_record plain_file(const std::wstring& name = L"a.txt", uint64_t time = T1) {
  entry_record e;
  set_header(e, 0x2a, 3, FR_FLAG_IN_USE);
  add_si(e, time, time, time, time);
  add_fn(e, k_root, name, 1, time, time, time, time);
  e.m_parent_names[k_root].m_path = L"[root]\\";
  return e;
}

std::vector<std::string> cells(const std::string& row) {
  std::vector<std::string> out;
  std::string cell;
  std::istringstream in(row);
  while (std::getline(in, cell, ',')) out.push_back(cell);
  if (!row.empty() && row.back() == ',') out.push_back("");
  return out;
}

}  // namespace

TEST(DefaultRows, EqualTimesGiveOneRowWithAllMarks) {
  writer_run run;
  run.csv();
  entry_record e = plain_file();
  run.write(e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], CSV_HEADER);
  EXPECT_EQ(lines[1], "0x0000002a,3,0x00000005,5,file,txt,1," + T1_CSV + ",si:[macb]; fn:[macb],,a.txt,[root]\\,");
}

TEST(DefaultRows, EightDistinctTimesGiveEightRowsInTimeOrder) {
  writer_run run;
  run.csv();
  entry_record e;
  set_header(e, 0x2a, 3, FR_FLAG_IN_USE);
  // SI: created, modified, changed, accessed; FN likewise, all later than the SI times.
  add_si(e, filetime(2020, 1, 4), filetime(2020, 1, 3), filetime(2020, 1, 2), filetime(2020, 1, 1));
  add_fn(e, k_root, L"a.txt", 1, filetime(2021, 1, 1), filetime(2021, 1, 2), filetime(2021, 1, 3),
         filetime(2021, 1, 4));
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 8u);
  const char* expected[8][2] = {
      {"2020-01-01", "si:[.a..]"}, {"2020-01-02", "si:[..c.]"}, {"2020-01-03", "si:[m...]"},
      {"2020-01-04", "si:[...b]"}, {"2021-01-01", "fn:[...b]"}, {"2021-01-02", "fn:[m...]"},
      {"2021-01-03", "fn:[..c.]"}, {"2021-01-04", "fn:[.a..]"},
  };
  for (size_t i = 0; i < 8; ++i) {
    std::vector<std::string> c = cells(rows[i]);
    ASSERT_GE(c.size(), 12u);
    EXPECT_EQ(c[7], std::string(" ") + expected[i][0]) << i;
    EXPECT_EQ(c[9], expected[i][1]) << i;
  }
}

TEST(DefaultRows, DosNamesGetTheirOwnRowsUnlessHidden) {
  entry_record e;
  set_header(e, 0x40, 1, FR_FLAG_IN_USE);
  add_si(e, T1, T1, T1, T1);
  const uint64_t later = filetime(2021, 5, 6);
  add_fn(e, k_root, L"LongName.txt", 1, T1, T1, T1, T1);
  add_fn(e, k_root, L"LONGNA~1.TXT", 2, later, later, later, later);
  e.m_parent_names[k_root].m_path = L"[root]\\";

  writer_run run;
  run.csv();
  run.write(e);
  std::vector<std::string> rows = run.rows();
  // T1: the long name (SI and FN marks) and the DOS name (which also brings the SI times);
  // later: the DOS name's own times.
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(cells(rows[0])[9], "si:[macb]; fn:[macb]");
  EXPECT_EQ(cells(rows[0])[11], "LongName.txt");
  EXPECT_EQ(cells(rows[1])[4], "file (FN 8.3)");
  EXPECT_EQ(cells(rows[1])[9], "si:[macb]");
  EXPECT_EQ(cells(rows[1])[11], "LONGNA~1.TXT");
  EXPECT_EQ(cells(rows[2])[9], "fn8.3[macb]");
  EXPECT_EQ(cells(rows[2])[5], "txt");

  writer_run hidden;
  hidden.csv();
  hidden.m_ctx.m_hide_dos_fntimes = 1;
  hidden.write(e);
  rows = hidden.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(cells(rows[0])[11], "LongName.txt");

  // With only a short name, hiding it hides the standard information times as well.
  entry_record dos_only;
  set_header(dos_only, 0x41, 1, FR_FLAG_IN_USE);
  add_si(dos_only, T1, T1, T1, T1);
  add_fn(dos_only, k_root, L"ABC~1.TXT", 2, T1, T1, T1, T1);
  writer_run hidden2;
  hidden2.csv();
  hidden2.m_ctx.m_hide_dos_fntimes = 1;
  hidden2.write(dos_only);
  EXPECT_TRUE(hidden2.rows().empty());
}

TEST(DefaultRows, TypeAndExtensionFollowTheRecord) {
  writer_run run;
  run.csv();
  entry_record dir = plain_file(L"photos.old");
  set_header(dir, 0x2a, 4, FR_FLAG_DIRECTORY);  // deleted directory
  run.write(dir);
  entry_record upper = plain_file(L"REPORT.Tar.GZ");
  run.write(upper);
  entry_record bare = plain_file(L"Makefile");
  run.write(bare);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(cells(rows[0])[4], "del");
  EXPECT_EQ(cells(rows[0])[5], "none");
  EXPECT_EQ(cells(rows[1])[4], "file");
  EXPECT_EQ(cells(rows[1])[5], "gz");
  EXPECT_EQ(cells(rows[2])[5], "none");

  writer_run unalloc;
  unalloc.csv();
  unalloc.m_ctx.m_unalloc_pass = 1;
  entry_record live = plain_file();
  unalloc.write(live);
  EXPECT_EQ(cells(unalloc.rows()[0])[4], "unalloc");
}

TEST(DefaultRows, PaddedLayoutAndPairedCsv) {
  writer_run run;  // no format option: " | " and padding
  entry_record e = plain_file();
  run.write(e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("mft entry  | mft seqnum | parent mft | par seqnum | type    | ext       | ref | "
                           "date       |  time-utc     | MACB ",
                           0),
            0u)
      << lines[0];
  EXPECT_EQ(lines[1].rfind("0x0000002a |          3 | 0x00000005 |          5 | file    | txt       |   1 |  "
                           "2020-01-02 |  03:04:05.000 | si:[macb]; fn:[macb]",
                           0),
            0u)
      << lines[1];

  writer_run paired;
  paired.m_ctx.m_pair_datetime = 1;
  paired.csv();  // -csv keeps the padding when the date and time are paired
  paired.write(e);
  lines = paired.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(", date/time-utc          ,MACB"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[1].substr(0, 11), "0x0000002a,");
  EXPECT_NE(lines[1].find(",         3,"), std::string::npos);
  EXPECT_NE(lines[1].find(", 2020-01-02 03:04:05.000,"), std::string::npos);
}

TEST(DefaultRows, Base10AndCommaInNameAndUndisplayableTime) {
  writer_run run;
  run.csv();
  run.m_ctx.m_hex_numbers = 0;
  entry_record e = plain_file(L"a,b.txt");
  e.m_std_infos.clear();
  add_si(e, filetime(1899, 6, 1), T1, T1, T1);
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0], "42,3,5,5,file,txt,1, , ,si:[...b],,a b.txt,[root]\\,");
  EXPECT_EQ(rows[1].substr(0, 20), "42,3,5,5,file,txt,1,");
  EXPECT_EQ(cells(rows[1])[9], "si:[mac.]; fn:[macb]");
}

TEST(DefaultRows, RecordWithoutNamesBecomesAStub) {
  writer_run run;
  run.csv();
  entry_record e;
  set_header(e, 0x2b, 2, FR_FLAG_IN_USE);
  add_si(e, T1, T1, T1, T1);
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0], "0x0000002b,2,0xffffffffffff,65535,file,none,1," + T1_CSV +
                         ",si:[macb],,<no filename attribute>,<no path>,");
}

TEST(DefaultRows, ExtensionRecordsAndRecordsWithoutStandardInformationWriteNoRow) {
  writer_run run;
  run.csv();
  entry_record ext = plain_file();
  ext.m_is_extension = true;
  ext.m_base_ref = ref(0x20, 1);
  run.write(ext);
  entry_record no_si = plain_file();
  no_si.m_std_infos.clear();
  run.write(no_si);
  EXPECT_TRUE(run.rows().empty());
}

TEST(DefaultRows, HeaderOnceAndHashColumns) {
  writer_run run;
  run.csv();
  run.m_ctx.m_hash_md5 = run.m_ctx.m_hash_sha1 = run.m_ctx.m_hash_sha256 = 1;
  entry_record e = plain_file();
  e.m_has_md5 = true;
  for (size_t i = 0; i < 16; ++i) e.m_md5[i] = uint8_t(i * 17);
  e.m_has_sha1 = true;  // computed but all zero: not shown
  run.write(e);
  entry_record f = plain_file(L"b.txt");
  run.write(f);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_NE(lines[0].find(",other info,MD5 hash,SHA1 hash,SHA1 hash,name,"), std::string::npos);
  std::vector<std::string> c = cells(lines[1]);
  EXPECT_EQ(c[11], "00112233445566778899aabbccddeeff");
  EXPECT_EQ(c[12], "");
  EXPECT_EQ(c[13], "");
  EXPECT_EQ(c[14], "a.txt");
  EXPECT_EQ(cells(lines[2])[11], "");
}

TEST(DefaultRows, OtherInfoItemsInTheirOrder) {
  writer_run run;
  run.csv();
  run.m_ctx.m_show_record_offset = 1;
  entry_record e = plain_file();
  const uint64_t docs = ref(0x30, 2);
  add_fn(e, docs, L"a2.txt", 1, T1, T1, T1, T1);
  e.m_parent_names[docs].m_path = L"[root]\\docs\\";
  e.m_reparse_targets[make_attrib_key(0xC0, 5)] = L"\\??\\C:\\target";
  e.m_attrib_list_nonresident = true;
  e.m_has_time_warning = true;
  e.m_time_warning = "**:time warning";
  e.m_record_offset = 0xA800;
  e.m_filter_ext = true;
  e.m_filter_ext_text = L"txt";
  e.m_filter_name = true;
  e.m_filter_name_text = L"a";
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 2u);  // one per parent
  const std::string other =
      "multinames [2]; multiroots [2]; symlink: [\\??\\C:\\target]; attrib list non-resident [not avail for "
      "parsing w/o image]; **:time warning; filerecord: 0x0000a800; ext(txt); name(a)";
  // Parents in the order of their whole references: sequence 2 before sequence 5.
  EXPECT_EQ(cells(rows[0])[10], other);
  EXPECT_EQ(cells(rows[0])[11], "a2.txt");
  EXPECT_EQ(cells(rows[0])[2], "0x00000030");
  EXPECT_EQ(cells(rows[0])[3], "2");
  EXPECT_EQ(cells(rows[0])[12], "[root]\\docs\\");
  EXPECT_EQ(cells(rows[1])[11], "a.txt");
  EXPECT_EQ(cells(rows[1])[10], other);
}

TEST(DefaultRows, NamesHeldInAnExtensionRecordFormTheirOwnTimeline) {
  writer_run run;
  run.csv();
  entry_record e = plain_file();
  add_fn(e, k_root, L"b.txt", 1, T1, T1, T1, T1, 0x77);
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 2u);  // the same instant twice: one per referring record
  EXPECT_EQ(cells(rows[0])[11], "a.txt");
  EXPECT_EQ(cells(rows[0])[10], "multinames [2]");
  EXPECT_EQ(cells(rows[1])[11], "b.txt");
  EXPECT_EQ(cells(rows[1])[10], "multinames [2]; refinode [0x00000077]");
}

TEST(DefaultRows, SummaryOfDataAttributes) {
  entry_record e = plain_file();
  attrib_item& data = add_data(e, 1, L"", 0x1234, true);
  run_entry r1;
  r1.m_lcn = 0x100;
  r1.m_count = 2;
  run_entry r2;
  r2.m_vcn = 2;
  r2.m_count = 3;
  r2.m_is_sparse = true;
  data.m_runs = {r1, r2};
  add_data(e, 2, L"Zone.Identifier", 26);
  add_data(e, 3, L"empty", 0);
  orv::put_le64(e.m_header.data() + FR_LSN, 0xff);
  orv::put_le32(e.m_std_infos.begin()->second.m_value.data() + 52, 0x102);

  writer_run run;
  run.csv();
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(cells(rows[0])[13], "[unnamed data : sz: 0x1234]; [Zone.Identifier : ads : sz: 0x001a]; "
                                "[logfile_seqnum: 0x0000ff]; [security_id: 0x0102]");

  writer_run clusters;
  clusters.csv();
  clusters.m_ctx.m_include_clusterinfo = 1;
  clusters.m_ctx.m_metadata_only = 0;
  clusters.write(e);
  std::vector<std::string> lines = clusters.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0],
            "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,size data,date, time-utc,MACB,data type,"
            "other info,name,path,clusters/relevant data");
  std::vector<std::string> c = cells(lines[1]);
  EXPECT_EQ(c[7], "0x00000000");
  EXPECT_EQ(c[11], "");
  EXPECT_EQ(c[15].substr(0, 88),
            "[unnamed data : sz: 0x1234 : start cluster/count: 0x000100/2 : 0x000000/3 [sparse] : ]; ");
}

TEST(DefaultRows, TimeWindowDropsInstantsOutsideIt) {
  writer_run run;
  run.csv();
  entry_record e;
  set_header(e, 0x2a, 3, FR_FLAG_IN_USE);
  add_si(e, filetime(2019, 1, 1), filetime(2020, 6, 1), filetime(2020, 6, 1), filetime(2022, 1, 1));
  add_fn(e, k_root, L"a.txt", 1, filetime(2019, 1, 1), filetime(2019, 1, 1), filetime(2019, 1, 1),
         filetime(2019, 1, 1));
  run.m_ctx.m_filter_start_time = filetime(2020, 1, 1);
  run.m_ctx.m_filter_stop_time = filetime(2020, 12, 31);
  run.write(e);
  std::vector<std::string> rows = run.rows();
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(cells(rows[0])[9], "si:[m.c.]");
}

TEST(DefaultRows, QuotedFieldsWrapTextAndKeepSeparators) {
  writer_run run;
  run.csv();
  run.m_ctx.m_quoted_fields = 1;
  run.m_ctx.m_replace_char = 0;
  run.m_ctx.m_blank_before_time = 0;
  entry_record e = plain_file(L"x,y.txt");
  run.write(e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], "\"0x0000002a\",3,0x00000005,5,\"file\",\"txt\",1,2020-01-02,03:04:05.000,"
                      "\"si:[macb]; fn:[macb]\",\"\",\"x,y.txt\",\"[root]\\\",\"\"");
}
