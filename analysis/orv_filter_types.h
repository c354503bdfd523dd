#pragma once
// Filter records built by the option layer and read by the record filters.
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

enum filter_type : uint32_t {
  filter_extension = 0,
  filter_partial_name = 1,
  filter_path_name = 2,
  filter_inode = 3,
  filter_directory = 4,
  filter_directory_inode = 5,
  filter_signature = 6,
  filter_directory_alt = 7,
  filter_full_name = 8,
};

class filter_record {
 public:
  filter_record() = default;
  // Builds a record of `type` from its text (or number for inode types) and fills the descriptions.
  filter_record(uint32_t type, const std::wstring& text, uint64_t inode = 0);
  virtual ~filter_record() = default;
  bool operator<(const filter_record& other) const;  // ordered by text, then type

  uint64_t m_inode = 0;
  uint8_t m_whole_entry = 0;
  uint8_t m_by_stream = 0;
  uint8_t m_has_stream = 0;
  uint8_t m_partial = 0;
  uint8_t m_partial_end = 0;
  std::wstring m_text;
  std::set<std::wstring> m_stream_names;
  uint32_t m_type = 0;
  std::string m_dir_text;
  std::string m_file_text;
  std::string m_description;
  std::string m_text_utf8;
};

// "?" matches any one character; everything else, "*" included, is literal.
struct wildcard_pattern {
  struct piece {
    size_t m_skip = 0;  // characters skipped in front of this literal piece
    std::wstring m_text;
  };
  std::wstring m_source;
  std::vector<piece> m_pieces;
  size_t m_fixed_length = 0;
};
wildcard_pattern compile_wildcard(const std::wstring& pattern);
bool wildcard_match(const wildcard_pattern& pattern, const std::wstring& name);

// One -filter_sig / -filter_pattern test over the head bytes of a file.
struct signature_test {
  uint32_t m_type = 0;  // 30..39
  uint64_t m_offset = 0;
  uint32_t m_size = 4096;
  std::string m_word;
  std::vector<uint8_t> m_pattern;
};
