#pragma once
// Base option set of the tool family: output formats, separators, date and time formats,
// diagnostics. mft_entries_ctx derives from it.
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/orv_console.h"
#include "base/orv_time.h"
#include "base/orv_time_text.h"

// Argument search: whole arguments, compared case-insensitively.
bool find_flag(const std::string& name, std::vector<std::string>& list, bool keep);
bool find_flag(const std::wstring& name, std::vector<std::wstring>& list, bool keep);
// True when `name` stands in the list with an element behind it; both are removed and the
// following element is the value. A trailing `name` is left in place and gives false.
bool find_value(const std::string& name, std::string& value_out, std::vector<std::string>& list);
bool find_value(const std::wstring& name, std::wstring& value_out, std::vector<std::wstring>& list);
bool has_arg(const std::string& name, const std::vector<std::string>& list, size_t from);
bool has_arg(const std::wstring& name, const std::vector<std::wstring>& list, size_t from);

// Reads options from the -script file and appends them to the list (wide form).
void apply_script_file(std::vector<std::wstring>& list);
// Tokenises the text of a script file into arguments (exposed for tests).
std::vector<std::wstring> script_tokens(const std::string& text);

class RAW_DISK_IO;
class cmd_params;

// Sets the in-field value separators: `first` is the character replaced inside text cells,
// `second` its replacement (0, 0: no replacement). Keeps m_replace_char/m_replace_with in step.
void set_value_separators(cmd_params& p, char first, char second);

struct file_filter_entry {
  std::string m_option;
  std::string m_text;
};

class cmd_params : public diag_sink {
 public:
  // Defined here, so that the layers which read an option set need no code of this one.
  cmd_params() = default;
  virtual ~cmd_params() = default;

  // Walks the common option table on `list`, consuming what it takes. Empty list: false.
  bool parse_common(std::vector<std::string>& list);
  // The one step through which -csv_separator and every format switch set the separator.
  // `comma_semicolon` asks for "," and ";" as value separators where a comma is in the text.
  void set_separator(const std::string& text, bool comma_semicolon);

  std::string m_command_line;
  std::string m_tool_name;
  std::string m_version_text;
  std::string m_second_text;
  std::string m_out_path;
  std::string m_outdir;
  std::string m_username;
  std::string m_hostname;
  std::string m_source_type;
  std::map<std::string, std::string> m_alias_map;
  std::map<std::string, std::string> m_alias_path_map;
  std::string m_date_format = "yyyy-mm-dd";
  std::string m_time_format = "hh:mm:ss.xxx";
  orv::time_format_state m_time_state;
  char m_value_separators[2] = {'|', ';'};
  std::string m_field_separator = " | ";
  uint8_t m_no_whitespace = 0;
  uint8_t m_blank_before_time = 1;  // cleared by -enable_quoted_csv_fields, -csvl2t, -bodyfile
  uint8_t m_hex_numbers = 1;
  uint8_t m_has_username = 0;
  uint8_t m_has_hostname = 0;
  uint8_t m_split_pathfile = 0;
  uint8_t m_quoted_fields = 0;
  // Text cells: this character is replaced by m_replace_with, unless quoting is on.
  char m_replace_char = '|';
  char m_replace_with = ';';
  std::vector<std::wstring> m_vmdk_list;
  uint64_t m_vmdk_offset = 0;
  uint8_t m_compress = 0, m_gzip = 0, m_zlib = 0, m_zlibex = 0;
  std::string m_zlibex_text;
  uint32_t m_thread_count = 0;
  uint8_t m_outdir_given = 0;
  uint8_t m_out_given = 0;
  uint32_t m_instance_number = 0xFFFFFFFFu;
  // A -cpu child that adds its rows to the results file its parent began, instead of a file of
  // its own: no banner, nothing truncated.
  uint8_t m_instance_appends = 0;
  uint32_t m_instance_count = 0;
  uint8_t m_separate_files = 0;
  uint32_t m_fragment_count = 0;
  uint8_t m_fmt_xml = 0, m_fmt_csv = 0, m_fmt_l2t = 0, m_fmt_csvgen = 0, m_fmt_bodyfile = 0, m_fmt_multiline = 0;
  uint8_t m_verbose = 1;
  uint8_t m_progress = 1;
  uint8_t m_pair_datetime = 0;
  uint8_t m_header_line = 1;
  uint8_t m_profile = 0;
  std::string m_signal_path;
  std::vector<file_filter_entry> m_file_filters;
  std::vector<file_filter_entry> m_file_skip_filters;
  uint8_t m_pipe = 0;
  std::string m_enum_dir;
  uint32_t m_enum_depth = 0;
  std::string m_os_version_text;
  uint32_t m_os_version[3] = {0, 0, 0};
  uint8_t m_cmd_start_given = 0;
  uint64_t m_cmd_start_time = 0;
  uint8_t m_cmd_stop_given = 0;
  uint64_t m_cmd_stop_time = 0;
  // -filter_sig consumed by the common layer: the walk options take the first value back.
  std::string m_taken_filter_sig;
  uint8_t m_taken_filter_sig_given = 0;
};
