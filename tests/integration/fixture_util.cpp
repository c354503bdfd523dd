#include "tests/integration/fixture_util.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace fixtures {

namespace {

bool exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

std::vector<std::string> split_on(const std::string& line, const std::string& sep) {
  std::vector<std::string> out;
  for (size_t start = 0;;) {
    size_t pos = line.find(sep, start);
    out.push_back(line.substr(start, pos == std::string::npos ? std::string::npos : pos - start));
    if (pos == std::string::npos) return out;
    start = pos + sep.size();
  }
}

std::string trim(const std::string& s) {
  size_t a = s.find_first_not_of(' ');
  return a == std::string::npos ? "" : s.substr(a, s.find_last_not_of(' ') - a + 1);
}

// Runs `command` into the work file `name` through a temporary name, so that parallel test
// processes never see a half-written file.
std::string make_file(const std::string& command, const std::string& name) {
  std::string dst = std::string(BRIMLOCK_WORK_DIR) + "/" + name, tmp = dst + ".tmp." + std::to_string(getpid());
  auto r = testutil::run_shell("mkdir -p " + q(dst.substr(0, dst.rfind('/'))) + " && " + command + " > " + q(tmp) +
                               " && mv -f " + q(tmp) + " " + q(dst));
  return r.status == 0 ? dst : "";
}

}  // namespace

std::string q(const std::string& text) { return testutil::shell_quote(text); }

testutil::run_result run_brimlock(const std::string& args) {
  return testutil::run_shell(q(BRIMLOCK_BINARY) + " " + args);
}

std::string path(const std::string& name) {
  static std::map<std::string, std::string> done;  // decompressed once per test program
  if (done.count(name)) return done[name];
  std::string gz = std::string(BRIMLOCK_SOURCE_DIR) + "/tests/fixtures/data/" + name + ".gz";
  return done[name] = exists(gz) ? make_file("gzip -dc " + q(gz), name) : "";
}

std::string scratch_dir(const std::string& tag) {
  std::string dir = std::string(BRIMLOCK_WORK_DIR) + "/scratch/" + tag + "." + std::to_string(getpid());
  testutil::run_shell("rm -rf " + q(dir) + " && mkdir -p " + q(dir));
  return dir;
}

std::string corpus_dir() {
  const char* env = std::getenv("BRIMLOCK_CORPUS_DIR");
  std::string dir = env ? env : std::string(BRIMLOCK_SOURCE_DIR) + "/../shared/corpus";
  return exists(dir + "/README.md") ? dir : "";
}

std::string image(const std::string& which, uint64_t cut) {
  if (which.compare(0, 7, "corpus:") == 0) {
    std::string name = "corpus/" + which.substr(7), gz = corpus_dir() + "/" + which.substr(7) + ".gz";
    if (exists(BRIMLOCK_WORK_DIR "/" + name)) return BRIMLOCK_WORK_DIR "/" + name;
    return corpus_dir().empty() || !exists(gz) ? "" : make_file("gzip -dc " + q(gz), name);
  }
  std::string src = path(which), size = std::to_string(cut);
  if (!cut || src.empty()) return src;
  return make_file("head -c " + size + " " + q(src), "cut/" + which + "." + size);
}

std::vector<const fact_name*> facts::names_of(uint64_t inode) const {
  std::vector<const fact_name*> out;
  for (const auto& n : names)
    if (n.inode == inode) out.push_back(&n);
  return out;
}

bool facts::dir_path(uint64_t inode, std::string& out) const {
  out.clear();
  auto it = std::find_if(paths.begin(), paths.end(),
                         [&](const fact_path& p) { return p.inode == inode && p.kind == 'd'; });
  if (it != paths.end()) out = it->path;
  return inode == 5 || it != paths.end();
}

facts load_facts(const std::string& name) {
  facts f;
  std::ifstream in(path(name), std::ios::binary);  // no facts when missing
  std::string line;
  while (std::getline(in, line)) {
    auto c = split_on(line, "\t");
    const std::string& kind = c[0];
    if (kind == "info" && c.size() >= 3) {
      f.info[c[1]] = c[2];
    } else if (kind == "rec" && c.size() >= 12) {
      f.records[std::stoull(c[1])] = {std::stoull(c[1]), uint16_t(std::stoul(c[2])), c[3] == "alloc", c[4] == "dir",
                                      uint32_t(std::stoul(c[5])), c[6], c[7] != "-", {c[8], c[9], c[10], c[11]},
                                      c[8] != "absent"};
    } else if (kind == "name" && c.size() >= 11) {
      f.names.push_back({std::stoull(c[1]), std::stoull(c[2]), std::stoull(c[3]), uint16_t(std::stoul(c[4])),
                         std::stoi(c[5]), c[6], {c[7], c[8], c[9], c[10]}});
    } else if (kind == "path" && c.size() >= 5) {
      f.paths.push_back({std::stoull(c[1]), c[2] == "alloc", c[3].empty() ? '?' : c[3][0], c[4]});
    } else if (kind == "md5" && c.size() >= 4) {
      f.md5s.push_back({c[1], c[2], c[3]});
    } else if (kind == "part" && c.size() >= 5) {
      f.parts.push_back({c[1], c[4], std::stoull(c[2])});
    }
  }
  return f;
}

std::string results::cell(size_t row, const std::string& name) const {
  size_t c = size_t(std::find(header.begin(), header.end(), name) - header.begin());
  return row < rows.size() && c < rows[row].size() ? rows[row][c] : "\x01missing";
}

results parse_results(const std::string& text, const std::string& separator, size_t preamble_lines) {
  results r;
  std::stringstream ss(text);
  std::string line;
  while (std::getline(ss, line)) r.lines.push_back(line);
  if (r.lines.size() <= preamble_lines) return r;
  for (const auto& h : split_on(r.lines[preamble_lines], separator)) r.header.push_back(trim(h));
  for (size_t i = preamble_lines + 1; i < r.lines.size(); ++i) {
    if (r.lines[i].empty()) continue;
    r.rows.emplace_back();
    for (const auto& c : split_on(r.lines[i], separator)) r.rows.back().push_back(trim(c));
  }
  return r;
}

uint64_t parse_number(const std::string& cell) {
  return cell.compare(0, 2, "0x") == 0 ? std::stoull(cell.substr(2), nullptr, 16) : std::stoull(cell);
}

}  // namespace fixtures
