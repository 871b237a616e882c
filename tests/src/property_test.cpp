// Properties: set and read by hosts in C and in C++, by name, and by hostile clients; what is
// announced, and what the data store is told. And the basic types by themselves.
#include <cmath>
#include <com/orvane/velmar/hwi/HWIOemFruCustomData/gantry_server.hpp>
#include <com/orvane/velmar/system/BLT/server.hpp>
#include <gantry/property.hpp>
#include <gantry/types.hpp>
#include <set>
#include <tallybook.hpp>

#include "src/served.hpp"

// What the data store was told, and that sd-bus read PropString to announce it, a line each.
static std::string trace;
static bool store_is_full = false;
static int reads = 0;

void Tallybook::set_key(const std::string& key, const std::string& class_name,
                        const std::string& object_path, unsigned short caller_id)
{
    trace += key + ' ' + class_name + ' ' + object_path + ' ' + std::to_string(caller_id) + '\n';
    if (store_is_full)
    {
        throw std::runtime_error("store is full");
    }
}

void Tallybook::remove(const std::string& key) noexcept
{
    trace += "remove " + key + '\n';
}

int tallybook_caller_id(void)
{
    return 0x1'0007; // the store takes 16 bits of it
}

namespace
{

using GANTRY_com_orvane_velmar_hwi_HWIOemFruCustomData::HWIOemFruCustomData;
using GANTRY_com_orvane_velmar_sample_gantrytest::gantrytest;
using sdbusplus::exception::SdBusError;
using sdbusplus::server::com::orvane::velmar::system::BLT;
using Texts = std::vector<std::string>;

constexpr const char* interface = gantrytest::interface;
const std::string bad = "N\xE4he\xFF";
const std::string repaired = "\"N\uFFFDhe\uFFFD\"";

// One whose getter of PropString is the test's.
struct Own : gantrytest
{
    using gantrytest::gantrytest;
    using gantrytest::propString;
    std::string propString() const override
    {
        on_get();
        return gantrytest::propString();
    }
    using gantrytest::propUInt32;
    unsigned int propUInt32(unsigned int value) override
    {
        value == 0 ? on_get() : void();
        return propUInt32(value + 1, false);
    }
    inline static std::function<void()> on_get;
};
static_assert(sizeof(Own) == sizeof(gantrytest));

class Property : public Served
{
  protected:
    Property()
    {
        publish(GANTRY_instantiate__com_orvane_velmar_hwi_HWIOemFruCustomData, "/fru");
        fru = &newest<HWIOemFruCustomData>();
        publish(GANTRY_instantiate__com_orvane_velmar_sample_gantrytest, "/sample");
        // Only a derived class has such a getter, so the object is made anew in its place.
        auto& published = newest<gantrytest>();
        instance = std::exchange(published.inst, nullptr);
        published.~gantrytest();
        server = new (&published) Own(context->bus, "/sample");
        server->inst = instance;
        Own::on_get = [] { trace += "read\n"; };
        trace.clear();
    }

    // What a function of <gantry/property.h> reports.
    template <class... Parameters, class... Arguments>
    static int error_of(void (*function)(Parameters...), Arguments... arguments)
    {
        int error = -1;
        function(arguments..., &error);
        return error;
    }

    static int announce(GANTRY_instance* of, const std::vector<const char*>& members)
    {
        return error_of(GANTRY_property_announce, of, members.data());
    }

