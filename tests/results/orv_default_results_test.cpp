// The default timeline rows: their order, the options that change them, the other info items and
// the data summary. (Rows of real volumes: integration/sleuthkit_test.cpp.)
#include <gtest/gtest.h>

#include "results/orv_default_results.h"
#include "tests/results/entry_fixture.h"

using namespace fixture;
using testutil::filetime;

namespace {

const uint64_t T1 = filetime(2020, 1, 2, 3, 4, 5), T2 = filetime(2021, 5, 6);

// Every line of a -csv run as `tweak` leaves its options, the header first.
std::vector<std::string> lines(std::initializer_list<entry_record*> entries,
                               void (*tweak)(mft_entries_ctx&) = nullptr) {
  mft_entries_ctx options;
  options.m_fmt_csv = options.m_no_whitespace = 1;
  options.set_separator(",", false);
  if (tweak) tweak(options);
  return written(options, entries, write_default_results);
}

// Cells of the rows, header left out: column `column` of every row joined by "|".
std::string column(const std::vector<std::string>& all, size_t column) {
  std::string joined;
  for (size_t i = 1; i < all.size(); ++i) {
    std::vector<std::string> cells = orv::split(all[i], ",", false);
    joined += (i > 1 ? "|" : "") + (column < cells.size() ? cells[column] : "?");
  }
  return joined;
}

// A live file 0x2a under the root, all eight times equal.
entry_record plain_file(const std::wstring& name = L"a.txt") {
  entry_record e;
  set_header(e, 0x2a, 3, FR_FLAG_IN_USE);
  add_si(e, T1, T1, T1, T1);
  add_fn(e, k_root, name, 1, T1, T1, T1, T1);
  set_path(e, k_root, L"[root]\\");
  return e;
}

}  // namespace

TEST(DefaultRows, TimeOrderNumbersPairedCellsAndDosNames) {
  entry_record times;
  add_si(times, filetime(2020, 1, 4), filetime(2020, 1, 3), filetime(2020, 1, 2), filetime(2020, 1, 1));
  add_fn(times, k_root, L"a", 1, filetime(2021, 1, 1), filetime(2021, 1, 2), filetime(2021, 1, 3), 0);
  std::vector<std::string> all = lines({&times});  // a zero time is no instant
  EXPECT_EQ(column(all, 9), "si:[.a..]|si:[..c.]|si:[m...]|si:[...b]|fn:[...b]|fn:[m...]|fn:[..c.]");
  entry_record upper = plain_file(L"REPORT.Tar.GZ");
  all = lines({&upper}, [](mft_entries_ctx& o) { o.m_hex_numbers = 0; });
  EXPECT_EQ(column(all, 0) + " " + column(all, 2) + " " + column(all, 5), "42 5 gz");
  all = lines({&upper}, [](mft_entries_ctx& o) { o.m_pair_datetime = 1, o.m_no_whitespace = 0; });
  EXPECT_NE(all.at(0).find(",ref, date/time-utc          ,MACB"), std::string::npos);  // -csv keeps the padding
  EXPECT_NE(all.at(1).find(",  1, 2020-01-02 03:04:05.000,"), std::string::npos) << all[1];

  // -hide_dos_fntimes: a DOS name's rows go, and a record named by a DOS name alone loses its
  // standard information rows too.
  entry_record e = plain_file(L"LongName.txt"), dos_only = plain_file(L"ABC~1.TXT");
  add_fn(e, k_root, L"LONGNA~1.TXT", 2, T2, T2, T2, T2);
  dos_only.m_file_names.begin()->second.m_is_dos_name = true;
  EXPECT_EQ(column(lines({&e, &dos_only}), 11), "LongName.txt|LONGNA~1.TXT|LONGNA~1.TXT|ABC~1.TXT");
  EXPECT_EQ(column(lines({&e, &dos_only}, [](mft_entries_ctx& o) { o.m_hide_dos_fntimes = 1; }), 11), "LongName.txt");
}

TEST(DefaultRows, OtherInfoItemsInTheirOrder) {
  entry_record e = plain_file();
  const uint64_t docs = orv::make_ref(0x30, 2);
  add_fn(e, docs, L"a2.txt", 1, T1, T1, T1, T1);
  set_path(e, docs, L"[root]\\docs\\");
  add_fn(e, k_root, L"b.txt", 1, T1, T1, T1, T1, 0x77);  // held by an extension record
  e.m_reparse_targets[make_attrib_key(0xC0, 5)] = L"\\??\\C:\\target";
  e.m_attrib_list_nonresident = e.m_has_time_warning = e.m_filter_ext = e.m_filter_name = true;
  e.m_time_warning = "**:time warning", e.m_record_offset = 0xA800;
  e.m_filter_ext_text = L"txt", e.m_filter_name_text = L"a";
  std::vector<std::string> all = lines({&e}, [](mft_entries_ctx& o) { o.m_show_record_offset = 1; });
  // Parents in the order of their whole references (sequence 2 first); under the root the
  // name of the extension record forms a timeline of its own.
  EXPECT_EQ(column(all, 11), "a2.txt|a.txt|b.txt");
  EXPECT_EQ(column(all, 2) + " " + column(all, 3), "0x00000030|0x00000005|0x00000005 2|5|5");
  const std::string head = "multinames [3]; multiroots [2]; symlink: [\\??\\C:\\target]; ";
  const std::string tail =
      "attrib list non-resident [not avail for parsing w/o image]; **:time warning; "
      "filerecord: 0x0000a800; ext(txt); name(a)";
  EXPECT_EQ(column(all, 10), head + tail + "|" + head + tail + "|" + head + "refinode [0x00000077]; " + tail);
}

TEST(DefaultRows, SummaryOfDataAttributes) {
  entry_record e = plain_file();
  add_data(e, 1, L"", 0x1234, true).m_runs = {run_entry{0x100, 0, false, 2}, run_entry{0, 2, true, 3}};
  add_data(e, 2, L"Zone.Identifier", 26);
  add_data(e, 3, L"empty", 0);
  orv::put_le64(e.m_header.m_bytes.data() + 8, 0xff);
  orv::put_le32(e.m_std_infos.begin()->second.m_value.data() + 52, 0x102);
  EXPECT_EQ(column(lines({&e}), 13),
            "[unnamed data : sz: 0x1234]; [Zone.Identifier : ads : sz: 0x001a]; "
            "[logfile_seqnum: 0x0000ff]; [security_id: 0x0102]");
  std::vector<std::string> all =
      lines({&e}, [](mft_entries_ctx& o) { o.m_include_clusterinfo = 1, o.m_metadata_only = 0; });
  EXPECT_EQ(all[0],
            "mft entry,mft seqnum,parent mft,par seqnum,type,ext,ref,size data,date, time-utc,"
            "MACB,data type,other info,name,path,clusters/relevant data");
  EXPECT_EQ(column(all, 7) + "|" + column(all, 11) + "|" + column(all, 15).substr(0, 86),
            "0x00000000||[unnamed data : sz: 0x1234 : start cluster/count: 0x000100/2 : 0x000000/3 [sparse] : ]");
}
