// Memory that runs out. Each operation is tried with each of its allocations failing, alone or with
// up to three behind it, in a process of its own. What is seen then may be as before or a part of
// what is seen without a failure, if the host or the client is told. Then memory is back, and the
// operation has to succeed in the same process.
//
//     oom [OPERATION]              each operation, or those whose names begin so
//     oom --bounded                some of the attempts, as a test
//     oom OPERATION FIRST COUNT    one attempt, in this process, for a debugger; shows the log
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

#include <tallylog.h>

#include "oom/operations.hpp"
#include "support/memory.hpp"
#include "support/private_bus.hpp"

namespace
{

// What an attempt comes to: one of those up to crash, and maybe others.
constexpr const char* columns[] = {"succeeded", "told",  "silent", "wrong",
                                   "lost",      "crash", "leak",   "unusable"};
enum Column
{
    succeeded,
    told,
    silent,
    wrong,
    lost,
    crash,
    leak,
    unusable
};

bool is_shown = false;
std::size_t logged = 0; // the sum of all failures' formats

// The operation with all memory.
struct
{
    Seen seen;
    std::size_t logged = 0;
    long allocations = 0;
    long blocks = 0; // that stay in use
} reference;

Column judge(const Seen& seen)
{
    bool is_told =
        seen.error != reference.seen.error || (logged != 0 && logged != reference.logged);
    bool is_part = true;
    for (const std::string& part : seen.after)
    {
        const bool is_error = part.starts_with("error ");
        is_told = is_told || is_error;
        is_part = is_part &&
                  (is_error || reference.seen.after.contains(part) || seen.before.contains(part));
    }
    const bool is_all = seen.after == reference.seen.after && seen.error == reference.seen.error;
    return !is_part ? wrong : is_all ? succeeded : !is_told ? silent : seen.is_lost ? lost : told;
}

// Carries the operation out short of memory, and then with all. Returns the columns as bits.
int attempt(const Operation& operation, long first, long count, bool is_reference = false)
{
    const long blocks = *memory::blocks;
    begin();
    memory::count = 0;
    logged = 0;
    memory::first_failing = first;
    memory::behind_failing = first + count;
    int result = 0;
    {
        const Seen seen = run(operation);
        if (is_reference)
        {
            reference = {seen, logged, memory::count, 0};
        }
        result = 1 << judge(seen);
        memory::behind_failing = 0;
        const Seen again = run(operation);
        const bool is_usable = again.before == reference.seen.before && // nothing was left behind
                               again.after == reference.seen.after;
        result |= is_usable ? 0 : 1 << unusable;
    }
    end();
    return result | (*memory::blocks - blocks > reference.blocks ? 1 << leak : 0);
}

int attempt_apart(const Operation& operation, long first, long count)
{
    const pid_t child = fork();
    if (child == 0)
    {
        alarm(20);
        _exit(attempt(operation, first, count) | 1 << crash); // the bit says that it got here
    }
    int status = 0;
    waitpid(child, &status, 0);
    const int result = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
    return (result >> crash & 1) != 0 ? result & ~(1 << crash) : 1 << crash;
}

// Returns whether all of the operation that isn't libsystemd's is right.
bool campaign(const Operation& operation, bool is_bounded)
{
    attempt(operation, 0, 0, true);
    // Once more for the blocks, now that the process is warm.
    const long blocks = *memory::blocks;
    bool is_right = (attempt(operation, 0, 0) & ~(1 << leak)) == 1 << succeeded;
    reference.blocks = *memory::blocks - blocks;

    std::printf("%-32s %9ld", operation.name.c_str(), reference.allocations);
    int seen = 1 << succeeded | 1 << told;
    const long step = is_bounded ? reference.allocations / 6 + 1 : 1;
    for (long length = 1; length <= 4; length += is_bounded ? 3 : 1)
    {
        for (long first = 0; first < reference.allocations; first += step)
        {
            const int result = attempt_apart(operation, first, length);
            for (int column = silent; column <= unusable; ++column)
            {
                if (((result & ~seen) >> column & 1) != 0)
                {
                    std::printf("  %s %ld %ld", columns[column], first, length);
                    is_right = is_right &&
                               (column == lost ||
                                operation.libsystemds.find(columns[column]) != std::string::npos);
                }
            }
            seen |= result;
        }
    }
    std::puts(is_right ? "" : "  WRONG");
    return is_right;
}

} // namespace

int tallylog_printf(int level, int /*mask*/, const char* format, ...)
{
    logged += level <= 2 ? std::hash<const void*>{}(format) : 0;
    std::va_list values;
    va_start(values, format);
    memory::count_in([&] { is_shown&& level <= 2 ? std::vprintf(format, values) : 0; }, false);
    va_end(values);
    return 0;
}

int main(int argc, char** argv)
{
    unsetenv("NOTIFY_SOCKET");
    const support::PrivateBus bus;
    const std::string wanted = argc > 1 ? argv[1] : "";
    const bool is_bounded = wanted == "--bounded";
    std::puts("OPERATION, its allocations, and what came first of each kind: FIRST COUNT");
    bool is_right = true;
    for (const Operation& operation : operations())
    {
        std::fflush(stdout);
        if (argc == 4 && operation.name == wanted)
        {
            attempt(operation, 0, 0, true);
            is_shown = true;
            attempt(operation, std::atol(argv[2]), std::atol(argv[3]));
        }
        else if (argc < 4 && (is_bounded || operation.name.starts_with(wanted)))
        {
            is_right = campaign(operation, is_bounded) && is_right;
        }
    }
    return is_right ? 0 : 1;
}
