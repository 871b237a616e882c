/*
 * A host in C++. It has one object that the library makes and frees, handled through its class, and
 * one that the host makes itself, of a class derived from a generated one.
 */
#include <com/orvane/velmar/hwi/HWISupport/server.hpp>
#include <com/orvane/velmar/system/BLT/gantry_server.hpp>
#include <gantry/gantry.h>

#include <systemd/sd-event.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <exception>
#include <gantry/call.hpp>
#include <gantry/context.hpp>
#include <gantry/object.hpp>
#include <gantry/property.hpp>
#include <gantry/types.hpp>
#include <iostream>
#include <memory>
#include <sdbusplus/exception.hpp>
#include <string>
#include <variant>

namespace
{

using GANTRY_com_orvane_velmar_system_BLT::BLT;
using HWISupport = sdbusplus::server::com::orvane::velmar::hwi::HWISupport;

/** A method is an override. What it throws as an SdBusError is the client's error, and it may
 * answer later: here a second later, if the firmware isn't ready yet. */
class Support : public HWISupport
{
  public:
    Support(GANTRY_cpp_context& context, const char* path, const BLT* firmware) :
        HWISupport(context.bus, path), event(context.event.get()), reported(firmware)
    {
    }

    bool queryIsReady() override
    {
        if (reported == nullptr)
        {
            throw sdbusplus::exception::SdBusError(ENODEV, "no firmware");
        }
        if (reported->firmwareVersion().empty())
        {
            waiting.push_back(gantry::defer<bool>(*this));
            sd_event_add_time_relative(event, nullptr, CLOCK_MONOTONIC, 1'000'000, 0, answer, this);
        }
        return true; // dropped if it is answered later
    }

  private:
    /** The event loop calls it. */
    static int answer(sd_event_source* /*timer*/, std::uint64_t /*now*/, void* support)
    {
        auto& self = *static_cast<Support*>(support);
        self.waiting.front().reply(!self.reported->firmwareVersion().empty());
        self.waiting.pop_front();
        return 0;
    }

    sd_event* event;
    std::deque<gantry::DeferredReply<bool>> waiting;
    const BLT* reported;
};

/** Publishes the firmware. The instance and its object live until GANTRY_instance_free() or the end
 *  of the context. Returns null if it could not be published, which the log tells. */
BLT* publish_firmware(GANTRY_cpp_context* context)
{
    GANTRY_instance* instance = nullptr;
    GANTRY_instantiate__com_orvane_velmar_system_BLT(context, nullptr, nullptr, nullptr);
    GANTRY_instance_get_created(context, &instance, nullptr);
    auto* firmware = gantry::object<BLT>(instance);
    if (firmware != nullptr)
    {
        const gantry::HeldChanges together(context); // one signal for both
        firmware->manufacturer("Example Inc.");
        firmware->setPropertyByName("FirmwareVersion", std::string("2.19.1"));
    }
    return firmware;
}

} // namespace

int main()
{
    GANTRY_cpp_context* context = nullptr;
    GANTRY_context_new(&context);
    if (context == nullptr)
    {
        return EXIT_FAILURE; // the log says why
    }
    const std::unique_ptr<GANTRY_cpp_context*, decltype(&GANTRY_context_free)> freed{
        &context, GANTRY_context_free};
    GANTRY_context_set_service(context, "com.orvane.velmar.HWInventory");
    try
    {
        // A host's own object has no instance; the host destroys it.
        const Support support(*context, "/support", publish_firmware(context));
        GANTRY_dbus_sdloop(context); // which serves the timer, too
    }
    catch (const std::exception& refused) // the path is taken, say
    {
        std::cerr << refused.what() << '\n';
    }
    return EXIT_FAILURE; // the loop ends only with a failure
}
