#include "results/orv_header_text.h"

#include "analysis/entry_record.h"

void format_header(std::string& out, const uint8_t* bytes, size_t length, bool strings, size_t minimum,
                   const char* separator) {
  if (!bytes || length == 0) return;
  if (!strings) {
    static const char k_digits[] = "0123456789abcdef";
    for (size_t i = 0; i < length; ++i) {
      if (i) out += ' ';
      out += k_digits[bytes[i] >> 4];
      out += k_digits[bytes[i] & 0xF];
    }
    return;
  }
  if (length < minimum) return;
  bool first = true;
  for (size_t i = 0; i < length;) {
    size_t end = i;
    while (end < length && bytes[end] >= 0x20 && bytes[end] < 0x7F) ++end;
    if (end - i >= minimum) {
      if (!first) out += separator;
      first = false;
      out.append(reinterpret_cast<const char*>(bytes + i), end - i);
    }
    i = end + 1;
  }
}

void append_header_text(std::string& out, const entry_record& entry, bool strings) {
  for (const auto& kv : entry.m_attribs) {
    const attrib_item& item = kv.second;
    if (!item.m_is_data || !item.m_name.empty()) continue;
    format_header(out, item.m_head.data(), item.m_head.size(), strings, 5, "; ");
    return;
  }
}
