#include "tests/test_util.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "base/orv_le.h"

namespace testutil {

std::string make_temp_dir(const std::string& tag) {
  std::string path = "/tmp/brimlock_" + tag + "_XXXXXX";
  if (!mkdtemp(&path[0])) throw std::runtime_error("mkdtemp failed");
  return path;
}

void write_text(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

std::string read_text(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

temp_file::temp_file(const std::vector<uint8_t>& bytes, const std::string& tag)
    : m_path(make_temp_dir(tag) + "/image") {
  write_file(m_path, bytes);
}

temp_file::~temp_file() { unlink(m_path.c_str()), rmdir(m_path.substr(0, m_path.rfind('/')).c_str()); }

std::string shell_quote(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? "'\\''" : std::string(1, c);
  return out + "'";
}

run_result run_shell(const std::string& command_line) {
  std::string dir = make_temp_dir("run");
  int st = std::system(("( " + command_line + " ) >" + dir + "/out 2>" + dir + "/err </dev/null").c_str());
  run_result r{WIFEXITED(st) ? WEXITSTATUS(st) : -1, read_text(dir + "/out"), read_text(dir + "/err")};
  unlink((dir + "/out").c_str()), unlink((dir + "/err").c_str()), rmdir(dir.c_str());
  return r;
}

uint64_t filetime(int year, int month, int day, int hour, int minute, int second, uint64_t ticks) {
  std::tm tm{};
  tm.tm_year = year - 1900, tm.tm_mon = month - 1, tm.tm_mday = day, tm.tm_hour = hour, tm.tm_min = minute;
  tm.tm_sec = second;
  return uint64_t(int64_t(timegm(&tm)) * 10000000 + 116444736000000000LL) + ticks;
}

std::vector<uint8_t> utf16le(const std::u16string& text) {
  std::vector<uint8_t> out;
  for (char16_t c : text) out.push_back(uint8_t(c)), out.push_back(uint8_t(c >> 8));
  return out;
}

std::vector<uint8_t> si_value(uint64_t created, uint64_t modified, uint64_t mft_modified, uint64_t accessed,
                              uint32_t flags, bool short_form, uint32_t security_id) {
  std::vector<uint8_t> v(short_form ? 48 : 72, 0);
  const uint64_t times[] = {created, modified, mft_modified, accessed};
  for (int i = 0; i < 4; ++i) orv::put_le64(&v[8 * i], times[i]);
  orv::put_le32(&v[32], flags);
  if (!short_form) orv::put_le32(&v[52], security_id);
  return v;
}

std::vector<uint8_t> fn_value(uint64_t parent_ref, const std::u16string& name, uint8_t name_space,
                              uint64_t created, uint64_t modified, uint64_t mft_modified, uint64_t accessed,
                              uint64_t allocated, uint64_t real, uint32_t flags) {
  std::vector<uint8_t> v(66, 0), n = utf16le(name);
  const uint64_t fields[] = {parent_ref, created, modified, mft_modified, accessed, allocated, real};
  for (int i = 0; i < 7; ++i) orv::put_le64(&v[8 * i], fields[i]);
  orv::put_le32(&v[56], flags);
  v[64] = uint8_t(name.size()), v[65] = name_space;
  v.insert(v.end(), n.begin(), n.end());
  return v;
}

std::vector<uint8_t> list_entry(uint32_t type, uint64_t ref, uint16_t id, uint16_t length) {
  std::vector<uint8_t> e(32, 0);
  orv::put_le32(&e[0], type);
  orv::put_le16(&e[4], length);
  e[7] = 26;  // where a name would start
  orv::put_le64(&e[16], ref);
  orv::put_le16(&e[24], id);
  return e;
}

static size_t align8(size_t n) { return (n + 7) & ~size_t(7); }

// An attribute of `length` bytes with its common header filled and its name at `name_at`.
static std::vector<uint8_t> attribute(uint32_t type, size_t length, uint8_t non_resident, const std::u16string& name,
                                      size_t name_at, uint16_t flags, uint16_t id) {
  std::vector<uint8_t> a(length, 0), n = utf16le(name);
  orv::put_le32(&a[0], type);
  orv::put_le32(&a[4], uint32_t(length));
  a[8] = non_resident, a[9] = uint8_t(name.size());
  orv::put_le16(&a[10], name.empty() ? 0 : uint16_t(name_at));
  orv::put_le16(&a[12], flags);
  orv::put_le16(&a[14], id);
  std::copy(n.begin(), n.end(), a.begin() + long(name_at));
  return a;
}

record_builder& record_builder::resident(uint32_t type, const std::vector<uint8_t>& value, const std::u16string& name,
                                         int id, uint16_t flags) {
  size_t value_at = align8(24 + name.size() * 2);
  m_attributes.push_back(attribute(type, align8(value_at + value.size()), 0, name, 24, flags,
                                   uint16_t(id < 0 ? m_next_id++ : id)));
  orv::put_le32(&m_attributes.back()[16], uint32_t(value.size()));
  orv::put_le16(&m_attributes.back()[20], uint16_t(value_at));
  std::copy(value.begin(), value.end(), m_attributes.back().begin() + long(value_at));
  return *this;
}

record_builder& record_builder::nonresident(uint32_t type, const std::vector<uint8_t>& run_bytes, uint64_t allocated,
                                            uint64_t real, uint64_t initialised, const std::u16string& name, int id,
                                            uint16_t flags, uint64_t first_vcn, uint64_t last_vcn) {
  size_t runs_at = align8(64 + name.size() * 2);
  m_attributes.push_back(attribute(type, align8(runs_at + run_bytes.size() + 1), 1, name, 64, flags,
                                   uint16_t(id < 0 ? m_next_id++ : id)));
  // The run list offset at 32 with a compression unit of 0 behind it.
  const uint64_t fields[] = {first_vcn, last_vcn, runs_at, allocated, real, initialised};
  for (int i = 0; i < 6; ++i) orv::put_le64(&m_attributes.back()[16 + 8 * i], fields[i]);
  std::copy(run_bytes.begin(), run_bytes.end(), m_attributes.back().begin() + long(runs_at));
  return *this;
}

std::vector<uint8_t> record_builder::build(bool protect) const {
  std::vector<uint8_t> r(m_size, 0);
  uint16_t sectors = uint16_t(m_size / 512);
  size_t pos = align8(48 + 2 * (sectors + 1));
  std::memcpy(r.data(), "FILE", 4);
  // The array at 48 with a word per sector and one more, the first attribute behind it.
  const std::pair<size_t, size_t> words[] = {{4, 48},       {6, sectors + 1},  {16, m_sequence}, {18, m_links},
                                             {20, pos},     {22, m_flags},     {40, m_next_id},  {48, m_usn}};
  for (const auto& w : words) orv::put_le16(&r[w.first], uint16_t(w.second));
  orv::put_le64(&r[32], m_base_ref);
  orv::put_le32(&r[44], m_record_number);
  for (const auto& a : m_attributes) {
    if (pos + a.size() + 8 > m_size) break;
    std::copy(a.begin(), a.end(), r.begin() + long(pos));
    pos += a.size();
  }
  orv::put_le32(&r[pos], 0xFFFFFFFFu);
  orv::put_le32(&r[24], uint32_t(pos + 8));
  orv::put_le32(&r[28], m_size);
  for (size_t i = 1; i <= sectors; ++i) {
    std::copy_n(&r[i * 512 - 2], 2, &r[48 + 2 * i]);
    if (protect) orv::put_le16(&r[i * 512 - 2], m_usn);
  }
  return r;
}

std::string mft_image::write(const std::string& dir) const {
  std::vector<uint8_t> bytes((m_records.empty() ? 0 : m_records.rbegin()->first + 1) * m_record_size, 0);
  for (const auto& kv : m_records)
    std::copy_n(kv.second.begin(), std::min<size_t>(kv.second.size(), m_record_size),
                bytes.begin() + long(kv.first * m_record_size));
  write_file(dir + "/mft.bin", bytes);
  return dir + "/mft.bin";
}

}  // namespace testutil
