// The default timeline rows: one row per instant and name, MACB marks, columns and notes.
#include <gtest/gtest.h>

#include <sstream>

#include "results/orv_default_results.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;
using testutil::filetime;

namespace {

const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5);

struct writer_run {
  mft_entries_ctx m_ctx;
  captured_output m_out;
  explicit writer_run(bool csv = true) {
    if (!csv) return;
    m_ctx.m_fmt_csv = 1;
    m_ctx.set_separator(",", false);
    m_ctx.m_no_whitespace = 1;
  }
  void write(entry_record& e) { write_default_results(e, m_out.m_stream, m_ctx); }
  std::vector<std::string> lines() {
    std::vector<std::string> out;
    std::istringstream in(m_out.text());
    for (std::string line; std::getline(in, line);) out.push_back(line);
    return out;
  }
  // The cells of every row, header left out.
  std::vector<std::vector<std::string>> rows() {
    std::vector<std::vector<std::string>> out;
    std::vector<std::string> all = lines();
    for (size_t i = 1; i < all.size(); ++i) {
      out.emplace_back();
      std::istringstream in(all[i] + ",");
      for (std::string cell; std::getline(in, cell, ',');) out.back().push_back(cell);
    }
    return out;
  }
};

// A live file 0x2a under the root, all eight times equal.
entry_record plain_file(const std::wstring& name = L"a.txt", uint16_t flags = FR_FLAG_IN_USE) {
  entry_record e;
  set_header(e, 0x2a, 3, flags);
  add_si(e, T1, T1, T1, T1);
  add_fn(e, k_root, name, 1, T1, T1, T1, T1);
  e.m_parent_names[k_root].m_path = L"[root]\\";
  return e;
}

}  // namespace

TEST(DefaultRows, EqualTimesGiveOneRow) {
  writer_run run;
  entry_record e = plain_file();
  run.write(e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0], "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,date, time-utc,MACB,other info,name,"
                      "path,various data types");
  EXPECT_EQ(lines[1], "0x0000002a,3,0x00000005,5,file,txt,1, 2020-01-02, 03:04:05.000,si:[macb]; fn:[macb],,a.txt,"
                      "[root]\\,");
}

TEST(DefaultRows, DistinctTimesComeInTimeOrder) {
  writer_run run;
  entry_record e;
  set_header(e, 0x2a, 3, FR_FLAG_IN_USE);
  add_si(e, filetime(2020, 1, 4), filetime(2020, 1, 3), filetime(2020, 1, 2), filetime(2020, 1, 1));
  add_fn(e, k_root, L"a", 1, filetime(2021, 1, 1), filetime(2021, 1, 2), filetime(2021, 1, 3), 0);
  run.write(e);
  auto rows = run.rows();
  ASSERT_EQ(rows.size(), 7u);  // a zero time is no instant
  const char* expected[7] = {"si:[.a..]", "si:[..c.]", "si:[m...]", "si:[...b]", "fn:[...b]", "fn:[m...]", "fn:[..c.]"};
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(rows[i][9], expected[i]) << i;
  EXPECT_EQ(rows[0][7], " 2020-01-01");
  EXPECT_EQ(rows[6][7], " 2021-01-03");

  writer_run window;  // instants outside -filter_start_time .. -filter_stop_time give no row
  window.m_ctx.m_filter_start_time = filetime(2020, 1, 2);
  window.m_ctx.m_filter_stop_time = filetime(2020, 1, 3);
  window.write(e);
  ASSERT_EQ(window.rows().size(), 2u);
  EXPECT_EQ(window.rows()[1][9], "si:[m...]");
}

