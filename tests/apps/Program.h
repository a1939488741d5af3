#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace Ormek::Testing {

/// What a program left behind.
struct Outcome {
    int status = -1;  ///< Its exit status; minus the signal that ended it.
    std::string out;
    std::string err;
};

using Arguments = std::vector<std::string>;
using Environment = std::map<std::string, std::string>;

/// Runs a program to its end; `arguments` starts with its path, which is searched for if it has no
/// slash. `environment` adds to that of the test.
Outcome runProgram(const Arguments& arguments, const std::string& input = "",
                   const Environment& environment = {});

/// Runs it with its standard output going where its standard error goes.
std::string runMerged(const Arguments& arguments, const std::string& input);

/// Runs `ormek browse` on a folder with commands, one a line.
Outcome browse(const std::string& folder, const std::string& commands,
               const Arguments& options = {});

std::vector<std::string> linesOf(const std::string& text);
/// The same, with the operations' numbers, as lines on actions start with, counted from 1.
std::vector<std::string> actionLinesOf(const std::string& text);

/// A program that runs while the test goes on. It is killed when the test gives it up.
class RunningProgram {
  public:
    /// On pipes, or on a terminal that it has for itself.
    enum class On { Pipes, Terminal };

    RunningProgram(const Arguments& arguments, On on, const Environment& environment = {});
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;
    ~RunningProgram();

    void type(const std::string& text) const;
    /// Reads what is said, on the terminal or else on standard error, up to and with `text`. An
    /// exception tells when that does not come.
    std::string readUntil(const std::string& text);
    void closeInput();
    void closeOutput();
    void signal(int number) const;
    /// Gives its terminal another width.
    void resize(int columns) const;
    /// Ends it on the spot, as nothing can keep it from.
    void kill();
    /// Its exit status, minus the signal that ended it.
    int wait();

  private:
    pid_t _pid = -1;
    int _input = -1;
    int _output = -1;
    int _said = -1;
    std::string _unread;
};

}  // namespace Ormek::Testing
