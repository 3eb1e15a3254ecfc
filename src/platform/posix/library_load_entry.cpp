// Runs when the shared library is loaded, as DllMain's process attach does
// on Windows.
#include "platform/library_load.h"

namespace {

__attribute__((constructor)) void RunAtLoad() { kavo::OnLibraryLoad(); }

}  // namespace
