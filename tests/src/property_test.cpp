// Properties of every type, on the class that the generator makes of the table next to this test:
// setters and what they send, and what a client is told.
#include <array>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <com/orvane/velmar/test/AllTypes/gantry_server.hpp>
#include <sdbusplus/exception.hpp>

#include "src/served.hpp"

namespace
{

using sdbusplus::server::com::orvane::velmar::test::AllTypes;
using Texts = std::vector<std::string>;

constexpr const char* interface = AllTypes::interface;
constexpr const char* properties = "org.freedesktop.DBus.Properties";
constexpr const char* path = "/com/orvane/velmar/test/AllTypes";

class Property : public Served
{
  protected:
    AllTypes& instantiate()
    {
        GANTRY_instantiate__com_orvane_velmar_test_AllTypes(context, nullptr, nullptr, nullptr);
        return newest<GANTRY_com_orvane_velmar_test_AllTypes::AllTypes>();
    }

    std::string get(const char* property)
    {
        return client.get(all_types, interface, property).text;
    }

    const support::Object all_types{service, path};
};

// The three accessors of a property, which share a name.
template <class Type>
struct Accessors
{
    Type (AllTypes::*get)() const;
    Type (AllTypes::*set)(Type, bool);
    Type (AllTypes::*set_and_announce)(Type);
};

// A change to each of two values; the first is announced each time, but never twice, and the other
// never, with skipSignal.
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
    EXPECT_EQ(announced(), ""); // initial values are no change
    const auto expect_announced = [this](const std::string& change)
    { EXPECT_EQ(announced(), change + '\n' + change + '\n'); };

    set_both_ways<bool>(object, ACCESSORS(bool, flag), false, true);
    expect_announced("Flag: b false");
    set_both_ways<unsigned char>(object, ACCESSORS(unsigned char, byte), 0, 254);
    expect_announced("Byte: y 0");
    set_both_ways<short>(object, ACCESSORS(short, int16), -1, 1);
    expect_announced("Int16: n -1");
    set_both_ways<unsigned short>(object, ACCESSORS(unsigned short, uInt16), 1, 257);
    expect_announced("UInt16: q 1");
    set_both_ways<unsigned int>(object, ACCESSORS(unsigned int, uInt32), 1, 65537);
    expect_announced("UInt32: u 1");
    set_both_ways<unsigned long>(object, ACCESSORS(unsigned long, uInt64), 1, 4294967297);
    expect_announced("UInt64: t 1");
    set_both_ways<double>(object, ACCESSORS(double, real), 1.5, 0.0);
    expect_announced("Real: d 1.5");
    set_both_ways<std::string>(object, ACCESSORS(std::string, text), "longer than a word, so heap",
                               "");
    expect_announced("Text: s \"longer than a word, so heap\"");
    set_both_ways<Texts>(object, ACCESSORS(Texts, texts), {"a", "b"}, {"a"});
    expect_announced("Texts: as [\"a\", \"b\"]");
    // Clients are told that this one is constant, and sd-bus holds the signal back.
    set_both_ways<std::string>(object, ACCESSORS(std::string, serialText), "S1", "S2");
    EXPECT_EQ(announced(), "");
    EXPECT_EQ(get("Serial_Text"), "s \"S1\"");
}

TEST_F(Property, ComparesAsItsTypeDoes)
{
    AllTypes& object = instantiate();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(object.real(nan)));
    EXPECT_TRUE(std::isnan(object.real(nan)));
    EXPECT_EQ(announced(), "Real: d nan\nReal: d nan\n");
    object.real(0.0);
    EXPECT_FALSE(std::signbit(object.real(-0.0)));
    EXPECT_FALSE(std::signbit(object.real()));
    EXPECT_EQ(announced(), "Real: d 0\n");

    // All bytes count, though the bus sees those before the first zero.
    object.text(std::string("a\0b", 3));
    EXPECT_EQ(object.text(std::string("a\0c", 3)), std::string("a\0c", 3));
    object.text("a");
    EXPECT_EQ(announced(), "Text: s \"a\"\nText: s \"a\"\nText: s \"a\"\n");
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

