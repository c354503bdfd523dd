#pragma once
// The Zone.Identifier stream a browser leaves on a downloaded file: "[ZoneTransfer]" then
// Key=Value lines.
#include <cstdint>
#include <map>
#include <string>

void parse_zone_identifier(const uint8_t* bytes, size_t length, std::map<std::string, std::string>& out);
// "ZoneInfo {'ZoneId':'3 [internet]';'ReferrerUrl':'...'}" for the text writers; empty map gives "".
std::string zone_info_text(const std::map<std::string, std::string>& zone);
// {"ZoneId":"3 [internet]";"ReferrerUrl":"..."} for the per-path column; empty map gives "".
std::string format_zone_text(const std::map<std::string, std::string>& zone);