TEST(DefaultRows, DosNamesGetTheirOwnRowsUnlessHidden) {
  entry_record e = plain_file(L"LongName.txt");
  const uint64_t later = filetime(2021, 5, 6);
  add_fn(e, k_root, L"LONGNA~1.TXT", 2, later, later, later, later);

  writer_run run;
  run.write(e);
  auto rows = run.rows();
  // T1: the long name, then the short one, which brings the SI times too; later: the short one.
  ASSERT_EQ(rows.size(), 3u);
  EXPECT_EQ(rows[0][11], "LongName.txt");
  EXPECT_EQ(rows[1][4], "file (FN 8.3)");
  EXPECT_EQ(rows[1][9], "si:[macb]");
  EXPECT_EQ(rows[1][11], "LONGNA~1.TXT");
  EXPECT_EQ(rows[2][9], "fn8.3[macb]");

  writer_run hidden;
  hidden.m_ctx.m_hide_dos_fntimes = 1;
  hidden.write(e);
  ASSERT_EQ(hidden.rows().size(), 1u);

  // A record known only by its short name loses its standard information rows with it.
  entry_record dos_only = plain_file(L"ABC~1.TXT");
  dos_only.m_file_names.begin()->second.m_is_dos_name = true;
  hidden.write(dos_only);
  EXPECT_EQ(hidden.rows().size(), 1u);
}

TEST(DefaultRows, TypeExtensionAndNumbers) {
  writer_run run;
  run.m_ctx.m_hex_numbers = 0;
  entry_record dir = plain_file(L"photos.old", FR_FLAG_DIRECTORY);  // a deleted directory
  entry_record upper = plain_file(L"REPORT.Tar.GZ");
  entry_record bare = plain_file(L"Make,file");
  upper.m_std_infos.clear();
  add_si(upper, filetime(1899, 6, 1), T1, T1, T1);
  for (entry_record* e : {&dir, &upper, &bare}) run.write(*e);
  auto rows = run.rows();
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[0][4], "del");
  EXPECT_EQ(rows[0][5], "none");
  EXPECT_EQ(rows[0][0], "42");  // -base10: entry and parent decimal too
  EXPECT_EQ(rows[0][2], "5");
  // A time outside 1900..3000 prints blank, and its row stays.
  EXPECT_EQ(rows[1][5], "gz");
  EXPECT_EQ(rows[1][7], " ");
  EXPECT_EQ(rows[1][9], "si:[...b]");
  EXPECT_EQ(rows[3][5], "none");
  EXPECT_EQ(rows[3][11], "Make file");  // the comma of a -csv run gives way to a blank

  writer_run unalloc;
  unalloc.m_ctx.m_unalloc_pass = 1;
  unalloc.write(bare);
  EXPECT_EQ(unalloc.rows()[0][4], "unalloc");
}

TEST(DefaultRows, PaddedLayoutAndPairedCsv) {
  writer_run run(false);
  entry_record e = plain_file();
  run.write(e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("mft entry  | mft seqnum | parent mft | par seqnum | type    | ext       | ref | "
                           "date       |  time-utc     | MACB ", 0), 0u) << lines[0];
  EXPECT_EQ(lines[1].rfind("0x0000002a |          3 | 0x00000005 |          5 | file    | txt       |   1 |  "
                           "2020-01-02 |  03:04:05.000 | si:[macb]; fn:[macb]", 0), 0u) << lines[1];

  writer_run paired(false);
  paired.m_ctx.m_pair_datetime = 1;
  paired.m_ctx.m_fmt_csv = 1;
  paired.m_ctx.set_separator(",", false);  // -csv keeps the padding when the times are paired
  paired.write(e);
  lines = paired.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(",ref, date/time-utc          ,MACB"), std::string::npos) << lines[0];
  EXPECT_NE(lines[1].find(",         3,"), std::string::npos);
  EXPECT_NE(lines[1].find(", 2020-01-02 03:04:05.000,"), std::string::npos);
}

TEST(DefaultRows, StubsAndRecordsWithoutRows) {
  writer_run run;
  entry_record stub = plain_file();
  stub.m_file_names.clear();
  stub.m_parent_names.clear();
  entry_record extension = plain_file();
  extension.m_is_extension = true;
  extension.m_base_ref = ref(0x20, 1);
  entry_record no_si = plain_file();
  no_si.m_std_infos.clear();
  for (entry_record* e : {&stub, &extension, &no_si}) run.write(*e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], "0x0000002a,3,0xffffffffffff,65535,file,none,1, 2020-01-02, 03:04:05.000,si:[macb],,"
                      "<no filename attribute>,<no path>,");
}

