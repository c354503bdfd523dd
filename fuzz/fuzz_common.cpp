#include "fuzz/fuzz_common.h"

#include "run/orv_driver.h"

namespace fuzz {

int run_main(std::vector<std::string> args) {
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(&a[0]);
  argv.push_back(nullptr);
  return brimlock_main(int(args.size()), argv.data());
}

}  // namespace fuzz
