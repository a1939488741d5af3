// Random sessions of the embedding kit, one after the other, until the time is over or a promise is
// broken.

#include <charconv>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <random>
#include <string_view>

#include "tests/client/session/Sessions.h"

namespace {

using Ormek::Testing::Figures;
using Ormek::Testing::Session;
using Ormek::Testing::Sessions;

constexpr int Usage = 2;
// Each seed is good for so many sessions, the first of them short.
constexpr int SessionsPerSeed = 60;
constexpr int LongestSession = 150;

/// Each seed stands for one way in which sessions take place.
Sessions sessionsOf(std::uint64_t seed) {
    using Manner = Session::Manner;
    using Place = Session::Place;
    Sessions sessions{Place::Memory, Manner::InTurns, SessionsPerSeed, LongestSession, seed};
    switch (seed % 8) {
        case 0:
        case 1:
            sessions.place = Place::Disk;
            break;
        case 2:
            sessions.place = Place::Disk;
            sessions.manner = Manner::Freely;
            break;
        case 3:
            sessions.manner = Manner::Freely;
            break;
        case 4:
            sessions.manner = Manner::Crowded;
            break;
        default:
            break;
    }
    return sessions;
}

template <class Number>
bool read(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

int main(int argc, char** argv) {
    double minutes = 0;
    std::uint64_t seed = std::random_device()();
    if (argc < 2 || argc > 3 || !read(argv[1], minutes) || (argc == 3 && !read(argv[2], seed))) {
        std::cerr << "usage: ormek_session MINUTES [SEED]\n";
        return Usage;
    }
    std::cout.setstate(std::ios::failbit);
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::duration<double, std::ratio<60>>(minutes);
    std::cerr << "from seed " << seed << " on\n";
    Figures figures;
    const std::uint64_t first = seed;
    do {
        if (!Ormek::Testing::goWell(sessionsOf(seed), figures)) {
            std::cerr << "seed " << seed << " breaks a promise; again: script/session 0 " << seed
                      << '\n'
                      << figures << '\n';
            return 1;
        }
        ++seed;
    } while (std::chrono::steady_clock::now() < end);
    std::cerr << "seeds " << first << " to " << seed - 1 << ": " << figures << '\n';
    return 0;
}
