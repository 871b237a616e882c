// A stand-in for the platform's data store: a registry in memory by key, and a history of the
// latest operations. One lock guards both.
#include "tallybook.hpp"

#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <utility>

#include <unistd.h>

#include "tallybook_inspect.hpp"

namespace Tallybook
{

namespace
{

class Registry
{
  public:
    void set(Entry entry)
    {
        const std::scoped_lock lock(mutex_);
        record({Operation::Kind::set_key, entry});
        std::string key = entry.key;
        entries_.insert_or_assign(std::move(key), std::move(entry));
    }

    void remove(const std::string& key)
    {
        const std::scoped_lock lock(mutex_);
        entries_.erase(key);
        record({Operation::Kind::remove, {key, {}, {}, 0}});
    }

    std::vector<Entry> entries()
    {
        const std::scoped_lock lock(mutex_);
        std::vector<Entry> result;
        result.reserve(entries_.size());
        for (const auto& [key, entry] : entries_)
        {
            result.push_back(entry);
        }
        return result;
    }

    std::vector<Operation> history()
    {
        const std::scoped_lock lock(mutex_);
        return {history_.begin(), history_.end()};
    }

    void clear()
    {
        const std::scoped_lock lock(mutex_);
        entries_.clear();
        history_.clear();
    }

  private:
    void record(Operation operation)
    {
        if (history_.size() == history_limit)
        {
            history_.pop_front();
        }
        history_.push_back(std::move(operation));
    }

    std::mutex mutex_;
    std::map<std::string, Entry> entries_;
    std::deque<Operation> history_;
};

// Never destroyed, because an object on the bus may outlive this library's static objects.
Registry& registry()
{
    static auto* const instance = new Registry;
    return *instance;
}

} // namespace

void set_key(const std::string& key, const std::string& class_name, const std::string& object_path,
             unsigned short caller_id)
{
    registry().set({key, class_name, object_path, caller_id});
}

void remove(const std::string& key) noexcept
{
    try
    {
        registry().remove(key);
    }
    catch (const std::exception&) // NOLINT(bugprone-empty-catch)
    {
        // No memory for the history. The key itself has been removed, as requested.
    }
}

std::vector<Entry> entries()
{
    return registry().entries();
}

std::vector<Operation> history()
{
    return registry().history();
}

void clear() noexcept
{
    registry().clear();
}

} // namespace Tallybook

int tallybook_caller_id(void)
{
    // The store keeps only 16 bits.
    return static_cast<int>(static_cast<unsigned short>(getpid()));
}
