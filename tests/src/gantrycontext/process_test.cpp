// What happens once in a process, seen from outside of it: each case is a run of host.cpp.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

namespace
{

// What the host says and logs, without the lines' numbers; its thread is "its own".
std::string run(const std::string& arguments, bool logs = true)
{
    logs ? setenv("TEST_LOG_ECHO", "1", 1) : unsetenv("TEST_LOG_ECHO");
    FILE* const pipe = popen((HOST " " + arguments + " 2>&1").c_str(), "r");
    std::string lines;
    std::string thread;
    std::array<char, 512> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr)
    {
        std::string line(buffer.data());
        if (line.starts_with("thread "))
        {
            thread = "tid=" + line.substr(7);
            continue;
        }
        if (const auto number = line.find("gantrycontext."); number != std::string::npos)
        {
            line.erase(number, line.find('.', number + 14) + 1 - number);
        }
        if (line.ends_with(thread))
        {
            line.replace(line.size() - thread.size(), thread.size(), "tid=its own\n");
        }
        lines += line;
    }
    EXPECT_EQ(pclose(pipe), 0);
    return lines;
}

const std::string made = "[9 0x110] GANTRY_cpp_context_new: enter\n"
                         "[9 0x110] GANTRY_get_or_allocate_ctx: leave\n"
                         "[9 0x110] GANTRY_cpp_context_new: leave\n"
                         "first: a context\n";
const std::string no_key = "[9 0x110] GANTRY_cpp_context_new: enter\n"
                           "[1 0x110] GANTRY_get_or_allocate_ctx: key is not valid\n"
                           "[2 0x110] GANTRY_cpp_context_new: unable to allocate context\n";
#define FAREWELL "0x110] GANTRY_per_thread_library_destructor: "
const std::string farewell = "[9 " FAREWELL "enter tid=its own\n";
const std::string unused = "[9 " FAREWELL "no key, no cleanup needed\n";
const std::string gone = "[9 " FAREWELL "leave\n";

TEST(Process, SaysFarewellWithOrWithoutAKey)
{
    EXPECT_EQ(run(""), farewell + unused);
    EXPECT_EQ(run("late"), made + farewell + no_key + "after the farewell: no context\n" +
                               "[1 " FAREWELL "pthread_key_delete failed with irv=22\n" + gone);
}

TEST(Process, TriesTenTimesToMakeTheKeyAndNeverAgain)
{
    EXPECT_EQ(run("keys 9"), made + "9 yields\n" + farewell + gone);
    EXPECT_EQ(run("keys 10"), no_key + "first: no context\n" + no_key +
                                  "second: no context\n9 yields\n" + farewell + unused);
}

TEST(Process, SharesUseDefaultWithTheLibrary)
{
    EXPECT_EQ(run("use_default", false), "private connection\nshared connection\nfalse\n");
}

} // namespace
