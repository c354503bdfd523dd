#pragma once
// Helpers shared by the test programs: temporary directories, running the real binary, and
// file records built in memory.
#include <csignal>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// <csignal> defines a macro named like the record helper below; take it in first and drop it.
#undef si_value

namespace testutil {

std::string make_temp_dir(const std::string& tag);
void write_text(const std::string& path, const std::string& text);
inline void write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  write_text(path, std::string(bytes.begin(), bytes.end()));
}
std::string read_text(const std::string& path);

// `bytes` written to a file in a fresh temporary directory; both go with the object.
struct temp_file {
  std::string m_path;
  explicit temp_file(const std::vector<uint8_t>& bytes, const std::string& tag = "image");
  ~temp_file();
};

struct run_result { int status = -1; std::string out, err; };  // status as the shell sees it (0..255)
// Runs a shell command line; stdout and stderr captured separately.
run_result run_shell(const std::string& command_line);
std::string shell_quote(const std::string& text);

// FILETIME of a calendar instant (UTC), through the C library.
uint64_t filetime(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, uint64_t ticks = 0);

std::vector<uint8_t> utf16le(const std::u16string& text);
inline std::vector<uint8_t> cat(std::initializer_list<std::vector<uint8_t>> parts) {
  std::vector<uint8_t> out;
  for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}
// An attribute list entry without a name: attribute `id` of type `type` held by record `ref`.
std::vector<uint8_t> list_entry(uint32_t type, uint64_t ref, uint16_t id, uint16_t length = 32);

// $STANDARD_INFORMATION value: 72 bytes, or 48 with `short_form`.
std::vector<uint8_t> si_value(uint64_t created, uint64_t modified, uint64_t mft_modified, uint64_t accessed,
                              uint32_t flags = 0x20, bool short_form = false, uint32_t security_id = 0);
// $FILE_NAME value.
std::vector<uint8_t> fn_value(uint64_t parent_ref, const std::u16string& name, uint8_t name_space,
                              uint64_t created, uint64_t modified, uint64_t mft_modified, uint64_t accessed,
                              uint64_t allocated = 0, uint64_t real = 0, uint32_t flags = 0x20);

// Builds a FILE record: header, attributes in the order added, end marker, and the update
// sequence array protecting each 512-byte sector.
struct record_builder {
  uint32_t m_size = 1024, m_record_number = 0;
  uint16_t m_sequence = 1, m_flags = 1 /* in use */, m_links = 1, m_usn = 0x0101, m_next_id = 0;
  uint64_t m_base_ref = 0;
  std::vector<std::vector<uint8_t>> m_attributes;

  record_builder& resident(uint32_t type, const std::vector<uint8_t>& value, const std::u16string& name = u"",
                           int id = -1, uint16_t flags = 0);
  record_builder& nonresident(uint32_t type, const std::vector<uint8_t>& run_bytes, uint64_t allocated,
                              uint64_t real, uint64_t initialised, const std::u16string& name = u"", int id = -1,
                              uint16_t flags = 0, uint64_t first_vcn = 0, uint64_t last_vcn = 0);
  record_builder& raw_attribute(const std::vector<uint8_t>& bytes) { m_attributes.push_back(bytes); return *this; }
  // With `protect`, the last two bytes of every sector move into the array and are replaced by
  // the sequence number, as on disk.
  std::vector<uint8_t> build(bool protect = true) const;
};

// A small extracted $MFT assembled from records built in memory.
struct mft_image {
  uint32_t m_record_size = 1024;
  std::map<uint64_t, std::vector<uint8_t>> m_records;  // record number -> bytes

  void put(uint64_t number, const record_builder& builder) { m_records[number] = builder.build(); }
  // Writes the file (holes are zero-filled); gives its path.
  std::string write(const std::string& dir) const;
};

}  // namespace testutil