TEST(DefaultRows, HashColumnsAndHeaderOnce) {
  writer_run run;
  run.m_ctx.m_hash_md5 = run.m_ctx.m_hash_sha1 = run.m_ctx.m_hash_sha256 = 1;
  entry_record e = plain_file();
  e.m_has_md5 = true;
  for (size_t i = 0; i < 16; ++i) e.m_md5[i] = uint8_t(i * 17);
  e.m_has_sha1 = true;  // computed but all zero: not shown
  run.write(e);
  run.write(e);
  std::vector<std::string> lines = run.lines();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_NE(lines[0].find(",other info,MD5 hash,SHA1 hash,SHA1 hash,name,"), std::string::npos);
  auto rows = run.rows();
  EXPECT_EQ(rows[0][11], "00112233445566778899aabbccddeeff");
  EXPECT_EQ(rows[0][12], "");
  EXPECT_EQ(rows[0][14], "a.txt");
}

TEST(DefaultRows, OtherInfoItemsInTheirOrder) {
  writer_run run;
  run.m_ctx.m_show_record_offset = 1;
  entry_record e = plain_file();
  const uint64_t docs = ref(0x30, 2);
  add_fn(e, docs, L"a2.txt", 1, T1, T1, T1, T1);
  e.m_parent_names[docs].m_path = L"[root]\\docs\\";
  add_fn(e, k_root, L"b.txt", 1, T1, T1, T1, T1, 0x77);  // held by an extension record
  e.m_reparse_targets[make_attrib_key(0xC0, 5)] = L"\\??\\C:\\target";
  e.m_attrib_list_nonresident = true;
  e.m_has_time_warning = true;
  e.m_time_warning = "**:time warning";
  e.m_record_offset = 0xA800;
  e.m_filter_ext = e.m_filter_name = true;
  e.m_filter_ext_text = L"txt";
  e.m_filter_name_text = L"a";
  run.write(e);
  auto rows = run.rows();
  // Parents in the order of their whole references (sequence 2 first); under the root the
  // name of the extension record forms a timeline of its own.
  ASSERT_EQ(rows.size(), 3u);
  const std::string head = "multinames [3]; multiroots [2]; symlink: [\\??\\C:\\target]";
  const std::string tail = "attrib list non-resident [not avail for parsing w/o image]; **:time warning; "
                           "filerecord: 0x0000a800; ext(txt); name(a)";
  EXPECT_EQ(rows[0][11], "a2.txt");
  EXPECT_EQ(rows[0][2] + "/" + rows[0][3], "0x00000030/2");
  EXPECT_EQ(rows[0][12], "[root]\\docs\\");
  EXPECT_EQ(rows[0][10], head + "; " + tail);
  EXPECT_EQ(rows[1][11], "a.txt");
  EXPECT_EQ(rows[2][11], "b.txt");
  EXPECT_EQ(rows[2][10], head + "; refinode [0x00000077]; " + tail);
}

TEST(DefaultRows, SummaryOfDataAttributes) {
  entry_record e = plain_file();
  attrib_item& data = add_data(e, 1, L"", 0x1234, true);
  data.m_runs.resize(2);
  data.m_runs[0].m_lcn = 0x100;
  data.m_runs[0].m_count = 2;
  data.m_runs[1].m_count = 3;
  data.m_runs[1].m_is_sparse = true;
  add_data(e, 2, L"Zone.Identifier", 26);
  add_data(e, 3, L"empty", 0);
  orv::put_le64(e.m_header.data() + FR_LSN, 0xff);
  orv::put_le32(e.m_std_infos.begin()->second.m_value.data() + 52, 0x102);

  writer_run run;
  run.write(e);
  EXPECT_EQ(run.rows()[0][13], "[unnamed data : sz: 0x1234]; [Zone.Identifier : ads : sz: 0x001a]; "
                               "[logfile_seqnum: 0x0000ff]; [security_id: 0x0102]");

  writer_run clusters;
  clusters.m_ctx.m_include_clusterinfo = 1;
  clusters.m_ctx.m_metadata_only = 0;
  clusters.write(e);
  EXPECT_EQ(clusters.lines()[0], "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,size data,date, time-utc,"
                                 "MACB,data type,other info,name,path,clusters/relevant data");
  auto row = clusters.rows()[0];
  EXPECT_EQ(row[7], "0x00000000");
  EXPECT_EQ(row[11], "");
  EXPECT_EQ(row[15].rfind("[unnamed data : sz: 0x1234 : start cluster/count: 0x000100/2 : 0x000000/3 [sparse] : ]; ", 0),
            0u);
}
