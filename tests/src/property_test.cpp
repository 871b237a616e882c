// Properties of every type, on the class that the generator makes of the table next to this test:
// setters and what they send, and what a client is told.
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <gantry/loop.h>

#include <com/orvane/velmar/test/AllTypes/gantry_server.hpp>
#include <gantry/context.hpp>
#include <sdbusplus/exception.hpp>

#include "support/captured_log.hpp"
#include "support/client.hpp"

namespace
{

using sdbusplus::server::com::orvane::velmar::test::AllTypes;
using support::Client;
using support::Signal;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;
using Texts = std::vector<std::string>;

constexpr const char* interface = AllTypes::interface;
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* service = "com.example.properties";
const support::Object all_types{service, "/com/orvane/velmar/test/AllTypes"};

class Property : public testing::Test
{
  protected:
    Property()
    {
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, service);
        client.subscribe();
    }

    ~Property() override
    {
        GANTRY_context_free(&context);
    }

    AllTypes& instantiate()
    {
        GANTRY_instantiate__com_orvane_velmar_test_AllTypes(context, nullptr, nullptr, nullptr);
        return *static_cast<GANTRY_com_orvane_velmar_test_AllTypes::AllTypes*>(
            context->tracker.back().object);
    }

    // An object of a class of the test's own, at the same path.
    template <class Class>
    std::unique_ptr<Class> make()
    {
        return std::make_unique<Class>(context->bus, all_types.path.c_str());
    }

    std::string get(const char* property)
    {
        return client.get(all_types, interface, property).text;
    }

    // "Member: value" of each change that was announced since the last look.
    std::vector<std::string> announced()
    {
        client.settle(service);
        std::vector<std::string> changes;
        for (const Signal& signal : client.signals())
        {
            EXPECT_EQ(signal.member, "PropertiesChanged");
            EXPECT_EQ(signal.path, all_types.path);
            EXPECT_EQ(signal.changed_interface, interface);
            EXPECT_THAT(signal.invalidated, IsEmpty());
            EXPECT_THAT(signal.changed, SizeIs(1));
            for (const auto& [member, value] : signal.changed)
            {
                changes.push_back(member + ": " + value);
            }
        }
        client.clear_signals();
        return changes;
    }

    GANTRY_cpp_context* context = nullptr;
    Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

// The three accessors of a property, which share a name.
template <class Type>
struct Accessors
{
    Type (AllTypes::*get)() const;
    Type (AllTypes::*set)(Type, bool);
    Type (AllTypes::*set_and_announce)(Type);
};

// A change to each of two values; both announced, but never twice, and never with skipSignal.
template <class Type>
void set_both_ways(AllTypes& object, const Accessors<Type>& property, const Type& one,
                   const Type& other)
{
    const auto expect_stored = [&](const Type& returned, const Type& value)
    {
        EXPECT_EQ(returned, value);
        EXPECT_EQ((object.*property.get)(), value);
    };
    expect_stored((object.*property.set)(one, false), one);
    expect_stored((object.*property.set)(one, false), one);
    expect_stored((object.*property.set)(other, true), other);
    expect_stored((object.*property.set)(other, false), other); // too late to announce it
    expect_stored((object.*property.set_and_announce)(one), one);
    expect_stored((object.*property.set_and_announce)(one), one);
}

#define ACCESSORS(Type, name)                                                                      \
    Accessors<Type>                                                                                \
    {                                                                                              \
        &AllTypes::name, &AllTypes::name, &AllTypes::name                                          \
    }

TEST_F(Property, OfEachTypeAnnouncesChangesAlone)
{
    AllTypes& object = instantiate();
    EXPECT_THAT(announced(), IsEmpty()); // initial values are no change

    set_both_ways<bool>(object, ACCESSORS(bool, flag), false, true);
    EXPECT_THAT(announced(), ElementsAre("Flag: b false", "Flag: b false"));
    set_both_ways<unsigned char>(object, ACCESSORS(unsigned char, byte), 0, 254);
    EXPECT_THAT(announced(), ElementsAre("Byte: y 0", "Byte: y 0"));
    set_both_ways<short>(object, ACCESSORS(short, int16), -1, 1);
    EXPECT_THAT(announced(), ElementsAre("Int16: n -1", "Int16: n -1"));
    set_both_ways<unsigned short>(object, ACCESSORS(unsigned short, uInt16), 1, 257);
    EXPECT_THAT(announced(), ElementsAre("UInt16: q 1", "UInt16: q 1"));
    set_both_ways<unsigned int>(object, ACCESSORS(unsigned int, uInt32), 1, 65537);
    EXPECT_THAT(announced(), ElementsAre("UInt32: u 1", "UInt32: u 1"));
    set_both_ways<unsigned long>(object, ACCESSORS(unsigned long, uInt64), 1, 4294967297);
    EXPECT_THAT(announced(), ElementsAre("UInt64: t 1", "UInt64: t 1"));
    set_both_ways<double>(object, ACCESSORS(double, real), 1.5, 0.0);
    EXPECT_THAT(announced(), ElementsAre("Real: d 1.5", "Real: d 1.5"));
    set_both_ways<std::string>(object, ACCESSORS(std::string, text), "longer than a word, so heap",
                               "");
    EXPECT_THAT(announced(), ElementsAre("Text: s \"longer than a word, so heap\"",
                                         "Text: s \"longer than a word, so heap\""));
    set_both_ways<Texts>(object, ACCESSORS(Texts, texts), {"a", "b"}, {"a"});
    EXPECT_THAT(announced(), ElementsAre("Texts: as [\"a\", \"b\"]", "Texts: as [\"a\", \"b\"]"));
    // Clients are told that this one is constant, and sd-bus holds the signal back.
    set_both_ways<std::string>(object, ACCESSORS(std::string, serialText), "S1", "S2");
    EXPECT_THAT(announced(), IsEmpty());
    EXPECT_EQ(get("Serial_Text"), "s \"S1\"");
}

TEST_F(Property, ComparesAsItsTypeDoes)
{
    AllTypes& object = instantiate();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(object.real(nan)));
    EXPECT_TRUE(std::isnan(object.real(nan)));
    EXPECT_THAT(announced(), ElementsAre("Real: d nan", "Real: d nan"));
    object.real(0.0);
    EXPECT_FALSE(std::signbit(object.real(-0.0)));
    EXPECT_FALSE(std::signbit(object.real()));
    EXPECT_THAT(announced(), ElementsAre("Real: d 0"));

