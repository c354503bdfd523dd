#include "tests/integration/fixture_util.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <stdexcept>

namespace fixtures {

namespace {

std::string data_dir() { return std::string(BRIMLOCK_SOURCE_DIR) + "/tests/fixtures/data"; }

bool exists(const std::string& p) {
  struct stat st;
  return stat(p.c_str(), &st) == 0;
}

void ensure_dir(const std::string& p) {
  std::string acc;
  std::stringstream ss(p);
  std::string part;
  if (!p.empty() && p[0] == '/') acc = "/";
  while (std::getline(ss, part, '/')) {
    if (part.empty()) continue;
    acc += part + "/";
    mkdir(acc.c_str(), 0755);
  }
}

std::vector<std::string> split_tabs(const std::string& line) {
  std::vector<std::string> out;
  size_t start = 0;
  while (true) {
    size_t pos = line.find('\t', start);
    out.push_back(line.substr(start, pos == std::string::npos ? std::string::npos : pos - start));
    if (pos == std::string::npos) break;
    start = pos + 1;
  }
  return out;
}

std::string trim(const std::string& s) {
  size_t a = s.find_first_not_of(' ');
  if (a == std::string::npos) return "";
  size_t b = s.find_last_not_of(' ');
  return s.substr(a, b - a + 1);
}

std::vector<std::string> split_on(const std::string& line, const std::string& sep) {
  std::vector<std::string> out;
  size_t start = 0;
  while (true) {
    size_t pos = line.find(sep, start);
    out.push_back(line.substr(start, pos == std::string::npos ? std::string::npos : pos - start));
    if (pos == std::string::npos) break;
    start = pos + sep.size();
  }
  return out;
}

// Decompresses `gz` into `dst` through a temporary name, so that parallel test processes never
// see a half-written file.
bool gunzip_to(const std::string& gz, const std::string& dst) {
  std::string tmp = dst + ".tmp." + std::to_string(getpid());
  auto r = testutil::run_shell("gzip -dc " + q(gz) + " > " + q(tmp) + " && mv -f " + q(tmp) + " " + q(dst));
  return r.status == 0 && exists(dst);
}

}  // namespace

std::string q(const std::string& text) { return testutil::shell_quote(text); }

std::string path(const std::string& name) {
  static std::mutex mu;
  static std::map<std::string, std::string> done;
  std::lock_guard<std::mutex> lock(mu);
  auto it = done.find(name);
  if (it != done.end()) return it->second;
  std::string gz = data_dir() + "/" + name + ".gz";
  std::string result;
  if (exists(gz)) {
    std::string dir = std::string(BRIMLOCK_WORK_DIR);
    ensure_dir(dir);
    std::string dst = dir + "/" + name;
    if (gunzip_to(gz, dst)) result = dst;
  }
  done[name] = result;
  return result;
}

std::string scratch_dir(const std::string& tag) {
  std::string dir = std::string(BRIMLOCK_WORK_DIR) + "/scratch/" + tag + "." + std::to_string(getpid());
  testutil::run_shell("rm -rf " + q(dir));
  ensure_dir(dir);
  return dir;
}

std::string truncated_copy(const std::string& name, uint64_t size) {
  std::string src = path(name);
  if (src.empty()) return "";
  std::string dir = std::string(BRIMLOCK_WORK_DIR) + "/cut";
  ensure_dir(dir);
  std::string dst = dir + "/" + name + "." + std::to_string(size);
  std::string tmp = dst + ".tmp." + std::to_string(getpid());
  auto r = testutil::run_shell("cp " + q(src) + " " + q(tmp) + " && truncate -s " + std::to_string(size) + " " +
                               q(tmp) + " && mv -f " + q(tmp) + " " + q(dst));
  return r.status == 0 ? dst : "";
}

std::string corpus_dir() {
  std::string dir = std::string(BRIMLOCK_SOURCE_DIR) + "/../shared/corpus";
  return exists(dir + "/README.md") ? dir : "";
}

std::string corpus_image(const std::string& name) {
  static std::mutex mu;
  std::lock_guard<std::mutex> lock(mu);
  std::string dir = corpus_dir();
  if (dir.empty() || !exists(dir + "/" + name + ".gz")) return "";
  std::string out_dir = std::string(BRIMLOCK_WORK_DIR) + "/corpus";
  ensure_dir(out_dir);
  std::string dst = out_dir + "/" + name;
  if (exists(dst)) return dst;
  return gunzip_to(dir + "/" + name + ".gz", dst) ? dst : "";
}

testutil::run_result run_brimlock(const std::string& args) {
  return testutil::run_shell(q(BRIMLOCK_BINARY) + " " + args);
}

std::vector<const fact_name*> facts::names_of(uint64_t inode) const {
  std::vector<const fact_name*> out;
  for (const auto& n : names)
    if (n.inode == inode) out.push_back(&n);
  return out;
}

bool facts::dir_path(uint64_t inode, std::string& out) const {
  if (inode == 5) {
    out.clear();
    return true;
  }
  for (const auto& p : paths) {
    if (p.inode == inode && p.kind == 'd') {
      out = p.path;
      return true;
    }
  }
  return false;
}

facts load_facts(const std::string& name) {
  facts f;
  std::string p = path(name);
  if (p.empty()) throw std::runtime_error("missing fixture " + name);
  std::ifstream in(p, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    auto c = split_tabs(line);
    const std::string& kind = c[0];
    if (kind == "info" && c.size() >= 3) {
      f.info[c[1]] = c[2];
    } else if (kind == "rec" && c.size() >= 12) {
      fact_record r;
      r.inode = std::stoull(c[1]);
      r.seq = uint16_t(std::stoul(c[2]));
      r.allocated = c[3] == "alloc";
      r.directory = c[4] == "dir";
      r.links = uint32_t(std::stoul(c[5]));
      r.attrlist = c[6];
      r.extension = c[7] != "-";
      r.base = r.extension ? std::stoull(c[7]) : 0;
      for (int i = 0; i < 4; ++i) r.si[i] = c[8 + i];
      r.si_present = c[8] != "absent";
      f.records[r.inode] = r;
    } else if (kind == "name" && c.size() >= 11) {
      fact_name n;
      n.inode = std::stoull(c[1]);
      n.holder = std::stoull(c[2]);
      n.parent = std::stoull(c[3]);
      n.parent_seq = uint16_t(std::stoul(c[4]));
      n.name_space = std::stoi(c[5]);
      n.name = c[6];
      for (int i = 0; i < 4; ++i) n.fn[i] = c[7 + i];
      f.names.push_back(n);
    } else if (kind == "path" && c.size() >= 5) {
      fact_path pp;
      pp.inode = std::stoull(c[1]);
      pp.allocated = c[2] == "alloc";
      pp.kind = c[3].empty() ? '?' : c[3][0];
      pp.path = c[4];
      f.paths.push_back(pp);
    } else if (kind == "md5" && c.size() >= 4) {
      f.md5s.push_back({c[1], c[2], c[3]});
    } else if (kind == "part" && c.size() >= 5) {
      fact_part pt;
      pt.slot = c[1];
      pt.start = std::stoull(c[2]);
      pt.length = std::stoull(c[3]);
      pt.description = c[4];
      f.parts.push_back(pt);
    }
  }
  return f;
}

bool ms_cells(const std::string& t7, std::string& date, std::string& time) {
  date.clear();
  time.clear();
  if (t7 == "-" || t7 == "absent" || t7.empty()) return false;
  if (t7.size() < 23 || t7.compare(0, 4, "raw:") == 0) return true;  // not displayable
  int year = std::stoi(t7.substr(0, 4));
  if (year < 1900 || year > 3000) return true;
  if (t7.compare(0, 19, "1970-01-01 00:00:00") == 0) return true;
  date = t7.substr(0, 10);
  time = t7.substr(11, 12);  // hh:mm:ss.mmm, truncated
  return true;
}

int results::col(const std::string& name) const {
  for (size_t i = 0; i < header.size(); ++i)
    if (header[i] == name) return int(i);
  return -1;
}

std::string results::cell(size_t row, const std::string& name) const {
  int c = col(name);
  if (c < 0 || row >= rows.size() || size_t(c) >= rows[row].size()) return "\x01missing";
  return rows[row][size_t(c)];
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
    std::vector<std::string> cells;
    for (const auto& c : split_on(r.lines[i], separator)) cells.push_back(trim(c));
    r.rows.push_back(cells);
  }
  return r;
}

