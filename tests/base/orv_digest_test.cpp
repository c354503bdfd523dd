#include "base/orv_digest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace orv;

namespace {

enum digest_kind { MD5, SHA1, SHA256 };

template <typename State>
std::string run(State& s, void (*init)(State&), void (*update)(State&, const uint8_t*, size_t),
                void (*final)(State&, uint8_t*), size_t out_size, const std::string& data,
                const std::vector<size_t>& pieces) {
  init(s);
  update(s, nullptr, 0);
  const uint8_t* p = reinterpret_cast<const uint8_t*>(data.data());
  for (size_t at = 0, i = 0; at < data.size(); ++i) {
    const size_t n = std::min(pieces[i % pieces.size()], data.size() - at);
    update(s, p + at, n);
    at += n;
  }
  uint8_t out[32];
  final(s, out);
  std::string hex;
  append_hex(hex, out, out_size);
  return hex;
}

// Hex digest of `data` fed in pieces whose sizes cycle through `pieces`. One state per kind
// serves every call, so each digest also starts on a state that a digest before it finished.
std::string digest(digest_kind kind, const std::string& data, const std::vector<size_t>& pieces = {SIZE_MAX}) {
  static md5_state md5;
  static sha1_state sha1;
  static sha256_state sha256;
  if (kind == MD5) return run(md5, md5_init, md5_update, md5_final, 16, data, pieces);
  if (kind == SHA1) return run(sha1, sha1_init, sha1_update, sha1_final, 20, data, pieces);
  return run(sha256, sha256_init, sha256_update, sha256_final, 32, data, pieces);
}

}  // namespace

TEST(Digest, PublishedVectorsWholeAndInPieces) {
  const std::string m448 = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
  const std::string m896 =
      "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu";
  const std::string million(1000000, 'a');
  const struct {
    digest_kind m_kind;
    std::string m_message;
    const char* m_hex;
  } cases[] = {
      {MD5, "", "d41d8cd98f00b204e9800998ecf8427e"},
      {MD5, "a", "0cc175b9c0f1b6a831c399e269772661"},
      {MD5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
      {MD5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {MD5, "abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {MD5, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {MD5, "1234567890123456789012345678901234567890" "1234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {MD5, million, "7707d6ae4e027c70eea2a935c2296f21"},
      {SHA1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {SHA1, m448, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {SHA1, m896, "a49b2446a02c645bf419f995b67091253a04a259"},
      {SHA1, million, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
      {SHA256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {SHA256, m448, "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {SHA256, m896, "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
      {SHA256, million, "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (const auto& c : cases) {
    const std::string what = std::to_string(c.m_kind) + ": " + c.m_message.substr(0, 40);
    EXPECT_EQ(digest(c.m_kind, c.m_message), c.m_hex) << what;
    // Odd pieces, so that the block boundaries fall inside and between calls.
    EXPECT_EQ(digest(c.m_kind, c.m_message, {1, 3, 61, 64, 67, 4099, 0}), c.m_hex) << what;
  }
}

TEST(Digest, AnySplitGivesTheOneCallDigestAndPaddingHoldsAtEveryLength) {
  std::string bytes(10000, '\0');
  uint32_t x = 1;
  for (char& c : bytes) {
    x = x * 1103515245u + 12345u;
    c = char(x >> 24);
  }
  // Digest of the hex digests of the first 0, 1, ... 130 bytes, each taken in one call: the
  // message lengths either side of 55, 56, 63, 64, 119 and 120 bytes, where the padding does or
  // does not need a block of its own. Computed once with md5sum, sha1sum and sha256sum.
  const char* prefixes[] = {"1bb7f0d50f920aed36613f614de986f8", "f8acbf7d4609486ddb619b3053b61811d3d2f8c8",
                            "45ecd5667089d3bc65e1d756fa2c94c774191a9c2e7b32dddcb8c90825cc161c"};
  for (digest_kind kind : {MD5, SHA1, SHA256}) {
    std::string chain;
    for (size_t n = 0; n <= 130; ++n) chain += digest(kind, bytes.substr(0, n));
    EXPECT_EQ(digest(kind, chain), prefixes[kind]) << kind;

    const std::string whole = digest(kind, bytes);
    for (size_t cut = 0; cut <= bytes.size(); cut += cut < 200 ? 1 : 97)
      EXPECT_EQ(digest(kind, bytes, {cut, bytes.size()}), whole) << kind << " cut at " << cut;
    for (size_t piece = 1; piece <= 130; ++piece) EXPECT_EQ(digest(kind, bytes, {piece}), whole) << kind << " " << piece;
  }
}
