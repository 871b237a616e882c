// The log service reads its threshold once in a process, so each case runs in a child. Its standard
// error is a record-keeping socket: one record is one write(2).
#include <array>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tallylog.h>

namespace
{

using Lines = std::vector<std::string>;

// What `body` logs with this $TALLYLOG_LEVEL, a write an element; its result must be true.
Lines writes(std::optional<const char*> level, const std::function<bool()>& body)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        level ? setenv("TALLYLOG_LEVEL", *level, 1) : unsetenv("TALLYLOG_LEVEL");
        const int tests_stderr = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        const bool good = body();
        dup2(tests_stderr, STDERR_FILENO);
        _exit(good ? 0 : 1);
    }
    close(ends[1]);
    Lines result;
    std::array<char, 8192> record{};
    for (ssize_t size = 0; (size = read(ends[0], record.data(), record.size())) > 0;)
    {
        result.emplace_back(record.data(), static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return result;
}

bool log_each_level()
{
    for (const int level : {0, 1, 2, 3, 5, 9, 10})
    {
        tallylog_printf(level, 0x110, "%d", level);
    }
    return true;
}

TEST(TallylogThreshold, KeepsErrorsAndWarningsUnlessToldOtherwise)
{
    const Lines errors_and_warnings{"<3>0\n", "<3>1\n", "<4>2\n"};
    EXPECT_EQ(writes(std::nullopt, log_each_level), errors_and_warnings);
    for (const char* const bad : {"", "x", "9x", " 9", "99999999999999999999"})
    {
        EXPECT_EQ(writes(bad, log_each_level), errors_and_warnings) << '"' << bad << '"';
    }
    EXPECT_EQ(writes("-1", log_each_level), Lines{});
    EXPECT_EQ(writes("10", log_each_level),
              (Lines{"<3>0\n", "<3>1\n", "<4>2\n", "<5>3\n", "<6>5\n", "<7>9\n", "<7>10\n"}));
}

TEST(TallylogThreshold, IsReadOnceAndWhatItDropsIsNotFormatted)
{
    const auto body = []
    {
        tallylog_printf(1, 0, "first");
        setenv("TALLYLOG_LEVEL", "9", 1);
        // Would crash if it were formatted.
        return tallylog_printf(9, 0, "%s", reinterpret_cast<const char*>(1)) == 0;
    };
    EXPECT_EQ(writes("1", body), Lines{"<3>first\n"});
}

TEST(TallylogLine, StaysOneLineWhateverTheTextHolds)
{
    const auto body = []
    {
        const std::string hostile = "a\n<3>forged\r\x1b[2Jz\x7f";
        tallylog_printf(2, 0x110, "EXCEPTION %s.%d.%s: %s\n", "gantrycommon", 7, "f",
                        hostile.c_str());
        tallylog_printf(2, 0, "%s", "two breaks\n\n");
        tallylog_printf(2, 0, "%s", "");
        tallylog_printf(2, 0, "%s", "größer");
        return true;
    };
    EXPECT_EQ(writes("9", body), (Lines{"<4>EXCEPTION gantrycommon.7.f: a <3>forged  [2Jz \n",
                                        "<4>two breaks\n", "<4>\n", "<4>größer\n"}));
}

TEST(TallylogLine, IsCutAtWhatAPipeTakesInOnePiece)
{
    constexpr std::size_t fits = PIPE_BUF - 4; // "<4>" and the line break
    const auto body = []
    {
        tallylog_printf(2, 0, "%s", std::string(fits, 'x').c_str());
        // A cut at each place within a sequence of four bytes.
        for (std::string text; text.size() < 4; text += 'x')
        {
            std::string smiles = text;
            while (smiles.size() < 10000)
            {
                smiles += "\U0001F600";
            }
            tallylog_printf(2, 0, "%s", smiles.c_str());
        }
        return true;
    };
    const Lines all = writes("2", body);
    ASSERT_EQ(all.size(), 5);
    EXPECT_EQ(all[0], "<4>" + std::string(fits, 'x') + '\n');
    for (std::size_t pad = 0; pad < 4; ++pad)
    {
        const std::string& line = all[1 + pad];
        EXPECT_LE(line.size(), PIPE_BUF);
        EXPECT_GT(line.size(), PIPE_BUF - 4);
        EXPECT_TRUE(line.ends_with("\U0001F600…\n"));
        EXPECT_EQ((line.size() - pad) % 4, 7U % 4); // whole sequences between the ends
    }
}

TEST(TallylogCaller, KeepsErrnoAlsoWhenTheWriteFails)
{
    // Not a literal, since a pedantic compiler knows no %m.
    const std::string format = "%m: %d";
    const auto log_and_lose = [&]
    {
        errno = ENOENT;
        const bool good = tallylog_printf(1, 0, format.c_str(), 1) > 0 && errno == ENOENT;
        close(STDERR_FILENO);
        return tallylog_printf(1, 0, "lost") == -1 && errno == ENOENT && good;
    };
    EXPECT_EQ(writes("2", log_and_lose), Lines{"<3>No such file or directory: 1\n"});
}

} // namespace
