// What the library does as a process loads it. Only the hook that runs it
// is the operating system's (DllMain's process attach, a shared-object
// constructor); the layers above define the work. The shared library alone
// has a hook.
#pragma once

namespace kavo {

void OnLibraryLoad();

}  // namespace kavo
