#pragma once

namespace Nimra {

/// Makes sure that what was done to an open file, or to the entries of an open folder, survives a
/// power cut. The descriptor may be one that was opened with O_PATH. Where it cannot be opened for
/// reading, everything on its file system is brought to the disk instead, through `neighbour`,
/// which must be open in earnest, or if that is on another file system, everything there is, unless
/// the process merely lacks a descriptor or memory.
///
/// For what has taken effect already: it does not tell whether it succeeds, since a failure undoes
/// nothing, and some file systems have nothing to do for a folder and say so by failing.
void makeDurable(int fd, int neighbour);

}  // namespace Nimra
