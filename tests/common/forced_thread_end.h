// How this platform ends a thread that did not stop in time: Win32
// terminates it where it stands; POSIX abandons it to finish on its own.
#pragma once

namespace kavo::test {

// True where a forcibly ended thread goes on running until its current call
// returns. Where it is terminated instead, whatever it held (locks included)
// is lost with it, so a test must not touch those objects again.
bool ForcedEndLetsThreadsFinish();

}  // namespace kavo::test
