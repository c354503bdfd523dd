// Argument search, -script files and the option table shared by the tool family.
#include "run/cmd_params.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <cwctype>

#include "base/orv_fileio.h"
#include "base/orv_path.h"
#include "base/orv_string.h"
#include "base/orv_time_text.h"

namespace {

// A script larger than this is not a list of options; it is left unread.
constexpr uint64_t k_script_limit = 4u << 20;
// Bytes looked at to classify the line ends of a script.
constexpr size_t k_line_end_probe = 1024;

template <typename S>
bool same_arg(const S& a, const S& b) {
  return orv::lowered(a) == orv::lowered(b);
}

template <typename S>
bool find_flag_impl(const S& name, std::vector<S>& list, bool keep) {
  for (size_t i = 0; i < list.size(); ++i) {
    if (!same_arg(list[i], name)) continue;
    if (!keep) list.erase(list.begin() + long(i));
    return true;
  }
  return false;
}

template <typename S>
bool find_value_impl(const S& name, S& value_out, std::vector<S>& list) {
  for (size_t i = 0; i < list.size(); ++i) {
    if (!same_arg(list[i], name)) continue;
    // Only the first occurrence counts: a trailing name is an absent option.
    if (i + 1 >= list.size()) return false;
    value_out = list[i + 1];
    list.erase(list.begin() + long(i), list.begin() + long(i) + 2);
    return true;
  }
  return false;
}

template <typename S>
bool has_arg_impl(const S& name, const std::vector<S>& list, size_t from) {
  for (size_t i = from; i < list.size(); ++i)
    if (same_arg(list[i], name)) return true;
  return false;
}

// Bytes that are not UTF-8 still make an argument, one unit per byte.
std::wstring widen(const std::string& text) {
  std::wstring wide = orv::to_wide(text);
  if (wide.empty() && !text.empty()) {
    for (unsigned char c : text) wide.push_back(wchar_t(c));
  }
  return wide;
}

bool is_blank(wchar_t c) { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n' || c == L'\v' || c == L'\f'; }

std::vector<std::wstring> split_blanks(const std::wstring& line) {
  std::vector<std::wstring> out;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && is_blank(line[i])) ++i;
    size_t start = i;
    while (i < line.size() && !is_blank(line[i])) ++i;
    if (i > start) out.push_back(line.substr(start, i - start));
  }
  return out;
}

// Joins a double-quoted value that the blank split had cut into pieces.
void append_line_tokens(const std::vector<std::wstring>& tokens, std::vector<std::wstring>& out) {
  if (tokens.size() < 2) {
    out.insert(out.end(), tokens.begin(), tokens.end());
    return;
  }
  for (size_t i = 0; i < tokens.size(); ++i) {
    const std::wstring& tok = tokens[i];
    if (tok.empty() || tok[0] != L'"') {
      out.push_back(tok);
      continue;
    }
    std::wstring joined = tok;
    bool closed = tok.size() >= 2 && tok.back() == L'"';
    while (!closed && i + 1 < tokens.size()) {
      ++i;
      joined += L' ';
      joined += tokens[i];
      closed = tokens[i].back() == L'"';
    }
    joined.erase(0, 1);
    if (closed && !joined.empty() && joined.back() == L'"') joined.pop_back();
    out.push_back(joined);
  }
}

std::string join_command_line(const std::vector<std::string>& list) {
  std::string out;
  for (size_t i = 0; i < list.size(); ++i) {
    if (i) out += ' ';
    if (list[i].find(' ') != std::string::npos) out += "\"" + list[i] + "\"";
    else out += list[i];
  }
  return out;
}

std::string tool_name_of(const std::string& first) {
  std::string name = first;
  size_t slash = name.find_last_of("/\\");
  if (slash != std::string::npos) name.erase(0, slash + 1);
  size_t dot = name.rfind('.');
  if (dot != std::string::npos) name.erase(dot);
  return name;
}

// ---- the common option table ----

enum option_form { form_flag, form_value, form_repeat };

using common_handler = bool (*)(cmd_params& p, const std::string& value, std::vector<std::string>& list);

struct common_option {
  const char* m_names;  // alternatives separated by '|': the first found is taken
  option_form m_form;
  common_handler m_handler;
};

void clear_formats(cmd_params& p) {
  p.m_fmt_xml = p.m_fmt_csv = p.m_fmt_l2t = p.m_fmt_csvgen = p.m_fmt_bodyfile = p.m_fmt_multiline = 0;
}

