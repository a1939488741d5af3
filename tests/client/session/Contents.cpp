#include "tests/client/session/Contents.h"

#include <algorithm>
#include <charconv>

#include "service/ServiceError.h"

namespace Ormek::Testing {

namespace {

constexpr std::string_view Head = "content ";

}  // namespace

unsigned long Contents::next() {
    const std::lock_guard lock(_mutex);
    return ++_last;
}

// Now and then longer than any buffer on the way.
std::string Contents::of(unsigned long number) {
    const std::size_t length = number % 50 == 0 ? 1'200'000 : number * 37 % 300;
    std::string content = std::string(Head) + std::to_string(number) + '\n';
    content.append(length, static_cast<char>('a' + number % 26));
    return content;
}

std::optional<unsigned long> Contents::numberOf(std::string_view content) {
    if (!content.starts_with(Head)) {
        return std::nullopt;
    }
    unsigned long number = 0;
    const std::string_view rest = content.substr(Head.size());
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number);
    if (error != std::errc() || content != of(number)) {
        return std::nullopt;
    }
    return number;
}

void Contents::made(unsigned long number) {
    const std::lock_guard lock(_mutex);
    ++_present[number];
}

void Contents::gone(unsigned long number) {
    const std::lock_guard lock(_mutex);
    const auto found = _present.find(number);
    if (found != _present.end() && --found->second == 0) {
        _present.erase(found);
    }
}

std::map<unsigned long, unsigned long> Contents::present() const {
    const std::lock_guard lock(_mutex);
    return _present;
}

NumberedSource::NumberedSource(unsigned long number, Manner manner)
    : _number(number), _manner(manner), _content(Contents::of(number)) {}

unsigned long NumberedSource::size() const {
    return _manner == Manner::LiesAboutItsSize ? _content.size() + 1 : _content.size();
}

std::size_t NumberedSource::read(char* buffer, std::size_t size) {
    if (_manner == Manner::BreaksOff && _done >= _content.size() / 2) {
        throw Nimra::ServiceError(Nimra::Reason::NoPermission, "the source breaks off");
    }
    const std::size_t wanted = _manner == Manner::BreaksOff ? _content.size() / 2 : size;
    const std::size_t count = std::min({wanted, size, _content.size() - _done});
    std::copy_n(_content.begin() + static_cast<std::ptrdiff_t>(_done), count, buffer);
    _done += count;
    return count;
}

}  // namespace Ormek::Testing
