#include "render/ClipboardHistory.h"

#include "platform/fake/FakePasteboard.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using Entries = std::vector<std::string>;
using Content = std::map<std::string, std::string>;
const std::string plain = "text/plain;charset=utf-8";

// A history started over text that must never show in it; each copy is polled once.
struct Clipboard {
    FakePasteboard board;
    bool held = (board.copyText("before launch"), true);
    ClipboardHistory history{board};

    const Entries& copy(const std::vector<Content>& contents) {
        for (const auto& content : contents) {
            board.copy(content);
            history.poll();
        }
        return history.entries();
    }
};

TEST(ClipboardHistory, NewestFirstWithoutDuplicatesAndAtMostTen) {
    Clipboard clip;
    EXPECT_EQ(clip.copy({{{plain, "A"}}, {{plain, "B"}}, {{plain, "A"}}}), (Entries{"A", "B"}));
    EXPECT_EQ(clip.copy({{{plain, "A"}}}), (Entries{"A", "B"}));
    // The eleventh distinct text pushes out the oldest, B, which A's second copy overtook.
    for (int i = 1; i <= 9; ++i) {
        clip.copy({{{plain, std::to_string(i)}}});
    }
    EXPECT_EQ(clip.history.entries(), (Entries{"9", "8", "7", "6", "5", "4", "3", "2", "1", "A"}));
}

TEST(ClipboardHistory, PrivateImageOnlyAndEmptyContentStaysOutButNotWhatFollows) {
    Clipboard clip;
    for (const Content& skipped :
         std::vector<Content>{{{"image/png", "\x89PNG"}},
                              {{plain, ""}},
                              {{plain, "hunter2"}, {"org.nspasteboard.ConcealedType", ""}},
                              {{plain, "pasted"}, {"org.nspasteboard.TransientType", ""}},
                              {{plain, "hunter2"}, {"x-kde-passwordManagerHint", "secret"}}}) {
        clip.copy({skipped});
        clip.history.poll(); // the change count, not the content, decides whether to look
        EXPECT_TRUE(clip.history.entries().empty()) << ::testing::PrintToString(skipped);
    }
    // Neither is the hint with another value a secret, nor whitespace empty.
    EXPECT_EQ(clip.copy({{{plain, "note"}, {"x-kde-passwordManagerHint", "other"}}}),
              Entries{"note"});
    EXPECT_EQ(clip.copy({{{plain, "  "}}}), (Entries{"  ", "note"}));
}

} // namespace
} // namespace quillet
