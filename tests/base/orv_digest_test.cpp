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

TEST(Digest, AnySplitGivesTheOneCallDigestAndPaddingHoldsAtEveryLength) {
  std::string bytes(10000, '\0');
  uint32_t x = 1;
  for (char& c : bytes) {
    x = x * 1103515245u + 12345u;
    c = char(x >> 24);
  }
  // Digest of the hex digests of the first 0, 1, ... 130 bytes, each taken in one call: lengths
  // either side of 55, 56, 63, 64, 119 and 120 bytes, where the padding does or does not need a
  // block of its own. Computed once with md5sum, sha1sum and sha256sum.
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
