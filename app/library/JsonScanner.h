#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace quillet {

/// Reports JSON text to a SAX handler as nlohmann::json::sax_parse does, event for event, but
/// several times faster: a large library file is read at start, and that parser's cost is in
/// the bytes, not in the values. It accepts a subset of what sax_parse accepts (no byte order
/// mark, no number beyond a double's range) and says nothing about errors: false means "ask
/// sax_parse", which knows where and why, with a fresh handler. The handler's own false stops it
/// too.
bool scanJson(std::string_view text, nlohmann::json_sax<nlohmann::json>& sax);

} // namespace quillet
