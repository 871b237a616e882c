#include "thread_context.hpp"

#include "context_state.hpp"

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <new>

namespace gantry
{
namespace
{

pthread_once_t key_once = PTHREAD_ONCE_INIT;
pthread_key_t context_key;
std::atomic<bool> key_valid{false};

/** The key's destructor, in the thread that exits. */
void destroy_at_thread_exit(void* data)
{
    auto* context = static_cast<GANTRY_cpp_context*>(data);
    context->state->destroy(context);
}

void create_key()
{
    constexpr int attempts = 10;
    for (int attempt = 1; pthread_key_create(&context_key, destroy_at_thread_exit) != 0; ++attempt)
    {
        if (attempt == attempts)
        {
            return;
        }
        sched_yield();
    }
    std::atomic_thread_fence(std::memory_order_seq_cst);
    key_valid.store(true);
    std::atomic_thread_fence(std::memory_order_seq_cst);
}

} // namespace

bool has_thread_key() noexcept
{
    pthread_once(&key_once, create_key);
    return key_valid;
}

// POSIX doesn't list pthread_getspecific among the functions that a signal handler may call. In
// glibc one may: it is a load from the thread's descriptor.
GANTRY_cpp_context* own_context() noexcept
{
    return key_valid ? static_cast<GANTRY_cpp_context*>(pthread_getspecific(context_key)) : nullptr;
}

void set_own_context(GANTRY_cpp_context* context)
{
    if (pthread_setspecific(context_key, context) != 0)
    {
        throw std::bad_alloc();
    }
}

int delete_thread_key() noexcept
{
    return key_valid.exchange(false) ? pthread_key_delete(context_key) : -1;
}

} // namespace gantry
