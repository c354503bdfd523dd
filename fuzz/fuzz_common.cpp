#include "fuzz/fuzz_common.h"

#include <filesystem>

#include "run/orv_driver.h"

namespace fuzz {

int run_main(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  int status = brimlock_main(int(args.size()), argv.data());
  std::error_code ignored;
  std::filesystem::remove_all(copy_directory(), ignored);
  return status;
}

}  // namespace fuzz
