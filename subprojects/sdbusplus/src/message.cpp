// A message's reply, sending it, and the steps of a read, each one sd-bus call and the call's name
// in errors.

#include "sdbusplus/message.hpp"

#include "check.hpp"

namespace sdbusplus
{
namespace message
{
namespace details
{

const Container vector_container{
    SD_BUS_TYPE_ARRAY,
    "sd_bus_message_enter_container emplace_back_container",
    "sd_bus_message_at_end emplace_back_container",
    "sd_bus_message_exit_container emplace_back_container",
};

const Container set_container{
    SD_BUS_TYPE_ARRAY,
    "sd_bus_message_enter_container emplace_container",
    "sd_bus_message_at_end emplace_container",
    "sd_bus_message_exit_container emplace_container",
};

// The signature fixes the number of members in these; only an array needs at_end.

const Container tuple_container{
    SD_BUS_TYPE_STRUCT,
    "sd_bus_message_enter_container tuple",
    nullptr,
    "sd_bus_message_exit_container tuple",
};

const Container pair_container{
    SD_BUS_TYPE_DICT_ENTRY,
    "sd_bus_message_enter_container pair",
    nullptr,
    "sd_bus_message_exit_container pair",
};

const Container variant_container{
    SD_BUS_TYPE_VARIANT,
    "sd_bus_message_enter_container variant",
    nullptr,
    "sd_bus_message_exit_container variant",
};

void Reader::number(char type, void* value) const
{
    check(intf->sd_bus_message_read_basic(m, type, value), "sd_bus_message_read_basic fundamental");
}

void Reader::read(bool& value) const
{
    int wide = 0;
    check(intf->sd_bus_message_read_basic(m, SD_BUS_TYPE_BOOLEAN, &wide),
          "sd_bus_message_read_basic bool");
    value = wide != 0;
}

void Reader::enter(const Container& container, const char* contents) const
{
    check(intf->sd_bus_message_enter_container(m, container.type, contents), container.enter);
}

bool Reader::at_end(const Container& container) const
{
    return check(intf->sd_bus_message_at_end(m, false), container.at_end) > 0;
}

void Reader::exit(const Container& container) const
{
    check(intf->sd_bus_message_exit_container(m), container.exit);
}

bool Reader::is_variant(const char* contents) const
{
    return check(intf->sd_bus_message_verify_type(m, SD_BUS_TYPE_VARIANT, contents),
                 "sd_bus_message_verify_type variant") > 0;
}

void Reader::skip_variant() const
{
    check(intf->sd_bus_message_skip(m, "v"), "sd_bus_message_skip variant");
}

void Reader::read(std::string& value) const
{
    const char* text = nullptr;
    check(intf->sd_bus_message_read_basic(m, SD_BUS_TYPE_STRING, &text),
          "sd_bus_message_read_basic string");
    value = text;
}

} // namespace details

message message::new_method_return()
{
    sd_bus_message* reply = nullptr;
    check(interface()->sd_bus_message_new_method_return(get(), &reply),
          "sd_bus_message_new_method_return");
    return message(reply, interface(), std::false_type{});
}

void message::send()
{
    sd_bus* b = interface()->sd_bus_message_get_bus(get());
    check(interface()->sd_bus_send(b, get(), nullptr), "sd_bus_send");
}

} // namespace message
} // namespace sdbusplus
