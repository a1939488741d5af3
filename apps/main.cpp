#include <fcntl.h>
#include <langinfo.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <fstream>
#include <iostream>
#include <system_error>

#include "apps/CommandError.h"
#include "apps/Escape.h"
#include "apps/Interrupt.h"
#include "apps/LineReader.h"
#include "apps/OutputBuffer.h"
#include "apps/Session.h"
#include "apps/Shell.h"
#include "backend/FolderService.h"
#include "client/Client.h"

namespace {

constexpr int CommandFailed = 1;
constexpr int CannotStart = 2;

struct Options {
    std::string folder;
    std::string trace;
    bool echo = false;
};

int complain(const std::string& text, int status) {
    std::cerr << "ormek: " + App::printable(text) + "\n";
    return status;
}

std::string reasonOf(int error) { return std::generic_category().message(error); }

// What opens files later must not get the number of a standard stream that was closed.
void occupyStandardStreams() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    ::close(fd);
}

// Names are UTF-8 whatever the environment says, and so is what is typed.
void chooseCharacters() {
    std::setlocale(LC_CTYPE, "");
    if (std::string_view(::nl_langinfo(CODESET)) != "UTF-8") {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

/// Takes the cache's trace away from the terminal: into a file, or nowhere.
class Trace {
  public:
    explicit Trace(const std::string& file) {
        if (file.empty()) {
            std::cout.setstate(std::ios::failbit);
            return;
        }
        errno = 0;
        if (_file.open(file, std::ios::out | std::ios::trunc | std::ios::binary) == nullptr) {
            throw App::CommandError("the trace cannot be written to " + App::quoted(file) + ": " +
                                    reasonOf(errno));
        }
        _previous = std::cout.rdbuf(&_file);
    }
    Trace(const Trace&) = delete;
    Trace& operator=(const Trace&) = delete;
    ~Trace() { close(); }

    /// False when not all of it could be written.
    bool close() {
        if (_previous == nullptr) {
            return true;
        }
        const bool complete = std::cout.good() && _file.close() != nullptr;
        std::cout.rdbuf(std::exchange(_previous, nullptr));
        return complete;
    }

  private:
    std::filebuf _file;
    std::streambuf* _previous = nullptr;
};

/// Standard output for people. Whatever is said on standard error comes after it.
class Output {
  public:
    Output() { std::cerr.tie(&_stream); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() { std::cerr.tie(nullptr); }

    std::ostream& stream() { return _stream; }
    /// The error number of what could not be written; 0 when all could.
    int close() {
        _stream.flush();
        std::cerr.tie(nullptr);
        return _buffer.error();
    }

  private:
    App::OutputBuffer _buffer{STDOUT_FILENO};
    std::ostream _stream{&_buffer};
};

int runShell(App::Session& session, const Options& options, bool interactive) {
    std::unique_ptr<App::LineReader> reader;
    if (interactive) {
        reader = std::make_unique<App::TerminalLineReader>(::isatty(STDOUT_FILENO) != 0 ? stdout
                                                                                        : stderr);
    } else {
        reader = std::make_unique<App::PlainLineReader>(STDIN_FILENO);
    }
    const auto echo = options.echo && !interactive ? App::Shell::Echo::On : App::Shell::Echo::Off;
    const bool allWell = App::Shell(session, *reader, echo).run();
    // Whoever types commands has seen which of them failed.
    const bool wellEnough = allWell || (interactive && !session.actions().hasLost());
    return wellEnough ? 0 : CommandFailed;
}

int runClient(std::ostream& out, const Options& options) {
    constexpr unsigned long User = 1;
    Ormek::Client client(std::make_unique<Nimra::FolderService>(options.folder, User), User,
                         std::chrono::steady_clock::now);
    App::Session::Surroundings surroundings{out, std::cerr};
    surroundings.showProgress = ::isatty(STDERR_FILENO) != 0;
    const bool interactive = ::isatty(STDIN_FILENO) != 0;
    std::optional<App::Interrupt> interrupt;
    if (interactive) {
        interrupt.emplace();
        surroundings.interrupted = App::Interrupt::take;
    }
    App::Session session(client, surroundings);
    return runShell(session, options, interactive);
}

int browse(const Options& options) {
    Trace trace(options.trace);
    Output output;
    const int status = runClient(output.stream(), options);
    const int error = output.close();
    if (error == EPIPE) {
        // Who closed the pipe has seen enough, and needs no message.
        return CommandFailed;
    }
    if (error != 0) {
        return complain("the output cannot be written: " + reasonOf(error), CommandFailed);
    }
    if (!trace.close()) {
        return complain("the trace could not be written to its end", CommandFailed);
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    occupyStandardStreams();
    chooseCharacters();
    std::signal(SIGPIPE, SIG_IGN);

    Options options;
    CLI::App app("Browses a folder through the directory cache.", "ormek");
    app.set_version_flag("--version", "ormek " ORMEK_VERSION);
    app.require_subcommand(1);
    CLI::App* command =
        app.add_subcommand("browse", "Reads commands from standard input; 'help' lists them.");
    command->add_option("FOLDER", options.folder, "The folder to browse")->required();
    command->add_option("--trace", options.trace, "Records the cache's trace in this file");
    command->add_flag("--echo", options.echo, "Repeats each command that is not typed");
    try {
        app.parse(argc, argv);
        return browse(options);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        return complain(error.what(), CannotStart);
    } catch (const std::exception& error) {
        return complain(error.what(), CannotStart);
    }
}
