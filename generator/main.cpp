#include "command_line.hpp"

#include <iostream>

int main(int count, char** arguments)
{
    return gantrygen::run({arguments + 1, arguments + count}, std::cout, std::cerr);
}
