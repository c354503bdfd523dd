#pragma once
// MD5, SHA-1 and SHA-256 of content fed in pieces of any size. Each state holds the chaining
// value, the count of bytes fed and the start of a 64-byte block not yet compressed; init
// starts a digest, update may be called any number of times (a length of 0 does nothing, even
// with a null pointer), final writes the digest and leaves the state to be started again by init.
#include <cstddef>
#include <cstdint>
#include <string>

namespace orv {

struct md5_state {
  uint32_t m_h[4] = {};
  uint64_t m_length = 0;  // bytes fed so far; the low six bits tell how much of m_block is used
  uint8_t m_block[64] = {};
};

struct sha1_state {
  uint32_t m_h[5] = {};
  uint64_t m_length = 0;
  uint8_t m_block[64] = {};
};

struct sha256_state {
  uint32_t m_h[8] = {};
  uint64_t m_length = 0;
  uint8_t m_block[64] = {};
};

void md5_init(md5_state& s);
void md5_update(md5_state& s, const uint8_t* bytes, size_t length);
void md5_final(md5_state& s, uint8_t out[16]);

void sha1_init(sha1_state& s);
void sha1_update(sha1_state& s, const uint8_t* bytes, size_t length);
void sha1_final(sha1_state& s, uint8_t out[20]);

void sha256_init(sha256_state& s);
void sha256_update(sha256_state& s, const uint8_t* bytes, size_t length);
void sha256_final(sha256_state& s, uint8_t out[32]);

// Lower-case hexadecimal of a digest, appended to `text`.
void append_hex(std::string& text, const uint8_t* bytes, size_t length);

}  // namespace orv
