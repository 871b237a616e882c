// Memory that runs out at each allocation in turn that the library makes for a call or a signal:
// the log tells, nothing is lost, and the next is served.
#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <tallylog.h>

#include <gantry/gantry.h>

#include <gantry/context.hpp>

#include "src/stand_in.hpp"
#include "support/client.hpp"

namespace
{

// How many allocations succeed before one fails; counted only where the library runs.
int before_failure = -1;
bool in_library = false;
bool has_failed = false;

bool fails()
{
    if (!in_library || before_failure < 0 || before_failure-- > 0)
    {
        return false;
    }
    has_failed = true;
    return true;
}

bool fails(const void* caller)
{
    return in_library && stand_in::is_called_by_library(caller) && fails();
}

// Runs the library, and what of the test's it calls: that allocates as C does.
template <class Call>
void enter(const Call& call)
{
    in_library = true;
    call();
    in_library = false;
}

// The messages of level 2 and below, without their lines' numbers. Not the captured log of other
// tests, which allocates.
char log_text[4096];

} // namespace

// What allocates in the library, and nothing of libsystemd's. Inlined, they would look like a
// free() of what came from new.

[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* block = fails() ? nullptr : malloc(size);
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    return block;
}

[[gnu::noinline]] void operator delete(void* block) noexcept
{
    free(block);
}

[[gnu::noinline]] void operator delete(void* block, std::size_t /*size*/) noexcept
{
    free(block);
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    if (fails(__builtin_return_address(0)))
    {
        errno = ENOMEM;
        return nullptr;
    }
    static auto* const hidden = stand_in::hidden<void*(std::size_t, std::size_t)>("calloc");
    return hidden(count, size);
}

char* strdup(const char* text) noexcept
{
    if (fails(__builtin_return_address(0)))
    {
        errno = ENOMEM;
        return nullptr;
    }
    static auto* const hidden = stand_in::hidden<char*(const char*)>("strdup");
    return hidden(text);
}

int tallylog_printf(int level, int /*mask*/, const char* format, ...)
{
    if (level <= 2)
    {
        va_list values;
        va_start(values, format);
        const char* stem = va_arg(values, const char*);
        va_arg(values, int);
        const auto print = [](auto printf, auto... arguments)
        {
            const std::size_t length = strlen(log_text);
            printf(log_text + length, sizeof log_text - length, arguments...);
        };
        print(snprintf, "%s.", stem);
        print(vsnprintf, strstr(format, "%s:"), values);
        va_end(values);
    }
    return 0;
}

namespace
{

using support::Client;
using support::Object;

// Too long to stand inside a std::string.
constexpr const char* long_text = "a text that is kept on the heap";
constexpr const char* bad_text = "a text on the heap that isn't UTF-8: \xFF";

const std::string loop_log = "gantrycommon.GANTRY_dbus_loop_one_pass: ";
const std::string no_memory = "std::bad_alloc\n";

template <class Record, class Element>
Record* make_record(Element first, Element second)
{
    const Element elements[] = {first, second};
    auto* record = static_cast<Record*>(calloc(1, sizeof(Record)));
    record->data = static_cast<Element*>(malloc(sizeof elements));
    std::copy(std::begin(elements), std::end(elements), record->data);
    record->count = std::size(elements);
    return record;
}

void give_string(GANTRY_instance*, char*, char** out)
{
    *out = strdup(bad_text);
}

void give_set(GANTRY_instance*, GANTRY_int16_array*, GANTRY_int16_array** out)
{
    *out = make_record<GANTRY_int16_array>(short{1}, short{2});
}

void give_rows(GANTRY_instance*, GANTRY_uint32_array_array*, GANTRY_uint32_array_array** out)
{
    *out = make_record<GANTRY_uint32_array_array>(make_record<GANTRY_uint32_array>(1U, 2U),
                                                  make_record<GANTRY_uint32_array>(3U, 4U));
}

void give_struct(GANTRY_instance*, GANTRY_struct_ananas*, GANTRY_struct_ananas** out)
{
    *out = static_cast<GANTRY_struct_ananas*>(calloc(1, sizeof **out));
    (*out)->field1 = make_record<GANTRY_int16_array>(short{1}, short{2});
    (*out)->field3 = make_record<GANTRY_string_array>(strdup(long_text), strdup(bad_text));
}

std::size_t heard = 0;

void on_complex(GANTRY_cpp_context*, GANTRY_struct_quat*, char*)
{
    ++heard;
}

class Allocation : public testing::Test
{
  protected:
    Allocation()
    {
        stand_in::is_called_by_library(nullptr); // looks the library up
        table.Try_string = table.Try_string_D = give_string;
        table.TrySet = table.TrySetD = give_set;
        table.TryArrayArray = table.TryArrayArrayD = give_rows;
        table.TryStructArray = table.TryStructArrayD = give_struct;
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, "");
        service = context->bus.get_unique_name();
        GANTRY_instantiate__com_orvane_velmar_sample_gantrytest(context, &table, "/a", nullptr);
        client.subscribe();
    }
    ~Allocation() override
    {
        GANTRY_context_free(&context);
    }

