// Random sessions of the embedding kit, one after the other, until the time is over or a promise is
// broken.

#include <charconv>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <random>
#include <string_view>

#include "tests/client/session/Session.h"
#include "tests/support/FixedCases.h"

namespace {

using Ormek::Testing::Figures;
using Ormek::Testing::Session;

constexpr int Usage = 2;
// Each seed is good for so many sessions, the first short, the last of about so many steps.
constexpr int SessionsPerSeed = 60;
constexpr int LongestSession = 150;

/// Where and how the sessions of a seed take place.
struct Setting {
    Session::Place place;
    Session::Manner manner;
};

Setting settingOf(std::uint64_t seed) {
    using Manner = Session::Manner;
    using Place = Session::Place;
    switch (seed % 8) {
        case 0:
        case 1:
            return {Place::Disk, Manner::InTurns};
        case 2:
            return {Place::Disk, Manner::Freely};
        case 3:
            return {Place::Memory, Manner::Freely};
        case 4:
            return {Place::Memory, Manner::Crowded};
        default:
            return {Place::Memory, Manner::InTurns};
    }
}

bool hold(std::uint64_t seed, Figures& figures) {
    const Setting setting = settingOf(seed);
    return Ormek::Testing::holds(
        "a client keeps its promises", SessionsPerSeed, LongestSession,
        [&] {
            Session session(setting.place, setting.manner, figures);
            session.run(*Ormek::Testing::steps());
        },
        seed);
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
        if (!hold(seed, figures)) {
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
