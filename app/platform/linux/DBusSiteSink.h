#pragma once

#include "library/SiteSink.h"

#include <string>

using GDBusConnection = struct _GDBusConnection;

namespace quillet {

/// Sends each site as the signal com.quillet.Site.Changed from /com/quillet/Site on the session
/// bus, where the running application hears it. Without a session bus sites go nowhere.
class DBusSiteSink final : public SiteSink {
public:
    DBusSiteSink();
    ~DBusSiteSink() override;
    DBusSiteSink(const DBusSiteSink&) = delete;
    DBusSiteSink& operator=(const DBusSiteSink&) = delete;

    /// Sends the signal and returns once the bus has it, so that the host may end right after.
    void changed(const std::string& browserAndSite) override;

private:
    GDBusConnection* bus_ = nullptr;
};

} // namespace quillet
