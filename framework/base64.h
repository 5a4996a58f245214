// SPDX-License-Identifier: ISC
// Bytes as text (RFC 4648).
#pragma once

#include <string>
#include <string_view>

namespace quillworks {

std::string base64(std::string_view bytes);
/// False for a character that base64() does not write, or a wrong length.
bool readBase64(std::string_view text, std::string& bytes);

}  // namespace quillworks
