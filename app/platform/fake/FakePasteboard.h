#pragma once

#include "render/Pasteboard.h"

#include <map>

namespace quillet {

/// A clipboard held in memory; each copy() replaces the content and counts as a change.
class FakePasteboard final : public Pasteboard {
public:
    /// Puts new content on the clipboard: type -> data.
    void copy(std::map<std::string, std::string> content) {
        content_ = std::move(content);
        ++count_;
    }

    /// Puts plain text on the clipboard.
    void copyText(std::string text) { copy({{"text/plain;charset=utf-8", std::move(text)}}); }

    void write(std::vector<ClipboardItem> items) override {
        std::map<std::string, std::string> content;
        for (auto& item : items) {
            content.emplace(std::move(item.type), std::move(item.data));
        }
        copy(std::move(content));
    }

    std::int64_t changeCount() const override { return count_; }

    std::vector<std::string> types() const override {
        std::vector<std::string> out;
        for (auto& [type, data] : content_) {
            out.push_back(type);
        }
        return out;
    }

    std::optional<std::string> data(std::string_view type) const override {
        auto it = content_.find(std::string(type));
        return it == content_.end() ? std::nullopt : std::optional<std::string>(it->second);
    }

    std::optional<std::string> text() const override {
        for (auto type : {"text/plain;charset=utf-8", "UTF8_STRING", "text/plain"}) {
            if (auto d = data(type)) {
                return d;
            }
        }
        return std::nullopt;
    }

private:
    std::map<std::string, std::string> content_;
    std::int64_t count_ = 0;
};

} // namespace quillet
