#pragma once

#include <string>

namespace quillet {

/// Where the browser bridge's host passes on the site a browser reports, for the running
/// application to hear.
class SiteSink {
public:
    virtual ~SiteSink() = default;

    /// Passes on the reporting browser's id, one blank and the site; either may be empty.
    virtual void changed(const std::string& browserAndSite) = 0;
};

} // namespace quillet
