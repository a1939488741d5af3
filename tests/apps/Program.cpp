#include "tests/apps/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "tests/apps/Scratch.h"

namespace Ormek::Testing {

namespace {

int checked(int result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

/// Arguments and environment as exec wants them, made before the fork.
class Exec {
  public:
    Exec(Arguments arguments, const Environment& environment) : _arguments(std::move(arguments)) {
        for (char** variable = environ; *variable != nullptr; ++variable) {
            const std::string text = *variable;
            if (environment.find(text.substr(0, text.find('='))) == environment.end()) {
                _environment.push_back(text);
            }
        }
        for (const auto& [name, value] : environment) {
            _environment.push_back(name + "=" + value);
        }
        _argv = pointers(_arguments);
        _envp = pointers(_environment);
    }

    [[noreturn]] void run() {
        // The test's own choice about broken pipes is not the program's.
        ::signal(SIGPIPE, SIG_DFL);
        ::execvpe(_argv[0], _argv.data(), _envp.data());
        ::_exit(127);
    }

  private:
    static std::vector<char*> pointers(std::vector<std::string>& texts) {
        std::vector<char*> all;
        all.reserve(texts.size() + 1);
        for (std::string& text : texts) {
            all.push_back(text.data());
        }
        all.push_back(nullptr);
        return all;
    }

    Arguments _arguments;
    std::vector<std::string> _environment;
    std::vector<char*> _argv;
    std::vector<char*> _envp;
};

int statusOf(pid_t pid) {
    int status = 0;
    checked(::waitpid(pid, &status, 0), "waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

pid_t spawn(Exec& exec, int in, int out, int err) {
    const pid_t pid = checked(::fork(), "fork");
    if (pid == 0) {
        ::dup2(in, STDIN_FILENO);
        ::dup2(out, STDOUT_FILENO);
        ::dup2(err, STDERR_FILENO);
        exec.run();
    }
    return pid;
}

using Pipe = std::array<int, 2>;

Pipe makePipe() {
    Pipe ends{};
    checked(::pipe2(ends.data(), O_CLOEXEC), "pipe2");
    return ends;
}

}  // namespace

Outcome runProgram(const Arguments& arguments, const std::string& input,
                   const Environment& environment) {
    const Scratch in(input);
    const Scratch out;
    const Scratch err;
    Exec exec(arguments, environment);
    const int status = statusOf(spawn(exec, in.fd(), out.fd(), err.fd()));
    return {status, out.content(), err.content()};
}

std::string runMerged(const Arguments& arguments, const std::string& input) {
    const Scratch in(input);
    const Scratch both;
    Exec exec(arguments, {{"TZ", "UTC"}});
    statusOf(spawn(exec, in.fd(), both.fd(), both.fd()));
    return both.content();
}

Outcome browse(const std::string& folder, const std::string& commands, const Arguments& options) {
    Arguments arguments{ORMEK_PROGRAM, "browse"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(folder);
    return runProgram(arguments, commands, {{"TZ", "UTC"}});
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> actionLinesOf(const std::string& text) {
    std::vector<std::string> lines = linesOf(text);
    std::map<std::string, std::size_t> numbers;
    for (std::string& line : lines) {
        const std::size_t colon = line.find(':');
        const std::string digits = line.substr(0, colon);
        if (digits.find_first_not_of("0123456789") == std::string::npos) {
            const std::size_t number = numbers.emplace(digits, numbers.size() + 1).first->second;
            line.replace(0, digits.size(), std::to_string(number));
        }
    }
    return lines;
}

RunningProgram::RunningProgram(const Arguments& arguments, On on, const Environment& environment) {
    Exec exec(arguments, environment);
    if (on == On::Terminal) {
        const winsize size{25, 100, 0, 0};
        _pid = checked(::forkpty(&_input, nullptr, nullptr, &size), "forkpty");
        if (_pid == 0) {
            exec.run();
        }
        _said = ::dup(_input);
        return;
    }
    const Pipe in = makePipe();
    const Pipe out = makePipe();
    const Pipe err = makePipe();
    _pid = spawn(exec, in[0], out[1], err[1]);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    _input = in[1];
    _output = out[0];
    _said = err[0];
}

RunningProgram::~RunningProgram() {
    closeInput();
    closeOutput();
    ::close(_said);
    if (_pid > 0) {
        ::kill(_pid, SIGKILL);
        ::waitpid(_pid, nullptr, 0);
    }
}

void RunningProgram::type(const std::string& text) const {
    checked(static_cast<int>(::write(_input, text.data(), text.size())), "write");
}

std::string RunningProgram::readUntil(const std::string& text) {
    constexpr int Patience = 60 * 1000;
    std::size_t found = 0;
    while ((found = _unread.find(text)) == std::string::npos) {
        pollfd readable{_said, POLLIN, 0};
        std::array<char, 4096> part{};
        const bool ready = ::poll(&readable, 1, Patience) > 0;
        const ssize_t length = ready ? ::read(_said, part.data(), part.size()) : 0;
        if (length <= 0) {
            throw std::runtime_error("'" + text + "' did not come, but: " + _unread);
        }
        _unread.append(part.data(), static_cast<std::size_t>(length));
    }
    const std::string read = _unread.substr(0, found + text.size());
    _unread.erase(0, read.size());
    return read;
}

void RunningProgram::closeInput() {
    if (_input >= 0) {
        ::close(std::exchange(_input, -1));
    }
}

void RunningProgram::closeOutput() {
    if (_output >= 0) {
        ::close(std::exchange(_output, -1));
    }
}

void RunningProgram::signal(int number) const { checked(::kill(_pid, number), "kill"); }

void RunningProgram::resize(int columns) const {
    const winsize size{25, static_cast<unsigned short>(columns), 0, 0};
    checked(::ioctl(_input, TIOCSWINSZ, &size), "ioctl");
}

void RunningProgram::kill() {
    signal(SIGKILL);
    wait();
}

int RunningProgram::wait() { return statusOf(std::exchange(_pid, -1)); }

}  // namespace Ormek::Testing
