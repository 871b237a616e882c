// The two callbacks in front of a server class: their order of steps, and what comes of a failure
// in each.
#include "calls.hpp"
#include "peer.hpp"

#include <gmock/gmock.h>
#include <sdbusplus/exception.hpp>
#include <sdbusplus/sdbuspp_support/server.hpp>
#include <sdbusplus/server/transaction.hpp>

#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <variant>
#include <vector>

namespace
{

using sdbusplus::exception::SdBusError;
using sdbusplus::sdbuspp::method_callback;
using sdbusplus::sdbuspp::property_callback;
using test::Message;
using test::Peer;
using testing::ElementsAre;

namespace transaction = sdbusplus::server::transaction;

// Adds to the codec's calls those of a callback. What is sent stays here.
class ServerCalls : public test::Calls
{
  public:
    Message sent;
    int references = 0;

    sd_bus_message* sd_bus_message_ref(sd_bus_message* m) override
    {
        made.push_back("ref");
        ++references;
        return SdBusImpl::sd_bus_message_ref(m);
    }

    sd_bus_message* sd_bus_message_unref(sd_bus_message* m) override
    {
        made.push_back("unref");
        --references;
        return SdBusImpl::sd_bus_message_unref(m);
    }

    int sd_bus_message_new_method_return(sd_bus_message* call, sd_bus_message** m) override
    {
        if (fails("new_method_return"))
        {
            return -error;
        }
        ++references;
        return SdBusImpl::sd_bus_message_new_method_return(call, m);
    }

    int sd_bus_send(sd_bus* bus, sd_bus_message* m, uint64_t* cookie) override
    {
        EXPECT_EQ(bus, SdBusImpl::sd_bus_message_get_bus(m));
        EXPECT_EQ(cookie, nullptr);
        if (fails("send"))
        {
            return -error;
        }
        sent = Peer::seal(Message(SdBusImpl::sd_bus_message_ref(m)));
        return 1;
    }

    int sd_bus_error_set(sd_bus_error* e, const char* name, const char* message) override
    {
        made.push_back("error_set");
        return SdBusImpl::sd_bus_error_set(e, name, message);
    }
};

class Callbacks : public testing::Test
{
  protected:
    ~Callbacks() override
    {
        EXPECT_EQ(calls.references, 0);
        sd_bus_error_free(&error);
    }

    void expect_error(const char* name, const std::string& description)
    {
        EXPECT_STREQ(error.name, name);
        EXPECT_EQ(error.message, description);
    }

    // A reply under construction, as sd-bus hands it to a getter.
    Message reply()
    {
        call = peer.sealed_call("");
        sd_bus_message* m = nullptr;
        sd_bus_message_new_method_return(call.get(), &m);
        return Message(m);
    }

    // Notes that the class's function runs, inside the transaction of the call.
    void runs()
    {
        calls.made.push_back("function");
        in_function = transaction::get_id();
    }

    Peer peer;
    ServerCalls calls;
    Message call;
    sd_bus_error error{};
    uint64_t in_function = 0;
};

TEST_F(Callbacks, a_get_appends_to_the_reply_under_construction)
{
    auto m = reply();
    const int r = property_callback(m.get(), &calls, &error,
                                    std::function(
                                        [this]
                                        {
                                            runs();
                                            return std::string("value");
                                        }));
    EXPECT_EQ(r, 1);
    EXPECT_THAT(calls.made, ElementsAre("function", "append s"));
    EXPECT_EQ(test::dump(Peer::seal(std::move(m))), test::dump(peer.sealed("s", "value")));
}

TEST_F(Callbacks, a_get_that_fails_gives_its_error_and_lets_others_through)
{
    const auto m = reply();
    struct Refusal : sdbusplus::exception::internal_exception
    {
        const char* name() const noexcept override
        {
            return SD_BUS_ERROR_ACCESS_DENIED;
        }
        const char* description() const noexcept override
        {
            return "not for you";
        }
        int get_errno() const noexcept override
        {
            return EPERM;
        }
    };
    EXPECT_EQ(
        property_callback(m.get(), &calls, &error, std::function([]() -> int { throw Refusal(); })),
        -EACCES);
    expect_error(SD_BUS_ERROR_ACCESS_DENIED, "not for you");

    EXPECT_THROW(property_callback(m.get(), &calls, &error,
                                   std::function([]() -> int { throw std::runtime_error(""); })),
                 std::runtime_error);
}

TEST_F(Callbacks, a_set_reads_one_value_and_hands_it_over)
{
    const auto m = peer.sealed_call("(is)", 5, "five");
    std::tuple<int, std::string> got;
    const int r = property_callback(m.get(), &calls, &error,
                                    std::function(
                                        [&](std::tuple<int, std::string>&& value)
                                        {
                                            runs();
                                            got = std::move(value);
                                        }));
    EXPECT_EQ(r, 1);
    EXPECT_EQ(got, (std::tuple{5, std::string("five")}));
    EXPECT_THAT(calls.made,
                ElementsAre("ref", "enter r is", "read i", "read s", "exit", "function", "unref"));
}

TEST_F(Callbacks, a_set_that_cannot_be_read_does_not_set)
{
    const auto m = peer.sealed_call("as", 1, "x");
    const int r = property_callback(m.get(), &calls, &error,
                                    std::function([this](std::vector<int>&&) { runs(); }));
    EXPECT_EQ(r, sd_bus_error_get_errno(&error) * -1);
    EXPECT_LT(r, 0);
    EXPECT_EQ(in_function, 0u);
    EXPECT_EQ(calls.made.back(), "error_set");
    expect_error("System.Error.ENXIO",
                 std::string("sd_bus_message_enter_container emplace_back_container: ") +
                     std::strerror(ENXIO));
}

class Method : public Callbacks
{
  protected:
    // A method that takes a string and a boolean and has two results.
    int method()
    {
        return method_callback<true>(call.get(), &calls, &error,
                                     std::function(
                                         [this](std::string&& text, bool&& flag)
                                         {
                                             runs();
                                             return std::tuple<int, std::string>(flag ? 1 : 0,
                                                                                 text);
                                         }));
    }

