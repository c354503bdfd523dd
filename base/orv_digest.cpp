#include "base/orv_digest.h"

#include <cstring>

#include "base/orv_le.h"

// All three digests cut the message into 64-byte blocks and end it with one 0x80 byte, zeros up
// to 8 bytes short of a block boundary, and the message length in bits as a 64-bit number: MD5
// little-endian, the SHA family big-endian. Each block is compressed into the chaining value.
// Words are read from bytes by shifts, so the code gives the same digests on any host order.

namespace orv {
namespace {

// Compresses `count` whole blocks at `blocks` into the chaining value `h`.
using compress_fn = void (*)(uint32_t* h, const uint8_t* blocks, size_t count);

inline uint32_t rotl(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }
inline uint32_t rotr(uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }
inline uint32_t be32(const uint8_t* p) {
  return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}
inline void put_be32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = uint8_t(v >> (24 - 8 * i));
}

// Tops up the open block, compresses whole blocks straight from `bytes`, keeps the rest.
void feed(uint32_t* h, uint64_t& length, uint8_t* block, const uint8_t* bytes, size_t size, compress_fn compress) {
  if (size == 0) return;
  const size_t used = size_t(length & 63);
  length += size;
  if (used != 0) {
    const size_t take = size < 64 - used ? size : 64 - used;
    std::memcpy(block + used, bytes, take);
    if (used + take < 64) return;
    compress(h, block, 1);
    bytes += take;
    size -= take;
  }
  if (size >= 64) {
    compress(h, bytes, size / 64);
    bytes += size & ~size_t(63);
    size &= 63;
  }
  if (size != 0) std::memcpy(block, bytes, size);
}

// Pads the message, compresses the last block(s) and writes the `words` of the chaining value
// to `out` in the digest's byte order.
void finish(uint32_t* h, uint64_t length, uint8_t* block, compress_fn compress, bool big_endian, uint8_t* out,
            int words) {
  size_t used = size_t(length & 63);
  block[used++] = 0x80;
  if (used > 56) {  // no room for the length: it goes into one more block
    std::memset(block + used, 0, 64 - used);
    compress(h, block, 1);
    used = 0;
  }
  std::memset(block + used, 0, 56 - used);
  const uint64_t bits = length << 3;
  if (big_endian) {
    put_be32(block + 56, uint32_t(bits >> 32));
    put_be32(block + 60, uint32_t(bits));
  } else {
    put_le64(block + 56, bits);
  }
  compress(h, block, 1);
  for (int i = 0; i < words; ++i) {
    if (big_endian)
      put_be32(out + 4 * i, h[i]);
    else
      put_le32(out + 4 * i, h[i]);
  }
}

// --- MD5 ---------------------------------------------------------------------------------------

// floor(|sin(i + 1)| * 2^32), the additive constant of step i.
const uint32_t MD5_T[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// One step of each round: a = b + ((a + f(b, c, d) + word + constant) <<< s), where `xt` is the
// word plus the constant. b, the newest value, is used as late as possible: the steps form one
// chain, and its length is the speed of MD5.
inline void md5_f(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t xt, int s) {
  a = b + rotl(a + xt + (d ^ (b & (c ^ d))), s);
}
inline void md5_g(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t xt, int s) {
  a = b + rotl(a + xt + (c & ~d) + (b & d), s);  // (b & d) | (c & ~d), whose parts share no bit
}
inline void md5_h(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t xt, int s) {
  a = b + rotl(a + xt + ((c ^ d) ^ b), s);
}
inline void md5_i(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, uint32_t xt, int s) {
  a = b + rotl(a + xt + (c ^ (b | ~d)), s);
}

void md5_compress(uint32_t* h, const uint8_t* p, size_t count) {
  for (; count > 0; --count, p += 64) {
    uint32_t x[16];
    for (int i = 0; i < 16; ++i) x[i] = le32(p + 4 * i);
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3];
    // Each round takes the sixteen words in its own order: i, 5i + 1, 3i + 5 and 7i (mod 16).
    for (int t = 0; t < 16; t += 4) {
      md5_f(a, b, c, d, x[t] + MD5_T[t], 7);
      md5_f(d, a, b, c, x[t + 1] + MD5_T[t + 1], 12);
      md5_f(c, d, a, b, x[t + 2] + MD5_T[t + 2], 17);
      md5_f(b, c, d, a, x[t + 3] + MD5_T[t + 3], 22);
    }
    for (int t = 16; t < 32; t += 4) {
      md5_g(a, b, c, d, x[(5 * t + 1) & 15] + MD5_T[t], 5);
      md5_g(d, a, b, c, x[(5 * t + 6) & 15] + MD5_T[t + 1], 9);
      md5_g(c, d, a, b, x[(5 * t + 11) & 15] + MD5_T[t + 2], 14);
      md5_g(b, c, d, a, x[(5 * t + 16) & 15] + MD5_T[t + 3], 20);
    }
    for (int t = 32; t < 48; t += 4) {
      md5_h(a, b, c, d, x[(3 * t + 5) & 15] + MD5_T[t], 4);
      md5_h(d, a, b, c, x[(3 * t + 8) & 15] + MD5_T[t + 1], 11);
      md5_h(c, d, a, b, x[(3 * t + 11) & 15] + MD5_T[t + 2], 16);
      md5_h(b, c, d, a, x[(3 * t + 14) & 15] + MD5_T[t + 3], 23);
    }
    for (int t = 48; t < 64; t += 4) {
      md5_i(a, b, c, d, x[(7 * t) & 15] + MD5_T[t], 6);
      md5_i(d, a, b, c, x[(7 * t + 7) & 15] + MD5_T[t + 1], 10);
      md5_i(c, d, a, b, x[(7 * t + 14) & 15] + MD5_T[t + 2], 15);
      md5_i(b, c, d, a, x[(7 * t + 21) & 15] + MD5_T[t + 3], 21);
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
  }
}

// --- SHA-1 -------------------------------------------------------------------------------------

// Round T: e += (a <<< 5) + f(b, c, d) + constant + word, b <<<= 30, with f and the constant
// changing every twenty rounds. From round 16 on the word is grown in place in a ring of the
// last sixteen. The caller turns the roles of a..e by one from round to round instead of moving
// the values; a template per round keeps every ring index a constant.
template <int T>
inline void sha1_round(uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e, uint32_t* w) {
  uint32_t x = w[T & 15];
  if constexpr (T >= 16) x = w[T & 15] = rotl(w[(T + 13) & 15] ^ w[(T + 8) & 15] ^ w[(T + 2) & 15] ^ x, 1);
  if constexpr (T < 20) {
    e += x + 0x5a827999 + (d ^ (b & (c ^ d)));  // b chooses between c and d
  } else if constexpr (T < 40) {
    e += x + 0x6ed9eba1 + (b ^ c ^ d);
  } else if constexpr (T < 60) {
    e += x + 0x8f1bbcdc + ((b & c) + (d & (b ^ c)));  // majority: (b & c) | (b & d) | (c & d)
  } else {
    e += x + 0xca62c1d6 + (b ^ c ^ d);
  }
  e += rotl(a, 5);
  b = rotl(b, 30);
}

// Rounds T .. T+4, after which the roles are back in place.
template <int T>
inline void sha1_five(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, uint32_t& e, uint32_t* w) {
  sha1_round<T>(a, b, c, d, e, w);
  sha1_round<T + 1>(e, a, b, c, d, w);
  sha1_round<T + 2>(d, e, a, b, c, w);
  sha1_round<T + 3>(c, d, e, a, b, w);
  sha1_round<T + 4>(b, c, d, e, a, w);
}

void sha1_compress(uint32_t* h, const uint8_t* p, size_t count) {
  for (; count > 0; --count, p += 64) {
    uint32_t w[16];
    for (int t = 0; t < 16; ++t) w[t] = be32(p + 4 * t);
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4];
    sha1_five<0>(a, b, c, d, e, w);
    sha1_five<5>(a, b, c, d, e, w);
    sha1_five<10>(a, b, c, d, e, w);
    sha1_five<15>(a, b, c, d, e, w);
    sha1_five<20>(a, b, c, d, e, w);
    sha1_five<25>(a, b, c, d, e, w);
    sha1_five<30>(a, b, c, d, e, w);
    sha1_five<35>(a, b, c, d, e, w);
    sha1_five<40>(a, b, c, d, e, w);
    sha1_five<45>(a, b, c, d, e, w);
    sha1_five<50>(a, b, c, d, e, w);
    sha1_five<55>(a, b, c, d, e, w);
    sha1_five<60>(a, b, c, d, e, w);
    sha1_five<65>(a, b, c, d, e, w);
    sha1_five<70>(a, b, c, d, e, w);
    sha1_five<75>(a, b, c, d, e, w);
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
  }
}

// --- SHA-256 -----------------------------------------------------------------------------------

// The first 32 bits of the fractional parts of the cube roots of the first 64 primes.
const uint32_t SHA256_K[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

// One round, where `kw` is the round constant plus the word; as with SHA-1 the caller turns the
// roles of a..h rather than moving eight values.
inline void sha256_round(uint32_t a, uint32_t b, uint32_t c, uint32_t& d, uint32_t e, uint32_t f, uint32_t g,
                         uint32_t& h, uint32_t kw) {
  h += kw + (g ^ (e & (f ^ g))) + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25));
  d += h;
  h += (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) | (c & (a | b)));
}

