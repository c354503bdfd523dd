#include "ntfs/orv_attrib.h"

#include "base/orv_string.h"

using orv::byte_span;

byte_span attrib_view::value() const {
  uint32_t off = value_offset(), len = value_length();
  if (off == 0 || len == 0 || off >= m_bytes.m_size) return byte_span();
  return m_bytes.sub(off, len);
}

bool attrib_view::has_name() const {
  return name_offset() != 0 && name_length() != 0 && m_bytes.has(name_offset(), size_t(name_length()) * 2);
}

std::string attrib_type_name(uint32_t type, bool short_name) {
  struct row { uint32_t type; const char* brief; const char* full; };
  static const row table[] = {
      {0x10, "$StdInfo", "Standard Info Attrib"},
      {0x20, "AttribList", "Attribute list"},
      {0x30, "$Filename", "Filename Attrib"},
      {0x40, "$ObjectID", "Oject ID Attrib"},
      {0x50, "$Security", "Security Desc Attrib"},
      {0x60, "$VolName", "Volume name Attrib"},
      {0x70, "$VolInfo", "Volume Info Attrib"},
      {0x80, "$Data", "Data Attrib"},
      {0x90, "$IndxRoot", "Index Root Attrib"},
      {0xA0, "$IndxAlloc", "Index Allocation Attrib"},
      {0xB0, "$Bitmap", "Bitmap Attrib"},
      {0xC0, "$Reparse", "Reparse point Attrib"},
      {0xD0, "$EaInfo", "EA Info Attrib"},
      {0xE0, "$Ea", "NTFS_EA"},
      {0xF0, "$Property", "Property Set Attrib"},
      {0x100, "$Log", "Logged Utility Stream Attrib"},
      {0xFFFFFFFF, "NTFS_ATTRIBUTE_END_MARKER", "NTFS_ATTRIBUTE_END_MARKER"},
  };
  for (const row& r : table)
    if (r.type == type) return short_name ? r.brief : r.full;
  return std::string();
}

const char* attrib_kind_label(uint32_t type, bool has_name) {
  switch (type) {
    case 0x40: return "obj id";
    case 0x50: return "security descr";
    case 0x60: return "vol name";
    case 0x70: return "vol info";
    case 0x80: return has_name ? "ads" : "unnamed data";
    case 0x90: return "indx root";
    case 0xA0: return "indx alloc";
    case 0xB0: return "bitmap";
    case 0xC0: return "reparse point";
    case 0xD0: return "extended attribs info";
    case 0xE0: return "extended attribs";
    case 0xF0: return "property set";
    case 0x100: return "logged stream";
    default: return "";
  }
}

std::string file_attrib_text(uint32_t flags) {
  static const struct { uint32_t bit; const char* text; } bits[] = {
      {0x1, "READ_ONLY, "},       {0x2, "HIDDEN, "},       {0x4, "SYSTEM, "},
      {0x10, "DIRECTORY, "},      {0x20, "ARCHIVE, "},     {0x40, "DEVICE, "},
      {0x80, "NORMAL, "},         {0x100, "TEMPORARY, "},  {0x200, "SPARSE_FILE, "},
      {0x400, "REPARSE_PT, "},    {0x800, "COMPRESSED, "}, {0x1000, "OFFLINE, "},
      {0x2000, "CONTENT_NOT_INDEXED, "}, {0x4000, "ENCRYPTED, "}, {0x10000, "VIRTUAL, "},
      {0x10000000, "DIRECTORY, "},
  };
  std::string out;
  for (const auto& b : bits)
    if (flags & b.bit) out += b.text;
  if (out.size() > 2) out.resize(out.size() - 2);
  if (out.empty() && flags == 0) out = "none set";
  return out;
}

std::string volume_version_text(uint8_t major, uint8_t minor) {
  std::string text = "ver: " + std::to_string(major) + ":" + std::to_string(minor);
  if (major == 1) text += (minor == 2) ? " (WinNT)" : "(Unk version)";
  else if (major == 3) text += minor == 0 ? " (Win2k)" : minor == 1 ? " (WinXP)" : " (Windows)";
  else text += "(Unk version)";
  return text;
}

// Reparse value: tag u32, data length u16 at 4, substitute name offset/length at 8/10, print name
// offset/length at 12/14, path buffer from 16. Mount points and symbolic links read alike; a
// symbolic link's 4 flag bytes in front of its path are stepped over by skipping zero words.
bool reparse_target(byte_span value, std::wstring& target) {
  target.clear();
  if (value.m_size < 17) return false;
  uint32_t data_length = value.u16(4);
  uint32_t sub_off = value.u16(8), sub_len = value.u16(10);
  uint32_t print_off = value.u16(12), print_len = value.u16(14);
  if (data_length == 0 || int64_t(value.m_size) - 8 - int64_t(data_length) < 0) return false;
  if (sub_len == 0 && print_len == 0) return false;
  if (data_length <= sub_off + sub_len || data_length <= print_off + print_len) return false;
  size_t sub = 16 + sub_off, print = 16 + print_off;
  while (value.has(sub, 2) && value.u16(sub) == 0) {
    sub += 2;
    print += 2;
  }
  if (!value.has(sub, 2)) return false;
  size_t from = print_len ? print : sub;
  size_t len = print_len ? print_len : sub_len;
  byte_span name = value.sub(from, len);
  orv::utf16_to_wide(name.m_data, int64_t(name.m_size), target);
  return true;
}
