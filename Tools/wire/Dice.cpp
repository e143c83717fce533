#include "Dice.h"

CDice::CDice(std::uint64_t ullSeed) : m_generator(ullSeed) {}

double CDice::Throw()
{
    // The 53 bits that a double holds exactly.
    return static_cast<double>(m_generator() >> 11) * 0x1.0p-53;
}
