// The operations that are tried short of memory, and the host with its client that they are tried
// on. Whatever an operation is for, what comes of it is seen in the same way: by a look at the
// host.
#pragma once

#include <functional>
#include <set>
#include <string>
#include <vector>

struct Operation
{
    std::string name;
    std::function<void()> act;             // short of memory
    std::function<void()> prepare = [] {}; // right before it
    // The columns that libsystemd alone is to blame for.
    std::string libsystemds{};
};

struct Seen
{
    std::multiset<std::string> before;
    std::multiset<std::string> after;
    int error = 0; // that the host got; -1 for a null pointer
    bool is_lost = false;
};

std::vector<Operation> operations();

// Each process begins and ends a client and a host of its own.
void begin();
Seen run(const Operation& operation);
void end();
