#pragma once
// Paths of the local file system: %NAME% expansion, directory trees, splitting and normalising.
#include <string>

namespace orv {

// Expands each %NAME% that is set in the environment; stops expanding once the text passes 513 chars.
std::string expand_environment(const std::string& text);

// Creates one directory (mode 0777, zero umask); an existing one is success.
bool make_directory(const std::string& path);
// Creates every missing level of `path`, as the tool's directory-tree rule says.
bool make_directory_tree(const std::string& path);
bool make_directory_tree(const std::wstring& path);
// Splits "dir/name.ext" into its parts (dir without trailing slash; ext without the dot).
void split_path(const std::string& path, std::string& dir, std::string& name, std::string& ext);

// Input path normalisation: quotes to blanks, trimmed, absolute against the current directory,
// leading "." and ".." resolved. Empty result means failure.
std::wstring normalize_path(const std::string& path, char default_separator);

}  // namespace orv
