// Properties as a host in C sets and gets them: values of each type, what goes wrong, and many
// changes in one signal.
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include <gantry/loop.h>

#include <com/orvane/velmar/test/AllTypes/gantry_server.hpp>
#include <gantry/context.hpp>
#include <gantry/property.hpp>
#include <sdbusplus/exception.hpp>

#include "descriptor.hpp"
#include "src/logged.hpp"
#include "support/client.hpp"

namespace
{

using GANTRY_com_orvane_velmar_test_AllTypes::AllTypes;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* service = "com.example.access";

// One whose getter of Text is the test's.
class Own : public AllTypes
{
  public:
    using AllTypes::AllTypes;
    using AllTypes::text;

    std::string text() const override
    {
        on_text();
        return AllTypes::text();
    }

    static std::function<void()> on_text;
};

std::function<void()> Own::on_text;

template <bool has_properties>
void destroy(void* object);

template <bool has_properties>
const gantry::Descriptor descriptor = []
{
    gantry::Descriptor own = AllTypes::descriptor;
    own.properties = has_properties ? own.properties : nullptr;
    own.create = gantry::create<Own>;
    own.destroy = destroy<has_properties>;
    return own;
}();

template <bool has_properties>
void destroy(void* object)
{
    gantry::destroy(object, descriptor<has_properties>);
}

class PropertyAccess : public testing::Test
{
  protected:
    PropertyAccess()
    {
        Own::on_text = [] {};
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, service);
        gantry::instantiate({"test", 1, "test"}, descriptor<true>, context, nullptr, "/all",
                            nullptr);
        GANTRY_instance_find(context, AllTypes::interface, nullptr, &all);
        client.subscribe();
        logged();
    }

    ~PropertyAccess() override
    {
        GANTRY_context_free(&context);
    }

    // What was announced since the last look: of each signal, "Member: value" of each property.
    std::vector<std::vector<std::string>> announced()
    {
        client.settle(service);
        std::vector<std::vector<std::string>> result;
        for (const auto& signal : client.signals("PropertiesChanged"))
        {
            auto& changes = result.emplace_back();
            for (const auto& [member, value] : signal.changed)
            {
                changes.push_back(member + ": " + value);
            }
        }
        client.clear_signals();
        return result;
    }

    // Both values are set, and read back; the first is announced, the second skips it, and an equal
    // one is no change.
    template <class Type>
    void set_and_get(const char* member,
                     void (*set)(GANTRY_instance*, const char*, Type, bool, int*),
                     void (*get)(GANTRY_instance*, const char*, Type*, int*), Type one, Type other,
                     const std::string& on_the_bus)
    {
        int error = -1;
        Type value{};
        set(all, member, one, false, &error);
        EXPECT_EQ(error, 0) << member;
        set(all, member, one, false, nullptr);
        EXPECT_THAT(announced(), ElementsAre(ElementsAre(member + (": " + on_the_bus))));
        set(all, member, other, true, nullptr);
        EXPECT_THAT(announced(), IsEmpty());
        error = -1;
        get(all, member, &value, &error);
        EXPECT_EQ(error, 0) << member;
        EXPECT_EQ(value, other) << member;
        get(all, member, &value, nullptr);

        // A property of another type, and what isn't there at all.
        value = one;
        for (const auto& [at, name, expected] : {std::tuple{all, "Texts", EINVAL},
                                                 {all, "Nothing", ENOENT},
                                                 {all, "", ENOENT},
                                                 {all, nullptr, ENOENT},
                                                 {nullptr, member, EINVAL}})
        {
            set(at, name, one, false, &error);
            EXPECT_EQ(error, expected);
            error = -1;
            get(at, name, &value, &error);
            EXPECT_EQ(error, expected);
            EXPECT_EQ(value, one);
        }
        get(all, member, nullptr, &error);
        EXPECT_EQ(error, EINVAL);
    }

    int announce(std::vector<const char*> members)
    {
        members.push_back(nullptr);
        int error = -1;
        GANTRY_property_announce(all, members.data(), &error);
        return error;
    }

    GANTRY_cpp_context* context = nullptr;
    GANTRY_instance* all = nullptr;
    support::Client client{[this] { GANTRY_dbus_loop_one_pass(context); }};
};

