#!/usr/bin/env python3
"""Prints the sequences that tests/foundation/tkRandom_test.cpp expects of seed 1.

The 64-bit Mersenne Twister is written down here from its published recurrence (Matsumoto and Nishimura's
mt19937-64 parameters), independently of any C++ library; Python's floats are IEEE doubles. The logarithm is that of
60 decimal digits, rounded, and thus of no C library either; IEEE fixes the square root.
"""
import decimal
import math

decimal.getcontext().prec = 60

MASK = (1 << 64) - 1


class MersenneTwister64:
    def __init__(self, seed):
        self.state = [seed & MASK]
        for i in range(1, 312):
            last = self.state[-1]
            self.state.append((6364136223846793005 * (last ^ (last >> 62)) + i) & MASK)
        self.place = 312

    def next(self):
        if self.place == 312:
            for i in range(312):
                x = (self.state[i] & 0xFFFFFFFF80000000) | (self.state[(i + 1) % 312] & 0x7FFFFFFF)
                self.state[i] = self.state[(i + 156) % 312] ^ (x >> 1) ^ (0xB5026F5AA96619E9 if x & 1 else 0)
            self.place = 0
        x = self.state[self.place]
        self.place += 1
        x ^= (x >> 29) & 0x5555555555555555
        x ^= (x << 17) & 0x71D67FFFEDA60000
        x ^= (x << 37) & 0xFFF7EEE000000000
        return x ^ (x >> 43)


def uniform(generator, low, high):
    return low + (generator.next() >> 11) * 2.0**-53 * (high - low)


def gaussian(generator, count):
    deviates = []
    while len(deviates) < count:
        x, y = uniform(generator, -1.0, 1.0), uniform(generator, -1.0, 1.0)
        square = x * x + y * y
        if 0.0 < square < 1.0:
            logarithm = float(decimal.Decimal(square).ln())
            factor = math.sqrt(-2.0 * logarithm / square)
            deviates += [x * factor, y * factor]
    return deviates[:count]


generator = MersenneTwister64(1)
print("uniform in [-1, 3]:", ", ".join(uniform(generator, -1.0, 3.0).hex() for _ in range(8)))
print("standard Gaussian:", ", ".join(x.hex() for x in gaussian(MersenneTwister64(1), 8)))
