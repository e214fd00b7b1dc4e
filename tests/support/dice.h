// SPDX-License-Identifier: Apache-2.0
// Random numbers from a seed, the same on every machine.

#ifndef SUPPORT_DICE_H
#define SUPPORT_DICE_H

#include <cstddef>
#include <random>

namespace support {

class Dice {
public:
    explicit Dice(unsigned long seed) : m_engine(seed) {}
    /// 0 to below - 1.
    unsigned Draw(std::size_t below) { return static_cast<unsigned>(m_engine() % below); }
    bool OneIn(unsigned count) { return Draw(count) == 0; }

private:
    std::mt19937_64 m_engine;
};

}  // namespace support

#endif
