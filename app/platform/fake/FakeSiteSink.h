#pragma once

#include "library/SiteSink.h"

#include <string>
#include <vector>

namespace quillet {

/// Keeps every site passed on, in order.
class FakeSiteSink final : public SiteSink {
public:
    void changed(const std::string& browserAndSite) override { sent.push_back(browserAndSite); }

    std::vector<std::string> sent;
};

} // namespace quillet
