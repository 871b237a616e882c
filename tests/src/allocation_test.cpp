// Memory that runs out at each allocation in turn that the library makes for a call, a signal or a
// subscription: the log tells, nothing comes of it, and the next is served.
#include "src/served.hpp"

namespace
{

// How many allocations of the library's own code succeed before one fails; negative behind that.
int before_failure = -1;

bool fails(const void* caller)
{
    return before_failure >= 0 && stand_in::is_called_by_library(caller) && before_failure-- == 0;
}

} // namespace

void* operator new(std::size_t size)
{
    static auto* const hidden = stand_in::hidden<void*(std::size_t)>("_Znwm");
    return fails(__builtin_return_address(0)) ? throw std::bad_alloc() : hidden(size);
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

namespace
{

constexpr auto subscribe = GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes;

void give_struct(GANTRY_instance*, GANTRY_struct_ananas*, GANTRY_struct_ananas** out)
{
    auto* texts = new (calloc(1, sizeof(GANTRY_string_array))) GANTRY_string_array{};
    texts->data = new (calloc(1, sizeof(char*))) char*(strdup("\xFF"));
    texts->count = 1;
    *out = new (calloc(1, sizeof **out)) GANTRY_struct_ananas{nullptr, nullptr, texts};
}

using Allocation = Served;

TEST_F(Allocation, FailsAndNothingComesOfIt)
{
    stand_in::is_called_by_library(nullptr); // looks the library up
    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    table.TryStructArray = table.TryStructArrayD = give_struct;
    GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, "/a", nullptr);
    const auto call = [&](const char* method)
    {
        const auto pending = client.start({service, "/a"}, "com.orvane.velmar.sample.gantrytest",
                                          method, "(ananas)", 1, 2, 1, 3, 2, "a", "");
        client.settle(service);
        return pending->text;
    };
    const auto receive = [&]
    {
        static std::string heard;
        heard.clear();
        context->signal_matches.clear();
        subscribe(context, [](auto*, auto*, char* text) { heard += text; });
        client.emit(nullptr, "/b", "a.b", "complextypes", "(quat)s", 1, 2, 1, 3L, "text");
        client.settle(service);
        return heard;
    };
    const auto send = [&]
    {
        unsigned long numbers[] = {1, 2};
        GANTRY_uint64_array array = {numbers, 2};
        const GANTRY_struct_quat values = {1, 2, &array};
        GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes(nullptr, &values, "\xFF");
        return sent();
    };
    const std::string reply = "(ananas) ([], [], [\"\uFFFD\"])";
    const std::tuple<std::function<std::string()>, std::string, std::string> attempts[] = {
        {[&] { return call("TryStructArray"); }, "no reply", reply},
        {[&] { return call("TryStructArrayD"); }, "no reply", reply},
        {send, "", "/a complextypes (quat)s (1, 2, [1, 2]), \"\uFFFD\"\n"},
        {receive, "", "text"},
    };
    for (const auto& [attempt, lost, kept] : attempts)
    {
        bool has_failed = true;
        for (int allocation = 0; has_failed; ++allocation)
        {
            before_failure = allocation;
            const std::string seen = attempt();
            has_failed = std::exchange(before_failure, -1) < 0;
            EXPECT_EQ(seen, has_failed ? lost : kept) << allocation;
            EXPECT_EQ(logged(2).find("std::bad_alloc") != std::string::npos, has_failed)
                << allocation;
            EXPECT_EQ(attempt(), kept) << allocation;
            EXPECT_TRUE(has_failed || allocation > 0);
        }
    }
}

} // namespace
