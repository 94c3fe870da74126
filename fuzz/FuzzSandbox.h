// The workspace of a fuzz target that writes files.
//
// The reader writes its outputs where it is told and saves object events
// under file names taken from the input, relative to the current directory
// or absolute. A fuzz target therefore runs inside a scratch directory (in
// /dev/shm when there is one, else where it was started) that is emptied
// after every input, and the process confines itself (Landlock) so that it
// can write only beneath the scratch directory, the directory it was started
// in and the corpus and artifact directories named on its command line.
#pragma once

#include <string>

namespace vek {
namespace fuzz {

// Call from LLVMFuzzerInitialize with its arguments, before libFuzzer reads
// them: makes the path arguments absolute, creates the scratch directory and
// moves into it, sends standard output to /dev/null (the reports print
// their summaries there) and confines file writes. Exits the process when
// writes cannot be confined, unless VEK_FUZZ_UNCONFINED=1 is set.
void enterSandbox(int* argc, char*** argv);

// Removes everything in the scratch directory (the current directory).
void clearScratch();

}  // namespace fuzz
}  // namespace vek