    object.texts({""});
    object.texts({"", ""});
    EXPECT_THAT(announced(), ElementsAre("Texts: as [\"\"]", "Texts: as [\"\", \"\"]"));

    // All bytes count, though the bus sees those before the first zero.
    object.text(std::string("a\0b", 3));
    EXPECT_EQ(object.text(std::string("a\0c", 3)), std::string("a\0c", 3));
    EXPECT_THAT(announced(), ElementsAre("Text: s \"a\"", "Text: s \"a\""));
    object.text("a");
    EXPECT_THAT(announced(), ElementsAre("Text: s \"a\""));
}

// Which slot of the virtual table a pointer to a virtual member function stands for.
template <class Function>
std::size_t slot(Function function)
{
    std::array<std::uintptr_t, 2> words{};
    static_assert(sizeof function == sizeof words);
    std::memcpy(words.data(), &function, sizeof words);
    return words[0] / sizeof(void*); // an offset, with a flag in the lowest bit
}

template <class Type>
std::array<std::size_t, 3> slots(const Accessors<Type>& property)
{
    return {slot(property.get), slot(property.set), slot(property.set_and_announce)};
}

TEST_F(Property, AccessorsAreVirtualInTheOrderOfTheTable)
{
    // Behind the destructor's two.
    EXPECT_THAT(slots(ACCESSORS(bool, flag)), ElementsAre(2, 3, 4));
    EXPECT_THAT(slots(ACCESSORS(unsigned char, byte)), ElementsAre(5, 6, 7));
    EXPECT_THAT(slots(ACCESSORS(std::string, serialText)), ElementsAre(29, 30, 31));

    struct Overriding : AllTypes
    {
        using AllTypes::AllTypes;
        using AllTypes::byte;
        unsigned char byte() const override
        {
            return 9;
        }
        unsigned char byte(unsigned char value, bool skipSignal) override
        {
            EXPECT_FALSE(skipSignal);
            return AllTypes::byte(static_cast<unsigned char>(value + 1), skipSignal);
        }
    };
    const auto object = make<Overriding>();
    EXPECT_EQ(object->byte(1), 2);
    EXPECT_EQ(get("Byte"), "y 9");
    EXPECT_EQ(client.get_all(all_types, interface).at("Byte"), "y 9");
    EXPECT_THAT(announced(), ElementsAre("Byte: y 9"));
}

TEST_F(Property, IsReadByClientsAndWrittenByNone)
{
    AllTypes& object = instantiate();
    EXPECT_THAT(client.get_all(all_types, interface),
                testing::UnorderedElementsAre(
                    Pair("Flag", "b true"), Pair("Byte", "y 255"), Pair("Int16", "n -32768"),
                    Pair("UInt16", "q 65535"), Pair("UInt32", "u 4294967295"),
                    Pair("UInt64", "t 18446744073709551615"), Pair("Real", "d -0.5"),
                    Pair("Text", "s \"\\\"made\\\"\""), Pair("Texts", "as []"),
                    Pair("Serial_Text", "s \"\"")));

    object.uInt16(7, true);
    object.texts({"x"}, true);
    EXPECT_EQ(get("UInt16"), "q 7");
    EXPECT_EQ(get("Texts"), "as [\"x\"]");

    const auto error = [](const support::Reply& reply)
    { return reply.error_name.substr(reply.error_name.rfind('.') + 1); };
    const auto call = [&](const char* path, const char* member, const char* of, const char* name) {
        return error(client.call({service, path}, properties, member, "ss", of, name));
    };
    const char* path = all_types.path.c_str();
    EXPECT_EQ(call(path, "Get", interface, "uInt16"), "UnknownProperty");
    EXPECT_EQ(call(path, "Get", "com.orvane.velmar.test.Other", "UInt16"), "UnknownProperty");
    EXPECT_EQ(call("/com/orvane/velmar/test", "Get", interface, "UInt16"), "UnknownObject");
    EXPECT_EQ(error(client.call(all_types, properties, "GetAll", "s", "com.example.Other")),
              "UnknownInterface");
    EXPECT_EQ(error(client.set(all_types, interface, "UInt16", "q", 8)), "PropertyReadOnly");
    EXPECT_EQ(error(client.set(all_types, interface, "UInt16", "s", "8")), "PropertyReadOnly");
    EXPECT_EQ(error(client.set(all_types, interface, "Other", "s", "8")), "UnknownProperty");
    EXPECT_EQ(object.uInt16(), 7);
    EXPECT_THAT(announced(), IsEmpty());
}

