#include "base/orv_path.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "base/orv_string.h"
#include "tests/test_util.h"

using namespace orv;

TEST(LocalPaths, EnvironmentExpansion) {
  ::setenv("BRIM_TEST_VAR", "value", 1);
  ::unsetenv("BRIM_TEST_UNSET");
  ::setenv("BRIM_TEST_BIG", std::string(600, 'v').c_str(), 1);
  EXPECT_EQ(expand_environment("a/%BRIM_TEST_VAR%/b"), "a/value/b");
  EXPECT_EQ(expand_environment("%BRIM_TEST_UNSET%/x"), "%BRIM_TEST_UNSET%/x");
  EXPECT_EQ(expand_environment("50%"), "50%");
  // Once past 512 bytes the rest stays as it is.
  EXPECT_EQ(expand_environment("%BRIM_TEST_BIG%%BRIM_TEST_VAR%"), std::string(600, 'v') + "%BRIM_TEST_VAR%");
}

TEST(LocalPaths, DirectoryTreeSplitAndNormalize) {
  const std::string root = testutil::make_temp_dir("paths");
  auto is_dir = [](const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
  };
  EXPECT_TRUE(make_directory_tree(root + "/a/b//c") && is_dir(root + "/a/b/c"));
  EXPECT_TRUE(make_directory_tree(root + "/a/b/c"));  // existing levels are fine
  EXPECT_TRUE(make_directory_tree("\"" + root + "\\q\\r\"") && is_dir(root + "/q/r"));
  EXPECT_TRUE(make_directory_tree(to_wide(root) + L"/sub\u00e9") && is_dir(root + "/sub\xC3\xA9"));
  EXPECT_FALSE(make_directory_tree("") || make_directory_tree("\"\""));
  std::fclose(std::fopen((root + "/plain").c_str(), "w"));
  EXPECT_FALSE(make_directory_tree(root + "/plain/below"));
  for (const auto& c : std::vector<std::pair<std::string, std::string>>{
           {"/x/y/name.tar.gz", "/x/y|name.tar|gz"}, {"plain", "|plain|"}, {"/top.csv", "/|top|csv"}}) {
    std::string dir, name, ext;
    split_path(c.first, dir, name, ext);
    EXPECT_EQ(dir + "|" + name + "|" + ext, c.second);
  }

  char saved[4096], real_sub[4096];
  ASSERT_TRUE(::getcwd(saved, sizeof saved));
  ASSERT_EQ(::chdir((root + "/sub\xC3\xA9").c_str()), 0);
  ASSERT_TRUE(::getcwd(real_sub, sizeof real_sub));
  const std::string sub = real_sub, parent = sub.substr(0, sub.rfind('/'));
  const std::pair<const char*, std::string> cases[] = {
      {"/abs/x.img", "/abs/x.img"},     {" \"/abs/q.img\" ", "/abs/q.img"},  {"img.dd", sub + "/img.dd"},
      {"./d/img.dd", sub + "/d/img.dd"}, {"../img.dd", parent + "/img.dd"}, {"./../a/../b", parent + "/a/../b"},
      {"..", parent},                    {"''img''", sub + "/img"},         {"  ", ""},
      {"\\abs", "\\abs"},  // backslash is no separator here
  };
  for (const auto& c : cases) EXPECT_EQ(normalize_path(c.first, '/'), to_wide(c.second)) << c.first;
  ASSERT_EQ(::chdir(saved), 0);
  testutil::run_shell("rm -rf " + root);
}
