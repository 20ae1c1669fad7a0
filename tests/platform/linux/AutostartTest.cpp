#include "platform/linux/Autostart.h"

#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

TEST(Autostart, TheEntryIsWrittenNextToQuilletsConfigAndRemoved) {
    testing::TempFolder temp;
    const Autostart autostart(temp / "config/quillet", "/opt/my apps/quillet");
    EXPECT_EQ(autostart.file(), temp / "config/autostart/quillet.desktop");
    std::string error;
    ASSERT_TRUE(autostart.set(true, error)) << error;
    EXPECT_TRUE(autostart.isOn());
    const std::string entry = testing::contentsOf(autostart.file());
    EXPECT_NE(entry.find("\nExec=\"/opt/my apps/quillet\"\n"), std::string::npos) << entry;
    EXPECT_TRUE(entry.starts_with("[Desktop Entry]\nType=Application\n"));
    ASSERT_TRUE(autostart.set(false, error)) << error;
    EXPECT_FALSE(autostart.isOn());
    EXPECT_TRUE(autostart.set(false, error)) << "removing what is not there is no failure";
}

} // namespace
} // namespace quillet
