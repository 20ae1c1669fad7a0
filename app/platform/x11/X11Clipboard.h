#pragma once

#include "library/Scheduler.h"
#include "render/Pasteboard.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillet {

/// The CLIPBOARD selection of an X server, on a connection of its own. Quillet owns the selection
/// to paste: it serves the items it was given (plain text also under X11's text targets, large
/// data incrementally) and tells when a client has fetched them, so that the user's clipboard,
/// saved in a snapshot beforehand, is put back only after the target application has pasted.
/// Reading asks the owner and waits for its answer (about a second at most for each step),
/// answering from memory while Quillet is the owner. Main thread only.
class X11Clipboard final : public Pasteboard {
public:
    /// Everything the owner offered, so that it can be put back as it was.
    struct Snapshot {
        std::vector<ClipboardItem> items; ///< empty: there was no owner

        bool operator==(const Snapshot&) const = default;
    };

    /// Told whether a client fetched the offered content before the time-out.
    using Fetched = std::function<void(bool fetched)>;

    /// Opens its own connection to display (empty: $DISPLAY); null, with error saying why, when
    /// it cannot.
    static std::unique_ptr<X11Clipboard> open(const std::string& display, Scheduler& scheduler,
                                              std::string& error);

    X11Clipboard(const X11Clipboard&) = delete;
    X11Clipboard& operator=(const X11Clipboard&) = delete;
    /// Closes the connection (the server then drops the ownership); fetched callbacks still
    /// waiting are never called.
    ~X11Clipboard() override;

    /// Counts owner changes by other clients and Quillet's own writes; starts at 0.
    std::int64_t changeCount() const override;

    /// The owner's targets that name content: MIME types and the like, UTF8_STRING, STRING, TEXT.
    std::vector<std::string> types() const override;

    /// The owner's bytes for the target named type, unconverted.
    std::optional<std::string> data(std::string_view type) const override;

    /// The text, from "text/plain;charset=utf-8", UTF8_STRING or Latin-1 STRING, in that order.
    std::optional<std::string> text() const override;

    /// Takes the ownership and serves items (none: gives the ownership up).
    void write(std::vector<ClipboardItem> items) override;

    /// Calls changed on the main thread whenever another client takes the clipboard or its owner
    /// goes away.
    void setOnChange(std::function<void()> changed);

    /// Takes the ownership and serves items; calls fetched once, on the main thread, when a
    /// client has finished fetching a content target (not the targets list, the timestamp or a
    /// clipboard manager's marker) and no request has come for a moment since, or with false
    /// after timeout when none did.
    void offer(std::vector<ClipboardItem> items, Fetched fetched,
               std::chrono::milliseconds timeout);

    /// Every content target the current owner offers, fetched in full; nothing when the owner
    /// did not answer in time.
    std::optional<Snapshot> snapshot();

    /// Puts a snapshot back: owns the clipboard with its items, or gives the ownership up when
    /// the snapshot is empty and Quillet still owns it.
    void restore(Snapshot snapshot);

private:
    class Impl;

    explicit X11Clipboard(std::unique_ptr<Impl> impl);

    std::unique_ptr<Impl> impl_;
};

} // namespace quillet