void sha256_compress(uint32_t* h, const uint8_t* p, size_t count) {
  for (; count > 0; --count, p += 64) {
    uint32_t w[64];
    for (int t = 0; t < 16; ++t) w[t] = be32(p + 4 * t);
    for (int t = 16; t < 64; ++t) {
      const uint32_t s0 = rotr(w[t - 15], 7) ^ rotr(w[t - 15], 18) ^ (w[t - 15] >> 3);
      const uint32_t s1 = rotr(w[t - 2], 17) ^ rotr(w[t - 2], 19) ^ (w[t - 2] >> 10);
      w[t] = w[t - 16] + s0 + w[t - 7] + s1;
    }
    uint32_t a = h[0], b = h[1], c = h[2], d = h[3], e = h[4], f = h[5], g = h[6], hh = h[7];
    for (int t = 0; t < 64; t += 8) {
      sha256_round(a, b, c, d, e, f, g, hh, SHA256_K[t] + w[t]);
      sha256_round(hh, a, b, c, d, e, f, g, SHA256_K[t + 1] + w[t + 1]);
      sha256_round(g, hh, a, b, c, d, e, f, SHA256_K[t + 2] + w[t + 2]);
      sha256_round(f, g, hh, a, b, c, d, e, SHA256_K[t + 3] + w[t + 3]);
      sha256_round(e, f, g, hh, a, b, c, d, SHA256_K[t + 4] + w[t + 4]);
      sha256_round(d, e, f, g, hh, a, b, c, SHA256_K[t + 5] + w[t + 5]);
      sha256_round(c, d, e, f, g, hh, a, b, SHA256_K[t + 6] + w[t + 6]);
      sha256_round(b, c, d, e, f, g, hh, a, SHA256_K[t + 7] + w[t + 7]);
    }
    h[0] += a;
    h[1] += b;
    h[2] += c;
    h[3] += d;
    h[4] += e;
    h[5] += f;
    h[6] += g;
    h[7] += hh;
  }
}

}  // namespace

