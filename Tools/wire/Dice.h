#ifndef OSPREY_TOOLS_DICE_H
#define OSPREY_TOOLS_DICE_H

#include <cstdint>
#include <random>

// Chances that one seed always gives again, on every machine: the generator is the standard's,
// whose numbers are fixed; its distributions, which are not, are left out.
class CDice
{
public:
    explicit CDice(std::uint64_t ullSeed);

    // 0 or more, less than 1.
    double Throw();

private:
    std::mt19937_64 m_generator;
};

#endif