TEST_F(Property, AccessorsAreVirtualInTheOrderOfTheTable)
{
    // Behind the destructor's two.
    const auto slots = [](const auto& property) {
        return std::array{slot(property.get), slot(property.set), slot(property.set_and_announce)};
    };
    EXPECT_EQ(slots(ACCESSORS(bool, flag)), (std::array<std::size_t, 3>{2, 3, 4}));
    EXPECT_EQ(slots(ACCESSORS(unsigned char, byte)), (std::array<std::size_t, 3>{5, 6, 7}));
    EXPECT_EQ(slots(ACCESSORS(std::string, serialText)), (std::array<std::size_t, 3>{35, 36, 37}));

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
    Overriding object(context->bus, path);
    EXPECT_EQ(object.byte(1), 2);
    EXPECT_EQ(get("Byte"), "y 9");
    EXPECT_EQ(client.get_all(all_types, interface).at("Byte"), "y 9");
    EXPECT_EQ(announced(), "Byte: y 9\n");
}

TEST_F(Property, IsReadByClientsAndWrittenByNone)
{
    AllTypes& object = instantiate();
    const support::Properties initial{
        {"Flag", "b true"},         {"Byte", "y 255"},
        {"Int16", "n -32768"},      {"UInt16", "q 65535"},
        {"UInt32", "u 4294967295"}, {"UInt64", "t 18446744073709551615"},
        {"Int32", "i -2147483648"}, {"Int64", "x -9223372036854775807"},
        {"Real", "d -0.5"},         {"Text", "s \"\\\"made\\\"\""},
        {"Texts", "as []"},         {"Serial_Text", "s \"\""},
    };
    EXPECT_EQ(client.get_all(all_types, interface), initial);

    const auto expect_error = [](const support::Reply& reply, const std::string& error)
    { EXPECT_EQ(reply.error_name, "org.freedesktop.DBus.Error." + error); };
    expect_error(client.get(all_types, interface, "uInt16"), "UnknownProperty");
    expect_error(client.get(all_types, "com.orvane.velmar.test.Other", "UInt16"),
                 "UnknownProperty");
    expect_error(client.get({service, "/com/orvane/velmar/test"}, interface, "UInt16"),
                 "UnknownObject");
    expect_error(client.call(all_types, properties, "GetAll", "s", "com.example.Other"),
                 "UnknownInterface");
    expect_error(client.set(all_types, interface, "UInt16", "q", 8), "PropertyReadOnly");
    expect_error(client.set(all_types, interface, "UInt16", "s", "8"), "PropertyReadOnly");
    expect_error(client.set(all_types, interface, "Other", "s", "8"), "UnknownProperty");
    EXPECT_EQ(object.uInt16(), 65535);
    EXPECT_EQ(announced(), "");
}

TEST_F(Property, AGettersBusErrorIsTheClients)
{
    struct Failing : AllTypes
    {
        using AllTypes::AllTypes;
        using AllTypes::text;
        std::string text() const override
        {
            throw sdbusplus::exception::SdBusError(EBUSY, "fan");
        }
    };
    Failing object(context->bus, path);
    const support::Reply reply = client.get(all_types, interface, "Text");
    EXPECT_EQ(reply.error_name, "System.Error.EBUSY");
    EXPECT_EQ(reply.error_message, "fan: Device or resource busy");
    EXPECT_EQ(client.call(all_types, properties, "GetAll", "s", interface).text, reply.text);
    EXPECT_EQ(get("Byte"), "y 255");

    object.text("new"); // stored, though nobody can be told
    EXPECT_EQ(object.AllTypes::text(), "new");
    EXPECT_EQ(announced(), "");
    EXPECT_EQ(logged(2), "");
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
    EXPECT_EQ(announced(), "Text: " + text_on_bus + "\nTexts: " + texts_on_bus + '\n');
    EXPECT_EQ(get("Text"), text_on_bus);
    EXPECT_EQ(get("Texts"), texts_on_bus);
    const auto all = client.get_all(all_types, interface);
    EXPECT_EQ(all.at("Text"), text_on_bus);
    EXPECT_EQ(all.at("Texts"), texts_on_bus);
    EXPECT_EQ(client.managed_objects({service, "/com/orvane"}).at(path).at(interface), all);

    const std::string valid = "gr\u00FC\u00DFe \U0001F4BE \U0010FFFD";
    object.text(valid);
    EXPECT_EQ(get("Text"), "s \"" + valid + '"');
}

} // namespace
