// Path helpers: directory creation, splitting, normalisation of input paths, %NAME% expansion.
#include "base/orv_path.h"

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "base/orv_string.h"

namespace orv {

std::string expand_environment(const std::string& text) {
  static const size_t k_limit = 513;
  std::string out;
  size_t i = 0;
  while (i < text.size()) {
    if (out.size() >= k_limit) {
      out.append(text, i, std::string::npos);  // grown enough: the rest goes out as it is
      break;
    }
    size_t open = text.find('%', i);
    if (open == std::string::npos) {
      out.append(text, i, std::string::npos);
      break;
    }
    out.append(text, i, open - i);
    size_t close = text.find('%', open + 1);
    if (close == std::string::npos) {
      out.append(text, open, std::string::npos);
      break;
    }
    std::string name = text.substr(open + 1, close - open - 1);
    const char* value = name.empty() ? nullptr : std::getenv(name.c_str());
    if (value) {
      out += value;
    } else {
      out.append(text, open, close - open + 1);  // unset: "%NAME%" stays
    }
    i = close + 1;
  }
  return out;
}

bool make_directory(const std::string& path) {
  if (path.empty()) return false;
  mode_t old_mask = ::umask(0);
  int rc = ::mkdir(path.c_str(), 0777);
  int err = errno;
  ::umask(old_mask);
  return rc == 0 || err == EEXIST;
}

bool make_directory_tree(const std::string& given) {
  std::string path = given;
  remove_char(path, '"');
  if (path.empty()) return false;

  // Windows device prefixes "\\?\" and "\\.\" stay out of the walk.
  std::string prefix;
  if (path.size() >= 5 && (path.compare(0, 4, "\\\\?\\") == 0 || path.compare(0, 4, "\\\\.\\") == 0)) {
    bool keep = path.size() <= 46 || lowered(path.substr(4, 6)) != "global";
    if (keep) {
      prefix = path.substr(0, 4);
      path.erase(0, 4);
    }
  }
  for (char& c : path)
    if (c == '\\') c = '/';

  std::string built = prefix;
  size_t start = 0;
  size_t pos = path.find('/', 1);
  while (pos != std::string::npos) {
    std::string piece = path.substr(start, pos - start);
    built += piece;
    // Empty pieces ("//") and drive letters ("c:") are not directories of their own.
    if (!piece.empty() && piece.back() != ':' && !make_directory(built)) return false;
    built += '/';
    start = pos + 1;
    pos = path.find('/', start);
  }
  built.append(path, start, std::string::npos);
  return make_directory(built);
}

bool make_directory_tree(const std::wstring& path) { return make_directory_tree(to_utf8(path)); }

void split_path(const std::string& path, std::string& dir, std::string& name, std::string& ext) {
  size_t slash = path.find_last_of("/\\");
  std::string file;
  if (slash == std::string::npos) {
    dir.clear();
    file = path;
  } else {
    dir = path.substr(0, slash);
    while (!dir.empty() && (dir.back() == '/' || dir.back() == '\\')) dir.pop_back();
    if (dir.empty()) dir = path.substr(0, 1);  // the root keeps its one separator
    file = path.substr(slash + 1);
  }
  size_t dot = file.rfind('.');
  if (dot == std::string::npos) {
    name = file;
    ext.clear();
  } else {
    name = file.substr(0, dot);
    ext = file.substr(dot + 1);
  }
}

static std::string current_directory() {
  std::string buf(4096, '\0');
  for (int tries = 0; tries < 8; ++tries) {
    if (::getcwd(&buf[0], buf.size())) {
      buf.resize(std::char_traits<char>::length(buf.c_str()));
      return buf;
    }
    if (errno != ERANGE) return std::string();
    buf.resize(buf.size() * 2);
  }
  return std::string();
}

std::wstring normalize_path(const std::string& given, char default_separator) {
  std::string path = given;
  for (char& c : path)
    if (c == '"') c = ' ';
  for (size_t pos = path.find("''"); pos != std::string::npos; pos = path.find("''", pos)) path.replace(pos, 2, "  ");
  path = trim(path, " \t");
  if (path.empty()) return std::wstring();

  char sep = default_separator;
  if (path.find('/') != std::string::npos)
    sep = '/';
  else if (path.find('\\') != std::string::npos)
    sep = '\\';
  if (path[0] == sep) return to_wide(path);

  std::string base = current_directory();
  if (base.empty()) return std::wstring();
  // Leading "." and ".." elements are taken against the current directory.
  size_t i = 0;
  for (;;) {
    size_t end = path.find(sep, i);
    std::string element = path.substr(i, end == std::string::npos ? std::string::npos : end - i);
    if (element == ".") {
    } else if (element == "..") {
      size_t cut = base.find_last_of('/');
      base = (cut == std::string::npos || cut == 0) ? std::string("/") : base.substr(0, cut);
    } else {
      break;
    }
    if (end == std::string::npos) {
      i = path.size();
      break;
    }
    i = end + 1;
  }
  std::string rest = path.substr(i);
  std::string full = base;
  if (!rest.empty()) {
    if (full.back() != '/') full += '/';
    full += rest;
  }
  return to_wide(full);
}

}  // namespace orv
