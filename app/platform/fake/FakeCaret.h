#pragma once

#include "engine/Caret.h"

namespace quillet {

/// A caret at a place the test sets, or nowhere.
class FakeCaret final : public Caret {
public:
    void locate(Found found) override { found(at); }

    std::optional<ScreenRect> at;
};

} // namespace quillet