TEST_F(PropertyAccess, OfNumbers)
{
    const auto of = [this]<class Type>(const char* member, auto set, auto get, Type one, Type other,
                                       const char* on_the_bus)
    { set_and_get<Type>(member, set, get, one, other, on_the_bus); };
#define OF(type) GANTRY_property_set_##type, GANTRY_property_get_##type
    of("Byte", OF(byte), static_cast<unsigned char>(1), static_cast<unsigned char>(255), "y 1");
    of("Flag", OF(boolean), false, true, "b false");
    of("Int16", OF(int16), static_cast<short>(-1), static_cast<short>(7), "n -1");
    of("UInt16", OF(uint16), static_cast<unsigned short>(65534), static_cast<unsigned short>(1),
       "q 65534");
    of("Int32", OF(int32), -2, 3, "i -2");
    of("UInt32", OF(uint32), 4294967294U, 1U, "u 4294967294");
    of("Int64", OF(int64), -9000000000L, 4L, "x -9000000000");
    of("UInt64", OF(uint64), 18446744073709551614UL, 1UL, "t 18446744073709551614");
    of("Real", OF(double), 0.25, -8.5, "d 0.25");
#undef OF
}

TEST_F(PropertyAccess, OfTexts)
{
    int error = -1;
    char* text = nullptr;
    const auto get = [&]
    {
        free(text);
        GANTRY_property_get_string(all, "Text", &text, &error);
        EXPECT_EQ(error, 0);
        return text;
    };
    EXPECT_STREQ(get(), "\"made\"");
    GANTRY_property_set_string(all, "Text", "a longer text than fits into the object", false,
                               &error);
    EXPECT_STREQ(get(), "a longer text than fits into the object");
    GANTRY_property_set_string(all, "Text", nullptr, false, &error);
    EXPECT_STREQ(get(), "");
    EXPECT_THAT(announced(),
                ElementsAre(ElementsAre("Text: s \"a longer text than fits into the object\""),
                            ElementsAre("Text: s \"\"")));
    free(text);

    char one[] = "one";
    char* texts[] = {one, nullptr};
    const GANTRY_string_array record{static_cast<char**>(texts), 2};
    GANTRY_string_array* strings = nullptr;
    GANTRY_property_set_strings(all, "Texts", &record, false, &error);
    EXPECT_EQ(error, 0);
    GANTRY_property_get_strings(all, "Texts", &strings, &error);
    ASSERT_NE(strings, nullptr);
    EXPECT_EQ(std::vector<std::string>(strings->data, strings->data + strings->count),
              (std::vector<std::string>{"one", ""}));
    GANTRY_strings_free(&strings);
    EXPECT_EQ(strings, nullptr);
    GANTRY_strings_free(&strings);
    GANTRY_strings_free(nullptr);
    EXPECT_STREQ(one, "one");

    GANTRY_property_set_strings(all, "Texts", nullptr, false, &error);
    strings = const_cast<GANTRY_string_array*>(&record);
    GANTRY_property_get_strings(all, "Texts", &strings, &error);
    EXPECT_EQ(strings, nullptr);
    EXPECT_THAT(announced(),
                ElementsAre(ElementsAre(R"(Texts: as ["one", ""])"), ElementsAre("Texts: as []")));

    // Neither takes the other's.
    GANTRY_property_set_string(all, "Texts", "a", false, &error);
    EXPECT_EQ(error, EINVAL);
    GANTRY_property_get_strings(all, "Text", &strings, &error);
    EXPECT_EQ(error, EINVAL);
    GANTRY_property_get_string(all, "Nothing", nullptr, &error);
    EXPECT_EQ(error, EINVAL);
    GANTRY_property_set_strings(nullptr, "Texts", &record, false, nullptr);
}

