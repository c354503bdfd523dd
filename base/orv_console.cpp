#include "base/orv_console.h"

#include <cstdarg>
#include <cstring>
#include <vector>

namespace {

// ESC "[2K" clears the terminal line; the carriage returns keep the cursor at column 0.
const char k_line_start[] = "\x1b[2K\r    \r";
const char k_line_erase[] = "\x1b[2K\r                           \r";
constexpr size_t k_progress_width = 60;
constexpr size_t k_message_buffer = 4096;

// Percent display of the process: next threshold and step, set on first use, never reset.
uint64_t g_percent_next = 0;
uint64_t g_percent_step = 0;
bool g_percent_started = false;

void write_progress_line(const char* text, size_t length) {
  std::string line(k_line_start, sizeof k_line_start - 1);
  for (size_t i = 0; i < length; ++i)
    if (text[i] != '\n') line.push_back(text[i]);
  line.push_back('\r');
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

void write_log(const diag_sink& sink, const char* format, va_list args) {
  // Room for the format plus 256; a longer text is cut to the buffer.
  std::vector<char> buf(std::strlen(format) + 256 + 3);
  buf[0] = '-';
  buf[1] = '>';
  const size_t room = buf.size() - 3;
  int n = std::vsnprintf(buf.data() + 2, room + 1, format, args);
  size_t len = n < 0 ? 0 : (size_t(n) > room ? room : size_t(n));
  buf[2 + len] = '\n';
  std::fwrite(buf.data(), 1, len + 3, sink.m_diags_stream);
  std::fflush(sink.m_diags_stream);
}

}  // namespace

diag_sink::~diag_sink() { close_diags(); }

bool diag_sink::open_diags(const std::string& path) {
  close_diags();
  FILE* f = path.empty() ? nullptr : std::fopen(path.c_str(), "w");
  if (!f) {
    m_diags_path.clear();
    return false;
  }
  m_diags_stream = f;
  m_diags_on = 1;
  m_diags_path = path;
  return true;
}

void diag_sink::close_diags() {
  if (m_diags_stream) std::fclose(m_diags_stream);
  m_diags_stream = nullptr;
  m_diags_on = 0;
}

void show_progress(const char* format, ...) {
  char buf[512];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  if (n < 0) return;
  size_t len = size_t(n) < sizeof buf ? size_t(n) : sizeof buf - 1;
  write_progress_line(buf, len < k_progress_width ? len : k_progress_width);
}

void show_text(size_t width, const std::string& text) {
  write_progress_line(text.data(), text.size() < width ? text.size() : width);
}

void show_percent(size_t width, uint64_t done, uint64_t total, uint64_t step_percent) {
  if (!g_percent_started) {
    g_percent_started = true;
    g_percent_step = uint64_t((unsigned __int128)total * step_percent / 100);
    g_percent_next = g_percent_step;
  }
  if (done < g_percent_next) return;
  g_percent_next += g_percent_step;
  uint64_t percent = total ? uint64_t((unsigned __int128)done * 100 / total) : 100;
  show_text(width, "percent done: " + std::to_string(percent));
}

void erase_progress() {
  std::fwrite(k_line_erase, 1, sizeof k_line_erase - 1, stderr);
  std::fflush(stderr);
}

void print_message(const char* format, ...) {
  erase_progress();
  char buf[k_message_buffer];
  va_list args;
  va_start(args, format);
  int n = std::vsnprintf(buf, sizeof buf, format, args);
  va_end(args);
  if (n < 0 || size_t(n) > k_message_buffer) return;
  size_t len = size_t(n);
  if (len >= sizeof buf) {  // cut by the buffer: say so at its end
    len = sizeof buf - 1;
    std::memcpy(buf + len - 4, "...\n", 4);
  }
  std::fwrite(buf, 1, len, stderr);
  std::fflush(stderr);
}

void log_line(const diag_sink& sink, const char* format, ...) {
  if (!log_enabled(sink)) return;
  va_list args;
  va_start(args, format);
  write_log(sink, format, args);
  va_end(args);
}

void log_level(const diag_sink& sink, uint32_t level, const char* format, ...) {
  if (!log_enabled(sink) || sink.m_diags_level < level) return;
  va_list args;
  va_start(args, format);
  write_log(sink, format, args);
  va_end(args);
}

void log_text(const diag_sink& sink, const std::string& text, const std::string& prefix, const std::string& suffix) {
  if (!log_enabled(sink)) return;
  std::string line = "->";
  if (!prefix.empty()) line += prefix + " : ";
  line += text;
  if (!suffix.empty()) line += ": " + suffix;
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), sink.m_diags_stream);
  std::fflush(sink.m_diags_stream);
}
