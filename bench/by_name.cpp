/*
 * Measures what a set by name costs beside the accessor, in the largest class of the catalogue, and
 * whether a look-up allocates. Each set stores: two values take turns.
 */
#include <com/orvane/velmar/system/QSFPD/gantry_server.hpp>
#include <gantry/context.hpp>

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <string>

namespace
{

std::size_t allocations;

} // namespace

// The library's allocations too. Not inlined: GCC would take new and free for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    ++allocations;
    void* memory = std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace
{

using GANTRY_com_orvane_velmar_system_QSFPD::QSFPD;

QSFPD& module()
{
    static auto* const object = []
    {
        GANTRY_cpp_context* context = nullptr;
        GANTRY_context_new(&context);
        GANTRY_context_set_service(context, nullptr);
        GANTRY_instantiate__com_orvane_velmar_system_QSFPD(context, nullptr, nullptr, nullptr);
        return static_cast<QSFPD*>(context->tracker.back().object);
    }();
    return *object;
}

/** A property of the class: its name, its setter, and two values. */
struct Byte
{
    static constexpr auto name = "RXPowerLowWarningFlag";
    static constexpr std::array values{static_cast<unsigned char>(1),
                                       static_cast<unsigned char>(2)};
    static void set(unsigned char value)
    {
        benchmark::DoNotOptimize(module().rxPowerLowWarningFlag(value, true));
    }
};

struct Text
{
    static constexpr auto name = "VendorName";
    inline static const std::array values{std::string(32, 'a'), std::string(32, 'b')};
    static void set(const std::string& value)
    {
        benchmark::DoNotOptimize(module().vendorName(value, true));
    }
};

/** Reports the allocations within its scope, setup left out. */
class Counted
{
  public:
    explicit Counted(benchmark::State& of) : state(of), before(allocations)
    {
    }
    ~Counted()
    {
        state.counters["allocations"] = static_cast<double>(allocations - before);
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

  private:
    benchmark::State& state;
    std::size_t before;
};

template <class Property>
void by_accessor(benchmark::State& state)
{
    std::size_t turn = 0;
    const Counted counted{state};
    for ([[maybe_unused]] auto _ : state)
    {
        Property::set(Property::values[++turn % 2]);
    }
}

template <class Property>
void by_name(benchmark::State& state)
{
    const std::string name = Property::name;
    const std::array<QSFPD::PropertyVariant, 2> values{Property::values[0], Property::values[1]};
    std::size_t turn = 0;
    const Counted counted{state};
    for ([[maybe_unused]] auto _ : state)
    {
        module().setPropertyByName(name, values[++turn % 2], true);
    }
}

void look_up(benchmark::State& state)
{
    const std::string name = Byte::name;
    const Counted counted{state};
    for ([[maybe_unused]] auto _ : state)
    {
        benchmark::DoNotOptimize(module().getPropertyByName(name));
    }
}

BENCHMARK(by_accessor<Byte>)->Name("accessor/byte");
BENCHMARK(by_name<Byte>)->Name("by_name/byte");
BENCHMARK(by_accessor<Text>)->Name("accessor/text");
BENCHMARK(by_name<Text>)->Name("by_name/text");
BENCHMARK(look_up);

} // namespace

BENCHMARK_MAIN();
