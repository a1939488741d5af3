#pragma once

#include <string>

#include "apps/LineReader.h"
#include "apps/Session.h"

namespace App {

/// Reads commands and carries them out, one after the other, until there are no more, one of them
/// says so, or nobody takes the output any more. A command that fails says why on one line. A line
/// that starts with # is a comment. What has become of earlier actions is said before the next
/// prompt and the next command, while these are waited for, and at the end, where it is waited for.
class Shell {
  public:
    enum class Echo { Off, On };

    /// With `Echo::On`, each line is repeated behind the prompt before it is carried out.
    Shell(Session& session, LineReader& reader, Echo echo = Echo::Off)
        : _session(session), _reader(reader), _echo(echo) {}

    /// False when a command failed, at once or later, or was lost.
    bool run();

  private:
    std::string prompt();
    bool carryOut(const std::string& line);

    Session& _session;
    LineReader& _reader;
    Echo _echo;
};

}  // namespace App
