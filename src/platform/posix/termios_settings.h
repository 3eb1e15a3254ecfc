// The Win32 DCB codes in termios terms: parity 0-4 none/odd/even/mark/space
// (mark and space through CMSPAR), stop bits 0/1/2 as one/two/two, byte
// size 5-8, baud rates as speed_t.
#pragma once

#include <termios.h>

#include "platform/serial_port.h"

namespace kavo::platform::posix {

// Applies the line settings and the flags termios knows (fParity as INPCK,
// fOutxCtsFlow, fOutX, fInX) to `tio`. false, with `tio` untouched, for a
// code or baud rate the port cannot take.
bool ApplyDcb(const SerialState& state, termios* tio);

// The DCB form of `tio`. `flags` supplies the bits termios does not hold
// (DTR and RTS control, ...); fBinary is always set.
SerialState DcbFrom(const termios& tio, uint32_t flags);

}  // namespace kavo::platform::posix
