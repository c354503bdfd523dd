#pragma once
// NTFS compression: LZNT1 chunks and the compression units of 16 clusters that hold them.
//
// A chunk starts with a u16 header: bits 0-11 the chunk's data length - 1 (0xFFF with bit 15
// clear: 4096 bytes stored as they are), bits 12-14 a signature (3, not tested), bit 15 set when
// the data is compressed. Compressed data is a series of groups: a flag byte, then 8 tokens, a
// literal byte for each clear flag bit and a u16 back reference for each set one. Every chunk
// expands to 4096 bytes.
#include <cstddef>
#include <cstdint>
#include <vector>

constexpr size_t LZNT1_CHUNK_OUTPUT = 4096;
constexpr size_t LZNT1_MAX_OUTPUT = 16384;  // most a single chunk call accepts to produce

// Flags of decompress_unit. The low ones come from read_stream: 0x8 always, 0x2 when a sparse
// cluster was met. The sink selector is required: the expanded bytes are appended to the vector.
constexpr uint32_t LZNT1_SINK_BYTES = 0x4000;

// Expands one chunk's data (`in`, past the header) into `out`, which has room for `out_capacity`
// bytes. Input under 9 bytes zeroes `expected` bytes of `out` first; otherwise `out` keeps what
// it held wherever the chunk writes nothing. On success `out_capacity` becomes `expected`; a back
// reference before the start of the output sets it to 0 and fails.
bool lznt1_chunk(const uint8_t* in, size_t in_length, uint8_t* out, size_t& out_capacity, size_t expected);

// Expands or copies one compression unit of `unit_length` bytes, appending at most `bytes_left`
// bytes to `sink`; `out_length` tells how many. A unit read without any sparse cluster is stored
// as it is, unless it begins with a stored chunk (0xFF 0x3F). A malformed chunk turns the whole
// unit into stored bytes (after any chunks already given), or fails when the unit's last 4096
// bytes are zero: then it cannot have been stored.
bool decompress_unit(std::vector<uint8_t>& sink, size_t& out_length, const uint8_t* unit, size_t unit_length,
                     uint64_t bytes_left, uint32_t flags);
