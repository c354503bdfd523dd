// Whole runs over a volume image: the input is the image, options come from its bytes.
#include "fuzz/fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (4u << 20)) return 0;
  fuzz::memory_file file(data, size);
  if (!file.ok()) return 0;
  uint32_t bits = fuzz::input_hash(data, size);
  std::vector<std::string> args = {"brimlock", "-image", file.path()};
  if (bits & 0x400) args.push_back("-filter_unalloc_clusters");
  if (bits & 0x800) args.insert(args.end(), {"-mftstart", "3", "-mftrange", "40"});
  if (bits & 0x4000) args.insert(args.end(), {"-filter_dir", "\\*?", "-filter_file", "docs/report.txt:meta"});
  fuzz::add_run_options(args, bits);
  fuzz::run_main(args);
  return 0;
}
