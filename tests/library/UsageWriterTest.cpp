#include "library/UsageWriter.h"

#include "library/RunLoop.h"
#include "support/TempFolder.h"

#include <gtest/gtest.h>

namespace quillet {
namespace {

using namespace std::chrono_literals;

const Date now{760000000};

TEST(UsageWriter, WritesAfterTheDelayFromTheMainThreadsRecordAndWhatIsLeftAtTheEnd) {
    testing::TempFolder temp;
    const std::filesystem::path path = temp / "usage.json";
    const Uuid id = Uuid::random();
    RunLoop loop;
    UsageFile file(path);
    Usage usage = file.load();
    {
        UsageWriter writer(file, usage, loop, 50ms);
        usage.seed({id}, now);
        writer.changed();
        usage.record(id, 10, now);
        writer.changed();
        EXPECT_FALSE(std::filesystem::exists(path)) << "never written on the caller's path";
        // The worker tells the loop nothing, so the file is looked at now and then.
        for (int i = 0; i < 250 && UsageFile(path).load() != usage; ++i) {
            loop.runFor(20ms);
        }
        ASSERT_EQ(UsageFile(path).load(), usage);

        // A change the timer has not written yet is written when the writer goes.
        usage.record(id, 5, now);
        writer.changed();
    }
    EXPECT_EQ(UsageFile(path).load(), usage);
    EXPECT_EQ(usage.uses.at(id).count, 2);
}

TEST(UsageWriter, AddsTheFilesRecordOnceItReadsAgain) {
    testing::TempFolder temp;
    const std::filesystem::path path = temp / "usage.json";
    std::filesystem::create_directory(path); // in the way: the file cannot be read
    RunLoop loop;
    UsageFile file(path);
    Usage usage = file.load();
    ASSERT_EQ(file.status(), UsageFile::Status::unreadable);
    UsageWriter writer(file, usage, loop);

    const Uuid id = Uuid::random();
    usage.record(id, 3, now);
    writer.changed();
    writer.flush(); // refused: the record stays in memory
    EXPECT_TRUE(std::filesystem::is_directory(path));

    std::filesystem::remove(path);
    Usage before;
    before.record(id, 4, now);
    std::string error;
    ASSERT_TRUE(UsageFile::write(path, before, error)) << error;
    usage.record(id, 1, now);
    writer.changed();
    writer.flush();
    EXPECT_EQ(usage.uses.at(id).count, 3); // the file's one and the session's two
    EXPECT_EQ(usage.characters, 8);
    EXPECT_EQ(UsageFile(path).load(), usage);
}

} // namespace
} // namespace quillet
