#include "credentials.hpp"

#include "connection.hpp"
#include "context_state.hpp"

#include <cerrno>

namespace gantry
{
namespace
{

/** Handles every message that isn't an answer of the bus, without a reply. */
int drop(sd_bus_message* /*message*/, void* /*data*/, sd_bus_error* /*error*/)
{
    return 1;
}

/** Opens a second connection to the context's bus. The context's loops read it as well, so that
 *  what arrives while nothing is asked doesn't gather. */
int open(GANTRY_cpp_context& context, AskingBus& opened) noexcept
{
    const char* address = nullptr;
    sd_bus* made = nullptr;
    int result = sd_bus_get_address(GANTRY_get_sd_bus(context.bus), &address);
    result = result < 0 ? result : sd_bus_new(&made);
    AskingBus bus(made, sd_bus_close_unref);
    if (result >= 0 && (result = sd_bus_set_address(made, address)) >= 0 &&
        (result = sd_bus_set_bus_client(made, 1)) >= 0 &&
        (result = sd_bus_negotiate_fds(made, 0)) >= 0 &&
        (result = sd_bus_add_filter(made, nullptr, drop, nullptr)) >= 0 &&
        (result = sd_bus_start(made)) >= 0 &&
        (result = sd_bus_attach_event(made, context.event.get(), SD_EVENT_PRIORITY_IDLE)) >= 0)
    {
        opened = std::move(bus);
    }
    return result;
}

} // namespace

int ask_credentials(GANTRY_cpp_context& context, const char* name, Credentials& found) noexcept
{
    if (name == nullptr)
    {
        return -ENODATA;
    }
    auto& bus = context.state->asking_bus;
    int result = bus != nullptr && sd_bus_is_open(bus.get()) > 0 ? 0 : open(context, bus);
    if (result < 0)
    {
        return result;
    }
    sd_bus_creds* creds = nullptr;
    result = uninterrupted(
        [&] {
            return sd_bus_get_name_creds(bus.get(), name, SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID,
                                         &creds);
        });
    result = result < 0 ? result : sd_bus_creds_get_euid(creds, &found.uid);
    result = result < 0 ? result : sd_bus_creds_get_pid(creds, &found.pid);
    sd_bus_creds_unref(creds);
    return result;
}

} // namespace gantry
