#pragma once

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace App {

class Actions;

/// Where the commands come from.
class LineReader {
  public:
    LineReader() = default;
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;
    virtual ~LineReader();

    /// The next line, without its end; nothing when there are no more. A line that was given up
    /// half-way is empty. What comes of the actions while there is no input is reported.
    virtual std::optional<std::string> next(const std::string& prompt, Actions& actions) = 0;
};

/// Lines from a file descriptor, which it does not own; it shows no prompt.
class PlainLineReader : public LineReader {
  public:
    explicit PlainLineReader(int fd) : _fd(fd) {}

    std::optional<std::string> next(const std::string& prompt, Actions& actions) override;

  private:
    /// False at the end of the input.
    bool readMore(Actions& actions);

    int _fd;
    std::string _unread;
};

/// Lines typed at the terminal that is standard input, with editing and a history that lasts as
/// long as the reader. Ctrl-C empties the line. What is reported goes above the line, which is
/// shown again as it was typed so far. One at a time.
class TerminalLineReader : public LineReader {
  public:
    /// `output` is where prompt and line are shown.
    explicit TerminalLineReader(std::FILE* output);
    ~TerminalLineReader() override;

    std::optional<std::string> next(const std::string& prompt, Actions& actions) override;

  private:
    struct Editor;

    std::unique_ptr<Editor> _editor;
};

}  // namespace App
