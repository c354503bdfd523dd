#pragma once
// Text: wide strings hold one code point per unit (wchar_t is 32 bits on Linux), narrow strings
// hold UTF-8, on-disk strings are UTF-16LE. Conversions never throw: bad input gives false or an
// empty/partial result as documented per function.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orv {

// The one UTF-8 encoder. Code points above 0x10FFFF end a conversion there, keeping what was
// made; put_utf8 and append_utf8 write nothing for them.
char* put_utf8(char* p, uint32_t code_point);  // 1..4 bytes at p; returns the end
void append_utf8(std::string& out, uint32_t code_point);
void append_utf8_of(std::string& out, const std::wstring& text);
std::string to_utf8(const std::wstring& wide);
// Empty string on invalid UTF-8 (bad lead byte, sequence cut by the end).
std::wstring to_wide(const std::string& narrow);
// UTF-16LE to UTF-8; false on a lone high surrogate; a low surrogate alone is passed as is.
bool utf16_to_utf8(const uint8_t* bytes, size_t length, std::string& out);
// Stops at the first 0 unit or at length/2 units (length -1: 500 units). Surrogate pairs join;
// a string holding a lone surrogate falls back to widening each unit by itself. Returns bytes consumed.
size_t utf16_to_wide(const uint8_t* bytes, int64_t length, std::wstring& out);
size_t utf16_name_to_utf8(const uint8_t* bytes, int64_t length, std::string& out, bool skip_terminator);

// Lower case by the Unicode database built into the program, whatever the process locale;
// characters outside the Basic Multilingual Plane stay as they are.
wchar_t fold_lower(wchar_t c);
void to_lower(std::wstring& text);  // fold_lower per unit, in place
void to_lower(std::string& text);   // tolower per byte (default locale)
std::wstring lowered(std::wstring text);
// A name as names compare: each character through the volume's $UpCase when `upcase` holds all
// 65536 units, then fold_lower; equal names under NTFS's own comparison stay equal.
std::wstring fold_name(const std::wstring& text, const std::vector<uint16_t>& upcase);
std::string lowered(std::string text);
void replace_char(std::wstring& text, wchar_t from, wchar_t to, bool ignore_case);
size_t remove_char(std::wstring& text, wchar_t ch);
size_t remove_char(std::string& text, char ch);
void strip_trailing_slashes(std::wstring& text);
void strip_trailing_slashes(std::string& text);
std::string trim(const std::string& text, const char* blanks = " \t\r\n");
std::wstring trim(const std::wstring& text, const wchar_t* blanks = L" \t\r\n");
// Cuts at any of the separator characters; parts trimmed of blanks when trim_parts is set.
// Empty parts are kept.
std::vector<std::string> split(const std::string& text, const std::string& separators, bool trim_parts);
std::vector<std::wstring> split(const std::wstring& text, const std::wstring& separators, bool trim_parts);

// Number readers of the option layer. Each trims and lowers first. False leaves `out` unchanged,
// except parse_size, which sets 0 on refusal.
bool parse_u64(const std::string& text,
               uint64_t& out);  // "x" -> hex after it; "o" -> octal after it; digit/+/- -> decimal
bool parse_u32(const std::string& text, uint32_t& out);    // same rules
bool parse_small(const std::string& text, uint32_t& out);  // "x.."/"0x.." hex, "o.." octal, digits, 'c'
bool parse_size(const std::string& text, uint64_t& out);   // leading blanks skipped; see the option layer
bool parse_number(const std::string& text, uint64_t& out); // same as parse_u64

// 16 bytes: u32, u16, u16 little-endian, then 8 single bytes: "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x"
std::string guid_text(const uint8_t* bytes);

// 1 CRLF, 2 CR, 3 LF, 4 LFCR, 6 mixed, 7 none seen (positions 0..length-2 are walked).
int line_end_kind(const uint8_t* bytes, size_t length);

// Hex helpers used by writers: lower-case, zero-filled to `digits`.
std::string hex_digits(uint64_t value, int digits);

}  // namespace orv
