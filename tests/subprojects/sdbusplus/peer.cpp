// The peer is the server's end of a socket pair. As the server it takes the other end's word for
// who it is, so that a test can write any message by hand.
#include "peer.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace test
{

Peer::Peer()
{
    std::array<int, 2> ends{};
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) < 0
              ? -errno
              : 0);
    other_end = ends[1];
    sd_id128_t id{};
    check(sd_id128_randomize(&id));
    check(sd_bus_new(&bus));
    check(sd_bus_set_fd(bus, ends[0], ends[0]));
    check(sd_bus_set_server(bus, true, id));
    check(sd_bus_set_anonymous(bus, true));
    check(sd_bus_set_trusted(bus, true));
    check(sd_bus_start(bus));
}

Peer::~Peer()
{
    sd_bus_close_unref(bus);
    close(other_end);
}

Message Peer::signal() const
{
    sd_bus_message* m = nullptr;
    check(sd_bus_message_new_signal(bus, &m, "/some/object", "some.Interface", "Member"));
    return Message(m);
}

Message Peer::call() const
{
    sd_bus_message* m = nullptr;
    check(sd_bus_message_new_method_call(bus, &m, nullptr, "/some/object", "some.Interface",
                                         "Member"));
    return Message(m);
}

Message Peer::seal(Message m)
{
    static uint64_t cookie = 0;
    check(sd_bus_message_seal(m.get(), ++cookie, 0));
    check(sd_bus_message_rewind(m.get(), true));
    return m;
}

Message Peer::receive(bool big_endian, const std::string& signature, const std::string& body)
{
    Bytes fields(big_endian);
    fields.number(1, 1).signature("o").string("/some/object");
    fields.align(8).number(2, 1).signature("s").string("some.Interface");
    fields.align(8).number(3, 1).signature("s").string("Member");
    fields.align(8).number(8, 1).signature("g").signature(signature);

    Bytes message(big_endian);
    message.number(big_endian ? 'B' : 'l', 1).number(SD_BUS_MESSAGE_SIGNAL, 1);
    message.number(0, 1).number(1, 1).number(body.size(), 4).number(1, 4);
    message.number(fields.get().size(), 4).append(fields).align(8);

    using namespace std::string_literals;
    const std::string sent =
        (greeted ? ""s : "\0AUTH ANONYMOUS\r\nBEGIN\r\n"s) + message.get() + body;
    greeted = true;
    if (write(other_end, sent.data(), sent.size()) != static_cast<ssize_t>(sent.size()))
    {
        check(-EIO);
    }

    sd_bus_message* m = nullptr;
    while (m == nullptr)
    {
        const int r = sd_bus_process(bus, &m);
        check(r);
        if (r == 0)
        {
            constexpr uint64_t deadline = 10'000'000;
            const int ready = sd_bus_wait(bus, deadline);
            check(ready == 0 ? -ETIMEDOUT : ready);
        }
    }
    return Message(m);
}

void Peer::check(int result)
{
    if (result < 0)
    {
        throw std::system_error(-result, std::generic_category(), "peer");
    }
}

std::string dump(const Message& m)
{
    char* text = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    sd_bus_message_dump(m.get(), out, 0);
    std::fclose(out);
    std::string dumped(text, size);
    std::free(text);
    return dumped;
}

Bytes& Bytes::align(std::size_t boundary)
{
    while (bytes.size() % boundary != 0)
    {
        bytes += '\0';
    }
    return *this;
}

Bytes& Bytes::number(unsigned long value, std::size_t width)
{
    align(width);
    for (std::size_t i = 0; i < width; ++i)
    {
        const std::size_t place = big ? width - 1 - i : i;
        bytes += static_cast<char>(value >> (8 * place));
    }
    return *this;
}

Bytes& Bytes::string(const std::string& text)
{
    number(text.size(), 4);
    bytes.append(text.c_str(), text.size() + 1);
    return *this;
}

Bytes& Bytes::signature(const std::string& text)
{
    number(text.size(), 1);
    bytes.append(text.c_str(), text.size() + 1);
    return *this;
}

Bytes& Bytes::append(const Bytes& other)
{
    bytes += other.bytes;
    return *this;
}

} // namespace test
