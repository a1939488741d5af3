#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "apps/Session.h"

namespace App {

/// A command of the shell. To add one is to write its function and its row in the table.
struct Command {
    using Words = std::vector<std::string>;

    std::string_view name;
    std::string_view usage;  ///< What follows the name.
    std::string_view help;   ///< One line for the overview.
    std::string_view more;   ///< Further lines for "help NAME".
    /// Is given the words behind the name. Throws CommandError, and whatever the library throws.
    void (*run)(Session& session, const Words& words);
};

std::span<const Command> commands();

/// Null when there is none of that name.
const Command* findCommand(std::string_view name);

// The commands that are found in files of their own.
void runLs(Session& session, const Command::Words& words);
void runInfo(Session& session, const Command::Words& words);
// ActionCommands.cpp
void runRename(Session& session, const Command::Words& words);
void runMv(Session& session, const Command::Words& words);
void runRm(Session& session, const Command::Words& words);
void runMkdir(Session& session, const Command::Words& words);
void runSet(Session& session, const Command::Words& words);
void runSession(Session& session, const Command::Words& words);
// ContentCommands.cpp
void runPut(Session& session, const Command::Words& words);
void runGet(Session& session, const Command::Words& words);
void runCat(Session& session, const Command::Words& words);

}  // namespace App
