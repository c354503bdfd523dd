#include "analysis/orv_zone.h"

#include "base/orv_string.h"

void parse_zone_identifier(const uint8_t* bytes, size_t length, std::map<std::string, std::string>& out) {
  out.clear();
  if (!bytes || length == 0) return;
  std::string text(reinterpret_cast<const char*>(bytes), length);
  size_t nul = text.find('\0');
  if (nul != std::string::npos) text.resize(nul);
  for (const std::string& raw : orv::split(text, "\r\n", false)) {
    std::string line = orv::trim(raw);
    if (line.empty() || line[0] == '[') continue;
    size_t eq = line.find('=');
    if (eq == std::string::npos || eq == 0) continue;
    out.emplace(orv::trim(line.substr(0, eq)), orv::trim(line.substr(eq + 1)));
  }
}

static const char* zone_label(const std::string& value) {
  if (value.size() != 1) return "";
  switch (value[0]) {
    case '0': return " [local machine]";
    case '1': return " [intranet]";
    case '2': return " [trusted]";
    case '3': return " [internet]";
    case '4': return " [untrusted]";
    default: return "";
  }
}

namespace {

// The pairs in key order, each key and value between `quote`s, with ';' between pairs.
void append_zone_pairs(std::string& out, const std::map<std::string, std::string>& zone, char quote) {
  bool first = true;
  for (const auto& kv : zone) {
    if (!first) out += ';';
    first = false;
    out += quote;
    out += kv.first;
    out += quote;
    out += ':';
    out += quote;
    out += kv.second;
    if (kv.first.compare(0, 6, "ZoneId") == 0) out += zone_label(kv.second);
    out += quote;
  }
}

}  // namespace

std::string zone_info_text(const std::map<std::string, std::string>& zone) {
  if (zone.empty()) return std::string();
  std::string out = "ZoneInfo {";
  append_zone_pairs(out, zone, '\'');
  return out + "}";
}

std::string format_zone_text(const std::map<std::string, std::string>& zone) {
  if (zone.empty()) return std::string();
  std::string out = "{";
  append_zone_pairs(out, zone, '"');
  return out + "}";
}