// A getter that fails when the test says so.
struct Failing : AllTypes
{
    using AllTypes::AllTypes;
    using AllTypes::byte;
    using AllTypes::text;

    std::string text() const override
    {
        if (bus_error)
        {
            throw sdbusplus::exception::SdBusError(EBUSY, "fan");
        }
        return AllTypes::text();
    }

    unsigned char byte() const override
    {
        if (broken)
        {
            throw std::runtime_error("EEPROM gone");
        }
        return AllTypes::byte();
    }

    bool bus_error = false;
    bool broken = false;
};

TEST_F(Property, AGettersBusErrorIsTheClients)
{
    const auto object = make<Failing>();
    object->bus_error = true;
    support::captured_log::clear();
    const support::Reply reply = client.get(all_types, interface, "Text");
    EXPECT_EQ(reply.error_name, "System.Error.EBUSY");
    EXPECT_EQ(reply.error_message, "fan: Device or resource busy");
    EXPECT_EQ(client.call(all_types, properties, "GetAll", "s", interface).text, reply.text);
    EXPECT_EQ(get("Byte"), "y 255");

    object->text("new"); // stored, though nobody can be told
    EXPECT_THAT(announced(), IsEmpty());
    EXPECT_THAT(support::captured_log::lines(2), IsEmpty());
    object->bus_error = false;
    EXPECT_EQ(get("Text"), "s \"new\"");
}

TEST_F(Property, AGettersOtherExceptionEndsThePassAlone)
{
    const auto object = make<Failing>();
    object->broken = true;
    const auto expect_pass_ended = [](int passes)
    {
        EXPECT_THAT(support::captured_log::lines(2),
                    testing::AllOf(SizeIs(passes),
                                   testing::Each("GANTRY_dbus_loop_one_pass: EEPROM gone\n")));
    };
    support::captured_log::clear();
    EXPECT_EQ(client.get(all_types, interface, "Byte").state, support::Reply::State::error);
    expect_pass_ended(1);
    EXPECT_EQ(client.call(all_types, properties, "GetAll", "s", interface).state,
              support::Reply::State::error);
    expect_pass_ended(2);
    EXPECT_EQ(get("Flag"), "b true");

    // An announcement reads the value too: its exception is the setter's caller's.
    EXPECT_THROW(object->byte(3), std::runtime_error);
    object->broken = false;
    EXPECT_EQ(object->byte(), 3);
    EXPECT_EQ(object->byte(3), 3);
    EXPECT_THAT(announced(), IsEmpty());
    EXPECT_EQ(get("Byte"), "y 3");
    expect_pass_ended(2);
}

TEST_F(Property, TextLeavesAsTheBusTakesIt)
{
    AllTypes& object = instantiate();
    // An object manager above tells the values too.
    GANTRY_instantiate__com_orvane_velmar_test_AllTypes(context, nullptr, "/com/orvane", nullptr);
    const std::string latin1 = "N\xE4herungssensor";
    const Texts texts{"fine", "\xFF\xFF", "\U0001F600 \u20AC"};
    EXPECT_EQ(object.text(latin1), latin1);
    EXPECT_EQ(object.texts(texts), texts);
    EXPECT_EQ(object.text(), latin1);
    EXPECT_EQ(object.texts(), texts);

    const std::string text_on_bus = "s \"N\uFFFDherungssensor\"";
    const std::string texts_on_bus = "as [\"fine\", \"\uFFFD\uFFFD\", \"\U0001F600 \u20AC\"]";
    EXPECT_THAT(announced(), ElementsAre("Text: " + text_on_bus, "Texts: " + texts_on_bus));
    EXPECT_EQ(get("Text"), text_on_bus);
    EXPECT_EQ(get("Texts"), texts_on_bus);
    const auto expect_both = [&](const support::Properties& all)
    {
        EXPECT_EQ(all.at("Text"), text_on_bus);
        EXPECT_EQ(all.at("Texts"), texts_on_bus);
    };
    expect_both(client.get_all(all_types, interface));
    expect_both(client.managed_objects({service, "/com/orvane"}).at(all_types.path).at(interface));

    const std::string valid = "gr\u00FC\u00DFe \U0001F4BE \U0010FFFD";
    object.text(valid);
    EXPECT_EQ(get("Text"), "s \"" + valid + '"');
}

} // namespace
