#include "tests/client/session/World.h"

namespace Ormek::Testing {

const std::vector<std::string>& usableNames() {
    static const std::vector<std::string> names = {
        "a",         "b",       "c",        "d",   "ab",           "B",     " ",      "-x", "a*[b",
        "new\nline", ".hidden", "\xc3\xa4", "...", "\xff\xfe\x01", "a.txt", "\\n\"&<"};
    return names;
}

const std::string& anyName(std::uint32_t number) {
    static const std::vector<std::string> odd = {"",
                                                 ".",
                                                 "..",
                                                 "a/b",
                                                 std::string("a\0b", 3),
                                                 std::string(256, 'l'),
                                                 ".ormek-0123456789abcdef0123456789abcdef.part"};
    constexpr std::uint32_t OneIn = 25;
    if (number % OneIn == OneIn - 1) {
        return odd[number / OneIn % odd.size()];
    }
    return usableNames()[number % usableNames().size()];
}

}  // namespace Ormek::Testing
