#include "tests/integration/fixture_util.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <fstream>

#include "base/orv_string.h"

namespace fixtures {

namespace {

bool exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

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
    auto c = orv::split(line, "\t", false);
    const std::string kind = c.empty() ? "" : c[0];
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
    } else if ((kind == "md5" || kind == "damaged") && c.size() >= 4) {
      (kind == "md5" ? f.md5s : f.damaged).push_back({c[1], c[2], c[3]});
    } else if (kind == "owner" && c.size() >= 4) {
      f.owners[std::stoull(c[1])] = {uint32_t(std::stoul(c[2])), c[3]};
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
  r.lines = orv::split(text, "\n", false);
  if (!r.lines.empty() && r.lines.back().empty()) r.lines.pop_back();  // behind the last line feed
  if (r.lines.size() <= preamble_lines) return r;
  r.header = orv::split(r.lines[preamble_lines], separator, true);
  for (size_t i = preamble_lines + 1; i < r.lines.size(); ++i)
    if (!r.lines[i].empty()) r.rows.push_back(orv::split(r.lines[i], separator, true));
  return r;
}

rows_run run_rows(const std::string& tag, const std::string& args, const std::string& separator) {
  const std::string out = scratch_dir(tag) + "/rows.txt";
  rows_run r;
  r.run = run_brimlock(args + " -out " + q(out));
  r.rows = parse_results(testutil::read_text(out), separator);
  const bool numbered = std::count(r.rows.header.begin(), r.rows.header.end(), "mft entry") > 0;
  for (size_t i = 0; numbered && i < r.rows.rows.size(); ++i)
    r.records.insert(parse_number(r.rows.cell(i, "mft entry")));
  return r;
}

uint64_t parse_number(const std::string& cell) {
  return cell.compare(0, 2, "0x") == 0 ? std::stoull(cell.substr(2), nullptr, 16) : std::stoull(cell);
}

bool ms_cells(const std::string& t7, std::string& date, std::string& time) {
  date = time = "";
  if (t7 == "-" || t7 == "absent" || t7.empty()) return false;
  if (t7.size() < 23 || t7.compare(0, 4, "raw:") == 0) return true;  // not displayable
  int year = std::stoi(t7.substr(0, 4));
  if (year < 1900 || year > 3000 || t7.compare(0, 19, "1970-01-01 00:00:00") == 0) return true;
  date = t7.substr(0, 10), time = t7.substr(11, 12);  // hh:mm:ss.mmm, truncated
  return true;
}

int64_t unix_seconds(const std::string& t7) {
  if (t7.size() < 19) return 0;
  std::tm tm{};
  tm.tm_year = std::stoi(t7.substr(0, 4)) - 1900, tm.tm_mon = std::stoi(t7.substr(5, 2)) - 1;
  tm.tm_mday = std::stoi(t7.substr(8, 2)), tm.tm_hour = std::stoi(t7.substr(11, 2));
  tm.tm_min = std::stoi(t7.substr(14, 2)), tm.tm_sec = std::stoi(t7.substr(17, 2));
  return int64_t(timegm(&tm));
}

}  // namespace fixtures
