#include "apps/LineReader.h"

#include <histedit.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "apps/Actions.h"
#include "apps/Interrupt.h"
#include "apps/SignalHandler.h"

namespace App {

namespace {

enum class Woken { ByInput, ByNews, BySignal };

// Input goes first: whoever takes a line reports before carrying it out. With `signals`, those that
// it holds back are held back meanwhile, and no others.
Woken waitForInput(int input, Actions& actions, const sigset_t* signals = nullptr) {
    while (true) {
        std::array<pollfd, 2> awaited{{{input, POLLIN, 0}, {actions.fd(), POLLIN, 0}}};
        if (::ppoll(awaited.data(), awaited.size(), nullptr, signals) < 0) {
            return Woken::BySignal;
        }
        if (awaited[0].revents != 0) {
            return Woken::ByInput;
        }
        if (actions.hasNews()) {
            return Woken::ByNews;
        }
    }
}

/// Holds back the terminal's signals, so that none comes between the last look and the wait. Not
/// SIGINT, which the editor sends to itself once more when it has come.
class SignalsHeldBack {
  public:
    SignalsHeldBack() {
        sigset_t held;
        ::sigemptyset(&held);
        for (const int signal : {SIGWINCH, SIGCONT}) {
            ::sigaddset(&held, signal);
        }
        ::pthread_sigmask(SIG_BLOCK, &held, &_before);
    }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
    ~SignalsHeldBack() { ::pthread_sigmask(SIG_SETMASK, &_before, nullptr); }

    const sigset_t& before() const { return _before; }

  private:
    sigset_t _before{};
};

volatile std::sig_atomic_t resized = 0;
volatile std::sig_atomic_t continued = 0;

extern "C" void onTerminalSignal(int signal) { (signal == SIGCONT ? continued : resized) = 1; }

}  // namespace

LineReader::~LineReader() = default;

std::optional<std::string> PlainLineReader::next(const std::string& /*prompt*/, Actions& actions) {
    std::size_t searched = 0;
    std::size_t end = 0;
    while ((end = _unread.find('\n', searched)) == std::string::npos) {
        searched = _unread.size();
        if (!readMore(actions)) {
            return _unread.empty() ? std::nullopt : std::optional(std::exchange(_unread, {}));
        }
    }
    std::string line = _unread.substr(0, end);
    _unread.erase(0, end + 1);
    return line;
}

bool PlainLineReader::readMore(Actions& actions) {
    while (true) {
        const Woken woken = waitForInput(_fd, actions);
        if (woken == Woken::ByNews) {
            actions.report();
        } else if (woken == Woken::ByInput) {
            std::array<char, 4096> part{};
            const ssize_t length = ::read(_fd, part.data(), part.size());
            if (length > 0) {
                _unread.append(part.data(), static_cast<std::size_t>(length));
                return true;
            }
            if (length == 0 || (errno != EINTR && errno != EAGAIN)) {
                return false;
            }
        }
    }
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
        ::el_set(lines.get(), EL_GETCFN, &Editor::readKey);
        ::el_set(lines.get(), EL_EDITOR, "emacs");
        ::el_set(lines.get(), EL_SIGNAL, 1);
        ::el_set(lines.get(), EL_HIST, ::history, history.get());
        ::el_set(lines.get(), EL_BIND, "^R", "em-inc-search-prev", nullptr);
        ::el_source(lines.get(), nullptr);
        ::el_set(lines.get(), EL_BIND, "^C", "em-kill-line", nullptr);
    }

    static Editor& of(EditLine* lines) {
        Editor* self = nullptr;
        ::el_get(lines, EL_CLIENTDATA, &self);
        return *self;
    }

    static char* promptOf(EditLine* lines) { return of(lines).prompt.data(); }

    // The editor's own function reads the key, once there is one. Nothing is thrown through it.
    static int readKey(EditLine* lines, wchar_t* key) {
        Editor& self = of(lines);
        try {
            if (!self.waitForKey()) {
                errno = EINTR;
                return -1;
            }
        } catch (...) {
            self.failure = std::current_exception();
            return -1;
        }
        ::el_set(lines, EL_GETCFN, EL_BUILTIN_GETCFN);
        const int read = ::el_wgetc(lines, key);
        ::el_set(lines, EL_GETCFN, &Editor::readKey);
        return read;
    }

    /// False when Ctrl-C came as a signal.
    bool waitForKey() {
        const SignalsHeldBack held;
        Woken woken = Woken::BySignal;
        while (true) {
            if (Interrupt::take()) {
                return false;
            }
            heedSignals();
            if (woken == Woken::ByInput) {
                return true;
            }
            if (woken == Woken::ByNews) {
                leaveLine();
                actions->report();
                ::el_set(lines.get(), EL_REFRESH);
            }
            woken = waitForInput(STDIN_FILENO, *actions, &held.before());
        }
    }

    // The cursor may stand in any row of a long line: what is below it goes.
    void leaveLine() const {
        std::fputc('\n', output);
        ::el_set(lines.get(), EL_ECHOTC, "-s", "cd", nullptr);
        std::fflush(output);
    }

    // The editor itself heeds only the first one of a kind that comes while it waits for a key.
    void heedSignals() const {
        if (std::exchange(resized, 0) != 0) {
            ::el_resize(lines.get());
        }
        if (std::exchange(continued, 0) != 0) {
            ::el_set(lines.get(), EL_PREP_TERM, 0);
            ::el_set(lines.get(), EL_PREP_TERM, 1);
            leaveLine();
            ::el_set(lines.get(), EL_REFRESH);
        }
    }

    void remember(const std::string& line) const {
        HistEvent event{};
        ::history(history.get(), &event, H_ENTER, line.c_str());
    }

    std::FILE* output;
    SignalHandler resizing{SIGWINCH, onTerminalSignal};
    SignalHandler continuing{SIGCONT, onTerminalSignal};
    std::unique_ptr<EditLine, decltype(&::el_end)> lines;
    std::unique_ptr<History, decltype(&::history_end)> history;
    std::string prompt;
    Actions* actions = nullptr;  ///< While a line is read.
    std::exception_ptr failure;
};

TerminalLineReader::TerminalLineReader(std::FILE* output)
    : _editor(std::make_unique<Editor>(output)) {}

TerminalLineReader::~TerminalLineReader() = default;

std::optional<std::string> TerminalLineReader::next(const std::string& prompt, Actions& actions) {
    _editor->prompt = prompt;
    _editor->actions = &actions;
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
    if (_editor->failure) {
        std::rethrow_exception(std::exchange(_editor->failure, nullptr));
    }
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
