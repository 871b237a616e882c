// What happens once in a process, seen from outside of it: each case is a run of host.cpp.
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace
{

using testing::ElementsAre;

// What the host says and logs, without the numbers that tell nothing.
std::vector<std::string> run(const std::string& arguments)
{
    setenv("TEST_LOG_ECHO", "1", 1);
    const std::string command = HOST " " + arguments + " 2>&1";
    std::vector<std::string> lines;
    int (*const close)(FILE*) = [](FILE* pipe)
    {
        const int status = pclose(pipe);
        EXPECT_EQ(status, 0);
        return status;
    };
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), close);
    std::string thread = "none";
    std::array<char, 512> buffer{};
    while (std::fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr)
    {
        std::string line(buffer.data());
        line.pop_back();
        if (line.starts_with("thread "))
        {
            thread = line.substr(7);
            continue;
        }
        line = std::regex_replace(line, std::regex("(gantrycontext)\\.[0-9]+\\."), "$1.");
        line = std::regex_replace(line, std::regex("tid=" + thread + "$"), "tid=its own");
        lines.push_back(line);
    }
    return lines;
}

constexpr const char* enter_new = "[9 0x110] gantrycontext.GANTRY_cpp_context_new: enter";
constexpr const char* leave_new = "[9 0x110] gantrycontext.GANTRY_cpp_context_new: leave";
constexpr const char* allocated = "[9 0x110] gantrycontext.GANTRY_get_or_allocate_ctx: leave";
constexpr const char* no_key =
    "[1 0x110] gantrycontext.GANTRY_get_or_allocate_ctx: key is not valid";
constexpr const char* no_context =
    "[2 0x110] gantrycontext.GANTRY_cpp_context_new: unable to allocate context";
#define FAREWELL "0x110] gantrycontext.GANTRY_per_thread_library_destructor: "
constexpr const char* farewell = "[9 " FAREWELL "enter tid=its own";
constexpr const char* unused = "[9 " FAREWELL "no key, no cleanup needed";
constexpr const char* gone = "[9 " FAREWELL "leave";

TEST(Process, SaysFarewellWithOrWithoutAKey)
{
    EXPECT_THAT(run(""), ElementsAre(farewell, unused));
    EXPECT_THAT(run("late"),
                ElementsAre(enter_new, allocated, leave_new, "first: a context", farewell,
                            enter_new, no_key, no_context, "after the farewell: no context",
                            "[1 " FAREWELL "pthread_key_delete failed with irv=22", gone));
}

TEST(Process, TriesTenTimesToMakeTheKeyAndNeverAgain)
{
    EXPECT_THAT(run("keys 9"),
                ElementsAre(enter_new, allocated, leave_new, "first: a context", enter_new,
                            leave_new, "second: a context", "9 yields", farewell, gone));
    EXPECT_THAT(run("keys 10"),
                ElementsAre(enter_new, no_key, no_context, "first: no context", enter_new, no_key,
                            no_context, "second: no context", "9 yields", farewell, unused));
}

TEST(Process, SharesUseDefaultWithTheLibrary)
{
    const auto lines = run("use_default");
    std::vector<std::string> said;
    for (const auto& line : lines)
    {
        if (!line.starts_with('['))
        {
            said.push_back(line);
        }
    }
    EXPECT_THAT(said, ElementsAre("a variable of the host", "private connection",
                                  "shared connection", "false"));
}

} // namespace