TEST_F(PropertyAccess, LetsNothingThrownOut)
{
    const auto set = [this](const char* text, const std::function<void()>& on_text)
    {
        Own::on_text = on_text;
        int error = -1;
        GANTRY_property_set_string(all, "Text", text, false, &error);
        Own::on_text = [] {};
        char* stored = nullptr;
        GANTRY_property_get_string(all, "Text", &stored, nullptr);
        EXPECT_STREQ(stored, text);
        free(stored);
        return error;
    };
    const std::string where = "2 EXCEPTION property_access.GANTRY_property_set_string: ";
    EXPECT_EQ(set("a", [] { throw std::runtime_error("no luck"); }), EIO);
    EXPECT_EQ(logged(2), where + "no luck\\n\n");
    EXPECT_EQ(set("b", [] { throw std::bad_alloc(); }), ENOMEM);
    EXPECT_EQ(logged(2), where + "std::bad_alloc\\n\n");
    EXPECT_EQ(set("c", [] { throw 42; }), EIO);
    EXPECT_EQ(logged(2), where + "exception of unknown type\\n\n");

    // Getters too. And with the announcement skipped no getter runs.
    Own::on_text = [] { throw 42; };
    char* text = nullptr;
    int error = -1;
    GANTRY_property_get_string(all, "Text", &text, &error);
    EXPECT_EQ(error, EIO);
    EXPECT_EQ(text, nullptr);
    GANTRY_property_set_string(all, "Text", "d", true, &error);
    EXPECT_EQ(error, 0);

    logged();
    EXPECT_EQ(announce({"Flag", "Text"}), EIO);
    EXPECT_EQ(logged(2),
              "2 EXCEPTION announce.GANTRY_property_announce: exception of unknown type\\n\n");
    const char* const members[] = {"Text", nullptr};
    EXPECT_THROW(GANTRY_cpp_property_announce(all, members), int);
    // One that the bus turns into its own error is told by its errno.
    Own::on_text = [] { throw sdbusplus::exception::SdBusError(EBUSY, "text"); };
    EXPECT_EQ(announce({"Text"}), EBUSY);
    EXPECT_THROW(GANTRY_cpp_property_announce(all, members), sdbusplus::exception::SdBusError);
    GANTRY_instance_announce_added(all, &error);
    EXPECT_EQ(error, EBUSY);
    Own::on_text = [] {};
    EXPECT_THAT(announced(), IsEmpty());
}

TEST_F(PropertyAccess, AnnouncesSeveralInOneSignal)
{
    GANTRY_property_set_byte(all, "Byte", 3, true, nullptr);
    GANTRY_property_set_string(all, "Text", "new", true, nullptr);
    EXPECT_EQ(announce({"Text", "Byte"}), 0);
    EXPECT_THAT(announced(), ElementsAre(ElementsAre("Byte: y 3", "Text: s \"new\"")));
    EXPECT_EQ(logged(2), "");

    // What can't go stays behind, what is there twice goes once. The first one's error counts.
    EXPECT_EQ(announce({"Text", "Serial_Text", "Nothing", "Byte", "Text"}), EINVAL);
    EXPECT_EQ(announce({"Nothing", "Serial_Text", "Byte"}), ENOENT);
    EXPECT_THAT(announced(),
                ElementsAre(ElementsAre("Byte: y 3", "Text: s \"new\""), ElementsAre("Byte: y 3")));
    EXPECT_EQ(
        logged(2),
        "2 announce.GANTRY_cpp_property_announce: property [Serial_Text] never announces a change\n"
        "2 announce.GANTRY_cpp_property_announce: there is no property [Nothing]\n"
        "2 announce.GANTRY_cpp_property_announce: there is no property [Nothing]\n"
        "2 announce.GANTRY_cpp_property_announce: property [Serial_Text] never announces a "
        "change\n");

    // With more names than there are properties, or with none left.
    EXPECT_EQ(announce(std::vector<const char*>(1000, "Flag")), 0);
    EXPECT_THAT(announced(), ElementsAre(SizeIs(1)));
    EXPECT_EQ(announce({"Serial_Text"}), EINVAL);
    EXPECT_EQ(announce({}), 0);
    int error = -1;
    GANTRY_property_announce(all, nullptr, &error);
    EXPECT_EQ(error, 0);
    GANTRY_property_announce(nullptr, nullptr, &error);
    EXPECT_EQ(error, EINVAL);
    EXPECT_THAT(announced(), IsEmpty());

    // A class without properties has none of any name.
    gantry::instantiate({"test", 1, "test"}, descriptor<false>, context, nullptr, "/bare", nullptr);
    all = static_cast<Own*>(context->tracker.back().object)->inst;
    EXPECT_EQ(announce({"Text"}), ENOENT);
    GANTRY_property_set_byte(all, "Byte", 1, false, &error);
    EXPECT_EQ(error, ENOENT);
}

} // namespace
