// Text forms of the stored fields, both ways: key types by name, worldwide
// names (aa:bb:...), acl_flags by name, interface indexes (fc3/12,
// port-channel5, virtual7 or hex), Fibre Channel addresses and hex strings.
// Parsers throw std::invalid_argument with a short reason.
#ifndef TOOLS_WAYSHUNT_CONVERT_FORMATS_H
#define TOOLS_WAYSHUNT_CONVERT_FORMATS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "records/record.h"

namespace wsc {

// Name with or without the prefix, any case, or a number 0..255.
std::optional<uint8_t> parse_key_type(const std::string &text);

std::string format_wwn(const uint8_t *bytes);
void parse_wwn(const std::string &text, uint8_t *out);  // 8 bytes

// "ISL|PHYSICAL|0x1" (named bits first, by bit order, then the rest in hex);
// "0" when no bit is set.
std::string format_acl_flags(uint32_t flags);
// Names (with or without WAYSHUNT_ACL_FLAG_, any case) and numbers joined by '|'.
uint32_t parse_acl_flags(const std::string &text);
// Names of the bits set in mask, in bit order (unnamed bits in hex).
std::vector<std::string> acl_flag_names(uint32_t mask);

std::string format_if_index(uint32_t if_index);
uint32_t parse_if_index(const std::string &text);

// Big-endian value of the 4 bytes, "0x%06x".
std::string format_fcid(const uint8_t *bytes);
void parse_fcid(const std::string &text, uint8_t *out);  // 4 bytes

std::string format_hex32(uint32_t v);  // "0x%08x"
std::string format_hex64(uint64_t v);  // "0x%016llx"
// A number in decimal or 0x hex that fits in max.
uint64_t parse_number(const std::string &text, uint64_t max);

// A word that pastes into a shell as it is: text itself when it holds only
// characters no shell treats specially, else single-quoted.
std::string shell_word(const std::string &text);

std::string to_hex(const uint8_t *bytes, size_t n);  // "0a1b..."
std::string to_hex(const Bytes &bytes);
Bytes from_hex(const std::string &text);

}  // namespace wsc

#endif