    // Runs `attempt` with one allocation after the other failing, until none is left to fail.
    // `lost` looks at what a failure has left behind.
    static void fail_each(const std::function<void()>& attempt, const std::function<void()>& lost)
    {
        for (int allocations = 0;; ++allocations)
        {
            SCOPED_TRACE("allocation " + std::to_string(allocations));
            log_text[0] = '\0';
            has_failed = false;
            before_failure = allocations;
            attempt();
            before_failure = -1;
            if (!has_failed)
            {
                EXPECT_STREQ(log_text, "");
                EXPECT_GT(allocations, 0);
                return;
            }
            lost();
        }
    }

    // Of attempts that fail nothing is left but the log; that which doesn't has its effect once.
    static void expect_one_effect(const std::function<void()>& attempt, const std::string& log,
                                  const std::function<std::size_t()>& effects)
    {
        fail_each(attempt,
                  [&]
                  {
                      EXPECT_EQ(log_text, log + no_memory);
                      EXPECT_EQ(effects(), 0U);
                  });
        EXPECT_EQ(effects(), 1U);
    }

    // How often a signal from the bus is heard.
    std::size_t hear()
    {
        heard = 0;
        client.emit(nullptr, "/b", "com.example.Other", "complextypes", "(quat)s", 1, 2, 2, 3L, 4L,
                    long_text);
        client.settle(service);
        return heard;
    }

    template <class... Args>
    void expect_survived(const std::string& method, const std::string& operation,
                         const std::string& reply, const char* types, Args... args)
    {
        SCOPED_TRACE(method);
        const Object object{service, "/a"};
        const char* interface = "com.orvane.velmar.sample.gantrytest";
        std::string last;
        const auto attempt = [&]
        {
            const auto pending = client.start(object, interface, method.c_str(), types, args...);
            client.settle(service);
            last = pending.reply().text;
        };
        fail_each(attempt,
                  [&]
                  {
                      EXPECT_EQ(last, "no reply");
                      // In the override, or in reply shape before and behind it too.
                      const std::string in_override = "gantry_server." + operation + ": " +
                                                      no_memory + loop_log + "std::exception\n";
                      EXPECT_TRUE(log_text == in_override ||
                                  (!operation.ends_with('D') && log_text == loop_log + no_memory))
                          << log_text;
                      attempt();
                      EXPECT_EQ(last, reply);
                  });
        EXPECT_EQ(last, reply);
    }

    GANTRY_table__com_orvane_velmar_sample_gantrytest table{};
    GANTRY_cpp_context* context = nullptr;
    std::string service;
    Client client{[this] { enter([this] { GANTRY_dbus_loop_one_pass(context); }); }};
};

TEST_F(Allocation, FailsInACall)
{
    const std::string repaired = "a text on the heap that isn't UTF-8: \xEF\xBF\xBD";
    const auto expect_both =
        [this](const std::string& method, const std::string& operation, auto... arguments)
    {
        expect_survived(method, operation, arguments...);
        expect_survived(method + (method == "Try_string" ? "_D" : "D"), operation + 'D',
                        arguments...);
    };
    expect_both("Try_string", "tryString", "s \"" + repaired + '"', "s", long_text);
    expect_both("TrySet", "trySet", "an [1, 2]", "an", 2, 3, 4);
    expect_both("TryArrayArray", "tryArrayArray", "aau [[1, 2], [3, 4]]", "aau", 2, 1, 5, 2, 6, 7);
    expect_both("TryStructArray", "tryStructArray",
                "(ananas) ([1, 2], [], [\"" + std::string(long_text) + "\", \"" + repaired + "\"])",
                "(ananas)", 1, 2, 1, 3, 2, long_text, "");
}

TEST_F(Allocation, FailsAsASignalArrives)
{
    GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(context, on_complex);
    expect_one_effect([this] { hear(); }, loop_log, [] { return heard; });
    EXPECT_EQ(hear(), 1U);
}

TEST_F(Allocation, FailsAsASignalIsSent)
{
    unsigned long numbers[] = {1, 2};
    GANTRY_uint64_array array = {numbers, 2};
    const GANTRY_struct_quat values = {1, 2, &array};
    const auto send = [&] {
        GANTRY_signal__com_orvane_velmar_sample_gantrytest__complextypes(nullptr, &values,
                                                                         bad_text);
    };
    const auto sent = [this]
    {
        client.settle(service);
        const auto count = client.signals("complextypes").size();
        client.clear_signals();
        return count;
    };
    expect_one_effect([&] { enter(send); },
                      "gantry_server.GANTRY_signal__com_orvane_velmar_sample_gantrytest__"
                      "complextypes: ",
                      sent);
}

TEST_F(Allocation, FailsInASubscription)
{
    const auto subscribe = [this] {
        GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__complextypes(context,
                                                                                 on_complex);
    };
    expect_one_effect([&] { enter(subscribe); },
                      "gantry_server.GANTRY_receive_signal__com_orvane_velmar_sample_gantrytest__"
                      "complextypes: ",
                      [this] { return hear(); });
}

} // namespace
