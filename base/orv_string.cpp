#include "base/orv_string.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cwctype>

#include "base/orv_le.h"

namespace orv {

// ---- UTF-8 ---------------------------------------------------------------------------------

char* put_utf8(char* p, uint32_t cp) {
  if (cp <= 0x7F) {
    *p++ = char(cp);
  } else if (cp <= 0x7FF) {
    *p++ = char(0xC0 | (cp >> 6));
    *p++ = char(0x80 | (cp & 0x3F));
  } else if (cp <= 0xFFFF) {
    *p++ = char(0xE0 | (cp >> 12));
    *p++ = char(0x80 | ((cp >> 6) & 0x3F));
    *p++ = char(0x80 | (cp & 0x3F));
  } else if (cp <= 0x10FFFF) {
    *p++ = char(0xF0 | (cp >> 18));
    *p++ = char(0x80 | ((cp >> 12) & 0x3F));
    *p++ = char(0x80 | ((cp >> 6) & 0x3F));
    *p++ = char(0x80 | (cp & 0x3F));
  }
  return p;
}

void append_utf8(std::string& out, uint32_t cp) {
  char bytes[4];
  out.append(bytes, size_t(put_utf8(bytes, cp) - bytes));
}

void append_utf8_of(std::string& out, const std::wstring& text) {
  // Names and paths are mostly ASCII: those go straight into the grown string, four at a time
  // while all four are ASCII.
  const size_t start = out.size();
  const wchar_t* const wide = text.data();
  const size_t size = text.size();
  out.resize(start + size);
  char* const ascii = &out[0] + start;
  size_t i = 0;
  for (; i + 4 <= size; i += 4) {
    const uint32_t a = uint32_t(wide[i]), b = uint32_t(wide[i + 1]), c = uint32_t(wide[i + 2]),
                   d = uint32_t(wide[i + 3]);
    if ((a | b | c | d) >= 0x80) break;
    ascii[i] = char(a);
    ascii[i + 1] = char(b);
    ascii[i + 2] = char(c);
    ascii[i + 3] = char(d);
  }
  for (; i < size && uint32_t(wide[i]) < 0x80; ++i) ascii[i] = char(wide[i]);
  if (i == size) return;
  out.resize(start + i);
  for (; i < size; ++i) {
    const uint32_t cp = uint32_t(wide[i]);
    if (cp > 0x10FFFF) return;  // not a code point: the text ends here
    append_utf8(out, cp);
  }
}

std::string to_utf8(const std::wstring& wide) {
  std::string out;
  append_utf8_of(out, wide);
  return out;
}

std::wstring to_wide(const std::string& narrow) {
  std::wstring out;
  out.reserve(narrow.size());
  const size_t n = narrow.size();
  size_t i = 0;
  while (i < n) {
    uint8_t c = uint8_t(narrow[i]);
    uint32_t cp;
    size_t len;
    if (c < 0x80) {
      cp = c;
      len = 1;
    } else if ((c & 0xE0) == 0xC0) {
      cp = c & 0x1F;
      len = 2;
    } else if ((c & 0xF0) == 0xE0) {
      cp = c & 0x0F;
      len = 3;
    } else if ((c & 0xF8) == 0xF0) {
      cp = c & 0x07;
      len = 4;
    } else {
      return std::wstring();
    }
    if (len > n - i) return std::wstring();
    // Only the lead byte's form is judged; trailing bytes give their low six bits.
    for (size_t k = 1; k < len; ++k) cp = (cp << 6) | (uint8_t(narrow[i + k]) & 0x3F);
    out.push_back(wchar_t(cp));
    i += len;
  }
  return out;
}

// ---- UTF-16LE ------------------------------------------------------------------------------

static inline bool is_high_surrogate(uint32_t u) { return u >= 0xD800 && u <= 0xDBFF; }
static inline bool is_low_surrogate(uint32_t u) { return u >= 0xDC00 && u <= 0xDFFF; }
static inline uint32_t join_surrogates(uint32_t hi, uint32_t lo) {
  return 0x10000 + ((hi - 0xD800) << 10) + (lo - 0xDC00);
}

bool utf16_to_utf8(const uint8_t* bytes, size_t length, std::string& out) {
  out.clear();
  if (!bytes) return length == 0;
  const size_t units = length / 2;
  out.reserve(units);
  for (size_t i = 0; i < units; ++i) {
    uint32_t u = le16(bytes + 2 * i);
    if (is_high_surrogate(u)) {
      uint32_t lo = i + 1 < units ? le16(bytes + 2 * (i + 1)) : 0;
      if (!is_low_surrogate(lo)) return false;
      append_utf8(out, join_surrogates(u, lo));
      ++i;
    } else {
      append_utf8(out, u);  // a low surrogate on its own goes through as it is
    }
  }
  return true;
}

size_t utf16_to_wide(const uint8_t* bytes, int64_t length, std::wstring& out) {
  out.clear();
  if (!bytes) return 0;
  const size_t limit = length < 0 ? 500 : size_t(uint64_t(length) / 2);
  size_t units = 0;
  bool plain = true;  // no surrogate at all: one unit, one character
  for (uint32_t u; units < limit && (u = le16(bytes + 2 * units)) != 0; ++units)
    if (u >= 0xD800 && u <= 0xDFFF) plain = false;
  if (plain) {
    out.resize(units);
    for (size_t i = 0; i < units; ++i) out[i] = wchar_t(le16(bytes + 2 * i));
    return units * 2;
  }
  out.reserve(units);
  bool joined = true;
  for (size_t i = 0; i < units; ++i) {
    uint32_t u = le16(bytes + 2 * i);
    if (is_high_surrogate(u)) {
      uint32_t lo = i + 1 < units ? le16(bytes + 2 * (i + 1)) : 0;
      if (!is_low_surrogate(lo)) {
        joined = false;
        break;
      }
      out.push_back(wchar_t(join_surrogates(u, lo)));
      ++i;
    } else {
      out.push_back(wchar_t(u));
    }
  }
  if (!joined) {
    // A broken pair: keep every unit as a character of its own, so nothing is lost.
    out.clear();
    for (size_t i = 0; i < units; ++i) out.push_back(wchar_t(le16(bytes + 2 * i)));
  }
  return units * 2;
}

size_t utf16_name_to_utf8(const uint8_t* bytes, int64_t length, std::string& out, bool skip_terminator) {
  std::wstring wide;
  size_t used = utf16_to_wide(bytes, length, wide);
  out = to_utf8(wide);
  const size_t limit_bytes = length < 0 ? 1000 : size_t(uint64_t(length) & ~uint64_t(1));
  if (skip_terminator && !wide.empty() && used < limit_bytes) used += 2;
  return used;
}

// ---- small text helpers --------------------------------------------------------------------

namespace {

// Runs of the lower-case mapping: every `step`-th code point from `first` to `last` maps to itself
// plus `delta`. Sorted and disjoint.
struct case_run {
  uint16_t m_first, m_last;
  uint8_t m_step;
  int32_t m_delta;
};
const case_run k_case_runs[] = {
#include "base/orv_case_table.inc"
};

}  // namespace

wchar_t fold_lower(wchar_t c) {
  if (c < 0x80) return c >= L'A' && c <= L'Z' ? wchar_t(c + 32) : c;
  if (uint32_t(c) > 0xFFFF) return c;
  const case_run* begin = k_case_runs;
  const case_run* end = k_case_runs + sizeof k_case_runs / sizeof k_case_runs[0];
  const case_run* run = std::upper_bound(begin, end, uint32_t(c),
                                         [](uint32_t v, const case_run& r) { return v < r.m_first; });
  if (run == begin) return c;
  --run;
  if (uint32_t(c) > run->m_last || (uint32_t(c) - run->m_first) % run->m_step) return c;
  return wchar_t(int32_t(c) + run->m_delta);
}

void to_lower(std::wstring& text) {
  for (wchar_t& c : text) c = fold_lower(c);
}

void to_lower(std::string& text) {
  for (char& c : text) c = char(std::tolower(uint8_t(c)));
}

std::wstring lowered(std::wstring text) {
  to_lower(text);
  return text;
}

std::wstring fold_name(const std::wstring& text, const std::vector<uint16_t>& upcase) {
  std::wstring out = text;
  const bool table = upcase.size() == 0x10000;
  for (wchar_t& c : out) {
    if (table && uint32_t(c) < 0x10000) c = wchar_t(upcase[size_t(c)]);
    c = fold_lower(c);
  }
  return out;
}

std::string lowered(std::string text) {
  to_lower(text);
  return text;
}

void replace_char(std::wstring& text, wchar_t from, wchar_t to, bool ignore_case) {
  wchar_t lo = from, up = from;
  if (ignore_case) lo = fold_lower(from);
  for (wchar_t& c : text)
    if (c == from || c == lo || c == up || (ignore_case && fold_lower(c) == lo)) c = to;
}

template <typename S, typename C>
static size_t remove_all(S& text, C ch) {
  size_t kept = 0;
  for (size_t i = 0; i < text.size(); ++i)
    if (text[i] != ch) text[kept++] = text[i];
  size_t removed = text.size() - kept;
  text.resize(kept);
  return removed;
}

size_t remove_char(std::wstring& text, wchar_t ch) { return remove_all(text, ch); }
size_t remove_char(std::string& text, char ch) { return remove_all(text, ch); }

void strip_trailing_slashes(std::wstring& text) {
  while (!text.empty() && (text.back() == L'/' || text.back() == L'\\')) text.pop_back();
}

void strip_trailing_slashes(std::string& text) {
  while (!text.empty() && (text.back() == '/' || text.back() == '\\')) text.pop_back();
}

std::string trim(const std::string& text, const char* blanks) {
  size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return std::string();
  size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

std::wstring trim(const std::wstring& text, const wchar_t* blanks) {
  size_t first = text.find_first_not_of(blanks);
  if (first == std::wstring::npos) return std::wstring();
  size_t last = text.find_last_not_of(blanks);
  return text.substr(first, last - first + 1);
}

template <typename S>
static std::vector<S> split_any(const S& text, const S& separators, bool trim_parts) {
  std::vector<S> parts;
  if (text.empty()) return parts;
  size_t start = 0;
  for (;;) {
    size_t pos = text.find_first_of(separators, start);
    S part = text.substr(start, pos == S::npos ? S::npos : pos - start);
    parts.push_back(trim_parts ? trim(part) : part);
    if (pos == S::npos) break;
    start = pos + 1;
  }
  return parts;
}

std::vector<std::string> split(const std::string& text, const std::string& separators, bool trim_parts) {
  return split_any(text, separators, trim_parts);
}

std::vector<std::wstring> split(const std::wstring& text, const std::wstring& separators, bool trim_parts) {
  return split_any(text, separators, trim_parts);
}

// ---- number text ---------------------------------------------------------------------------

// strtoull over the whole of `digits`' leading number; false when not a single digit was taken.
static bool read_base(const std::string& digits, int base, uint64_t& out) {
  if (digits.empty()) return false;
  const char* begin = digits.c_str();
  char* end = nullptr;
  errno = 0;
  unsigned long long v = std::strtoull(begin, &end, base);
  if (end == begin) return false;
  out = uint64_t(v);
  return true;
}

bool parse_u64(const std::string& text, uint64_t& out) {
  std::string t = lowered(trim(text));
  size_t x = t.find('x');
  if (x != std::string::npos) return read_base(t.substr(x + 1), 16, out);
  size_t o = t.find('o');
  if (o != std::string::npos) return read_base(t.substr(o + 1), 8, out);
  if (!t.empty() && (std::isdigit(uint8_t(t[0])) || t[0] == '+' || t[0] == '-')) return read_base(t, 10, out);
  return false;
}

bool parse_number(const std::string& text, uint64_t& out) { return parse_u64(text, out); }

bool parse_u32(const std::string& text, uint32_t& out) {
  uint64_t v = 0;
  if (!parse_u64(text, v)) return false;
  out = uint32_t(v);
  return true;
}

bool parse_small(const std::string& text, uint32_t& out) {
  std::string t = lowered(trim(text));
  if (t.empty()) return false;
  uint64_t v = 0;
  bool ok = false;
  if (t[0] == 'x') {
    ok = read_base(t.substr(1), 16, v);
  } else if (t.size() > 1 && t[0] == '0' && t[1] == 'x') {
    ok = read_base(t.substr(2), 16, v);
  } else if (t[0] == 'o') {
    ok = read_base(t.substr(1), 8, v);
  } else if (std::isdigit(uint8_t(t[0]))) {
    ok = read_base(t, 10, v);
  } else if (t.size() >= 3 && t[0] == '\'' && t[2] == '\'') {
    v = uint8_t(t[1]);
    ok = true;
  }
  if (ok) out = uint32_t(v);
  return ok;
}

bool parse_size(const std::string& text, uint64_t& out) {
  out = 0;
  size_t i = 0;
  while (i < text.size() && text[i] == ' ') ++i;
  std::string t = lowered(text.substr(i));
  if (t.empty() || t.size() > 31) return false;
  uint64_t v = 0;
  if (t[0] == 'x' || (t.size() > 1 && t[1] == 'x')) {
    size_t start = t[0] == 'x' ? 1 : 2;
    size_t count = t.size() - start;
    if (count == 0 || count > 16) return false;
    for (size_t k = start; k < t.size(); ++k) {
      char c = t[k];
      int d = (c >= '0' && c <= '9') ? c - '0' : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
      if (d < 0) return false;
      v = (v << 4) | uint64_t(d);
    }
  } else {
    for (char c : t) {
      if (c < '0' || c > '9') return false;  // a blank or any other character after the digits
      uint64_t d = uint64_t(c - '0');
      if (v > (UINT64_MAX - d) / 10) return false;
      v = v * 10 + d;
    }
  }
  out = v;
  return true;
}

// ---- misc ----------------------------------------------------------------------------------

std::string guid_text(const uint8_t* b) {
  if (!b) return std::string();
  // "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x": the first three groups are little-endian
  // numbers, the last two plain bytes. Written by hand: every record with an object id calls this.
  static const char k_hex[] = "0123456789abcdef";
  static const int order[16] = {3, 2, 1, 0, -1, 5, 4, -1, 7, 6, -1, 8, 9, -1, 10, 11};
  std::string text;
  text.reserve(36);
  for (int i : order) {
    if (i < 0) { text.push_back('-'); continue; }
    text.push_back(k_hex[b[i] >> 4]);
    text.push_back(k_hex[b[i] & 0xF]);
  }
  for (int i = 12; i < 16; ++i) {
    text.push_back(k_hex[b[i] >> 4]);
    text.push_back(k_hex[b[i] & 0xF]);
  }
  return text;
}

int line_end_kind(const uint8_t* bytes, size_t length) {
  int kind = 7;
  if (!bytes) return kind;
  for (size_t i = 0; i + 1 < length; ++i) {
    int found;
    if (bytes[i] == '\r') {
      found = bytes[i + 1] == '\n' ? 1 : 2;
    } else if (bytes[i] == '\n') {
      found = bytes[i + 1] == '\r' ? 4 : 3;
    } else {
      continue;
    }
    if (found == 1 || found == 4) ++i;  // the second byte of the pair is taken with it
    if (kind != 7 && kind != found) return 6;
    kind = found;
  }
  return kind;
}

std::string hex_digits(uint64_t value, int digits) {
  static const char k_hex[] = "0123456789abcdef";
  char buf[16];
  int n = 0;
  do {
    buf[n++] = k_hex[value & 0xF];
    value >>= 4;
  } while (value);
  std::string out;
  if (digits > n) out.assign(size_t(digits - n), '0');
  while (n) out.push_back(buf[--n]);
  return out;
}

}  // namespace orv
