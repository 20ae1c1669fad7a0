#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quillet {

/// The host a site entry or page address stands for, lower-cased: "Mail.Example.com/inbox "
/// gives "mail.example.com". Nothing when there is no host or it has no "." (such an entry never
/// matches).
std::optional<std::string> siteHost(std::string_view entry);

} // namespace quillet
