#include "tests/test_util.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>


namespace testutil {

std::string make_temp_dir(const std::string& tag) {
  std::string pattern = "/tmp/brimlock_" + tag + "_XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back(0);
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  return std::string(buf.data());
}

void write_file(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

void write_text(const std::string& path, const std::string& text) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f << text;
}

std::string read_text(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

std::string shell_quote(const std::string& text) {
  std::string out = "'";
  for (char c : text) {
    if (c == '\'') out += "'\\''";
    else out += c;
  }
  return out + "'";
}

run_result run_shell(const std::string& command_line) {
  run_result r;
  std::string dir = make_temp_dir("run");
  std::string out_path = dir + "/out", err_path = dir + "/err";
  std::string cmd = "( " + command_line + " ) >" + out_path + " 2>" + err_path + " </dev/null";
  int st = std::system(cmd.c_str());
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  r.out = read_text(out_path);
  r.err = read_text(err_path);
  std::remove(out_path.c_str());
  std::remove(err_path.c_str());
  rmdir(dir.c_str());
  return r;
}

uint64_t filetime(int year, int month, int day, int hour, int minute, int second) {
  // days from civil (proleptic Gregorian), relative to 1970-01-01
  int y = year - (month <= 2);
  int era = (y >= 0 ? y : y - 399) / 400;
  unsigned yoe = unsigned(y - era * 400);
  unsigned doy = unsigned((153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1);
  unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  int64_t days = int64_t(era) * 146097 + int64_t(doe) - 719468;
  int64_t secs = days * 86400 + hour * 3600 + minute * 60 + second;
  return uint64_t(secs * 10000000LL + 116444736000000000LL);
}

std::vector<uint8_t> utf16le(const std::u16string& text) {
  std::vector<uint8_t> out;
  for (char16_t c : text) {
    out.push_back(uint8_t(c));
    out.push_back(uint8_t(c >> 8));
  }
  return out;
}

static void put16(std::vector<uint8_t>& b, size_t off, uint16_t v) {
  b[off] = uint8_t(v);
  b[off + 1] = uint8_t(v >> 8);
}
static void put32(std::vector<uint8_t>& b, size_t off, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[off + i] = uint8_t(v >> (8 * i));
}
static void put64(std::vector<uint8_t>& b, size_t off, uint64_t v) {
  for (int i = 0; i < 8; ++i) b[off + i] = uint8_t(v >> (8 * i));
}

std::vector<uint8_t> si_value(uint64_t created, uint64_t modified, uint64_t mft_modified, uint64_t accessed,
                              uint32_t flags, bool short_form, uint32_t security_id) {
  std::vector<uint8_t> v(short_form ? 48 : 72, 0);
  put64(v, 0, created);
  put64(v, 8, modified);
  put64(v, 16, mft_modified);
  put64(v, 24, accessed);
  put32(v, 32, flags);
  if (!short_form) put32(v, 52, security_id);
  return v;
}

std::vector<uint8_t> fn_value(uint64_t parent_ref, const std::u16string& name, uint8_t name_space,
                              uint64_t created, uint64_t modified, uint64_t mft_modified, uint64_t accessed,
                              uint64_t allocated, uint64_t real, uint32_t flags) {
  std::vector<uint8_t> v(66 + name.size() * 2, 0);
  put64(v, 0, parent_ref);
  put64(v, 8, created);
  put64(v, 16, modified);
  put64(v, 24, mft_modified);
  put64(v, 32, accessed);
  put64(v, 40, allocated);
  put64(v, 48, real);
  put32(v, 56, flags);
  v[64] = uint8_t(name.size());
  v[65] = name_space;
  auto n = utf16le(name);
  std::copy(n.begin(), n.end(), v.begin() + 66);
  return v;
}

static size_t align8(size_t n) { return (n + 7) & ~size_t(7); }

record_builder& record_builder::resident(uint32_t type, const std::vector<uint8_t>& value, const std::u16string& name,
                                         int id, uint16_t flags) {
  size_t name_off = 24;
  size_t value_off = align8(name_off + name.size() * 2);
  size_t len = align8(value_off + value.size());
  std::vector<uint8_t> a(len, 0);
  put32(a, 0, type);
  put32(a, 4, uint32_t(len));
  a[8] = 0;
  a[9] = uint8_t(name.size());
  put16(a, 10, name.empty() ? 0 : uint16_t(name_off));
  put16(a, 12, flags);
  put16(a, 14, uint16_t(id < 0 ? m_next_id++ : id));
  put32(a, 16, uint32_t(value.size()));
  put16(a, 20, uint16_t(value_off));
  auto n = utf16le(name);
  std::copy(n.begin(), n.end(), a.begin() + long(name_off));
  std::copy(value.begin(), value.end(), a.begin() + long(value_off));
  m_attributes.push_back(a);
  return *this;
}

record_builder& record_builder::nonresident(uint32_t type, const std::vector<uint8_t>& run_bytes, uint64_t allocated,
                                            uint64_t real, uint64_t initialised, const std::u16string& name, int id,
                                            uint16_t flags, uint64_t first_vcn, uint64_t last_vcn,
                                            uint16_t compression_unit) {
  size_t header = (flags & 0x8001) ? 72 : 64;
  size_t name_off = header;
  size_t runs_off = align8(name_off + name.size() * 2);
  size_t len = align8(runs_off + run_bytes.size() + 1);
  std::vector<uint8_t> a(len, 0);
  put32(a, 0, type);
  put32(a, 4, uint32_t(len));
  a[8] = 1;
  a[9] = uint8_t(name.size());
  put16(a, 10, name.empty() ? 0 : uint16_t(name_off));
  put16(a, 12, flags);
  put16(a, 14, uint16_t(id < 0 ? m_next_id++ : id));
  put64(a, 16, first_vcn);
  put64(a, 24, last_vcn);
  put16(a, 32, uint16_t(runs_off));
  put16(a, 34, compression_unit);
  put64(a, 40, allocated);
  put64(a, 48, real);
  put64(a, 56, initialised);
  if (header == 72) put64(a, 64, allocated);
  auto n = utf16le(name);
  std::copy(n.begin(), n.end(), a.begin() + long(name_off));
  std::copy(run_bytes.begin(), run_bytes.end(), a.begin() + long(runs_off));
  m_attributes.push_back(a);
  return *this;
}

record_builder& record_builder::raw_attribute(const std::vector<uint8_t>& bytes) {
  m_attributes.push_back(bytes);
  return *this;
}

std::vector<uint8_t> record_builder::build(bool protect) const {
  std::vector<uint8_t> r(m_size, 0);
  std::memcpy(r.data(), "FILE", 4);
  uint16_t sectors = uint16_t(m_size / 512);
  put16(r, 4, 48);
  put16(r, 6, uint16_t(sectors + 1));
  put16(r, 16, m_sequence);
  put16(r, 18, m_links);
  size_t first = align8(48 + 2 * (sectors + 1));
  put16(r, 20, uint16_t(first));
  put16(r, 22, m_flags);
  put64(r, 32, m_base_ref);
  put16(r, 40, m_next_id);
  put32(r, 44, m_record_number);
  size_t pos = first;
  for (const auto& a : m_attributes) {
    if (pos + a.size() + 8 > m_size) break;
    std::copy(a.begin(), a.end(), r.begin() + long(pos));
    pos += a.size();
  }
  put32(r, pos, 0xFFFFFFFFu);
  put32(r, 24, uint32_t(pos + 8));
  put32(r, 28, m_size);
  put16(r, 48, m_usn);
  for (uint16_t i = 1; i <= sectors; ++i) {
    size_t tail = size_t(i) * 512 - 2;
    r[48 + 2 * i] = r[tail];
    r[48 + 2 * i + 1] = r[tail + 1];
    if (protect) put16(r, tail, m_usn);
  }
  return r;
}

std::string mft_image::write(const std::string& dir) const {
  uint64_t count = m_records.empty() ? 0 : m_records.rbegin()->first + 1;
  std::vector<uint8_t> bytes(count * m_record_size, 0);
  for (const auto& kv : m_records)
    std::copy(kv.second.begin(), kv.second.begin() + std::min<size_t>(kv.second.size(), m_record_size),
              bytes.begin() + long(kv.first * m_record_size));
  std::string path = dir + "/mft.bin";
  write_file(path, bytes);
  return path;
}

}  // namespace testutil
