// One end of a connection without a bus: enough for sd-bus to make messages, seal them and read
// them back. What the other end gets to see is of no interest here, but it may send bytes of its
// own.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace test
{

struct Unref
{
    void operator()(sd_bus_message* m) const
    {
        sd_bus_message_unref(m);
    }
};

using Message = std::unique_ptr<sd_bus_message, Unref>;

class Peer
{
  public:
    Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;
    ~Peer();

    sd_bus* get() const
    {
        return bus;
    }

    // A signal under construction.
    Message signal() const;

    // A method call under construction.
    Message call() const;

    // A signal that sd-bus itself filled, ready to be read.
    template <typename... Args>
    Message sealed(const char* types, Args... args) const
    {
        auto m = signal();
        check(sd_bus_message_append(m.get(), types, args...));
        return seal(std::move(m));
    }

    // The same as a method call.
    template <typename... Args>
    Message sealed_call(const char* types, Args... args) const
    {
        auto m = call();
        check(sd_bus_message_append(m.get(), types, args...));
        return seal(std::move(m));
    }

    // Ends a message's construction and puts the reading position at its start.
    static Message seal(Message m);

    // A signal with this body, as it comes in from a sender of the given byte order.
    Message receive(bool big_endian, const std::string& signature, const std::string& body);

  private:
    static void check(int result);

    sd_bus* bus = nullptr;
    int other_end = -1;
    bool greeted = false;
};

// What sd-bus finds in a message, one line a value.
std::string dump(const Message& m);

// Bytes as they go over the wire, padded to D-Bus's alignment.
class Bytes
{
  public:
    explicit Bytes(bool big_endian) : big(big_endian)
    {
    }

    Bytes& align(std::size_t boundary);
    Bytes& number(unsigned long value, std::size_t width);
    Bytes& string(const std::string& text);
    Bytes& signature(const std::string& text);
    Bytes& append(const Bytes& other);

    const std::string& get() const
    {
        return bytes;
    }

  private:
    bool big;
    std::string bytes;
};

} // namespace test