std::string expected_parent_path(const facts& f, uint64_t parent) {
  std::string p;
  if (!f.dir_path(parent, p)) return "\x01unknown parent " + std::to_string(parent);
  std::string out = "[root]\\";
  if (!p.empty()) {
    for (char ch : p) out += ch == '/' ? '\\' : ch;
    out += "\\";
  }
  return out;
}

std::set<row_key> expected_rows(const facts& f, uint64_t inode, bool only_base_names) {
  std::set<row_key> out;
  auto rit = f.records.find(inode);
  if (rit == f.records.end() || !rit->second.si_present || rit->second.extension) return out;
  const fact_record& rec = rit->second;
  std::vector<const fact_name*> names;
  for (const fact_name* n : f.names_of(inode))
    if (!only_base_names || n->holder == inode) names.push_back(n);
  std::string d, t;
  if (names.empty()) {
    for (const auto& s : rec.si)
      if (ms_cells(s, d, t)) out.insert(row_key("<no filename attribute>", "<no path>", d, t));
    return out;
  }
  for (const fact_name* n : names) {
    std::string parent = expected_parent_path(f, n->parent);
    for (const auto& s : rec.si)
      if (ms_cells(s, d, t)) out.insert(row_key(n->name, parent, d, t));
    for (const auto& s : n->fn)
      if (ms_cells(s, d, t)) out.insert(row_key(n->name, parent, d, t));
  }
  return out;
}

}  // namespace fixtures

