#include "apps/LineReader.h"

#include <histedit.h>

#include <cerrno>
#include <istream>
#include <stdexcept>
#include <string_view>

#include "apps/Interrupt.h"

namespace App {

LineReader::~LineReader() = default;

std::optional<std::string> StreamLineReader::next(const std::string& /*prompt*/) {
    std::string line;
    return std::getline(_in, line) ? std::optional(line) : std::nullopt;
}

struct TerminalLineReader::Editor {
    explicit Editor(std::FILE* shownOn)
        : output(shownOn),
          lines(::el_init("ormek", stdin, shownOn, stderr), ::el_end),
          history(::history_init(), ::history_end) {
        if (!lines || !history) {
            throw std::runtime_error("the terminal cannot be used for editing");
        }
        constexpr int Remembered = 1000;
        HistEvent event{};
        ::history(history.get(), &event, H_SETSIZE, Remembered);
        ::history(history.get(), &event, H_SETUNIQUE, 1);
        ::el_set(lines.get(), EL_CLIENTDATA, this);
        ::el_set(lines.get(), EL_PROMPT, &Editor::promptOf);
        ::el_set(lines.get(), EL_EDITOR, "emacs");
        ::el_set(lines.get(), EL_SIGNAL, 1);
        ::el_set(lines.get(), EL_HIST, ::history, history.get());
        ::el_set(lines.get(), EL_BIND, "^R", "em-inc-search-prev", nullptr);
        ::el_source(lines.get(), nullptr);
        ::el_set(lines.get(), EL_BIND, "^C", "em-kill-line", nullptr);
    }

    static char* promptOf(EditLine* lines) {
        Editor* self = nullptr;
        ::el_get(lines, EL_CLIENTDATA, &self);
        return self->prompt.data();
    }

    void remember(const std::string& line) const {
        HistEvent event{};
        ::history(history.get(), &event, H_ENTER, line.c_str());
    }

    std::FILE* output;
    std::unique_ptr<EditLine, decltype(&::el_end)> lines;
    std::unique_ptr<History, decltype(&::history_end)> history;
    std::string prompt;
};

TerminalLineReader::TerminalLineReader(std::FILE* output)
    : _editor(std::make_unique<Editor>(output)) {}

TerminalLineReader::~TerminalLineReader() = default;

std::optional<std::string> TerminalLineReader::next(const std::string& prompt) {
    _editor->prompt = prompt;
    EditLine* lines = _editor->lines.get();
    // Before the prompt is shown, so that whoever sees it finds the keys bound. As a key, Ctrl-C
    // cannot arrive while nobody waits for it, nor in another thread; the terminal's own mode has
    // to be the editor's for this to last.
    ::el_set(lines, EL_PREP_TERM, 1);
    ::el_set(lines, EL_SETTY, "-d", "intr=", nullptr);
    // What was pressed earlier was meant for the command that is over.
    Interrupt::take();
    int length = 0;
    errno = 0;
    const char* typed = ::el_gets(lines, &length);
    if (typed == nullptr || length <= 0) {
        const bool interrupted = length < 0 && errno == EINTR;
        std::fputc('\n', _editor->output);
        std::fflush(_editor->output);
        return interrupted ? std::optional<std::string>("") : std::nullopt;
    }
    std::string line(typed, static_cast<std::size_t>(length));
    if (line.ends_with('\n')) {
        line.pop_back();
    }
    if (line.find_first_not_of(" \t") != std::string::npos) {
        _editor->remember(line);
    }
    return line;
}

}  // namespace App
