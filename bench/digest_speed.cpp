// Digest throughput: reads FILE in 1 MiB blocks once per digest and prints, for md5, sha1 and
// sha256, one line "name MiB/s seconds digest". Read the file once beforehand so that every
// pass comes from the page cache.
//
//   bench_digest_speed FILE
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "base/orv_digest.h"
#include "base/orv_fileio.h"

namespace {

// One pass over the file; false when it cannot be read to the end.
template <typename State, void (*init)(State&), void (*update)(State&, const uint8_t*, size_t),
          void (*final)(State&, uint8_t*)>
bool pass(const char* name, size_t digest_size, uni::fileio& file, std::vector<uint8_t>& block) {
  State state;
  const auto start = std::chrono::steady_clock::now();
  init(state);
  const uint64_t size = file.fileio_size();
  uint64_t offset = 0;
  while (offset < size) {
    const uint64_t got = file.read_into(block.data(), block.size(), offset);
    if (got == 0) return false;
    update(state, block.data(), size_t(got));
    offset += got;
  }
  uint8_t digest[32];
  final(state, digest);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::string hex;
  orv::append_hex(hex, digest, digest_size);
  std::printf("%-7s %9.1f MiB/s %8.3f s  %s\n", name, double(size) / 1048576.0 / (seconds > 0 ? seconds : 1e-9),
              seconds, hex.c_str());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s FILE\n", argv[0]);
    return 2;
  }
  uni::fileio file;
  if (!file.open(std::string(argv[1]))) {
    std::fprintf(stderr, "cannot open %s\n", argv[1]);
    return 1;
  }
  std::vector<uint8_t> block(1 << 20);
  using namespace orv;
  const bool ok = pass<md5_state, md5_init, md5_update, md5_final>("md5", 16, file, block) &&
                  pass<sha1_state, sha1_init, sha1_update, sha1_final>("sha1", 20, file, block) &&
                  pass<sha256_state, sha256_init, sha256_update, sha256_final>("sha256", 32, file, block);
  if (!ok) std::fprintf(stderr, "cannot read %s\n", argv[1]);
  return ok ? 0 : 1;
}