bool parse_alias_list(const std::string& value, bool path_form, std::map<std::string, std::string>& target) {
  std::vector<std::string> parts = orv::split(value, "|", true);
  if (parts.size() % 2) {
    fprintf(stderr, "imbalanced alias to true pathfiles");
    fprintf(stderr, ", aborting\n");
    return false;
  }
  for (size_t i = 0; i + 1 < parts.size(); i += 2) {
    std::string alias = orv::expand_environment(parts[i]);
    std::string truth = orv::expand_environment(parts[i + 1]);
    if (path_form) {
      orv::remove_char(truth, '"');
      if (!alias.empty() && alias.back() == '/') alias.pop_back();
      if (!truth.empty() && truth.back() == '/') truth.pop_back();
    }
    target[orv::lowered(alias)] = truth;
  }
  return true;
}

// The test open of the results file. Only a regular file is removed afterwards: a device,
// FIFO, directory or anything reached through a symbolic link is left alone.
bool test_output_file(const std::string& path, bool append) {
  const int base = O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK;
  int fd = -1;
  if (append) {
    fd = ::open(path.c_str(), base | O_APPEND, 0644);
    if (fd < 0) fd = ::open(path.c_str(), base | O_TRUNC, 0644);
  } else {
    fd = ::open(path.c_str(), base | O_TRUNC, 0644);
  }
  if (fd < 0) return false;
  ::close(fd);
  struct stat st;
  if (::lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) ::unlink(path.c_str());
  return true;
}

bool read_cmd_time(const std::string& value, uint64_t& out) {
  size_t blank = value.find(' ');
  std::string date = value.substr(0, blank);
  std::string time = blank == std::string::npos ? std::string() : orv::trim(value.substr(blank + 1));
  orv::_windows_systemtime st;
  if (!orv::parse_date_time(date, time, st)) return false;
  out = orv::systemtime_to_filetime(st);
  return out != 0;
}