namespace fixtures {

uint64_t parse_number(const std::string& cell) {
  if (cell.size() > 2 && cell[0] == '0' && (cell[1] == 'x' || cell[1] == 'X')) return std::stoull(cell.substr(2), nullptr, 16);
  return std::stoull(cell);
}

std::string cell_text(const std::string& text, bool csv) {
  std::string out = text;
  for (char& ch : out) {
    if (csv && ch == ',') ch = ' ';
    if (!csv && ch == '|') ch = ';';
  }
  return out;
}

std::vector<std::string> compare_rows(const facts& f, const results& r, const compare_options& o) {
  std::vector<std::string> problems;
  auto problem = [&](const std::string& p) {
    if (problems.size() < 40) problems.push_back(p);
  };
  const char* needed[] = {"mft entry", "mft seqnum", "parent mft", "par seqnum", "type", "ext", "ref",
                          "date", "time-utc", "MACB", "other info", "name", "path"};
  for (const char* c : needed)
    if (r.col(c) < 0) problem(std::string("no column ") + c);
  if (!problems.empty()) return problems;
  std::map<uint64_t, std::vector<size_t>> by_record;
  for (size_t i = 0; i < r.rows.size(); ++i) {
    if (r.rows[i].size() != r.header.size()) {
      problem("row " + std::to_string(i) + " has " + std::to_string(r.rows[i].size()) + " cells, header " +
              std::to_string(r.header.size()) + ": " + r.lines[i]);
      continue;
    }
    uint64_t n = 0;
    try {
      n = parse_number(r.cell(i, "mft entry"));
    } catch (...) {
      problem("bad mft entry cell: " + r.cell(i, "mft entry"));
      continue;
    }
    by_record[n].push_back(i);
  }
  for (const auto& kv : by_record)
    if (!f.records.count(kv.first)) problem("rows for record " + std::to_string(kv.first) + " not in the facts");
  for (const auto& kv : f.records) {
    const fact_record& rec = kv.second;
    auto it = by_record.find(rec.inode);
    const std::vector<size_t> none;
    const std::vector<size_t>& rows = it == by_record.end() ? none : it->second;
    std::string tag = "record " + std::to_string(rec.inode) + ": ";
    if (rec.extension || !rec.si_present) {
      if (!rows.empty()) problem(tag + "rows for an extension record or a record without $STANDARD_INFORMATION");
      continue;
    }
    bool base_only = o.extracted_mft && rec.attrlist == "nonresident";
    std::set<row_key> expected;
    for (const auto& k : expected_rows(f, rec.inode, base_only))
      expected.insert(row_key(cell_text(std::get<0>(k), o.csv), cell_text(std::get<1>(k), o.csv), std::get<2>(k),
                              std::get<3>(k)));
    std::set<row_key> got;
    for (size_t i : rows)
      got.insert(row_key(r.cell(i, "name"), r.cell(i, "path"), r.cell(i, "date"), r.cell(i, "time-utc")));
    bool unreachable_names = base_only && f.names_of(rec.inode).size() > 0;
    if (unreachable_names) {
      // Only the names in the base record can be read; a record whose names all sit in
      // extension records has no name to show. Each row must still be one of the expected.
      for (const auto& k : got)
        if (!expected.count(k) && std::get<0>(k) != "<no filename attribute>")
          problem(tag + "unexpected row " + std::get<0>(k) + " | " + std::get<1>(k) + " | " + std::get<2>(k) + " " +
                  std::get<3>(k));
    } else if (rec.allocated) {
      if (got != expected) {
        for (const auto& k : expected)
          if (!got.count(k))
            problem(tag + "missing row " + std::get<0>(k) + " | " + std::get<1>(k) + " | " + std::get<2>(k) + " " +
                    std::get<3>(k));
        for (const auto& k : got)
          if (!expected.count(k))
            problem(tag + "unexpected row " + std::get<0>(k) + " | " + std::get<1>(k) + " | " + std::get<2>(k) + " " +
                    std::get<3>(k));
      }
    } else {
      std::set<std::tuple<std::string, std::string, std::string>> e2, g2;
      for (const auto& k : expected) e2.insert(std::make_tuple(std::get<0>(k), std::get<2>(k), std::get<3>(k)));
      for (const auto& k : got) g2.insert(std::make_tuple(std::get<0>(k), std::get<2>(k), std::get<3>(k)));
      if (e2 != g2) problem(tag + "deleted record: names and instants differ (" + std::to_string(g2.size()) + " / " +
                            std::to_string(e2.size()) + ")");
    }
    std::set<std::string> dos_names;
    for (const fact_name* n : f.names_of(rec.inode))
      if (n->name_space == 2) dos_names.insert(cell_text(n->name, o.csv));
    std::string type = !rec.allocated ? "del" : rec.directory ? "dir" : "file";
    for (size_t i : rows) {
      if (r.cell(i, "mft seqnum") != std::to_string(rec.seq))
        problem(tag + "mft seqnum " + r.cell(i, "mft seqnum") + ", expected " + std::to_string(rec.seq));
      if (r.cell(i, "ref") != std::to_string(rec.links))
        problem(tag + "ref " + r.cell(i, "ref") + ", expected " + std::to_string(rec.links));
      std::string want = dos_names.count(r.cell(i, "name")) ? type + " (FN 8.3)" : type;
      if (r.cell(i, "type") != want) problem(tag + "type " + r.cell(i, "type") + ", expected " + want);
    }
  }
  return problems;
}

std::string join_lines(const std::vector<std::string>& lines) {
  std::string out;
  for (const auto& line : lines) out += line + "\n";
  return out;
}

run_output run_to_file(const std::string& tag, const std::string& args, bool csv) {
  run_output o;
  std::string out = scratch_dir(tag) + "/results.txt";
  o.run = run_brimlock(args + (csv ? " -csv" : "") + " -out " + q(out));
  o.text = testutil::read_text(out);
  o.rows = parse_results(o.text, csv ? "," : " | ");
  return o;
}

}  // namespace fixtures
