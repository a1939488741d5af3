#pragma once

namespace Nimra {

/// Makes sure that what was done to an open file, or to the entries of an open folder, survives a
/// power cut. The descriptor may be one that was opened with O_PATH. Where it cannot be opened for
/// reading, everything on its file system is brought to the disk instead, through `neighbour`, a
/// file of the same file system that is open in earnest, or else everything there is.
///
/// For what has taken effect already: it does not tell whether it succeeds, since a failure undoes
/// nothing, and some file systems have nothing to do for a folder and say so by failing.
void makeDurable(int fd, int neighbour = -1);

}  // namespace Nimra