const common_option k_common_options[] = {
    {"-pair_datetime", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_pair_datetime = 1;
       return true;
     }},
    {"-diags", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>& list) {
       // A FIFO or socket would block the open for writing; it counts as a log that cannot be opened.
       struct stat st;
       bool unusable = ::stat(v.c_str(), &st) == 0 && (S_ISFIFO(st.st_mode) || S_ISSOCK(st.st_mode));
       if (unusable || !p.open_diags(v)) {
         p.m_diags_path.clear();
         return true;
       }
       p.m_diags_on = 1;
       log_line(p, "%s", p.m_command_line.c_str());
       if (find_flag(std::string("-l2"), list, false)) p.m_diags_level = 2;
       else if (find_flag(std::string("-l3"), list, false)) p.m_diags_level = 3;
       return true;
     }},
    {"-csv", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       clear_formats(p);
       p.m_fmt_csv = 1;
       p.set_separator(",", false);
       if (!p.m_pair_datetime) p.m_no_whitespace = 1;
       return true;
     }},
    {"-csvgen", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       clear_formats(p);
       p.m_fmt_csvgen = 1;
       p.set_separator(",", false);
       p.m_no_whitespace = 1;
       return true;
     }},
    {"-csvl2t", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       clear_formats(p);
       p.m_fmt_l2t = 1;
       p.set_separator(",", false);
       p.m_header_line = 1;
       return true;
     }},
    {"-bodyfile", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       clear_formats(p);
       p.m_fmt_bodyfile = 1;
       p.set_separator("|", false);
       p.m_header_line = 1;
       return true;
     }},
    {"-xml", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       clear_formats(p);
       p.m_fmt_xml = 1;
       p.set_separator("", false);
       p.m_header_line = 0;
       return true;
     }},
    {"-multiline", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       clear_formats(p);
       p.m_fmt_multiline = 1;
       p.m_header_line = 1;
       p.set_separator("", false);
       set_value_separators(p, 0, 0);
       return true;
     }},
    {"-alias", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       return parse_alias_list(v, false, p.m_alias_map);
     }},
    {"-aliaspath", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       return parse_alias_list(v, true, p.m_alias_path_map);
     }},
    {"-gzip", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_compress = p.m_gzip = 1;
       return true;
     }},
    {"-zlib", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_compress = p.m_zlib = 1;
       return true;
     }},
    {"-threads", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       orv::parse_u32(v, p.m_thread_count);
       return true;
     }},
    {"-zlibex", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_compress = p.m_zlibex = 1;
       p.m_zlibex_text = v;
       return true;
     }},
    {"-sqlite_log|-sqlite", form_value, [](cmd_params&, const std::string&, std::vector<std::string>&) {
       fprintf(stderr, "This option is not offered in this build\n");
       return false;
     }},
    {"-signal", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_signal_path = v;
       return true;
     }},
    {"-hostname", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_hostname = v;
       p.m_has_hostname = 1;
       return true;
     }},
    {"-split_pathfile", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_split_pathfile = 1;
       return true;
     }},
    {"-username", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_username = v;
       p.m_has_username = 1;
       return true;
     }},
    {"-cpuappend", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_instance_appends = 1;
       return true;
     }},
    {"-cpuinst", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       orv::parse_small(v, p.m_instance_number);
       return true;
     }},
    {"-cpu", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       orv::parse_small(v, p.m_instance_count);
       return true;
     }},
    {"-fragment_files", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       orv::parse_small(v, p.m_fragment_count);
       p.m_separate_files = 1;
       return true;
     }},
    {"-separate_files", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_separate_files = 1;
       return true;
     }},
    {"-outfile|-out", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>& list) {
       std::string path = orv::expand_environment(v);
       for (char& c : path)
         if (c == '\\') c = '/';
       p.m_out_path = path;
       p.m_out_given = 1;
       // A -cpu child adding to its parent's file finds it there; a test open would remove it.
       if (p.m_instance_appends) return true;
       if (!test_output_file(path, has_arg(std::string("-append"), list, 1))) {
         fprintf(stderr, "prob opening file %s for output, aborting\n", path.c_str());
         return false;
       }
       return true;
     }},
    {"-outdir", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_outdir = orv::expand_environment(v);
       p.m_outdir_given = 1;
       return true;
     }},
    {"-enumdir", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_enum_dir = v;
       return true;
     }},
    {"-num_subdirs", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       orv::parse_small(v, p.m_enum_depth);
       return true;
     }},
    {"-profile", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_profile = 1;
       return true;
     }},
    {"-pipe", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_pipe = 1;
       return true;
     }},
    {"-filter_skip", form_repeat, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_file_skip_filters.push_back({"-filter_skip", v});
       return true;
     }},
    {"-filter", form_repeat, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_file_filters.push_back({"-filter", v});
       return true;
     }},
    {"-filter_path", form_repeat, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_file_filters.push_back({"-filter_path", v});
       return true;
     }},
    // The walk options took the first -filter_sig aside before this parse; the rest end here.
    {"-filter_sig", form_repeat, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.m_file_filters.push_back({"-filter_sig", v});
       return true;
     }},
    {"-cmd_start_time", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       if (read_cmd_time(v, p.m_cmd_start_time)) p.m_cmd_start_given = 1;
       else fprintf(stderr, "invalid start time, ignoring\n");
       return true;
     }},
    {"-cmd_stop_time", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       if (read_cmd_time(v, p.m_cmd_stop_time)) p.m_cmd_stop_given = 1;
       else fprintf(stderr, "invalid stop time, ignoring\n");
       return true;
     }},
    {"-base10", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_hex_numbers = 0;
       return true;
     }},
    {"-base16", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_hex_numbers = 1;
       return true;
     }},
    {"-csv_separator", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       p.set_separator(v, true);
       return true;
     }},
    {"-enable_quoted_csv_fields", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_quoted_fields = 1;
       if (p.m_field_separator.find('\t') == std::string::npos) p.m_field_separator = orv::trim(p.m_field_separator);
       set_value_separators(p, 0, 0);
       p.m_blank_before_time = 0;
       return true;
     }},
    {"-no_whitespace", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_no_whitespace = 1;
       orv::remove_char(p.m_field_separator, ' ');
       return true;
     }},
    {"-dateformat", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       if (v.size() == 8 || v.size() == 10) p.m_date_format = orv::lowered(v);
       else fprintf(stderr, "invalid %s, using default format\n", v.c_str());
       return true;
     }},
    {"-timeformat", form_value, [](cmd_params& p, const std::string& v, std::vector<std::string>&) {
       bool length_ok = v.size() == 8 || (v.size() >= 12 && v.size() <= 18);
       if (length_ok && v.find(':') != std::string::npos) p.m_time_format = orv::lowered(v);
       else fprintf(stderr, "invalid %s, using default format\n", v.c_str());
       return true;
     }},
    {"-verbose", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_verbose = 1;
       return true;
     }},
    {"-v", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_verbose = 1;
       return true;
     }},
    {"-quiet", form_flag, [](cmd_params& p, const std::string&, std::vector<std::string>&) {
       p.m_progress = 0;
       return true;
     }},
};

// Runs one row: true unless its handler refused.
bool run_common_option(cmd_params& p, const common_option& row, std::vector<std::string>& list) {
  for (const std::string& name : orv::split(std::string(row.m_names), "|", false)) {
    std::string value;
    if (row.m_form == form_flag) {
      if (find_flag(name, list, false)) return row.m_handler(p, value, list);
    } else if (row.m_form == form_value) {
      if (find_value(name, value, list)) return row.m_handler(p, value, list);
    } else {
      bool ok = true;
      while (ok && find_value(name, value, list)) ok = row.m_handler(p, value, list);
      if (!ok) return false;
    }
  }
  return true;
}

