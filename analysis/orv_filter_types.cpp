// Filter records with their human descriptions, and the "?" wildcard patterns.
#include "analysis/orv_filter_types.h"

#include "base/orv_string.h"

namespace {

bool is_inode_type(uint32_t type) { return type == filter_inode || type == filter_directory_inode; }

// Position of the ":" that starts a stream part, or npos. A drive mark ("c:\", "c:/") is part of a
// path; for inode records any ":" that a backslash or "//" follows is a path too.
size_t stream_mark(const std::wstring& text, uint32_t type) {
  size_t colon = text.find(L':');
  if (colon == std::wstring::npos) return colon;
  wchar_t next = colon + 1 < text.size() ? text[colon + 1] : 0;
  if (is_inode_type(type)) {
    if (next == L'\\') return std::wstring::npos;
    if (text.compare(colon + 1, 2, L"//") == 0) return std::wstring::npos;
  } else if (colon == 1 && (next == L'\\' || next == L'/')) {
    return std::wstring::npos;
  }
  return colon;
}

struct signature_words {
  const char* m_word;
  const char* m_file_text;
  const char* m_mark;
};

const signature_words k_signature_words[] = {
    {"mz", "All executable/library files", " [exe/lib]"},
    {"16bit_mz", "All executable/library files", " [exe/lib]"},
    {"32bit_pe", "All executable/library files", " [exe/lib]"},
    {"64bit_pe", "All executable/library files", " [exe/lib]"},
    {"pe", "All executable/library files", " [exe/lib]"},
    {"lnk", "All LNK files", " [4c 00 00 00 01 14 02 ..]"},
    {"evt", "All EventLog Files", " [ElfFile or 30 00 00 00 4c ..]"},
    {"sqlite", "All SQLite3 Files", " [SQLite]"},
    {"hive", "All Registry Hives", " [regf]"},
};

std::string inode_label(const filter_record& r) {
  std::string out = "inode(" + std::to_string(r.m_inode);
  if (r.m_has_stream && !r.m_stream_names.empty()) out += ":" + orv::to_utf8(*r.m_stream_names.begin());
  return out + ")";
}

void describe(filter_record& r) {
  const std::string text = r.m_text_utf8;
  switch (r.m_type & 0x7FFF) {
    case filter_extension:
      r.m_file_text = "*." + text;
      r.m_description = "Any file with extension";
      break;
    case filter_partial_name:
      r.m_file_text = "*" + text + "*";
      r.m_description = "Partial filename";
      break;
    case filter_path_name: {
      size_t slash = text.rfind('\\');
      std::string dir = slash == std::string::npos ? std::string() : text.substr(0, slash);
      r.m_file_text = slash == std::string::npos ? text : text.substr(slash + 1);
      bool has_drive = text.size() >= 2 && text[1] == ':';
      bool rooted = !text.empty() && (text[0] == '\\' || text[0] == '.');
      r.m_dir_text = (!rooted && !has_drive) ? ".\\" + dir : dir;
      r.m_description = "Specific path/filename";
      break;
    }
    case filter_inode:
      r.m_dir_text = "path related to inode";
      r.m_file_text = inode_label(r);
      r.m_description = "Specific file";
      if (!text.empty()) r.m_description += " (" + text + ")";
      break;
    case filter_directory:
    case filter_directory_alt:
      r.m_dir_text = text;
      r.m_description = "Any file in directory";
      break;
    case filter_directory_inode:
      r.m_dir_text = "path related to inode";
      r.m_file_text = inode_label(r);
      if (r.m_has_stream) {
        r.m_description = text.empty() ? "Specific named file" : text;
      } else {
        r.m_description = "Any file in directory";
        if (!text.empty()) r.m_description += " (" + text + ")";
      }
      break;
    case filter_signature:
      r.m_description = "Any file with this signature";
      for (const signature_words& w : k_signature_words) {
        if (orv::lowered(text) != w.m_word) continue;
        r.m_file_text = w.m_file_text;
        r.m_description += w.m_mark;
        break;
      }
      break;
    case filter_full_name:
      r.m_file_text = text;
      r.m_description = "Specific filename";
      break;
    default:
      break;
  }
}

}  // namespace

filter_record::filter_record(uint32_t type, const std::wstring& text, uint64_t inode) : m_inode(inode), m_type(type) {
  if (!text.empty()) {
    size_t colon = stream_mark(text, type & 0x7FFF);
    if (colon != std::wstring::npos) {
      m_text = text.substr(0, colon);
      m_stream_names.insert(orv::lowered(text.substr(colon + 1)));
      m_has_stream = 1;
      m_by_stream = 1;
    } else {
      m_text = text;
      m_stream_names.insert(text);
      m_whole_entry = 1;
    }
  }
  if ((type & 0x7FFF) == filter_partial_name) m_partial = m_partial_end = 1;
  m_text_utf8 = orv::to_utf8(m_text);
  describe(*this);
}

bool filter_record::operator<(const filter_record& other) const {
  if (m_text != other.m_text) return m_text < other.m_text;
  return (m_type & 0x7FFF) < (other.m_type & 0x7FFF);
}

wildcard_pattern compile_wildcard(const std::wstring& pattern) {
  wildcard_pattern out;
  out.m_source = pattern;
  out.m_fixed_length = pattern.size();
  wildcard_pattern::piece current;
  for (wchar_t c : pattern) {
    if (c == L'?') {
      if (!current.m_text.empty()) {
        out.m_pieces.push_back(current);
        current = wildcard_pattern::piece();
      }
      ++current.m_skip;
    } else {
      current.m_text.push_back(c);
    }
  }
  // A trailing run of "?" still counts: it is kept as a piece with no text.
  if (!current.m_text.empty() || current.m_skip) out.m_pieces.push_back(current);
  return out;
}

bool wildcard_match(const wildcard_pattern& pattern, const std::wstring& name) {
  if (name.size() < pattern.m_fixed_length) return false;
  const size_t last_start = name.size() - pattern.m_fixed_length;
  for (size_t start = 0; start <= last_start; ++start) {
    size_t pos = start;
    bool hit = true;
    for (const wildcard_pattern::piece& p : pattern.m_pieces) {
      pos += p.m_skip;
      if (name.compare(pos, p.m_text.size(), p.m_text) != 0) {
        hit = false;
        break;
      }
      pos += p.m_text.size();
    }
    if (hit) return true;
  }
  return false;
}
