#include "Seed.h"

namespace sim {
namespace {

uint64_t splitmix(uint64_t& state) {
    uint64_t z = (state += UINT64_C(0x9e3779b97f4a7c15));
    z = (z ^ (z >> 30)) * UINT64_C(0xbf58476d1ce4e5b9);
    z = (z ^ (z >> 27)) * UINT64_C(0x94d049bb133111eb);
    return z ^ (z >> 31);
}

}  // namespace

SeededNumbers::SeededNumbers(uint64_t seed, std::string_view purpose) : state_(seed) {
    for (const char c : purpose) {
        state_ ^= static_cast<unsigned char>(c);
        splitmix(state_);
    }
}

uint64_t SeededNumbers::next() {
    return splitmix(state_);
}

double SeededNumbers::uniform(double low, double high) {
    const double unit = static_cast<double>(next() >> 11) / static_cast<double>(UINT64_C(1) << 53);
    return low + unit * (high - low);
}

}  // namespace sim
