// The log service reads its threshold once in a process, so each case runs in a child. Its standard
// error is a record-keeping socket: one record is one write(2).
#include <array>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tallylog.h>

namespace
{

// What `body` logs with this $TALLYLOG_LEVEL, each write behind a '|'.
std::string writes(const char* level, const std::function<void()>& body)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data());
    const pid_t child = fork();
    if (child == 0)
    {
        level != nullptr ? setenv("TALLYLOG_LEVEL", level, 1) : unsetenv("TALLYLOG_LEVEL");
        dup2(ends[1], STDERR_FILENO);
        body();
        _exit(0);
    }
    close(ends[1]);
    std::string result;
    std::string record(8192, '\0');
    for (ssize_t size = 0; (size = read(ends[0], record.data(), record.size())) > 0;)
    {
        result += '|' + record.substr(0, static_cast<std::size_t>(size));
    }
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    return result;
}

TEST(Tallylog, keeps_errors_and_warnings_unless_told_otherwise)
{
    const auto log_each_level = []
    {
        // Would crash if it were formatted.
        tallylog_printf(11, 0, "%s", reinterpret_cast<const char*>(1));
        for (const int level : {0, 1, 2, 3, 5, 9, 10})
        {
            tallylog_printf(level, 0x110, "%d", level);
            setenv("TALLYLOG_LEVEL", "9", 1); // too late
        }
    };
    for (const char* const bad : {static_cast<const char*>(nullptr), "", "9x", "99999999999"})
    {
        EXPECT_EQ(writes(bad, log_each_level), "|<3>0\n|<3>1\n|<4>2\n");
    }
    EXPECT_EQ(writes("-1", log_each_level), "");
    EXPECT_EQ(writes("10", log_each_level), "|<3>0\n|<3>1\n|<4>2\n|<5>3\n|<6>5\n|<7>9\n|<7>10\n");
}

TEST(Tallylog, writes_one_line_a_message_whatever_its_text_holds)
{
    const auto body = []
    {
        tallylog_printf(2, 0, "%s", "a\n<3>forged\r\x1b[2Jz\x7f");
        tallylog_printf(2, 0, "%s", "größer\n\n");
        errno = ENOENT;
        const std::string format = "%m"; // not a literal: a pedantic compiler knows no %m
        tallylog_printf(1, 0, format.c_str(), 0);
        close(STDERR_FILENO);
        tallylog_printf(1, 0, "lost");
        _exit(errno == ENOENT ? 0 : 1);
    };
    EXPECT_EQ(writes("9", body), "|<4>a <3>forged  [2Jz \n|<4>größer\n|"
                                 "<3>No such file or directory\n");
}

TEST(Tallylog, leaves_a_cancellation_to_the_thread_that_logs)
{
    const auto body = []
    {
        pthread_t thread{};
        const auto log_cancelled = [](void*) -> void*
        {
            pthread_cancel(pthread_self());
            tallylog_printf(1, 0, "cancelled");
            pthread_testcancel();
            return nullptr;
        };
        pthread_create(&thread, nullptr, log_cancelled, nullptr);
        void* result = nullptr;
        pthread_join(thread, &result);
        tallylog_printf(1, 0, "%s", result == PTHREAD_CANCELED ? "then ended" : "went on");
    };
    EXPECT_EQ(writes("2", body), "|<3>cancelled\n|<3>then ended\n");
}

TEST(Tallylog, cuts_a_text_between_characters_at_what_a_pipe_takes_in_one_piece)
{
    for (std::string text; text.size() < 4; text += 'x') // each place within a sequence
    {
        std::string smiles = text;
        while ((smiles += "\U0001F600").size() < PIPE_BUF)
        {
        }
        const auto line = writes("2", [&] { tallylog_printf(2, 0, "%s", smiles.c_str()); });
        EXPECT_LE(line.size(), PIPE_BUF + 1);
        EXPECT_GT(line.size(), PIPE_BUF - 4);
        EXPECT_TRUE(line.ends_with("\U0001F600…\n"));
    }
}

} // namespace