void md5_init(md5_state& s) {
  s = md5_state();
  const uint32_t start[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
  std::memcpy(s.m_h, start, sizeof(start));
}

void md5_update(md5_state& s, const uint8_t* bytes, size_t length) {
  feed(s.m_h, s.m_length, s.m_block, bytes, length, md5_compress);
}

void md5_final(md5_state& s, uint8_t out[16]) {
  finish(s.m_h, s.m_length, s.m_block, md5_compress, false, out, 4);
}

void sha1_init(sha1_state& s) {
  s = sha1_state();
  const uint32_t start[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
  std::memcpy(s.m_h, start, sizeof(start));
}

void sha1_update(sha1_state& s, const uint8_t* bytes, size_t length) {
  feed(s.m_h, s.m_length, s.m_block, bytes, length, sha1_compress);
}

void sha1_final(sha1_state& s, uint8_t out[20]) {
  finish(s.m_h, s.m_length, s.m_block, sha1_compress, true, out, 5);
}

void sha256_init(sha256_state& s) {
  s = sha256_state();
  // The first 32 bits of the fractional parts of the square roots of the first 8 primes.
  const uint32_t start[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::memcpy(s.m_h, start, sizeof(start));
}

void sha256_update(sha256_state& s, const uint8_t* bytes, size_t length) {
  feed(s.m_h, s.m_length, s.m_block, bytes, length, sha256_compress);
}

void sha256_final(sha256_state& s, uint8_t out[32]) {
  finish(s.m_h, s.m_length, s.m_block, sha256_compress, true, out, 8);
}

void append_hex(std::string& text, const uint8_t* bytes, size_t length) {
  static const char digits[] = "0123456789abcdef";
  const size_t at = text.size();
  text.resize(at + 2 * length);
  for (size_t i = 0; i < length; ++i) {
    text[at + 2 * i] = digits[bytes[i] >> 4];
    text[at + 2 * i + 1] = digits[bytes[i] & 15];
  }
}

}  // namespace orv
