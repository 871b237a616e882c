#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include "support/notify_socket.hpp"
#include "support/open_fds.hpp"
#include "support/temp_dir.hpp"

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST(NotifySocket, KeepsWhatTheServiceManagerIsTold)
{
    EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr);
    {
        support::NotifySocket manager;
        EXPECT_THAT(manager.received(), IsEmpty());
        EXPECT_GT(sd_notify(0, "READY=1"), 0);
        EXPECT_GT(sd_notify(0, "STATUS=up"), 0);
        EXPECT_THAT(manager.received(), ElementsAre("READY=1", "STATUS=up"));
        EXPECT_EQ(manager.receive(std::chrono::milliseconds(1)), std::nullopt);
        {
            const support::NotifySocket inner;
            sd_notify(0, "READY=1");
        }
        EXPECT_THAT(manager.received(), IsEmpty());
        EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), manager.path());
    }
    EXPECT_EQ(std::getenv("NOTIFY_SOCKET"), nullptr);
}

TEST(OpenFds, ShowsALeak)
{
    const auto before = support::open_fds();
    EXPECT_EQ(support::open_fds(), before);
    const int leaked = dup(STDIN_FILENO);
    const auto after = support::open_fds();
    EXPECT_EQ(after.size(), before.size() + 1);
    EXPECT_TRUE(after.contains(leaked));
    close(leaked);
    EXPECT_EQ(support::open_fds(), before);
}

// Two programs one after the other, since the left-over is looked for once in each.
TEST(TempDir, OfACrashedProgramIsGoneWithTheNextAndALiveOneIsNot)
{
    const support::TempDir live;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t crashes = fork();
    if (crashes == 0)
    {
        const support::TempDir dir;
        const std::string path = dir.path();
        _exit(write(ends[1], path.c_str(), path.size() + 1) > 0 ? 0 : 1);
    }
    close(ends[1]);
    std::array<char, 64> left_over{};
    ASSERT_GT(read(ends[0], left_over.data(), left_over.size()), 0);
    close(ends[0]);
    waitpid(crashes, nullptr, 0);
    EXPECT_TRUE(std::filesystem::exists(left_over.data()));

    const std::string next = std::filesystem::read_symlink("/proc/self/exe").string() +
                             " --gtest_filter=TempDir.IsGoneWithItsContents > /dev/null";
    EXPECT_EQ(std::system(next.c_str()), 0);
    EXPECT_FALSE(std::filesystem::exists(left_over.data()));
    EXPECT_TRUE(std::filesystem::exists(live.path()));
}

TEST(TempDir, IsGoneWithItsContents)
{
    std::filesystem::path path;
    {
        const support::TempDir dir;
        path = dir.path();
        std::filesystem::create_directories(path / "a" / "b");
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

} // namespace