    Method()
    {
        call = peer.sealed_call("sb", "text", 1);
    }
};

TEST_F(Method, makes_the_reply_before_it_runs_and_sends_it_after)
{
    EXPECT_EQ(method(), 1);
    EXPECT_THAT(calls.made, ElementsAre("ref", "read s", "read b", "new_method_return", "function",
                                        "append i", "append s", "send", "unref", "unref"));
    ASSERT_NE(calls.sent, nullptr);
    uint64_t answered = 0;
    uint64_t cookie = 0;
    sd_bus_message_get_reply_cookie(calls.sent.get(), &answered);
    sd_bus_message_get_cookie(call.get(), &cookie);
    EXPECT_EQ(answered, cookie);
    EXPECT_EQ(test::dump(calls.sent), test::dump(peer.sealed("is", 1, "text")));
}

TEST_F(Method, each_failure_becomes_the_error_of_its_call)
{
    const std::vector<std::pair<std::size_t, std::string>> failures{
        {1, "sd_bus_message_read_basic string"},
        {2, "sd_bus_message_read_basic bool"},
        {3, "sd_bus_message_new_method_return"},
        {7, "sd_bus_send"},
    };
    for (const auto& [failing, name] : failures)
    {
        SCOPED_TRACE(name);
        calls.made.clear();
        calls.failing = failing;
        sd_bus_message_rewind(call.get(), true);
        const SdBusError expected(test::Calls::error, name.c_str());
        EXPECT_EQ(method(), -test::Calls::error);
        expect_error(expected.name(), expected.description());
        EXPECT_EQ(std::count(calls.made.begin(), calls.made.end(), "function"),
                  failing < 4 ? 0 : 1);
        EXPECT_EQ(calls.references, 0);
        EXPECT_EQ(calls.sent, nullptr);
        sd_bus_error_free(&error);
    }
}

TEST_F(Method, what_it_throws_drops_the_reply_unsent)
{
    const auto throwing = [this](auto thrown)
    {
        sd_bus_message_rewind(call.get(), true);
        return method_callback(call.get(), &calls, &error,
                               std::function([=](std::string&&) -> int { throw thrown; }));
    };
    EXPECT_EQ(throwing(SdBusError(EACCES, "inside")), -EACCES);
    expect_error(SD_BUS_ERROR_ACCESS_DENIED, "inside: Permission denied");
    EXPECT_THROW(throwing(std::runtime_error("inside")), std::runtime_error);
    EXPECT_THROW(throwing(std::bad_variant_access()), std::bad_variant_access);
    EXPECT_EQ(calls.sent, nullptr);
}

TEST_F(Method, a_tuple_is_one_struct_or_separate_results)
{
    const auto results = [] { return std::tuple<unsigned short, unsigned int>(1, 2); };
    method_callback<false>(call.get(), &calls, &error, std::function(results));
    EXPECT_EQ(test::dump(calls.sent), test::dump(peer.sealed("(qu)", 1, 2)));
    method_callback<true>(call.get(), &calls, &error, std::function(results));
    EXPECT_EQ(test::dump(calls.sent), test::dump(peer.sealed("qu", 1, 2)));
    method_callback(call.get(), &calls, &error, std::function([] {}));
    EXPECT_EQ(test::dump(calls.sent), test::dump(peer.sealed("")));
}

TEST_F(Callbacks, a_transaction_is_a_call_and_the_reply_to_it)
{
    uint64_t elsewhere = 1;
    std::thread([&] { elsewhere = transaction::get_id(); }).join();
    EXPECT_EQ(elsewhere, 0u);

    const auto id = [](const Message& m)
    {
        transaction::set_id(sdbusplus::message::message(m.get()));
        return transaction::get_id();
    };
    const auto answer = reply();
    const uint64_t first = id(call);
    EXPECT_EQ(id(answer), first);
    EXPECT_NE(id(peer.sealed_call("")), first);

    // The getter and the method already run inside it.
    property_callback(answer.get(), &calls, &error,
                      std::function(
                          [this]
                          {
                              runs();
                              return 0;
                          }));
    EXPECT_EQ(in_function, first);
}

} // namespace
