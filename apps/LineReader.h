#pragma once

#include <cstdio>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

namespace App {

/// Where the commands come from.
class LineReader {
  public:
    LineReader() = default;
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;
    virtual ~LineReader();

    /// The next line, without its end; nothing when there are no more. A line that was given up
    /// half-way is empty.
    virtual std::optional<std::string> next(const std::string& prompt) = 0;
};

/// Lines of a stream, which it does not own; it shows no prompt.
class StreamLineReader : public LineReader {
  public:
    explicit StreamLineReader(std::istream& in) : _in(in) {}

    std::optional<std::string> next(const std::string& prompt) override;

  private:
    std::istream& _in;
};

/// Lines typed at the terminal that is standard input, with editing and a history that lasts as
/// long as the reader. Ctrl-C empties the line.
class TerminalLineReader : public LineReader {
  public:
    /// `output` is where prompt and line are shown.
    explicit TerminalLineReader(std::FILE* output);
    ~TerminalLineReader() override;

    std::optional<std::string> next(const std::string& prompt) override;

  private:
    struct Editor;

    std::unique_ptr<Editor> _editor;
};

}  // namespace App
