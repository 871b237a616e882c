// Memory that runs out at each allocation in turn that the library makes for a call, a signal or a
// subscription: the log tells, nothing comes of it, and the next is served.
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>
#include <tallylog.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/stand_in.hpp"
#include "support/client.hpp"

namespace
{

// How many allocations succeed before one fails, negative behind that; counted only where the
// library runs. The messages of level 2 and below.
int before_failure = -1;
bool in_library = false;
int logged = 0;

bool fails()
{
    return in_library && before_failure-- == 0;
}

bool fails(const void* caller)
{
    return in_library && stand_in::is_called_by_library(caller) && fails();
}

} // namespace

// What allocates in the library, and nothing of libsystemd's.

[[gnu::noinline]] void* operator new(std::size_t size)
{
    static auto* const hidden = stand_in::hidden<void*(std::size_t)>("_Znwm");
    return fails() ? throw std::bad_alloc() : hidden(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    static auto* const hidden = stand_in::hidden<void*(std::size_t, std::size_t)>("calloc");
    return fails(__builtin_return_address(0)) ? nullptr : hidden(count, size);
}

char* strdup(const char* text) noexcept
{
    static auto* const hidden = stand_in::hidden<char*(const char*)>("strdup");
    return fails(__builtin_return_address(0)) ? nullptr : hidden(text);
}

// Not the captured log of other tests, which allocates.
int tallylog_printf(int level, int /*mask*/, const char* /*format*/, ...)
{
    logged += level <= 2 ? 1 : 0;
    return 0;
}

namespace
{

constexpr auto emit = GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes;
constexpr auto subscribe = GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes;

// Too long to stand inside a std::string.
constexpr const char* text = "a text on the heap that isn't UTF-8: \xFF";
const std::string repaired = "a text on the heap that isn't UTF-8: \uFFFD";

void give_struct(GANTRY_instance*, GANTRY_struct_ananas*, GANTRY_struct_ananas** out)
{
    auto* texts = new (calloc(1, sizeof(GANTRY_string_array))) GANTRY_string_array{};
    texts->data = new (calloc(1, sizeof(char*))) char*(strdup(text));
    texts->count = 1;
    *out = new (calloc(1, sizeof **out)) GANTRY_struct_ananas{nullptr, nullptr, texts};
}

template <class Call>
void enter(const Call& call)
{
    in_library = true;
    call();
    in_library = false;
}

TEST(Allocation, FailsAndNothingComesOfIt)
{
    stand_in::is_called_by_library(nullptr); // looks the library up
    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    table.TryStructArray = table.TryStructArrayD = give_struct;
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    GANTRY_context_set_service(context, "");
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, "/a", nullptr);
    const std::string service = context->bus.get_unique_name();
    support::Client client([&] { enter([&] { GANTRY_dbus_loop_one_pass(context); }); });
    client.subscribe();

    const auto call = [&](const char* method)
    {
        const auto pending = client.start({service, "/a"}, "com.orvane.velmar.sample.gantrytest",
                                          method, "(ananas)", 1, 2, 1, 3, 2, repaired.c_str(), "");
        client.settle(service);
        return pending.reply().text;
    };
    const auto receive = [&]
    {
        static std::string heard;
        heard.clear();
        context->signal_matches.clear();
        enter([&] { subscribe(context, [](auto*, auto*, char* what) { heard += what; }); });
        client.emit(nullptr, "/b", "a.b", "complextypes", "(quat)s", 1, 2, 1, 3L, repaired.c_str());
        client.settle(service);
        return heard;
    };
    const auto send = [&]
    {
        unsigned long numbers[] = {1, 2};
        GANTRY_uint64_array array = {numbers, 2};
        const GANTRY_struct_quat values = {1, 2, &array};
        client.clear_signals();
        enter([&] { emit(nullptr, &values, text); });
        client.settle(service);
        return client.signals().empty() ? "" : client.signals().front().body;
    };
    const std::string reply = "(ananas) ([], [], [\"" + repaired + "\"])";
    const std::tuple<std::function<std::string()>, std::string, std::string> attempts[] = {
        {[&] { return call("TryStructArray"); }, "no reply", reply},
        {[&] { return call("TryStructArrayD"); }, "no reply", reply},
        {send, "", "(quat)s (1, 2, [1, 2]), \"" + repaired + '"'},
        {receive, "", repaired},
    };
    for (const auto& [attempt, lost, kept] : attempts)
    {
        bool has_failed = true;
        for (int allocation = 0; has_failed; ++allocation)
        {
            logged = 0;
            before_failure = allocation;
            const std::string seen = attempt();
            has_failed = std::exchange(before_failure, -1) < 0;
            EXPECT_EQ(seen, has_failed ? lost : kept) << allocation;
            EXPECT_EQ(logged > 0, has_failed) << allocation;
            EXPECT_EQ(attempt(), kept) << allocation;
            EXPECT_TRUE(has_failed || allocation > 0);
        }
    }
    GANTRY_context_free(&context);
}

} // namespace
