/*
 * Announcements of changed properties, by PropertiesChanged, and the announcements that wait.
 *
 * A change is announced at once, unless
 *
 *     the host holds its changes, to send many together, or
 *     the bus daemon doesn't read: a connection whose write queue has `stalled_queue` messages
 * would otherwise queue one more for each change, without bound
 *
 * Then it is only noted: for each object, which of its properties changed. What waits is sent as
 * one signal per object with the values of that time, so that values in between may be left out. It
 * is sent
 *
 *     when the host ends its hold, or a loop runs although changes are held
 *     when the queue has been written down to `relieved_queue`, which is looked at when a loop is
 *     entered, after each run of the event loop, and by a timer, for the host's own event loop
 *     for one object before a reply of it, and for all objects before a signal of the host, so that
 *     neither overtakes a change
 *     for all objects before the context is destroyed
 *
 * Objects that come and go while the bus daemon doesn't read wait in the same order
 * (object_manager.hpp).
 *
 * The memory for what waits is bounded by the number of objects, and of paths that lost one.
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
#include <unordered_map>
#include <vector>

namespace gantry
{

inline constexpr std::uint64_t stalled_queue = 10'000;
inline constexpr std::uint64_t relieved_queue = 1'000;

/** Some rows of a class, by their places. */
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
        /** An object or a path; null once it was sent or doesn't matter any more. */
        void* subject = nullptr;
        const Property<Object>* header = nullptr;
        RowSet rows;
        /** Sends all that is to be said of the subject; empty for a change of properties. */
        std::function<void()> tell;
    };

    /** The change of a subject that waits; null if none does. */
    Change* find(const void* subject) noexcept;
    /** Adds a change of a subject that has none. */
    Change& add(void* subject, const Property<Object>* header);
    /** Has a change tell all that is to be said of its subject. */
    void tell_by(Change& change, std::function<void()> tell) noexcept;
    /** Takes the first change out. Returns false if none waits. */
    bool take_first(Change& taken) noexcept;
    /** Takes a subject's change out. Returns false if it has none. */
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

    /** For a client that lists the objects: from now on it may know those that wait to be told of.
     */
    void listed() noexcept
    {
        ++generation;
    }
    /** Whether no client can know an object that was published at that `mark()`. */
    [[nodiscard]] bool is_unknown(std::uint32_t mark) const noexcept
    {
        return mark != 0 && mark == generation;
    }
    [[nodiscard]] std::uint32_t mark() const noexcept
    {
        return tells > 0 ? generation : 0;
    }

    /** How often the host has asked for its changes to be held and not yet to be sent. */
    unsigned holds = 0;
    /** Looks whether the queue is relieved; null while nothing waits for that. */
    sd_event_source* timer = nullptr;

  private:
    /** In the order of each subject's first change. */
    std::vector<Change> changes;
    std::size_t first = 0;
    /** How many of the changes tell all of their subjects. */
    std::size_t tells = 0;
    std::uint32_t generation = 0;
    std::unordered_map<const void*, std::size_t> positions;
};

/** Appends a property and its value to a signal, as sd-bus does for one of its own. Returns a
 *  negative errno if the getter fails. What fails otherwise, sd-bus remembers until it is to send
 *  the signal. */
int append_property(sd_bus_message* signal, sd_bus* bus, const char* path, const char* interface,
                    const sd_bus_vtable& entry, void* object);

/** Announces the property of the object that this row is of. Throws what a getter throws. */
void announce(Object& object, const Property<Object>& row);

/** Announces several properties of an object in one signal. Throws what a getter throws, and
 *  SdBusError if the signal can't be sent. */
void announce(GANTRY_cpp_context& context, Object& object, const Property<Object>& header,
              const RowSet& rows);

/** Whether objects that come and go are to be noted, since the bus daemon doesn't read. */
bool must_wait_for_bus(GANTRY_cpp_context& context);

/** Notes that `tell` is to be called for a subject when the bus daemon reads again, unless that is
 *  noted already. Returns false if memory is too short for that. */
bool wait_for_bus(GANTRY_cpp_context& context, void* subject, std::function<void()> tell);

void send_waiting_changes(GANTRY_cpp_context& context);

/** For a loop: sends what waits, if it need not wait any longer. Throws what a getter throws. */
inline void send_due_changes(GANTRY_cpp_context& context)
{
    if (waiting_changes != 0)
    {
        send_waiting_changes(context);
    }
}

/** Sends what the host has held. While the bus doesn't read, it goes on waiting. Throws what a
 *  getter throws, after the other objects' changes are sent. */
void end_hold(GANTRY_cpp_context& context);

/** Sends all that waits, since the context is being destroyed, and logs what a getter throws. */
void send_last_changes(GANTRY_cpp_context& context) noexcept;

} // namespace gantry
