// Whole runs over an extracted $MFT: the input is the file, options come from its bytes.
#include "fuzz/fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 20)) return 0;
  fuzz::memory_file file(data, size);
  if (!file.ok()) return 0;
  std::vector<std::string> args = {"brimlock", "-mftfile", file.path()};
  fuzz::add_run_options(args, fuzz::input_hash(data, size));
  fuzz::run_main(args);
  return 0;
}