    Own* server = nullptr;
    GANTRY_instance* instance = nullptr;
    HWIOemFruCustomData* fru = nullptr;
    const support::Object sample{service, "/sample"};
};

// The tables' test sets and gets each property by the functions of its type.
TEST_F(Property, IsOpenToItsOwnNameAndTypeAlone)
{
    int value = 7;
    for (const auto& [member, expected] : {std::pair{"PropInt32", 0},
                                           {"PropUInt32", EINVAL},
                                           {"PropString", EINVAL},
                                           {"PropArray1", EINVAL},
                                           {"propInt32", ENOENT},
                                           {"", ENOENT},
                                           {static_cast<const char*>(nullptr), ENOENT}})
    {
        EXPECT_EQ(error_of(GANTRY_property_set_int32, instance, member, INT_MIN, false), expected);
        EXPECT_EQ(error_of(GANTRY_property_get_int32, instance, member, &value), expected);
        EXPECT_EQ(error_of(GANTRY_property_get_int32, instance, member, nullptr), EINVAL);
    }
    EXPECT_EQ(value, INT_MIN);
    EXPECT_EQ(announced(), "PropInt32: i -2147483648\n");
    EXPECT_EQ(error_of(GANTRY_property_get_int32, nullptr, "PropInt32", &value), EINVAL);

    const std::string longer = "a longer text than fits into the object";
    for (const char* given : {longer.c_str(), static_cast<const char*>(nullptr)})
    {
        char* text = nullptr;
        GANTRY_property_set_string(instance, "PropString", "skipped", true, nullptr);
        GANTRY_property_set_string(instance, "PropString", given, false, nullptr);
        GANTRY_property_get_string(instance, "PropString", &text, nullptr);
        EXPECT_EQ(announced(), "PropString: s \"" + std::string(text) + "\"\n");
        EXPECT_EQ(text, given != nullptr ? longer : "");
        GANTRY_string_free(&text);
        EXPECT_EQ(error_of(GANTRY_property_set_string, instance, "PropByte", given, false), EINVAL);
    }

    char one[] = "one";
    char* texts[] = {one, nullptr};
    const GANTRY_string_array record{static_cast<char**>(texts), 2};
    GANTRY_string_array* strings = nullptr;
    GANTRY_property_set_strings(fru->inst, "BoardCustomData", &record, false, nullptr);
    GANTRY_property_get_strings(fru->inst, "BoardCustomData", &strings, nullptr);
    ASSERT_NE(strings, nullptr);
    EXPECT_EQ(Texts(strings->data, strings->data + strings->count), (Texts{"one", ""}));
    GANTRY_strings_free(&strings);
    GANTRY_strings_free(&strings);
    GANTRY_strings_free(nullptr);
    GANTRY_property_set_strings(fru->inst, "BoardCustomData", nullptr, false, nullptr);
    strings = const_cast<GANTRY_string_array*>(&record);
    GANTRY_property_get_strings(fru->inst, "BoardCustomData", &strings, nullptr);
    EXPECT_EQ(strings, nullptr);
    EXPECT_EQ(announced(), "BoardCustomData: as [\"one\", \"\"]\nBoardCustomData: as []\n");

    unsigned char data[] = {1, 255};
    const GANTRY_byte_array given{static_cast<unsigned char*>(data), 2};
    const GANTRY_byte_array endless{static_cast<unsigned char*>(data), ULONG_MAX};
    GANTRY_byte_array* bytes = nullptr;
    EXPECT_EQ(error_of(GANTRY_property_set_bytes, instance, "PropArray1", &given, false), 0);
    EXPECT_EQ(error_of(GANTRY_property_set_bytes, instance, "PropArray1", &endless, false), EINVAL);
    EXPECT_EQ(error_of(GANTRY_property_get_bytes, instance, "PropArray1", &bytes), 0);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(std::string(bytes->data, bytes->data + bytes->count), "\1\377");
    GANTRY_bytes_free(&bytes);
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(announced(), "PropArray1: ay [1, 255]\n");
    for (auto* of : {instance, static_cast<GANTRY_instance*>(nullptr)})
    {
        EXPECT_EQ(error_of(GANTRY_property_set_strings, of, "PropString", &record, false), EINVAL);
        EXPECT_EQ(error_of(GANTRY_property_get_strings, of, "PropString", &strings), EINVAL);
    }
}

// Macros of the generated header: a build without NDEBUG sees the wrong interface.
TEST_F(Property, HasAccessorsThatSeeTheWrongInterface)
{
    int error = -1;
    // One that has a member of that name and type too.
    auto* blt = publish(GANTRY_instantiate__com_orvane_velmar_system_BLT, "/blt");
    for (GANTRY_instance* other : {blt, static_cast<GANTRY_instance*>(nullptr)})
    {
        GANTRY_set__com_orvane_velmar_system_USB__Manufacturer(other, "x", true, &error);
        EXPECT_EQ(error, EINVAL);
    }
}

TEST_F(Property, LetsNothingThrownIntoAHostInC)
{
    const char* const members[] = {"PropString", nullptr};
    const std::pair<std::function<void()>, std::pair<int, std::string>> failures[] = {
        {[] { throw std::runtime_error("no luck"); }, {EIO, "no luck"}},
        {[] { throw std::bad_alloc(); }, {ENOMEM, "std::bad_alloc"}},
        {[] { throw 42; }, {EIO, "exception of unknown type"}},
        // It becomes sd-bus's own error, whose errno comes back.
        {[] { throw SdBusError(EBUSY, "text"); },
         {EBUSY, "text: System.Error.EBUSY: Device or resource busy"}},
    };
    for (const auto& [on_get, told] : failures)
    {
        const auto& [expected, text] = told;
        Own::on_get = on_get;
        char* read = const_cast<char*>(text.c_str()); // which is to stay
        logged();
        EXPECT_EQ(error_of(GANTRY_property_get_string, instance, "PropString", &read), expected);
        EXPECT_EQ(read, text.c_str());
        EXPECT_EQ(support::count_logged(".property_get: " + text + "\\n"), 1U);
        EXPECT_EQ(announce(instance, {"PropString", nullptr}), expected);
        EXPECT_EQ(error_of(GANTRY_instance_announce_added, instance), expected);
        // What isn't sd-bus's own comes out as it was thrown.
        for (const char* function : {"GANTRY_property_announce", "GANTRY_instance_announce_added"})
        {
            EXPECT_EQ(support::count_logged(function + (": " + text) + "\\n"), expected != EBUSY);
        }
        EXPECT_ANY_THROW(GANTRY_cpp_property_announce(instance, members));
        // A setter's own signal that can't be sent is not reported, and the value is stored.
        const char* value = text.c_str();
        EXPECT_EQ(error_of(GANTRY_property_set_string, instance, "PropString", value, false),
                  expected == EBUSY ? 0 : expected);
        EXPECT_EQ(server->gantrytest::propString(), text);
        // With the announcement skipped no getter runs.
        EXPECT_EQ(error_of(GANTRY_property_set_string, instance, "PropString", "", true), 0);
    }
    EXPECT_EQ(client.get(sample, interface, "PropString").text,
              "error System.Error.EBUSY: text: Device or resource busy");
    // The end of a thread is no exception.
    Own::on_get = [] { pthread_exit(nullptr); };
    std::thread(
        [&]
        {
            char* read = nullptr;
            GANTRY_property_get_string(instance, "PropString", &read, nullptr);
            ADD_FAILURE();
        })
        .join();
    Own::on_get = [] {};
    EXPECT_EQ(announced(), "");
}

TEST_F(Property, GivesTheClientTheErrorThatAnAccessorThrows)
{
    logged();
    for (const auto& [name, told] :
         {std::pair{"com.example.Own", "error com.example.Own: of the host\uFFFD"},
          {"not a name", "error org.freedesktop.DBus.Error.Failed: of the host\uFFFD"}})
    {
        Own::on_get = [name = name] { throw Conversion(name); };
        EXPECT_EQ(client.get(sample, interface, "PropString").text, told);
        EXPECT_EQ(client.set(sample, interface, "PropUInt32", "u", 0).text, told);
        EXPECT_EQ(logged(2), "");
    }
    EXPECT_EQ(server->propUInt32(), 0U);
}

TEST_F(Property, OfAClientsWriteGoesThroughTheHostsOwnSetter)
{
    for (const bool hears : {false, true})
    {
        EXPECT_TRUE(client.set(sample, interface, "PropUInt32", "u", hears + 6).ok());
        EXPECT_EQ(announced(), hears ? "PropUInt32: u 8\n" : "PropUInt32: u 7\n");
        GANTRY_instance_on_write(
            instance, [](auto*...) {}, nullptr);
    }
}

// What a host does when a client reads the object.
void on_read(GANTRY_instance* object, void* host)
{
    GANTRY_property_set_byte(object, "PropByte", static_cast<unsigned char>(++reads), true,
                             nullptr);
    reads == 5 ? throw Conversion("com.example.Own") : 0;
    reads == 6 ? throw std::runtime_error("host's own") : 0;
    reads == 7 ? GANTRY_instance_free(&object) : void();
    reads == 8 ? GANTRY_context_free(static_cast<GANTRY_cpp_context**>(host)) : void();
}

TEST_F(Property, IsBroughtUpToDateBeforeAClientReadsItsObject)
{
    const auto call = [this](const char* path, const char* member, const char* of) {
        return client.call({service, path}, "org.freedesktop.DBus.Properties", member, "s", of);
    };
    const char* const roots = "org.freedesktop.DBus.ObjectManager";
    reads = 0;
    GANTRY_instance_on_read(instance, on_read, nullptr);
    GANTRY_instance_on_read(fru->inst, on_read, &context);
    GANTRY_instance_on_read(fru->inst, nullptr, nullptr);
    GANTRY_context_manage(context, "/", nullptr);
    EXPECT_EQ(client.get(sample, interface, "PropByte").text, "v <y 1>");
    EXPECT_THAT(call("/sample", "GetAll", interface).text, HasSubstr("\"PropByte\": <y 2>"));
    EXPECT_THAT(call("/sample", "GetAll", "").text, HasSubstr("\"PropByte\": <y 3>"));
    EXPECT_THAT(client.call({service, "/"}, roots, "GetManagedObjects").text, HasSubstr("<y 4>"));
    // What doesn't read it.
    client.call({service, "/sample/1"}, roots, "GetManagedObjects");
    call("/sample", "Get", interface);
    call("/sample", "GetAll", roots);
    call("/fru", "GetAll", "");
    EXPECT_EQ(announce(instance, {"PropByte", nullptr}), 0);
    EXPECT_EQ(announced(), "PropByte: y 4\n");

    logged();
    EXPECT_EQ(client.get(sample, interface, "PropByte").text,
              "error com.example.Own: of the host\uFFFD");
    EXPECT_EQ(logged(2), "");
    EXPECT_THAT(client.get(sample, interface, "PropByte").text, HasSubstr("Error.IOError"));
    EXPECT_THAT(logged(2), HasSubstr("loop_one_pass: host's own"));
    EXPECT_EQ(client.get(sample, interface, "PropByte").text, "v <y 7>"); // its last answer
    EXPECT_THAT(client.get(sample, interface, "PropByte").text, HasSubstr("Error.Unknown"));
    GANTRY_instance_on_read(fru->inst, on_read, &context);
    EXPECT_TRUE(call("/fru", "GetAll", "").ok());
    EXPECT_EQ(context, nullptr);
}

TEST_F(Property, IsAnnouncedWithOthersInOneSignalOrLeftOut)
{
    server->propByte(3, true);
    EXPECT_EQ(announce(instance, {"PropString", "PropByte", "PropString", nullptr}), 0);
    EXPECT_EQ(sent(), "/sample PropertiesChanged sa{sv}as \"" + std::string(interface) +
                          "\", {\"PropByte\": <y 3>, \"PropString\": <s \"\">}, []\n");
    std::vector<const char*> many(1000, "PropByte");
    many.push_back(nullptr);
    EXPECT_EQ(announce(instance, many), 0);
    EXPECT_EQ(announced(), "PropByte: y 3\n");

    // The error of the first that is left out.
    instance = publish(GANTRY_instantiate__com_orvane_velmar_system_NicPartition, "/nic");
    logged();
    EXPECT_EQ(announce(instance, {"RDMAOSDriver", "Nothing", "FQDD", nullptr}), EINVAL);
    EXPECT_EQ(announce(instance, {"Nothing", "RDMAOSDriver", "FQDD", nullptr}), ENOENT);
    const std::string lines = logged(2);
    EXPECT_NE(lines.find("property [RDMAOSDriver] never announces a change\n"), std::string::npos);
    EXPECT_NE(lines.find("there is no property [Nothing] of "
                         "[com.orvane.velmar.system.NicPartition] at [/nic]\n"),
              std::string::npos);
    EXPECT_EQ(announced(), "FQDD: s \"\"\nFQDD: s \"\"\n");
    EXPECT_EQ(announce(instance, {"RDMAOSDriver", nullptr}), EINVAL);
    EXPECT_EQ(announce(instance, {nullptr}), 0);
    EXPECT_EQ(announce(instance, {}), 0);
    EXPECT_EQ(announce(nullptr, {}), EINVAL);
    // A class without properties.
    instance = publish(GANTRY_instantiate__com_orvane_velmar_sample_async, "/async");
    EXPECT_EQ(announce(instance, {"PropByte", nullptr}), ENOENT);
    EXPECT_EQ(error_of(GANTRY_property_set_int32, instance, "PropInt32", 1, false), ENOENT);
    EXPECT_EQ(announced(), "");
}

TEST_F(Property, ComparesAsItsTypeDoes)
{
    EXPECT_TRUE(std::isnan(server->propDouble(NAN)));
    server->propDouble(NAN);
    server->propDouble(0.0);
    EXPECT_FALSE(std::signbit(server->propDouble(-0.0)));
    EXPECT_EQ(announced(), "PropDouble: d nan\nPropDouble: d nan\nPropDouble: d 0\n");
    // All bytes count, though the bus sees those before the first zero.
    for (const auto& text : {std::string("a\0b", 3), std::string("a\0c", 3), std::string("a")})
    {
        EXPECT_EQ(server->propString(text), text);
        EXPECT_EQ(announced(), "PropString: s \"a\"\n");
    }
}

TEST_F(Property, ByNameIsTakenOnlyWithItsExactNameAndType)
{
    BLT blt(context->bus, "/blt");
    Texts names{"FQDD",
                "fqd",
                "fqdd ",
                "firmwareVersion",
                "",
                std::string("fqdd\0", 5),
                std::string(256, 'x'),
                std::string(260, 'f')};
    for (int byte = 0; byte < 256; ++byte)
    {
        names.emplace_back(4, static_cast<char>(byte)); // as long as fqdd; some share its slot
    }
    for (const std::string& name : names)
    {
        EXPECT_EQ(blt.getPropertyByName(name), BLT::PropertyVariant{""}) << name;
        EXPECT_NO_THROW(blt.setPropertyByName(name, "new")) << name;
        EXPECT_NO_THROW(blt.setPropertyByName(name, 7UL)) << name;
    }
    EXPECT_THROW(blt.setPropertyByName("Version", "4"), std::bad_variant_access);
    EXPECT_THROW(blt.setPropertyByName("Key", 4UL), std::bad_variant_access);
    server->setPropertyByName("PropInt64", 5L, true);
    EXPECT_EQ(server->propInt64(), 5);
    EXPECT_EQ(announced(), "");
    Own::on_get = [] { throw 42; };
    EXPECT_THROW(server->getPropertyByName("PropString"), int); // the override's

    struct Thrower
    {
        operator std::set<int>() const
        {
            throw 1;
        }
    };
    gantrytest::PropertyVariant valueless;
    EXPECT_THROW(valueless.emplace<std::set<int>>(Thrower{}), int);
    EXPECT_THROW(server->setPropertyByName("PropBoolean", valueless), std::bad_variant_access);
}

TEST_F(Property, OfTheDataStoreIsToldAtEachSetBehindItsAnnouncement)
{
    const auto expect_told = [](const std::string& key, bool is_changed)
    {
        EXPECT_EQ(std::exchange(trace, {}),
                  (is_changed ? "read\n" : "") + key + " Gantrytest /sample 7\n");
    };
    const auto write = [this](const char* key)
    { return client.set(sample, interface, "PropString", "s", key).ok(); };
    server->propString("a");
    expect_told("a", true);
    server->propString("a", false);
    expect_told("a", false);
    server->setPropertyByName("PropString", std::string("b"), true);
    expect_told("b", false);
    EXPECT_TRUE(write("b"));
    expect_told("b", false);
    EXPECT_TRUE(write("c"));
    expect_told("c", true);
    EXPECT_FALSE(client.set(sample, interface, "PropString", "i", 1).ok());
    EXPECT_EQ(trace, "");

    // What fails in the store is stored and announced by then.
    store_is_full = true;
    EXPECT_THROW(server->propString("d"), std::runtime_error);
    expect_told("d", true);
    logged();
    EXPECT_FALSE(write("e"));
    EXPECT_THAT(logged(2), AllOf(HasSubstr("write of property [PropString] at [/sample] failed\n"),
                                 EndsWith("_one_pass: store is full\\n\n")));
    expect_told("e", true);
    store_is_full = false;
    GANTRY_context_free(&context);
    EXPECT_EQ(trace, "remove e\n");
}

TEST_F(Property, LeavesAsUtf8AndStaysAsItWasGiven)
{
    server->propString(bad);
    server->propDict1({{1, bad}, {2, std::string("a\0b", 3)}});
    // Two keys that become one: the first stays.
    server->propDict2({{"k\xFD", {1, 1, 1}}, {"k\xFE", {2, 2, 2}}});
    server->recursionTest2({{bad, bad}, {"n", short{1}}});
    fru->boardCustomData({"\U0001F600 \u20AC", bad});
    EXPECT_EQ(announced(), "PropString: s " + repaired + '\n' +                            //
                               "PropDict1: a{qs} {1: " + repaired + ", 2: \"a\"}\n" +      //
                               "PropDict2: a{s(nix)} {\"k\uFFFD\": (1, 1, 1)}\n" +         //
                               "RecursionTest2: a{sv} {" + repaired + ": <s " + repaired + //
                               ">, \"n\": <n 1>}\n" +                                      //
                               "BoardCustomData: as [\"\U0001F600 \u20AC\", " + repaired + "]\n");
    EXPECT_EQ(server->propString(), bad);
    EXPECT_EQ(server->propDict2().size(), 2U);
}

TEST(BasicType, HasItsFormInTheLogAndItsSkeleton)
{
    logged();
#define EXPECT_DEBUG(type, expression, text)                                                       \
    {                                                                                              \
        auto value = expression;                                                                   \
        GANTRY_##type##_c_debug(nullptr, &value);                                                  \
        GANTRY_##type##_c_debug("name", nullptr);                                                  \
        GANTRY_##type##_c_debug("name", &value);                                                   \
        EXPECT_EQ(logged(),                                                                        \
                  "9 gantrycommon.GANTRY_" #type "_c_debug: name=" + std::string(text) + '\n');    \
    }
#define EXPECT_SKELETON(type, name, seed, text)                                                    \
    EXPECT_DEBUG(type, GANTRY_##type##_c_skeleton(name, seed), text)
    for (const auto& [byte, text] :
         {std::pair{0x1F, "31 (.)"}, {0x20, "32 ( )"}, {0x7E, "126 (~)"}})
    {
        EXPECT_DEBUG(byte, static_cast<unsigned char>(byte), text)
    }
    EXPECT_SKELETON(byte, nullptr, 0x17F, "127 (.)")
    EXPECT_SKELETON(boolean, "", 127, "false")
    EXPECT_SKELETON(boolean, nullptr, 128, "true")
    EXPECT_SKELETON(double, "a\xFF", -1, "303.25")
    // A name's bytes are never negative, and each doubles what came before at the type's width.
    constexpr int seed = INT_MIN + 0x2000'7000;
    EXPECT_SKELETON(byte, "a\xFF", seed, "193 (.)")
    EXPECT_SKELETON(int16, "a\xFF", seed, "-15935")
    EXPECT_SKELETON(uint16, "a\xFF", seed, "49601")
    EXPECT_SKELETON(int32, "a\xFF", seed, "-2147368511")
    EXPECT_SKELETON(uint32, "a\xFF", seed, "2147598785")
    EXPECT_SKELETON(int64, "a\xFF", seed, "-6442335807")
    EXPECT_SKELETON(uint64, "a\xFF", seed, "18446744067267215809")

    std::string broken = bad;
    EXPECT_DEBUG(string, broken.data(), '[' + bad + ']')
    EXPECT_DEBUG(string, static_cast<char*>(nullptr), "NULL")
    for (const auto& [name, expected] :
         {std::pair{static_cast<const char*>(nullptr), "string"}, {"%s", "string for %s -5"}})
    {
        char* text = GANTRY_string_c_skeleton(name, -5);
        EXPECT_EQ(text, std::string("skeleton ") + expected);
        GANTRY_string_free(&text);
        GANTRY_string_free(&text);
    }
    GANTRY_string_free(nullptr);
}

TEST(BasicType, TextThatNoMessageCanHoldIsAppendedAsAnEmptyOne)
{
    support::Client client;
    sdbusplus::message_t message(client.new_signal("/a", "a.B", "C").get());
    char* text = static_cast<char*>(std::calloc(1, 33U << 20U));
    std::memset(text, 'x', (33U << 20U) - 1);
    EXPECT_NO_THROW(GANTRY_string_reply_append(message, &text));
    GANTRY_string_free(&text);
    sd_bus_message_seal(message.get(), 1, 0);
    EXPECT_EQ(message.unpack<std::string>(), "");
}

} // namespace
