#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "service/ContentSource.h"

namespace Ormek::Testing {

/// The contents of a session's documents. Each has a number, and is known by it wherever it turns
/// up, whole or not. Keeps book of which are there. Safe to call from any thread.
class Contents {
  public:
    /// A number that no content has yet.
    unsigned long next();
    static std::string of(unsigned long number);
    /// The number of a content that is whole; empty for anything else.
    static std::optional<unsigned long> numberOf(std::string_view content);

    void made(unsigned long number);
    void gone(unsigned long number);
    /// How many documents have each content that is there.
    std::map<unsigned long, unsigned long> present() const;

  private:
    mutable std::mutex _mutex;
    unsigned long _last = 0;
    std::map<unsigned long, unsigned long> _present;
};

/// Uploads the content of a number, in a way that the number decides: most are as they should be,
/// some break off, and some promise another size than they have.
class NumberedSource : public Nimra::ContentSource {
  public:
    enum class Manner { Sound, BreaksOff, LiesAboutItsSize };

    NumberedSource(unsigned long number, Manner manner);

    unsigned long size() const override;
    std::size_t read(char* buffer, std::size_t size) override;
    unsigned long number() const { return _number; }

  private:
    unsigned long _number;
    Manner _manner;
    std::string _content;
    std::size_t _done = 0;
};

}  // namespace Ormek::Testing
