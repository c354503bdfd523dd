// Expansion speed of compressed streams: a sample of text shaped like log and document lines,
// compressed into units of 16 clusters of 4096 bytes in memory, expanded over and over until
// about 256 MiB of output; prints MB/s of output.
#include <chrono>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "ntfs/orv_lznt1.h"
#include "tests/ntfs/lznt1_writer.h"

namespace {

std::vector<uint8_t> sample(size_t size) {
  static const char* words[] = {"the", "volume", "record", "of", "a", "file", "was", "written", "to", "cluster",
                                "and", "index", "entry", "time", "error", "user", "session", "opened", "closed",
                                "service", "started", "request", "from", "host", "with", "status", "in", "for"};
  std::mt19937 rnd(7);
  std::string text;
  while (text.size() < size) {
    text += "2024-03-" + std::to_string(10 + rnd() % 20) + " " + std::to_string(rnd() % 24) + ":" +
            std::to_string(10 + rnd() % 50) + ":" + std::to_string(10 + rnd() % 50) + " ";
    for (unsigned n = 4 + rnd() % 12; n; --n) {
      text += words[rnd() % (sizeof words / sizeof *words)];
      text += rnd() % 9 ? " " : std::to_string(rnd() % 100000) + " ";
    }
    text += "\n";
  }
  return std::vector<uint8_t>(text.begin(), text.begin() + int64_t(size));
}

}  // namespace

int main() {
  const size_t unit_size = 16 * 4096, sample_size = 4u << 20, output = 256u << 20;
  const std::vector<uint8_t> text = sample(sample_size);
  std::vector<std::vector<uint8_t>> units;
  size_t stored = 0;
  for (size_t at = 0; at < text.size(); at += unit_size) {
    units.push_back(lznt1w::unit(text.data() + at, unit_size, unit_size));
    size_t used = units.back().size();
    while (used && units.back()[used - 1] == 0) --used;
    stored += (used + 4095) / 4096 * 4096;
  }
  std::vector<uint8_t> sink;
  sink.reserve(unit_size);
  size_t produced = 0, out_length = 0;
  bool ok = true;
  const auto start = std::chrono::steady_clock::now();
  while (produced < output)
    for (const std::vector<uint8_t>& unit : units) {
      sink.clear();
      ok &= decompress_unit(sink, out_length, unit.data(), unit.size(), unit_size, 0xA | LZNT1_SINK_BYTES);
      produced += out_length;
    }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("lznt1 expand: %zu units of %zu KiB, clusters kept %.1f%%, %.0f MiB out in %.2f s: %.0f MB/s%s\n",
              units.size(), unit_size / 1024, 100.0 * double(stored) / double(sample_size),
              double(produced) / 1048576.0, seconds, double(produced) / seconds / 1e6, ok ? "" : " (FAILED UNITS)");
  return ok ? 0 : 1;
}
