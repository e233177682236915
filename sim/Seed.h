// Seeded variation of the simulated headset, for a lab of headsets that differ: a seed gives each
// part of the headset figures of its own, the same on every run and every platform.
#pragma once

#include <cstdint>
#include <string_view>

namespace sim {

// Numbers drawn from a seed and a purpose (splitmix64 over both), so that every use of the seed
// has a stream of its own and a new use does not shift the others. Never relies on the standard
// library's distributions, whose results differ between implementations.
class SeededNumbers {
public:
    SeededNumbers(uint64_t seed, std::string_view purpose);
    uint64_t next();
    // Uniform in [low, high).
    double uniform(double low, double high);

private:
    uint64_t state_;
};

}  // namespace sim
