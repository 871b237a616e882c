/*
 * Announcements of changed properties, by PropertiesChanged, and the announcements that wait.
 *
 * A change is announced at once, except in two cases:
 *
 *   - The host holds its changes, to send many together.
 *   - The bus daemon doesn't read, and the connection's write queue has `stalled_queue` messages.
 *     Without a bound, the queue would grow by one message per change.
 *
 * In these cases the change waits, as does each change while others wait: per object, the context
 * keeps which properties changed. Later each object sends one signal with the values of that time,
 * so clients may miss values in between. Changes are sent
 *
 *   - when the host ends its hold, or a loop runs although changes are held;
 *   - when the write queue has fewer than `relieved_queue` messages, which is checked when a loop
 *     is entered, when it has dispatched what was ready, and by a timer, for hosts that run their
 *     own event loop;
 *   - those of one object before a reply of it, and all before a signal of the host, so that
 *     neither overtakes a change;
 *   - before the context is destroyed.
 *
 * The signals about objects that are added or removed while the bus daemon doesn't read wait in the
 * same list (object_manager.hpp).
 *
 * The list has at most one entry per object, and per path that lost one.
 */
#pragma once

#include "property.hpp"
#include "waiting_changes.hpp"

#include <gantry/context.hpp>

#include <systemd/sd-event.h>

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <unordered_map>

namespace gantry
{

inline constexpr std::uint64_t stalled_queue = 10'000;
inline constexpr std::uint64_t relieved_queue = 1'000;

/** Some rows of a class, by their positions. */
using RowSet = std::bitset<Properties::max_count + 1>;

/** The changes of a context that wait. */
class PendingChanges
{
  public:
    PendingChanges() noexcept;
    ~PendingChanges();
    PendingChanges(const PendingChanges&) = delete;
    PendingChanges(PendingChanges&&) = delete;
    PendingChanges& operator=(const PendingChanges&) = delete;
    PendingChanges& operator=(PendingChanges&&) = delete;

    struct Change
    {
        /** An object, or an entry of the context's `removed_interfaces`. */
        void* subject = nullptr;
        const Property<Object>* header = nullptr;
        RowSet rows;
        /** Sends InterfacesAdded or InterfacesRemoved, in place of a PropertiesChanged; empty if
         *  only properties changed. */
        std::function<void()> tell;
    };

    /** The waiting change of a subject; null if it has none. */
    Change* find(const void* subject) noexcept;
    /** Adds a change for a subject that has none. */
    Change& add(void* subject, const Property<Object>* header);
    /** Sets the `tell` of a change that has none. */
    void tell_by(Change& change, std::function<void()> tell) noexcept;
    /** Moves the first change out of the list. Returns false if none waits. */
    bool take_first(Change& taken) noexcept;
    /** Moves a subject's change out of the list. Returns false if it has none. */
    bool take(const void* subject, Change& taken) noexcept;

    [[nodiscard]] bool is_empty() const noexcept
    {
        return positions.empty();
    }
    [[nodiscard]] std::size_t size() const noexcept
    {
        return positions.size();
    }

    /** Brings waiting_changes up to date. */
    void count() const noexcept;

    /** Called when a client lists the objects: it may then know those whose InterfacesAdded waits.
     */
    void listed() noexcept
    {
        ++generation;
    }
    /** Whether no client can know an object that was published when mark() returned `mark`. */
    [[nodiscard]] bool is_unknown(std::uint32_t mark) const noexcept
    {
        return mark != 0 && mark == generation;
    }
    [[nodiscard]] std::uint32_t mark() const noexcept
    {
        return tells > 0 ? generation : 0;
    }

    /** How many holds of the host haven't ended. */
    unsigned holds = 0;
    /** Checks the length of the write queue; null while no check is due. */
    sd_event_source* timer = nullptr;

  private:
    /** In the order of each subject's first change. */
    std::list<Change> changes;
    /** How many of the changes have a `tell`. */
    std::size_t tells = 0;
    std::uint32_t generation = 0;
    std::unordered_map<const void*, std::list<Change>::iterator> positions;
};

/** Appends a property and its value to a signal, as sd-bus does for one of its own. Returns a
 *  negative errno if the getter fails. What fails otherwise, sd-bus remembers until it is to send
 *  the signal. */
int append_property(sd_bus_message* signal, sd_bus* bus, const char* path, const char* interface,
                    const sd_bus_vtable& entry, void* object);

/** Announces a change of the object's property in `row`. Throws what a getter throws. */
void announce(Object& object, const Property<Object>& row);

/** Announces several properties of an object in one signal. Throws what a getter throws, and
 *  SdBusError if the signal can't be sent. */
void announce(GANTRY_cpp_context& context, Object& object, const Property<Object>& header,
              const RowSet& rows);

/** Whether a signal about an added or removed object must wait, since the bus daemon doesn't read.
 */
bool must_wait_for_bus(GANTRY_cpp_context& context);

/** Has `tell` called for a subject when the bus daemon reads again. If the subject already has one,
 *  that one stays. Returns false if memory is too short. */
bool wait_for_bus(GANTRY_cpp_context& context, void* subject, std::function<void()> tell);

void send_waiting_changes(GANTRY_cpp_context& context);

/** Called by loops: sends what waits, if it need not wait any longer. Throws what a getter throws.
 */
inline void send_due_changes(GANTRY_cpp_context& context)
{
    if (waiting_changes != 0)
    {
        send_waiting_changes(context);
    }
}

/** Sends what the host has held, unless the bus daemon doesn't read: then it goes on waiting.
 *  Throws what a getter throws, after the other objects' changes are sent. */
void end_hold(GANTRY_cpp_context& context);

/** Sends all that waits, since the context is being destroyed, and logs what a getter throws. */
void send_last_changes(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
