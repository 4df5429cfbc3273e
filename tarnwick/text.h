#pragma once

#include <tarnwick/export.h>

#include <string>

namespace tarnwick
{

/// Converts a UTF-8 file name to a wide path in UTF-32. Each byte that is no part of well-formed UTF-8 becomes U+FFFD,
/// so the function never fails on bad text; such a path leads to no file.
TARNWICK_EXPORT std::wstring utf8_to_filesystem_unicode(const std::string& text);

/// Converts Latin-1 text (ISO 8859-1) to UTF-8: every byte above 127 becomes two bytes, NUL bytes stay.
TARNWICK_EXPORT std::string latin1_to_utf8(const std::string& text);

} // namespace tarnwick
