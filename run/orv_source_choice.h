#pragma once
// Choosing the source of a run and checking the volume on it before anything is written.
#include <sstream>
#include <string>
#include <vector>

class RAW_DISK_IO;
class cmd_params;
class mft_entries_ctx;

// -vmdk hooks. The chain check reports into `messages` and may propose a fuller list in
// `suggested`; the opener makes the chain one readable disk for the volume chooser.
using vmdk_check_function = bool (*)(const std::vector<std::wstring>& list, std::ostringstream& messages,
                                     std::vector<std::wstring>& suggested);
using vmdk_open_function = bool (*)(RAW_DISK_IO& disk, const std::vector<std::wstring>& list);
// The -vmdk option: fills m_vmdk_list and m_vmdk_offset, checks the chain and the volume on it.
// No -vmdk (or no value): true with nothing done. `quiet` keeps the messages off standard error.
bool parse_vmdk(cmd_params& p, std::vector<std::wstring>& list, vmdk_check_function open_function,
                vmdk_open_function probe_function, bool quiet);

// Takes the source options off the wide list and checks the volume.
// 0 go on, -1 refused (reason printed), -3 no source named.
int choose_source(mft_entries_ctx& ctx, std::vector<std::wstring>& list);
// The -vmdk hooks of this build: the chain check with its search for missing parents, and the
// chain opened as one kind-4 disk.
bool check_vmdk_files(const std::vector<std::wstring>& list, std::ostringstream& messages,
                      std::vector<std::wstring>& suggested);
bool open_vmdk_files(RAW_DISK_IO& disk, const std::vector<std::wstring>& list);
