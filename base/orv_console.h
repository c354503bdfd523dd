#pragma once
// Progress goes to standard error as one self-rewriting line; the -diags debug log has lines that
// all begin with "->". Nothing here influences results.
#include <cstdint>
#include <cstdio>
#include <string>

// Debug-log state, held by the option set (cmd_params derives from it).
struct diag_sink {
  virtual ~diag_sink();
  uint8_t m_diags_on = 0;
  uint32_t m_diags_level = 0;  // 0, 2 (-l2) or 3 (-l3)
  FILE* m_diags_stream = nullptr;
  std::string m_diags_path;
  // Opens the log for writing; on failure the path is cleared and logging stays off.
  bool open_diags(const std::string& path);
  void close_diags();
};

void show_progress(const char* format, ...) __attribute__((format(printf, 1, 2)));
void show_text(size_t width, const std::string& text);
void show_percent(size_t width, uint64_t done, uint64_t total, uint64_t step_percent);
void erase_progress();
void print_message(const char* format, ...) __attribute__((format(printf, 1, 2)));

// "->" + text + line end, flushed, when logging is on. Costs one test when it is off.
void log_line(const diag_sink& sink, const char* format, ...) __attribute__((format(printf, 2, 3)));
// Written only when the level of the log is at least `level`.
void log_level(const diag_sink& sink, uint32_t level, const char* format, ...) __attribute__((format(printf, 3, 4)));
// A ready text, with an optional prefix (written with " : " behind it) and suffix (after ": ").
void log_text(const diag_sink& sink, const std::string& text, const std::string& prefix = "",
              const std::string& suffix = "");
inline bool log_enabled(const diag_sink& sink) { return sink.m_diags_on && sink.m_diags_stream; }
