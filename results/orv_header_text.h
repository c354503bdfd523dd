#pragma once
// Head bytes of a stream as the rows show them: hexadecimal bytes, or the printable strings in
// them.
#include <cstddef>
#include <cstdint>
#include <string>

class entry_record;

// Without `strings`: each byte as two hex digits, one blank between bytes. With `strings`: the
// runs of at least `minimum` printable characters, joined by `separator`; fewer bytes than
// `minimum` give nothing.
void format_header(std::string& out, const uint8_t* bytes, size_t length, bool strings, size_t minimum,
                   const char* separator);
// The head bytes of the record's unnamed data stream, rendered as the options ask; empty when
// there are none.
void append_header_text(std::string& out, const entry_record& entry, bool strings);