// Mac OS version, when the file that names it exists; nothing in this program reads it.
void read_os_version(cmd_params& p) {
  uni::fileio file;
  if (!file.open(std::string("/System/Library/CoreServices/SystemVersion.plist"))) return;
  std::vector<uint8_t> bytes;
  if (!file.read_at(bytes, 65536, 0)) return;
  std::string text(bytes.begin(), bytes.end());
  size_t key = text.find(">ProductVersion<");
  if (key == std::string::npos) return;
  size_t open = text.find("<string>", key);
  if (open == std::string::npos) return;
  open += 8;
  size_t close = text.find("</s", open);
  if (close == std::string::npos) return;
  p.m_os_version_text = text.substr(open, close - open);
  std::vector<std::string> parts = orv::split(p.m_os_version_text, ".", true);
  for (size_t i = 0; i < parts.size() && i < 3; ++i) orv::parse_u32(parts[i], p.m_os_version[i]);
}

}  // namespace

bool find_flag(const std::string& name, std::vector<std::string>& list, bool keep) {
  return find_flag_impl(name, list, keep);
}
bool find_flag(const std::wstring& name, std::vector<std::wstring>& list, bool keep) {
  return find_flag_impl(name, list, keep);
}
bool find_value(const std::string& name, std::string& value_out, std::vector<std::string>& list) {
  return find_value_impl(name, value_out, list);
}
bool find_value(const std::wstring& name, std::wstring& value_out, std::vector<std::wstring>& list) {
  return find_value_impl(name, value_out, list);
}
bool has_arg(const std::string& name, const std::vector<std::string>& list, size_t from) {
  return has_arg_impl(name, list, from);
}
bool has_arg(const std::wstring& name, const std::vector<std::wstring>& list, size_t from) {
  return has_arg_impl(name, list, from);
}

std::vector<std::wstring> script_tokens(const std::string& text) {
  std::vector<std::wstring> out;
  const uint8_t* bytes = reinterpret_cast<const uint8_t*>(text.data());
  int kind = orv::line_end_kind(bytes, text.size() < k_line_end_probe ? text.size() : k_line_end_probe);
  std::string body = text;
  char cut = '\n';
  if (kind == 2) {
    cut = '\r';
  } else if (kind == 4) {
    for (char& c : body)
      if (c == '\n') c = ' ';
    cut = '\r';
  } else if (kind != 1 && kind != 3) {
    return out;  // mixed line ends, or none among the bytes looked at
  }
  for (const std::string& raw : orv::split(body, std::string(1, cut), false)) {
    std::string line = orv::trim(raw, " \t\r\n");
    if (line.empty() || line.compare(0, 2, "//") == 0) continue;
    append_line_tokens(split_blanks(widen(line)), out);
  }
  return out;
}

void apply_script_file(std::vector<std::wstring>& list) {
  std::wstring path;
  if (!find_value(std::wstring(L"-script"), path, list)) return;
  uni::fileio file;
  if (!file.open(path)) return;
  uint64_t size = file.fileio_size();
  if (size == 0 || size > k_script_limit) return;
  std::vector<uint8_t> bytes;
  if (!file.read_at(bytes, size, 0)) return;
  std::vector<std::wstring> tokens = script_tokens(std::string(bytes.begin(), bytes.end()));
  list.insert(list.end(), tokens.begin(), tokens.end());
}

void set_value_separators(cmd_params& p, char first, char second) {
  p.m_value_separators[0] = first;
  p.m_value_separators[1] = second;
  p.m_replace_char = first;
  p.m_replace_with = second;
}

void cmd_params::set_separator(const std::string& text, bool comma_semicolon) {
  m_field_separator = text;
  if (m_quoted_fields) return;
  std::string low = orv::lowered(text);
  if (low.find('|') != std::string::npos) {
    set_value_separators(*this, '|', ';');
  } else if (low.find(',') != std::string::npos) {
    set_value_separators(*this, ',', comma_semicolon ? ';' : ' ');
  } else if (low == "tab" || low == "\\t" || low == "\t") {
    m_field_separator = "\t";
    set_value_separators(*this, 0, 0);
  } else {
    set_value_separators(*this, 0, 0);
  }
}

bool cmd_params::parse_common(std::vector<std::string>& list) {
  if (list.empty()) return false;
  if (m_command_line.empty()) m_command_line = join_command_line(list);
  if (m_tool_name.empty()) m_tool_name = tool_name_of(list[0]);

  bool ok = true;
  for (const common_option& row : k_common_options) {
    if (!run_common_option(*this, row, list)) {
      ok = false;
      break;
    }
  }

  orv::parse_time_format(m_time_state, m_date_format, m_time_format, m_pair_datetime != 0);
  if (ok) read_os_version(*this);
  return ok;
}
